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

exec "$(dirname "$0")/apt-install-missing.sh" install-deps "${packages[@]}"
