#!/usr/bin/env bash
# Installs the Debian packages the build needs, if any is missing. Safe to re-run.
set -euo pipefail
packages=(cmake ninja-build g++ clang libclang-rt-14-dev binutils libgtest-dev libbenchmark-dev)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "bootstrap: installing ${missing[*]}" >&2
  sudo_cmd=(); [[ $(id -u) -eq 0 ]] || sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq "${missing[@]}" >&2
fi
