#!/usr/bin/env bash
# Installs what `make windows` and `make test-wine` need on Debian 12, beside
# scripts/install-deps.sh: the MinGW-w64 cross compilers (posix threads),
# Debian's Wine, GoogleTest's sources, and dpkg-dev for `apt-get source`
# (QtCore is built from Debian's qt6-base source package, see
# build-qtcore-windows.sh). Idempotent, and silent when all is there.
set -euo pipefail

packages=(
  g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64
  wine wine64
  googletest
  dpkg-dev
  qt6-base-dev qt6-base-dev-tools
  nlohmann-json3-dev
  cmake ninja-build ccache
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
    echo "install-windows-deps: need root (or sudo) to install: ${missing[*]}" >&2
    exit 1
  fi
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
