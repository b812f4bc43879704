#!/usr/bin/env bash
# What `make bench` needs beyond the build, on Debian 12, through apt-get:
# badblocks (the peer of the surface scan), GNU time (peak memory of a run)
# and Python 3 (bench/run_bench.py). Idempotent, silent when all is there.
set -euo pipefail

packages=(e2fsprogs time python3)

exec "$(dirname "$0")/apt-install-missing.sh" install-bench-deps "${packages[@]}"
