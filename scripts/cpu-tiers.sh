#!/usr/bin/env bash
# Runs the module on every processor tier it supports, each emulated by qemu-user:
#   qemu64 (SSE2 only), core2duo (SSSE3), Nehalem (SSE4.1), SandyBridge (AVX),
#   Haswell (AVX2), and Haswell without XSAVE (AVX bits set, OSXSAVE clear).
# For each model: `tarnell-host report` (start-up, and exactly the slots the
# installer tables give for the flags the module detects), the detected flags
# against the model's own, `tarnell-host verify --tier` at the model's level (also
# with guard pages, quick),
# and the end-to-end tests. An illegal instruction or any other signal fails the
# run loudly.
#
# Usage: scripts/cpu-tiers.sh [MODEL...]      (default: all six; g++ Release build)
#
# qemu-user 7.2 raises #UD for SSSE3 and SSE4.1 instructions on models without
# them, but executes AVX and AVX2 instructions on any model. On the three older
# models an AVX routine is therefore kept out by the installer check and by the
# isa_files_* tests, not by a fault here.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/bootstrap.sh qemu-user
build=${TARNELL_TIERS_BUILD:-build/gcc-release}
if [[ -z ${TARNELL_TIERS_BUILD:-} ]]; then
  cmake --preset gcc-release >/dev/null
  cmake --build --preset gcc-release -j "$(nproc)" --target tarnell-host tarnell_module tarnell_tests
fi
qemu=$(command -v qemu-x86_64)
ulimit -c 0  # a faulting guest leaves no core file behind

# What each model must report: SSE2 SSE3 SSSE3 SSE4.1 AVX AVX2.
declare -A want=(
  [qemu64]="SSE2=1 SSE3=1 SSSE3=0 SSE4.1=0 AVX=0 AVX2=0"
  [core2duo]="SSE2=1 SSE3=1 SSSE3=1 SSE4.1=0 AVX=0 AVX2=0"
  [Nehalem]="SSE2=1 SSE3=1 SSSE3=1 SSE4.1=1 AVX=0 AVX2=0"
  [SandyBridge]="SSE2=1 SSE3=1 SSSE3=1 SSE4.1=1 AVX=1 AVX2=0"
  [Haswell]="SSE2=1 SSE3=1 SSSE3=1 SSE4.1=1 AVX=1 AVX2=1"
  # AVX and AVX2 in CPUID, but no OSXSAVE: the system does not save the wide
  # registers, so the module must stay at the SSE4.1 tier.
  [Haswell,-xsave]="SSE2=1 SSE3=1 SSSE3=1 SSE4.1=1 AVX=0 AVX2=0"
)
# The widest level of each model: verify runs that tier alone here (the narrower
# tiers' bodies are verified on the build machine, and each model below runs its own).
declare -A level=(
  [qemu64]=sse2 [core2duo]=ssse3 [Nehalem]=sse41 [SandyBridge]=avx [Haswell]=avx2 [Haswell,-xsave]=sse41
)
models=("$@")
((${#models[@]})) || models=(qemu64 core2duo Nehalem SandyBridge Haswell Haswell,-xsave)

log=$(mktemp -d "${TMPDIR:-/tmp}/tarnell-tiers.XXXXXX")
trap 'rm -rf "$log"' EXIT
summary=()
fail() {
  echo "cpu-tiers: FAILED under $1: $2" >&2
  exit 1
}

# Runs one program under the model; stdout to the terminal and to $log/out,
# stderr without qemu's notes about host-only features.
emulate() {
  local model=$1; shift
  local rc=0
  "$qemu" -cpu "$model" "$@" >"$log/out" 2>"$log/err" || rc=$?
  cat "$log/out"
  grep -v "TCG doesn't support requested feature" "$log/err" >&2 || true
  if ((rc == 132)); then
    fail "$model" "ILLEGAL INSTRUCTION (SIGILL) in: $*"
  elif ((rc > 128)); then
    fail "$model" "killed by signal $((rc - 128)) in: $*"
  elif ((rc != 0)); then
    fail "$model" "exit status $rc from: $*"
  fi
}

start=$SECONDS
for model in "${models[@]}"; do
  [[ -n ${want[$model]:-} ]] || fail "$model" "unknown model (known: ${!want[*]})"
  echo "=== $model ($((SECONDS - start)) s)"
  emulate "$model" "$build/bin/tarnell-host" report
  flags=$(grep '^flags' "$log/out" || true)
  [[ " $flags " == *" ${want[$model]} "* ]] ||
    fail "$model" "detected '$flags', the model has '${want[$model]}'"
  slots=$(awk '/^  [a-z]+ +[0-9]+/ { printf "%s%s=%s", sep, $1, $2; sep = " " }' "$log/out")
  summary+=("$(printf '%-12s %-44s %s' "$model" "${want[$model]}" "$slots")")
  emulate "$model" "$build/bin/tarnell-host" verify --tier "${level[$model]}"
  grep -q '^verify: [0-9]* passed, 0 failed' "$log/out" || fail "$model" "verify reported failures"
  # Each tier installs its own routines: their row ends meet inaccessible pages too.
  emulate "$model" "$build/bin/tarnell-host" verify --tier "${level[$model]}" --guard-pages --quick
  grep -q '^verify: [0-9]* passed, 0 failed' "$log/out" || fail "$model" "verify --guard-pages reported failures"
  emulate "$model" "$build/bin/tarnell_tests" --gtest_brief=1 '--gtest_filter=Module.*:Verify/*'
done
echo "=== every tier passed ($((SECONDS - start)) s): model, flags, slots replaced per suite"
printf '%s\n' "${summary[@]}"
