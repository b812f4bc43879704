#!/usr/bin/env bash
# Builds the guest of the QEMU proving ground: an uncompressed vmlinux from
# Debian's kernel package and an initramfs holding busybox, the kernel's
# storage modules, hwc_cli with the module, and smartctl, sg3_utils and
# nvme-cli, each with the shared libraries it loads.
#
#   build-initramfs.sh BUILD_DIR OUT_DIR
set -euo pipefail

build_dir=$(realpath "$1")
out=$(realpath -m "$2")
here=$(dirname "$(realpath "$0")")

# The newest kernel that has both its image and its modules installed.
kver=
for image in $(ls -v /boot/vmlinuz-*-amd64 2>/dev/null); do
  v=${image#/boot/vmlinuz-}
  [ -d "/lib/modules/$v/kernel" ] && kver=$v
done
[ -n "$kver" ] || { echo "build-initramfs: no Debian amd64 kernel with modules installed" >&2; exit 1; }

mkdir -p "$out"
if [ ! -s "$out/vmlinux-$kver" ]; then
  python3 "$here/extract_vmlinux.py" "/boot/vmlinuz-$kver" "$out/vmlinux-$kver.tmp"
  mv "$out/vmlinux-$kver.tmp" "$out/vmlinux-$kver"
fi
ln -sf "vmlinux-$kver" "$out/vmlinux"

root="$out/root"
rm -rf "$root"
mkdir -p "$root"/{bin,sbin,dev,proc,sys,tmp,run,lib/modules,opt/hwc,results}

cp /bin/busybox "$root/bin/busybox"
for applet in sh mount umount mkdir cat echo ls sleep modprobe insmod poweroff \
              stty dd cp date timeout seq tr sed grep head tail wc md5sum sync \
              find basename readlink printf test true false kill uname cut xargs awk; do
  ln -sf busybox "$root/bin/$applet"
done

# The modules the disks need, with everything they depend on; the package's
# modules.dep is rebuilt for this tree.
modules=(ahci nvme virtio_scsi virtio_pci sd_mod sg usb_storage xhci_pci ehci_pci scsi_debug)
for m in "${modules[@]}"; do
  modprobe -S "$kver" --show-depends "$m" | awk '$1 == "insmod" {print $2}'
done | sort -u | while read -r ko; do
  dest="$root${ko}"
  mkdir -p "$(dirname "$dest")"
  cp "$ko" "$dest"
done
cp "/lib/modules/$kver"/modules.{order,builtin,builtin.modinfo} "$root/lib/modules/$kver/" 2>/dev/null || true
depmod -b "$root" "$kver"

# Programs, and each shared library they load (with the library's own
# dependencies, which ldd lists too).
copy_with_libraries() {
  local program=$1 dest=$2
  cp "$program" "$dest"
  ldd "$program" | awk '/=> \// {print $3} /^\t\/lib/ {print $1}' | while read -r lib; do
    mkdir -p "$root$(dirname "$lib")"
    cp -L "$lib" "$root$lib"
  done
}
copy_with_libraries "$build_dir/cli/hwc_cli" "$root/opt/hwc/hwc_cli"
copy_with_libraries "$build_dir/libmodule_storage.so" "$root/opt/hwc/libmodule_storage.so"
# Debug information only makes the initramfs slower to load.
strip --strip-debug "$root/opt/hwc/hwc_cli" "$root/opt/hwc/libmodule_storage.so"
for tool in smartctl sg_inq sg_vpd sg_logs sg_readcap sg_raw nvme; do
  copy_with_libraries "$(command -v "$tool")" "$root/sbin/$tool"
done
# The dynamic loader where the programs look for it.
mkdir -p "$root/lib64"
cp -L /lib64/ld-linux-x86-64.so.2 "$root/lib64/"

cp "$here/guest-init.sh" "$root/init"
chmod +x "$root/init"
echo "$kver" > "$root/kernel-version"

(cd "$root" && find . | cpio -o -H newc --quiet) > "$out/initramfs.cpio"
echo "build-initramfs: kernel $kver, initramfs $(du -h "$out/initramfs.cpio" | cut -f1)"
