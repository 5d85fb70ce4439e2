#!/usr/bin/env bash
# Sets up, builds (Release, g++) and runs tarnell-host with the given arguments
# (default: report, then verify) on this processor.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/bootstrap.sh
cmake --preset gcc-release >/dev/null
cmake --build --preset gcc-release --target tarnell-host tarnell_module >/dev/null
if (($#)); then
  exec build/gcc-release/bin/tarnell-host "$@"
fi
build/gcc-release/bin/tarnell-host report
build/gcc-release/bin/tarnell-host verify
