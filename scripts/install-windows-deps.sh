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

exec "$(dirname "$0")/apt-install-missing.sh" install-windows-deps "${packages[@]}"
