#!/usr/bin/env bash
# Runs `tarnell-host verify --quick` (g++ Release build, the module loaded as a
# host loads it) under valgrind's memcheck and fails on any error it reports: an
# uninitialised value deciding a branch, an address or a system call, or a read or
# write outside memory the program owns. No suppressions.
#
# Usage: scripts/memcheck.sh [--subset] [PRESET]
#   without --subset: every check, at every tier `verify` runs here (the whole run)
#   --subset:         the part CI runs: every check of the families whose routines
#                     keep buffers of their own (column sums, lanes filled in steps,
#                     working rows), hand cases to the host or read past rows by
#                     contract (memory, conversions, filters, resampling, selection,
#                     path filling), and one routine of each form of the blending
#                     and painting families, whose lanes only ever hold the caller's
#                     samples; about two thirds of the whole run
#
# Extra valgrind options go in VALGRIND_OPTS (valgrind reads it), for example
# VALGRIND_OPTS=--track-origins=yes to see where an uninitialised value came from.
set -euo pipefail
cd "$(dirname "$0")/.."
subset=0
if [[ ${1:-} == --subset ]]; then subset=1; shift; fi
preset=${1:-gcc-release}
scripts/bootstrap.sh valgrind
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target tarnell-host -j "$(nproc)"
tool=build/$preset/bin/tarnell-host
subset_filter='memo:*,conv:*,core:*,filt:*,rsmp:*,sele:*,path:*,blnd:1,blnd:7,blnd:30,blnd:74,blnd:115,blnd:27?,blnd:28?,pntg:5,pntg:17,pntg:36,pntg:56,pntg:86'

args=(verify --quick --no-progress)
what="the whole verify --quick"
if [[ $subset -eq 1 ]]; then
  args+=(--filter "$subset_filter")
  what="verify --quick, the subset"
fi
start=$SECONDS
status=0
valgrind --tool=memcheck --error-exitcode=99 --leak-check=no "$tool" "${args[@]}" || status=$?
if [[ $status -eq 99 ]]; then
  echo "memcheck: FAILED: memcheck reported errors ($what, $((SECONDS - start)) s)" >&2
  exit 1
elif [[ $status -ne 0 ]]; then
  echo "memcheck: FAILED: tarnell-host verify exited with $status under memcheck ($what)" >&2
  exit 1
fi
echo "memcheck: no error ($what, $((SECONDS - start)) s)"
