#!/bin/bash
# Runs a cross-built program: wine.sh PROGRAM.exe ARGUMENTS. Wine gets a prefix of its own in the build folder,
# made at the first call; `wine.sh --prepare` only makes it.
#
# In the prefix windows can be made, though nothing shows them, and the raw volume \\.\N: is the sample of the tests.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$root/build
mkdir -p "$build"
export WINEPREFIX=$build/wine WINEARCH=win64 WINEDEBUG=-all
# No menus, no Mono and no Gecko: nothing here has a use for them, and Wine would ask to fetch them.
export WINEDLLOVERRIDES="winemenubuilder.exe=d;mscoree=d;mshtml=d"
# Names of files are UTF-8 on the other side of Wine.
export LC_ALL=C.UTF-8
unset DISPLAY WAYLAND_DISPLAY
wine=/usr/lib/wine
sample=$root/tests/data/sample.ntfs.bz2
image=$WINEPREFIX/sample.ntfs
# Changes with what a prefix has; one of another version is made anew.
version=2

make_prefix() {
  rm -rf "$WINEPREFIX"
  "$wine/wine64" wineboot -i
  # Without a display there is no driver for one, and without any driver no window of the desktop.
  "$wine/wine64" reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f
  # Links of devices are seen by servers that start later.
  "$wine/wineserver" -w
  ln -s ../sample.ntfs "$WINEPREFIX/dosdevices/n::"
}

# Two tests may start at once: one makes the prefix, the other waits.
exec 9>"$build/wine.lock"
flock 9
if [ "$(cat "$WINEPREFIX/ready" 2>/dev/null)" != $version ]; then
  make_prefix >"$build/wine.log" 2>&1 9>&- || { cat "$build/wine.log" >&2; exit 1; }
  echo $version >"$WINEPREFIX/ready"
fi
if [ ! "$image" -nt "$sample" ]; then
  bzip2 -dc "$sample" >"$image.new"
  mv "$image.new" "$image"
fi
exec 9>&-

[ "${1:-}" != --prepare ] || exit 0

# Wine's own processes keep the outputs of the program that happened to start them, for as long as any other program
# runs: who waits for the end of an output would wait for all of them. So an output is a file, and what comes into it
# is passed on until the program ends, which has the number of this shell.
relay() {
  (
    tail -c +1 -s 0.1 -f --pid=$$ "$1" || true # who reads may leave
    rm "$1"
  ) &
}
output=$(mktemp "$build/wine.output.XXXXXX")
errors=$(mktemp "$build/wine.errors.XXXXXX")
relay "$output"
relay "$errors" >&2
exec "$wine/wine64" "$@" >"$output" 2>"$errors"
