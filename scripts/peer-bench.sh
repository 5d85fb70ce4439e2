#!/usr/bin/env bash
# Installs OpenCV and pixman from Debian packages (if missing), builds the module
# and tarnell_peer_bench under a preset (default gcc-release) and runs the peer
# benchmark: the module against OpenCV and pixman on the same planes, one thread,
# with the module / peer table at the end. Arguments after the preset go to the
# benchmark, e.g.
#   scripts/peer-bench.sh gcc-release --benchmark_filter='convert' --benchmark_min_time=0.5
# --report FILE.html also writes the table as a self-contained page (the file's
# name is taken relative to the directory the script was started from).
set -euo pipefail
here=$PWD
cd "$(dirname "$0")/.."
preset=gcc-release
if [[ $# -gt 0 && $1 != -* ]]; then preset=$1; shift; fi
args=()
while [[ $# -gt 0 ]]; do
  case $1 in
    --report) [[ $# -ge 2 ]] || { echo "peer-bench.sh: --report needs a file name" >&2; exit 2; }
              [[ $2 = /* ]] && args+=(--report "$2") || args+=(--report "$here/$2"); shift 2 ;;
    --report=*) f=${1#--report=}; [[ $f = /* ]] && args+=("--report=$f") || args+=("--report=$here/$f"); shift ;;
    *) args+=("$1"); shift ;;
  esac
done
scripts/bootstrap.sh libopencv-dev libpixman-1-dev pkg-config
cmake --preset "$preset" -DTARNELL_BUILD_PEER_BENCH=ON
cmake --build --preset "$preset" -j "$(nproc)" --target tarnell_peer_bench
exec "build/$preset/bin/tarnell_peer_bench" "${args[@]}"
