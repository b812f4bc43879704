#!/usr/bin/env bash
# Installs what `make test-qemu` needs on Debian 12, through apt-get:
# the emulator, a Debian kernel to boot in it, and the tools that read the
# guest's disks beside hwc_cli. Idempotent, and silent when all is there.
set -euo pipefail

packages=(
  qemu-system-x86 linux-image-amd64 busybox-static kmod cpio
  smartmontools sg3-utils nvme-cli python3 xz-utils zstd
)

here=$(dirname "$(realpath "$0")")
exec "$here/../../scripts/apt-install-missing.sh" test-qemu "${packages[@]}"
