#!/usr/bin/env bash
# Installs what `make test-fidelity` runs on Debian 12, through apt-get: the
# unmodified host tools that read the simulated disks (smartmontools,
# sg3-utils, sdparm) and Python for the checker. Idempotent, and silent when
# everything is already there.
set -euo pipefail

packages=(smartmontools sg3-utils sdparm python3)

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
    echo "install-fidelity-deps: need root (or sudo) to install: ${missing[*]}" >&2
    exit 1
  fi
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
