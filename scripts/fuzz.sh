#!/usr/bin/env bash
# Builds the fuzz targets (preset fuzz: clang, libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs one or both for SECONDS each (default 60)
# from their seed corpora:
#
#   slots       every accelerated slot at every tier (fuzz/corpus/slots/<family>/)
#   fill_array  the fill-array operation (fuzz/corpus/fill_array/)
#   all         both, one after the other (the default)
#
# Usage: scripts/fuzz.sh [TARGET] [SECONDS] [extra libFuzzer options...]
#        (scripts/fuzz.sh SECONDS runs all for SECONDS each)
#
# New inputs go to a scratch directory, so the repository's corpora stay as
# committed; with TARNELL_FUZZ_CORPUS=DIR they go to DIR/<target>/ instead, kept
# for the next run (which starts from them too). Prints executions per second, the
# total and the coverage; for slots also the executions per family and per tier
# (all of them per slot in build/fuzz/slots-stats.txt). A failing input is kept in
# build/fuzz/artifacts/ with the command that replays it.
set -euo pipefail
cd "$(dirname "$0")/.."
target=all
if [[ $# -gt 0 && ! $1 =~ ^[0-9]+$ ]]; then target=$1; shift; fi
seconds=${1:-60}
shift || true
case $target in
  all) targets=(fill_array slots) ;;
  slots | fill_array) targets=("$target") ;;
  *) echo "fuzz: unknown target '$target' (slots, fill_array or all)" >&2; exit 2 ;;
esac
scripts/bootstrap.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export ASAN_OPTIONS=detect_leaks=0:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

run_target() {
  local name=$1 binary=build/fuzz/bin/fuzz_$1 corpus log=$work/$1.log status=0 seeds
  shift
  if [[ -n ${TARNELL_FUZZ_CORPUS:-} ]]; then corpus=$TARNELL_FUZZ_CORPUS/$name; else corpus=$work/$name-corpus; fi
  mkdir -p "$corpus" "$work/$name-artifacts"
  if [[ $name == slots ]]; then seeds=(fuzz/corpus/slots/*/); else seeds=(fuzz/corpus/fill_array); fi
  TARNELL_FUZZ_STATS=$work/$name-stats "$binary" -max_total_time="$seconds" -timeout=120 -rss_limit_mb=4096 \
    -print_final_stats=1 -artifact_prefix="$work/$name-artifacts/" "$@" "$corpus" "${seeds[@]}" 2>"$log" || status=$?
  if [[ $status -ne 0 ]]; then
    grep -E '^fuzz_[a-z_]+: .*(differ|wrote|result|calls)|ERROR: |SUMMARY: ' "$log" >&2 || tail -n 40 "$log" >&2
    mkdir -p build/fuzz/artifacts
    local input kept
    for input in "$work/$name-artifacts"/*; do
      [[ -e $input ]] || continue
      kept=build/fuzz/artifacts/$name-$(basename "$input")
      cp "$input" "$kept"
      printf 'ASAN_OPTIONS=detect_leaks=0 TARNELL_FUZZ_VERBOSE=1 %s %s\n' "$binary" "$kept" >"$kept.replay"
      echo "fuzz: input kept in $kept; replay with: $(cat "$kept.replay")" >&2
    done
    echo "fuzz: $name FAILED" >&2
    return 1
  fi
  local runs rate coverage
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
  coverage=$(grep -E '^#[0-9]+[[:space:]]+(DONE|pulse|NEW|REDUCE|INITED)' "$log" | tail -n 1 | sed -n 's/.*cov: \([0-9]*\) ft: \([0-9]*\).*/\1 edges, \2 features/p')
  echo "fuzz: $name: $runs executions in $seconds s, $rate per second, coverage $coverage, no difference"
  if [[ $name == slots && -f $work/slots-stats ]]; then
    cp "$work/slots-stats" build/fuzz/slots-stats.txt
    awk '$1 == "slot" { runs[$4] += $5; slots[$4]++ }
         $1 == "tier" && $3 > 0 { tiers = tiers sprintf(" %s %d", $2, $3) }
         END { line = ""; for (f in runs) line = line sprintf(" %s %d (%d slots)", f, runs[f], slots[f]);
               print "fuzz: slots by family:" line; print "fuzz: slots by tier:" tiers }' "$work/slots-stats"
  fi
}

failed=0
for t in "${targets[@]}"; do run_target "$t" "$@" || failed=1; done
exit $failed
