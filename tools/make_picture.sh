#!/bin/bash
# Makes docs/fw.png, the README's picture: the console client at work on the sample volume, in a real terminal window.
# Needs the packages xvfb, xterm, imagemagick and fonts-dejavu-core, and a built client.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
fw=${1:-build/run/fw}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
bzip2 -dc tests/data/sample.ntfs.bz2 >"$work/sample.ntfs"

cat >"$work/show.sh" <<SHOW
cd "$work"
run() {
  printf '\033[1;32m\$\033[0m %s\n' "fw --ntfs sample.ntfs \$1"
  eval "'$PWD/$fw' --ntfs sample.ntfs \$1"
  echo
}
run "--path --columns full,size,dm -n 3 'lisbon 88'"
run "dvorak"
run "--sort size-descending -n 4 --columns name,size '*.mp4|*.vhd|*.nef'"
run "--regex --files '^(DSC|IMG).*[02468]\\.(NEF|JPG)\$' -n 3"
run "--json --columns name,size '.exe'"
run "--count '!<photo|music> .txt'"
sleep 20
SHOW

Xvfb :77 -screen 0 1000x558x24 >/dev/null 2>&1 &
server=$!
trap 'kill $server; rm -rf "$work"' EXIT
sleep 1
LC_ALL=C.UTF-8 DISPLAY=:77 xterm -u8 -fa 'DejaVu Sans Mono' -fs 11 -geometry 112x28+0+0 -bg '#1d2021' -fg '#ebdbb2' -b 12 \
  -e bash "$work/show.sh" &
sleep 5
DISPLAY=:77 import -window root "$work/shot.png"
mkdir -p docs
mv "$work/shot.png" docs/fw.png
