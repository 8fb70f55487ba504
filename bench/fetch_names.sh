#!/bin/bash
# Fetches real names: every path of the distribution's own contents index, about 7.3 million.
#
#   bench/fetch_names.sh OUT
#
#   OUT/paths.txt   one path per line, unique, sorted by bytes: what lies in a folder stands together
#   OUT/names.txt   the names that an index of those paths holds: the last component of each path and, once,
#                   of each folder above it; in the same order
#
# What is there already is kept. Needs apt-file and, to fetch, root.
set -euo pipefail
export LC_ALL=C

out=${1:?usage: fetch_names.sh OUT}
mkdir -p "$out"
[ -s "$out/names.txt" ] && [ "$out/names.txt" -nt "$out/paths.txt" ] && exit 0

# shellcheck disable=SC2016 # the field's name is the program's
contents() { apt-get indextargets --format '$(FILENAME)' 'Created-By: Contents-deb'; }

if [ ! -s "$out/paths.txt" ]; then
  if [ -z "$(contents)" ]; then
    as_root=()
    [ "$(id -u)" -eq 0 ] || as_root=(sudo)
    "${as_root[@]}" apt-file update >&2
  fi
  [ -n "$(contents)" ] || { echo "fetch_names.sh: the package sources offer no contents index" >&2; exit 1; }
  # A line is a path, blanks, and the packages without a blank: a path may hold blanks itself. Bytes that are no
  # UTF-8 are left out: the file systems that are indexed cannot hold them.
  contents | while read -r file; do
    case $file in
      *.lz4) lz4 -dc "$file" ;;
      *.gz) gzip -dc "$file" ;;
      *) cat "$file" ;;
    esac
  done | sed -E 's/[ \t]+[^ \t]+$//' | iconv -f UTF-8 -t UTF-8 -c | sort -u --parallel=2 -S 1G -T "$out" >"$out/paths.part"
  mv "$out/paths.part" "$out/paths.txt"
fi

# Sorted by bytes, the lines below one folder follow each other, so a folder is new where the line before was not
# in it. Compared as text: 1 and 01 are two folders.
awk -F/ '
  {
    same = 1
    for (i = 1; i < NF; i++) {
      same = same && i < depth && folders[i] "" == $i ""
      if (!same) {
        folders[i] = $i
        if ($i != "") print $i
      }
    }
    depth = NF
    if ($NF != "") print $NF
  }' "$out/paths.txt" >"$out/names.part"
mv "$out/names.part" "$out/names.txt"
