#!/usr/bin/env bash
# `make windows`: module_storage.dll, hwc_cli.exe and the Windows test
# programs in build-win/, cross-built with MinGW-w64 against a QtCore
# cross-built from Debian's source (kept in the user's cache folder, so only
# the first run on a machine pays for it). ccache keeps a second build from
# compiling anything again.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=${JOBS:-2}

start=$(date +%s)
scripts/install-windows-deps.sh
deps_done=$(date +%s)
qt_prefix=$(JOBS=$jobs scripts/build-qtcore-windows.sh | tail -n1)
qt_done=$(date +%s)
cmake --preset windows -DCMAKE_PREFIX_PATH="$qt_prefix" >/dev/null
# The DLL and the front end first, then the test programs.
cmake --build --preset windows -j "$jobs" --target module_storage hwc_cli
cmake --build --preset windows -j "$jobs"
done_at=$(date +%s)
echo "make windows: packages $((deps_done - start)) s, QtCore $((qt_done - deps_done)) s," \
     "module, front end and tests $((done_at - qt_done)) s"
