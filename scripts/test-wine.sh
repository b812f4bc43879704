#!/usr/bin/env bash
# `make test-wine`: the Windows build's tests under Debian's Wine, an
# independent Win32. Reads the DLL's export table, runs the Windows test
# program (module tests that need no simulated PC, and the Win* services
# against Wine's own files, timer, processes, pipes, WMI and privileges), the
# DLL through a host that sees only its three exports, and hwc_cli.exe, which
# on Wine's machine (no disk pass-through) must end with status 3 and say why.
#
# The Wine prefix lives in the user's cache folder; its server is started
# before the tests (so that no test pays for its start) and stopped after.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

if [ ! -f build-win/module_storage.dll ] || [ ! -f build-win/module_storage_windows_tests.exe ]; then
  echo "test-wine: build-win/ holds no Windows build; run 'make windows' first" >&2
  exit 1
fi

cache=${XDG_CACHE_HOME:-$HOME/.cache}/module_storage
export WINEPREFIX=${WINEPREFIX:-$cache/wine-prefix}
export WINEARCH=win64
export WINEDEBUG=-all
# No Mono or Gecko installer dialogs on a machine without a display.
export WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY

start=$(date +%s)
if [ ! -f "$WINEPREFIX/system.reg" ]; then
  mkdir -p "$WINEPREFIX"
  wine wineboot --init >/dev/null 2>&1
fi
# Wine maps Z: to the build machine's root folder; no test of a disk
# module should see (or write to) that. The Windows build gets a drive of its
# own instead, M:, so that programs run from build-win/ find what lies beside
# them.
rm -f "$WINEPREFIX/dosdevices/z:"
ln -sfn "$root/build-win" "$WINEPREFIX/dosdevices/m:"
# A persistent server (it may already be running: that is no failure),
# warmed by one program, so that no test pays for the start.
wineserver -p 2>/dev/null || true
wine cmd.exe /c exit 0 >/dev/null 2>&1 || true
stop_server() { wineserver -k 2>/dev/null || true; wineserver -w 2>/dev/null || true; }
trap stop_server EXIT
ready=$(date +%s)

# The file-system check runs "chkdsk.exe" under the system's Windows folder;
# in this prefix that is the stand-in checker built beside the tests.
system32=$WINEPREFIX/drive_c/windows/system32
cp build-win/checker_stand_in.exe "$system32/chkdsk.exe"

failed=0
ctest --preset windows || failed=1

# hwc_cli.exe on Wine's machine: the DLL loads, the catalogue is built, and
# listing and the Quick diagnostic end with "nothing ran" and a reason.
check_cli() {
  local what=$1
  shift
  local output status=0
  output=$(wine "$root/build-win/hwc_cli.exe" "$@" 2>&1) || status=$?
  printf '%s\n' "$output" | sed 's/^/    /'
  if [ "$status" -ne 3 ]; then
    echo "test-wine: hwc_cli.exe $* ended with status $status, not 3 ($what)" >&2
    failed=1
  elif ! grep -q "found no devices" <<<"$output"; then
    echo "test-wine: hwc_cli.exe $* gave no reason for finding nothing ($what)" >&2
    failed=1
  else
    echo "test-wine: hwc_cli.exe $*: status 3 ($what)"
  fi
}
check_cli "list" -Mstorage --list
check_cli "quick diagnostic" -Mstorage -Q

done_at=$(date +%s)
echo "test-wine: Wine prefix and server $((ready - start)) s, tests $((done_at - ready)) s"
[ "$failed" -eq 0 ] && echo "test-wine: passed"
exit "$failed"
