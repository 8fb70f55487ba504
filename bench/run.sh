#!/bin/bash
# Runs the benchmark: this program beside its peers, on the same real names, in the same run.
#
#   bench/run.sh [ROW...]     rows: search language index memory read list load folder order live watch http keystroke; all of them without an argument
#
# Prints one table of ratios. The first run fetches the names and makes the volumes, which takes a few minutes;
# what it made stays in build/bench. docs/BENCHMARKS.md tells what each row means. RUNS and PEER_RUNS in the
# environment set how often each thing is measured, and how often a peer that takes long.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

rows=("$@")
[ $# -gt 0 ] || rows=(search language index memory read list load folder order live watch http keystroke)
for row in "${rows[@]}"; do
  case $row in
    search | language | index | memory | read | list | load | folder | order | live | watch | http | keystroke) ;;
    *) echo "usage: bench/run.sh [search | language | index | memory | read | list | load | folder | order | live | watch | http | keystroke]..." >&2; exit 2 ;;
  esac
done

data=build/bench
arguments=(--data "$data" --runs "${RUNS:-9}" --peer-runs "${PEER_RUNS:-3}")
mkdir -p "$data"

tools/install_packages.sh build bench
log=$data/build.log
if ! { cmake --preset release -B "$data/release" -DFINDWRIGHT_TESTS=OFF &&
       cmake --build "$data/release" --target fw_bench make_volume; } >"$log" 2>&1; then
  cat "$log" >&2
  exit 1
fi

bench/fetch_names.sh "$data"

# A million paths, spread evenly.
if [ ! "$data/paths-1m.txt" -nt "$data/paths.txt" ]; then
  awk -v lines="$(wc -l <"$data/paths.txt")" '
    BEGIN { step = lines > 1000000 ? lines / 1000000 : 1 }
    NR > wanted { print; wanted += step }' "$data/paths.txt" >"$data/paths-1m.part"
  mv "$data/paths-1m.part" "$data/paths-1m.txt"
fi

# A file list of all of them, with a size and a date for each.
list=$data/names.fwl
if [[ " ${rows[*]} " =~ " list "|" load "|" keystroke " ]] && [ ! "$list" -nt "$data/paths.txt" ]; then
  awk 'BEGIN { print "Filename,Size,Date Modified,Attributes" }
    { gsub(/"/, "\"\""); printf "\"/%s\",%d,%.0f,32\n", $0, (NR * 7919) % 1000003, 131000000000000000 + (NR * 104729 % 9999991) * 10000000 }' \
    "$data/paths.txt" >"$list.part"
  mv "$list.part" "$list"
fi

# A real tree.
if [[ " ${rows[*]} " =~ " folder "|" order " ]] && [ ! -d "$data/tree" ]; then
  rm -rf "$data/tree.part"
  bench/make_tree.py "$data/paths.txt" "$data/tree.part" 340000
  mv "$data/tree.part" "$data/tree"
fi

# A file to be downloaded, which holds something.
if [[ " ${rows[*]} " == *" http "* ]] && [ ! -e "$data/download/large.bin" ]; then
  mkdir -p "$data/download"
  (yes "Findwright" || :) 2>/dev/null | head -c 2147483648 >"$data/download/large.part"
  mv "$data/download/large.part" "$data/download/large.bin"
fi

# The two volumes: one by this project's own writer, and a smaller one through the system's driver.
if [[ " ${rows[*]} " == *" read "* ]]; then
  volume=$data/volume-1m.ntfs
  if [ ! "$volume" -nt "$data/paths-1m.txt" ]; then
    "$data/release/make_volume" "$volume.part" <"$data/paths-1m.txt" >&2
    mv "$volume.part" "$volume"
  fi
  arguments+=(--volume "volume-1m=$volume")

  volume=$data/volume-driver.ntfs
  if [ ! "$volume" -nt "$data/paths.txt" ]; then
    if tools/make_ntfs_big.sh "$data/paths.txt" "$volume.part" 250000 >&2; then
      mv "$volume.part" "$volume"
    else
      rm -f "$volume.part"
    fi
  fi
  if [ -e "$volume" ]; then
    arguments+=(--volume "volume-driver=$volume")
  else
    arguments+=(--note "LEFT OUT: the volume filled through the driver, which needs a mount and its rights")
  fi
fi

# From a key to the rows on the screen, in a browser: the program itself, over all names.
keystroke() {
  local settings=$data/keystroke.ini port=8093 server=
  tools/install_packages.sh browser
  cmake --build "$data/release" --target findwright >"$log" 2>&1 || { cat "$log" >&2; return 1; }
  printf '%s\n' '[Findwright]' "filelists=\"$PWD/$list\"" allow_multiple_instances=1 http_server_enabled=2 \
    "http_server_port=$port" http_server_bindings=127.0.0.1 http_server_logging_enabled=0 >"$settings"
  "$data/release/findwright" -config "$settings" -no-db &
  server=$!
  # The first answer comes when the list is read.
  until curl -sf -o /dev/null "http://127.0.0.1:$port/?search=&json=1&count=1"; do
    kill -0 $server || return 1
    sleep 0.2
  done
  node tests/browser/keystroke.mjs "http://127.0.0.1:$port/" || { kill $server; return 1; }
  kill $server
  wait $server || :
}

own=()
for row in "${rows[@]}"; do
  [ "$row" = keystroke ] || own+=("$row")
done
[ ${#own[@]} -eq 0 ] || "$data/release/bench/fw_bench" "${arguments[@]}" "${own[@]}"
[[ " ${rows[*]} " != *" keystroke "* ]] || keystroke
