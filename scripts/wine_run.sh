#!/usr/bin/env bash
# Runs a program of the Windows cross build under Wine; CMake uses it to run tests and to list them.
#   scripts/wine_run.sh PROGRAM.exe [ARG...]
# The prefix is KIV_WINEPREFIX (default: ~/.cache/kivml/wine), made on first use with Wine's crash debugger
# off, so that a crashing program ends at once with a failure instead of waiting on a dialog. DXGI needs
# an X display (DISPLAY); scripts/test.sh --windows starts Xvfb for it.
set -euo pipefail

prefix="${KIV_WINEPREFIX:-${XDG_CACHE_HOME:-$HOME/.cache}/kivml/wine}"
export WINEPREFIX="$prefix"
export WINEARCH=win64
export WINEDEBUG="${WINEDEBUG:--all}"
# No Mono or Gecko: without them wineboot would offer to download them.
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}"

if [[ ! -f "$prefix/.kivml-ready" ]]; then
  mkdir -p "$(dirname "$prefix")"
  # ctest runs programs in parallel: one of them makes the prefix, the others wait for it.
  exec 9>"$prefix.lock"
  flock 9
  if [[ ! -f "$prefix/.kivml-ready" ]]; then
    wine wineboot --init >/dev/null 2>&1
    wine reg add 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' /v Debugger /d false /f >/dev/null
    wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f >/dev/null
    wineserver --wait
    touch "$prefix/.kivml-ready"
  fi
  exec 9>&-
fi
# A program of ours is started through start.exe, which waits and hands back the exit code Windows
# recorded. Started directly, the exit status would be the Wine process's own, and Wine may kill that
# with SIGKILL while Mesa's libraries still tear down after the program has ended (seen as status 137).
# It starts the program in the current directory only when told (/d, as a Windows path: Z: is /).
if [[ -f "$1" ]]; then
  exec wine start /wait /b /d "Z:${PWD//\//\\}" /unix "$@"
fi
exec wine "$@"
