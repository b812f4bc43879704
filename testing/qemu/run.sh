#!/usr/bin/env bash
# The QEMU proving ground: boots Debian's kernel under QEMU (TCG) with small
# sparse disks of every kind the kernel's drivers present differently, runs
# hwc_cli beside smartctl, sg3_utils and nvme-cli in the guest, and checks
# that they agree (check.py).
#
#   run.sh BUILD_DIR [--expected FILE]
# Exit status: 0 all agree, 1 a difference, 2 the guest did not finish.
set -euo pipefail

here=$(dirname "$(realpath "$0")")
repo=$(realpath "$here/../..")
build_dir=$(realpath "${1:-$repo/build}")
shift || true
work="$build_dir/qemu"
timeout_s=${QEMU_TEST_TIMEOUT:-540}

"$here/build-initramfs.sh" "$build_dir" "$work"

# The disks: small and sparse. Their identities and the injected errors are
# what check.py compares the tools' answers against (disks.json).
disks="$work/disks"
rm -rf "$disks"
mkdir -p "$disks"
size_mb=64
for d in sata nvme-ok nvme-warn vscsi usb bad badcopy; do
  truncate -s ${size_mb}M "$disks/$d.img"
done
# Bad sectors: errno 61 (ENODATA) becomes MEDIUM ERROR on scsi-hd, on reads
# only (writes to them succeed). blkdebug keeps failing the reads after a
# write (its error rules stay active once triggered), so the copy shows the
# repair's finding and writing, not a sector that reads again afterwards.
# The scan reads 255 sectors at a time, of which only the first 127 move data
# (its byte count is kept in 16 bits, and that stands): 40810, 40811 and
# 89810 sit in read parts, 40000 (offset 220 in its chunk) in a part passed
# over. check.py expects exactly the first three from the scan.
bad_lbas="40000 40810 40811 89810"
{
  for lba in $bad_lbas; do
    printf '[inject-error]\nevent = "read_aio"\nerrno = "61"\niotype = "read"\nsector = "%s"\nonce = "off"\nimmediately = "off"\n\n' "$lba"
  done
} > "$disks/bad.conf"
cp "$disks/bad.conf" "$disks/badcopy.conf"
sdebug_mb=32
sdebug_bad=12000
sdebug_badcount=4

cat > "$disks/disks.json" <<JSON
{
  "sata":      {"serial": "QM-SATA-0001", "model": "QEMU SATA Proving Disk", "bytes": $((size_mb << 20)), "rotation": 7200},
  "nvme-ok":   {"serial": "QMNVME0001", "model": "QEMU NVMe Ctrl", "bytes": $((size_mb << 20)), "criticalWarning": 0},
  "nvme-warn": {"serial": "QMNVME0002", "model": "QEMU NVMe Ctrl", "bytes": $((size_mb << 20)), "criticalWarning": 4},
  "vscsi":     {"serial": "QMVSCSI0001", "vendor": "QMVENDOR", "model": "VSCSI PROVING", "bytes": $((size_mb << 20)), "rotation": 1},
  "usb":       {"serial": "QMUSB0001", "bytes": $((size_mb << 20))},
  "bad":       {"serial": "QMBAD0001", "vendor": "QMVENDOR", "model": "BLKDEBUG BAD", "bytes": $((size_mb << 20)), "badLbas": [${bad_lbas// /, }]},
  "badcopy":   {"serial": "QMBAD0002", "vendor": "QMVENDOR", "model": "BLKDEBUG COPY", "bytes": $((size_mb << 20)), "badLbas": [${bad_lbas// /, }], "repair": "refused"},
  "sdebug":    {"vendor": "Linux", "model": "scsi_debug", "bytes": $((sdebug_mb << 20)), "badLbas": [$(seq -s ', ' $sdebug_bad $((sdebug_bad + sdebug_badcount - 1)))]}
}
JSON

phase=${QEMU_TEST_PHASE:-all}
raw() { echo "if=none,format=raw,cache=unsafe,id=$1,file=$disks/$1.img"; }
args=(
  -machine q35 -accel tcg,thread=multi -cpu max -smp 2 -m 1024 -nographic -no-reboot
  -kernel "$work/vmlinux" -initrd "$work/initramfs.cpio"
  -append "console=ttyS0 quiet panic=-1 hwc.disks=8 hwc.phase=$phase hwc.copy=QMBAD0002 sdebug.mb=$sdebug_mb sdebug.bad=$sdebug_bad sdebug.badcount=$sdebug_badcount"
  -serial "file:$work/console.log"
  -serial "file:$work/results.txt"
  -monitor none -net none
  # SATA on AHCI.
  -device ich9-ahci,id=ahci
  -drive "$(raw sata)"
  -device ide-hd,drive=sata,bus=ahci.0,model="QEMU SATA Proving Disk",serial=QM-SATA-0001,rotation_rate=7200
  # Two NVMe controllers; the second reports a critical warning (bit 2:
  # reliability degraded), which fails its health.
  -drive "$(raw nvme-ok)"
  -device nvme,drive=nvme-ok,serial=QMNVME0001
  -drive "$(raw nvme-warn)"
  -device nvme,drive=nvme-warn,serial=QMNVME0002,smart_critical_warning=4
  # SCSI on virtio-scsi, and the disks with medium errors beside it.
  -device virtio-scsi-pci,id=vscsi
  -drive "$(raw vscsi)"
  -device scsi-hd,bus=vscsi.0,drive=vscsi,vendor=QMVENDOR,product="VSCSI PROVING",serial=QMVSCSI0001,rotation_rate=1
  -drive "if=none,id=bad,format=raw,cache=unsafe,file.driver=blkdebug,file.config=$disks/bad.conf,file.image.filename=$disks/bad.img"
  -device scsi-hd,bus=vscsi.0,drive=bad,vendor=QMVENDOR,product="BLKDEBUG BAD",serial=QMBAD0001
  -drive "if=none,id=badcopy,format=raw,cache=unsafe,file.driver=blkdebug,file.config=$disks/badcopy.conf,file.image.filename=$disks/badcopy.img"
  -device scsi-hd,bus=vscsi.0,drive=badcopy,vendor=QMVENDOR,product="BLKDEBUG COPY",serial=QMBAD0002
  # USB mass storage.
  -device qemu-xhci,id=xhci
  -drive "$(raw usb)"
  -device usb-storage,bus=xhci.0,drive=usb,serial=QMUSB0001
)

rm -f "$work/console.log" "$work/results.txt"
echo "test-qemu: booting the guest (watchdog ${timeout_s}s)"
start=$(date +%s)
status=0
# The watchdog: a guest that hangs is killed, and the run fails.
timeout --kill-after=10 "$timeout_s" qemu-system-x86_64 "${args[@]}" || status=$?
echo "test-qemu: guest ran $(( $(date +%s) - start ))s"
if [ $status -ne 0 ]; then
  echo "test-qemu: QEMU ended with status $status (124: the watchdog stopped it); console: $work/console.log" >&2
  tail -20 "$work/console.log" >&2 || true
fi
if ! grep -q '^@@GUEST done' "$work/results.txt" 2>/dev/null; then
  echo "test-qemu: the guest did not finish its run; console: $work/console.log" >&2
  tail -20 "$work/console.log" >&2 || true
  exit 2
fi
exec python3 "$here/check.py" --results "$work/results.txt" --disks "$disks/disks.json" "$@"
