#!/usr/bin/env bash
# `make demo`: lists the default simulated PC, then runs the Quick diagnostic
# on every device of it. The default PC has a failing disk on purpose, so exit
# status 1 (a test failed) is what a good run of the diagnostic shows.
#
# The demo fails (and so does CI, which runs it) when a step hangs past its
# time limit, ends by a signal or with a status that shows no result (2 usage,
# 3 nothing could run, 4 stopped, anything else), or when the diagnostic's
# output lacks its summary.
set -u
cli="${1:-build/cli/hwc_cli}"
# Wall-clock seconds a step may take; the whole demo ends in seconds.
step_limit="${DEMO_STEP_SECONDS:-120}"
output="$(mktemp)"
trap 'rm -f "$output"' EXIT
checked=0

# step ALLOWED_STATUSES ARGUMENTS...: runs hwc_cli, shows its output, and
# fails the demo unless it ends with one of the allowed statuses.
step() {
  local allowed="$1"
  shift
  echo "\$ hwc_cli $*"
  local limit=()
  command -v timeout >/dev/null 2>&1 && limit=(timeout -k 5 "$step_limit")
  local status
  if [ -t 1 ]; then
    # On a terminal the progress bar stays live; the output is kept (and its
    # summary checked below) when it goes to a pipe or a file, as in CI.
    "${limit[@]}" "$cli" "$@"
    status=$?
    : >"$output"
    checked=0
  else
    "${limit[@]}" "$cli" "$@" 2>&1 | tee "$output"
    status=${PIPESTATUS[0]}
    checked=1
  fi
  case $status in
    124 | 137) echo "demo: hwc_cli $* did not end within ${step_limit} s" >&2; exit 1 ;;
  esac
  if [ "$status" -gt 128 ]; then
    echo "demo: hwc_cli $* was ended by signal $((status - 128))" >&2
    exit 1
  fi
  case " $allowed " in
    *" $status "*) ;;
    *) echo "demo: hwc_cli $* ended with exit status $status" >&2; exit 1 ;;
  esac
  [ "$status" = 1 ] && echo "(exit status 1: a test failed on a simulated disk, as the default PC is built to show)"
  echo
}

step "0" -Mstorage --machine default --list
step "0 1" -Mstorage --machine default -Q
# The summary is the demo's result: its table and a count line with at least
# one test passed or failed. Checked where the output was kept (a pipe or a
# file, as in CI); on a terminal the user reads it.
if [ "$checked" = 1 ]; then
  if ! grep -q '^Summary' "$output" || ! grep -Eq '^  passed [0-9]+, failed [0-9]+' "$output"; then
    echo "demo: the Quick diagnostic printed no summary" >&2
    exit 1
  fi
  if grep -Eq '^  passed 0, failed 0,' "$output"; then
    echo "demo: the Quick diagnostic passed or failed no test at all" >&2
    exit 1
  fi
fi
exit 0
