#!/usr/bin/env bash
# Sets up, builds and runs every test under one preset (default gcc-release).
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-gcc-release}
scripts/bootstrap.sh
cmake --preset "$preset"
cmake --build --preset "$preset" -j "$(nproc)"
ctest --preset "$preset" -j "$(nproc)"
