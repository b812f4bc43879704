#!/usr/bin/env bash
# Installs what `make test-fidelity` runs on Debian 12, through apt-get: the
# unmodified host tools that read the simulated disks (smartmontools,
# sg3-utils, sdparm) and Python for the checker. Idempotent, and silent when
# everything is already there.
set -euo pipefail

packages=(smartmontools sg3-utils sdparm python3)

exec "$(dirname "$0")/apt-install-missing.sh" install-fidelity-deps "${packages[@]}"
