#!/bin/bash
# Runs a cross-built program: wine.sh PROGRAM.exe ARGUMENTS. Wine gets a prefix of its own in the build folder,
# made at the first call; `wine.sh --prepare` only makes it.
set -euo pipefail

build=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/build
mkdir -p "$build"
export WINEPREFIX=$build/wine WINEARCH=win64 WINEDEBUG=-all
# No menus, no Mono and no Gecko: nothing here has a use for them, and Wine would ask to fetch them.
export WINEDLLOVERRIDES="winemenubuilder.exe=d;mscoree=d;mshtml=d"
# Names of files are UTF-8 on the other side of Wine.
export LC_ALL=C.UTF-8
unset DISPLAY
wine=/usr/lib/wine

# Two tests may start at once: one makes the prefix, the other waits.
exec 9>"$build/wine.lock"
flock 9
if [ ! -f "$WINEPREFIX/ready" ]; then
  rm -rf "$WINEPREFIX"
  "$wine/wine64" wineboot -i >"$build/wine.log" 2>&1 9>&- || { cat "$build/wine.log" >&2; exit 1; }
  "$wine/wineserver" -w 9>&-
  touch "$WINEPREFIX/ready"
fi
exec 9>&-

[ "${1:-}" != --prepare ] || exit 0
exec "$wine/wine64" "$@"
