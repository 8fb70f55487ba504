#!/bin/bash
# Makes the pictures of the server's pages, data/http/*.gif and favicon.ico, from the drawings in data/http/art.
# Needed only when a drawing changes. Needs the packages librsvg2-bin and imagemagick.
#
# A GIF's pixels are there or not, so the pictures are four times the size at which main.css shows them: the browser
# scales them down and gives them smooth edges, on any background, also where a pixel of the page is two of the screen.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../data/http"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# gif NAME WIDTH: a pixel that the drawing covers by half is there, in the drawing's own color.
gif() {
  rsvg-convert -w "$2" "art/$1.svg" -o "$work/$1.png"
  /usr/bin/convert "$work/$1.png" -strip -channel A -threshold 50% +channel "$1.gif"
}
gif findwright 176
gif folder 80
gif file 80
gif updir 80
gif up 40
gif down 40

rsvg-convert -w 16 art/favicon16.svg -o "$work/16.png"
rsvg-convert -w 32 art/findwright.svg -o "$work/32.png"
rsvg-convert -w 48 art/findwright.svg -o "$work/48.png"
/usr/bin/convert "$work/16.png" "$work/32.png" "$work/48.png" -strip favicon.ico
