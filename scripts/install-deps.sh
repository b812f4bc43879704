#!/usr/bin/env bash
# Installs what the build, the tests and the demo need on Debian 12, through
# apt-get. Idempotent, and silent when everything is already there.
set -euo pipefail

packages=(
  g++ cmake ninja-build make pkg-config binutils ccache
  libgtest-dev libgmock-dev libbenchmark-dev
  qt6-base-dev nlohmann-json3-dev
  qt6-5compat-dev
  g++-mingw-w64-x86-64
  python3-jsonschema
  # hwc_cli's report opened in a real browser, its metrics read by Prometheus' parser
  chromium python3-prometheus-client
  # the Debian package (dpkg-shlibdeps) and a check of the manual page
  dpkg-dev groff-base
  # libFuzzer and the sanitizer runtimes for make fuzz
  clang libclang-rt-14-dev
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
