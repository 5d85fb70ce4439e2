#!/usr/bin/env bash
# Runs a Windows program under Wine, quietly, in a throw-away prefix unless
# WINEPREFIX is set. Used as the emulator of the MinGW build (ctest) and by
# scripts/windows.sh.
#
#   scripts/wine-run.sh PROGRAM.exe [ARGS...]   run a program
#   scripts/wine-run.sh --start-server          start one wineserver for the prefix that
#                                               stays up until --stop-server, and set up
#                                               the prefix (before any program runs)
#   scripts/wine-run.sh --stop-server           stop it and wait until it has exited
#
# Why a server that stays: Wine starts a wineserver on demand and lets it linger a
# few seconds after the last program exits. A program started while that server
# is shutting down fails with "wine client error: recvmsg: Connection reset by
# peer" before it runs a line of its own. One persistent server for the whole
# sequence of programs closes that window.
set -euo pipefail
find_wine_binary() {  # $1: wine64 or wineserver
  local name=$1 found
  found=$(command -v "$name" || true)
  [[ -z $found && $name == wine64 ]] && found=$(command -v wine || true)
  [[ -z $found && -x /usr/lib/wine/${name} ]] && found=/usr/lib/wine/${name}
  [[ -z $found && $name == wineserver && -x /usr/lib/wine/wineserver64 ]] && found=/usr/lib/wine/wineserver64
  if [[ -z $found ]]; then
    echo "wine-run: no $name binary (apt-get install wine64)" >&2
    exit 127
  fi
  echo "$found"
}
wine=$(find_wine_binary wine64)
export WINEDEBUG=${WINEDEBUG:--all}
export WINEPREFIX=${WINEPREFIX:-${TMPDIR:-/tmp}/tarnell-wine-$(id -u)}
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}

case ${1:-} in
  --start-server)
    server=$(find_wine_binary wineserver)
    mkdir -p "$WINEPREFIX"
    # Detaches once it listens; exits at once (status 0 or not) if one already runs.
    "$server" -p || true
    # Set the prefix up now, not in the first (or first two parallel) programs.
    "$wine" wineboot --init >/dev/null 2>&1
    ;;
  --stop-server)
    server=$(find_wine_binary wineserver)
    "$server" -k >/dev/null 2>&1 || true
    "$server" -w >/dev/null 2>&1 || true
    ;;
  *)
    exec "$wine" "$@"
    ;;
esac
