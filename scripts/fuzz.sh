#!/usr/bin/env bash
# Builds the fill-array fuzz target (preset fuzz: clang, libFuzzer, AddressSanitizer
# and UndefinedBehaviorSanitizer) and runs it for SECONDS (default 60) from the seed
# corpus in fuzz/corpus/fill_array. New inputs go to a scratch directory, so the
# repository's corpus stays as committed. Prints executions per second and the total.
# Usage: scripts/fuzz.sh [SECONDS] [extra libFuzzer options...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
scripts/bootstrap.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
log=$work/fuzz.log
status=0
ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  build/fuzz/bin/fuzz_fill_array -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$work/" \
  "$@" "$work" fuzz/corpus/fill_array 2>"$log" || status=$?
if [[ $status -ne 0 ]]; then
  tail -n 40 "$log" >&2
  for crash in "$work"/crash-* "$work"/timeout-* "$work"/oom-*; do
    [[ -e $crash ]] && { mkdir -p build/fuzz/artifacts; cp "$crash" build/fuzz/artifacts/; echo "fuzz: input kept in build/fuzz/artifacts/$(basename "$crash")" >&2; }
  done
  echo "fuzz: FAILED" >&2
  exit 1
fi
runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
echo "fuzz: fill arrays: $runs executions in ${seconds} s, $rate per second, no difference"
