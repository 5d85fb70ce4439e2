#!/usr/bin/env bash
# Runs a Windows program under Wine, quietly, in a throw-away prefix unless
# WINEPREFIX is set. Used as the emulator of the MinGW build (ctest) and by
# scripts/windows.sh.
set -euo pipefail
wine=$(command -v wine64 || command -v wine || true)
[[ -z $wine && -x /usr/lib/wine/wine64 ]] && wine=/usr/lib/wine/wine64
if [[ -z $wine ]]; then
  echo "wine-run: no wine64 or wine binary (apt-get install wine64)" >&2
  exit 127
fi
export WINEDEBUG=${WINEDEBUG:--all}
export WINEPREFIX=${WINEPREFIX:-${TMPDIR:-/tmp}/tarnell-wine-$(id -u)}
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
exec "$wine" "$@"
