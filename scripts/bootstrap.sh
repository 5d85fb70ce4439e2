#!/usr/bin/env bash
# Installs the Debian packages the build needs, if any is missing. Safe to re-run.
# Packages named as arguments (the cross compiler, Wine and qemu-user of
# scripts/windows.sh and scripts/cpu-tiers.sh) are added, without recommends.
set -euo pipefail
packages=(cmake ninja-build g++ clang libclang-rt-14-dev binutils libgtest-dev libbenchmark-dev)
missing=()
extra=()
for p in "${packages[@]}" "$@"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" && continue
  if [[ " ${packages[*]} " == *" $p "* ]]; then missing+=("$p"); else extra+=("$p"); fi
done
if ((${#missing[@]} + ${#extra[@]})); then
  echo "bootstrap: installing ${missing[*]} ${extra[*]}" >&2
  sudo_cmd=(); [[ $(id -u) -eq 0 ]] || sudo_cmd=(sudo)
  # A mirror's hiccup must not fail a CI run: apt retries each download.
  apt_get=("${sudo_cmd[@]}" apt-get -o Acquire::Retries=5)
  "${apt_get[@]}" update -qq
  if ((${#missing[@]})); then
    DEBIAN_FRONTEND=noninteractive "${apt_get[@]}" install -y -qq "${missing[@]}" >&2
  fi
  if ((${#extra[@]})); then
    DEBIAN_FRONTEND=noninteractive "${apt_get[@]}" install -y -qq --no-install-recommends "${extra[@]}" >&2
  fi
fi
