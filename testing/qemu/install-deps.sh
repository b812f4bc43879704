#!/usr/bin/env bash
# Installs what `make test-qemu` needs on Debian 12, through apt-get:
# the emulator, a Debian kernel to boot in it, and the tools that read the
# guest's disks beside hwc_cli. Idempotent, and silent when all is there.
set -euo pipefail

packages=(
  qemu-system-x86 linux-image-amd64 busybox-static kmod cpio
  smartmontools sg3-utils nvme-cli python3 xz-utils zstd
)

missing=()
for pkg in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$pkg")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null 2>&1; then
    sudo_cmd=(sudo)
  else
    echo "install-deps: need root (or sudo) to install: ${missing[*]}" >&2
    exit 1
  fi
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
