#!/usr/bin/env bash
# Runs each fuzz target of build-fuzz/ for a set time and prints, per target,
# the executions it made and the time it took. Usage:
#   fuzz/run.sh SECONDS [TARGET...]
# Every target starts from its seed corpus (fuzz/corpus/<target>, read only)
# and the inputs earlier runs found (build-fuzz/corpus/<target>); a crash, a
# leak, a sanitizer report or an input slower than the time-out leaves its
# input in build-fuzz/artifacts/<target>/ and fails the run. Such an input is
# fixed for by a change in the module and then kept under
# fuzz/regressions/<target>/, where fuzz_regression_tests replays it.
set -uo pipefail
cd "$(dirname "$0")/.."

seconds=${1:?usage: fuzz/run.sh SECONDS [TARGET...]}
shift
build=build-fuzz
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for program in "$build"/fuzz/fuzz_*; do
    [ -x "$program" ] && targets+=("${program##*/fuzz_}")
  done
fi
[ ${#targets[@]} -gt 0 ] || { echo "fuzz: no fuzz targets in $build/fuzz; run make fuzz-build" >&2; exit 1; }

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:allocator_may_return_null=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

failed=()
printf '%-22s %12s %8s %s\n' target executions seconds result
for target in "${targets[@]}"; do
  program="$build/fuzz/fuzz_$target"
  work="$build/corpus/$target"
  artifacts="$build/artifacts/$target"
  mkdir -p "$work" "$artifacts"
  dict=()
  [ -f "fuzz/dict/$target.dict" ] && dict=(-dict="fuzz/dict/$target.dict")
  # Device answers and sector images are long from the start: no slow growth
  # of the input length for them.
  case "$target" in
    fuzzed_device|replaced_answers|partition_tables) dict+=(-len_control=0) ;;
  esac
  log="$build/fuzz-$target.log"
  start=$(date +%s)
  "$program" -max_total_time="$seconds" -timeout=25 -rss_limit_mb=2048 -max_len=65536 -print_final_stats=1 \
    -artifact_prefix="$artifacts/" "${dict[@]}" "$work" "fuzz/corpus/$target" >"$log" 2>&1
  status=$?
  took=$(( $(date +%s) - start ))
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  if [ $status -eq 0 ]; then
    result=ok
  else
    result="FAILED (exit $status; see $log and $artifacts/)"
    failed+=("$target")
  fi
  printf '%-22s %12s %8s %s\n' "$target" "${runs:-?}" "$took" "$result"
done

if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: ${#failed[@]} target(s) failed: ${failed[*]}" >&2
  exit 1
fi
