#!/usr/bin/env bash
# The Windows build: cross-compiles the module, tarnell-host and the tests with
# MinGW-w64 (preset mingw-release) and runs them under Wine in a throw-away prefix:
# the image checks (only PluginMain exported, only system DLLs imported), the test
# suite with the module loaded through LoadLibrary, then report, verify and verify
# with guard pages. Any failure ends the script with a non-zero exit.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/bootstrap.sh g++-mingw-w64-x86-64-posix wine64

WINEPREFIX=$(mktemp -d "${TMPDIR:-/tmp}/tarnell-wine.XXXXXX")
export WINEPREFIX WINEDEBUG=-all
cleanup() {
  # Stop this prefix's wineserver (it outlives the programs for a few seconds).
  local server
  server=$(command -v wineserver || true)
  [[ -z $server && -x /usr/lib/wine/wineserver64 ]] && server=/usr/lib/wine/wineserver64
  [[ -n $server ]] && "$server" -k >/dev/null 2>&1 || true
  rm -rf "$WINEPREFIX"
}
trap cleanup EXIT

step() { echo "--- windows: $* ($((SECONDS - start)) s)"; }
start=$SECONDS
step "configure and build (MinGW-w64)"
cmake --preset mingw-release >/dev/null
cmake --build --preset mingw-release -j "$(nproc)"

step "ctest under Wine"
ctest --preset mingw-release -j "$(nproc)"

bin=build/mingw-release/bin
run() { scripts/wine-run.sh "$bin/tarnell-host.exe" "$@"; }
step "tarnell-host report"
run report
step "tarnell-host verify"
run verify
step "tarnell-host verify --guard-pages"
run verify --guard-pages
step "done"
