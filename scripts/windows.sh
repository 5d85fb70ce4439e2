#!/usr/bin/env bash
# The Windows build: cross-compiles the module, tarnell-host and the tests with
# MinGW-w64 (preset mingw-release) and runs them under Wine in a throw-away prefix:
# the image checks (only PluginMain exported, only system DLLs imported), the test
# suite with the module loaded through LoadLibrary, then report, verify and verify
# with guard pages; last, the ZIP package and its contents. Any failure ends the
# script with a non-zero exit.
#
# One wineserver serves the prefix from the first program to the last (see
# scripts/wine-run.sh), so no program meets a server that is shutting down. A step
# that still fails with Wine's own client error (the program never ran) gets the
# server restarted and one more try; a failure of the program itself never does.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/bootstrap.sh g++-mingw-w64-x86-64-posix wine64

WINEPREFIX=$(mktemp -d "${TMPDIR:-/tmp}/tarnell-wine.XXXXXX")
export WINEPREFIX WINEDEBUG=-all
log=$WINEPREFIX.log
cleanup() {
  scripts/wine-run.sh --stop-server
  rm -rf "$WINEPREFIX" "$log"
}
trap cleanup EXIT

step() { echo "--- windows: $* ($((SECONDS - start)) s)"; }

# Runs a command that starts Windows programs; see above for the one retry.
under_wine() {
  if "$@" 2>&1 | tee "$log"; then return 0; fi
  if ! grep -q -e 'wine client error' -e 'wineserver: .*crash' "$log"; then return 1; fi
  echo "--- windows: Wine itself failed (not the program): restarting the wineserver, one more try" >&2
  scripts/wine-run.sh --stop-server
  scripts/wine-run.sh --start-server
  "$@"
}

start=$SECONDS
step "configure and build (MinGW-w64)"
cmake --preset mingw-release >/dev/null
cmake --build --preset mingw-release -j "$(nproc)"

step "start the wineserver, set up the prefix"
scripts/wine-run.sh --start-server

step "ctest under Wine"
under_wine ctest --preset mingw-release -j "$(nproc)"

bin=build/mingw-release/bin
run() { under_wine scripts/wine-run.sh "$bin/tarnell-host.exe" "$@"; }
step "tarnell-host report"
run report
step "tarnell-host verify"
run verify
step "tarnell-host verify --guard-pages"
run verify --guard-pages

step "package (ZIP)"
cpack --preset mingw-release
for package in build/mingw-release/packages/*.zip; do
  echo "$package:"
  cmake -E tar tf "$package" | sed 's/^/  /'
done
step "done"
