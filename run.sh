#!/bin/bash
# Builds the program and its console client, and runs the client: ./run.sh searches a sample volume, ./run.sh ARGUMENTS passes them to fw.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

SAMPLE=tests/data/sample.ntfs.bz2

tools/install_packages.sh build
mkdir -p build
log=build/run.log
if ! { cmake --preset release -B build/run -DFINDWRIGHT_TESTS=OFF -DFINDWRIGHT_BENCH=OFF &&
       cmake --build build/run --target fw findwright; } >"$log" 2>&1; then
  cat "$log" >&2
  exit 1
fi

if [ $# -eq 0 ]; then
  volume=build/sample.ntfs
  [ "$volume" -nt "$SAMPLE" ] || { bzip2 -dc "$SAMPLE" >"$volume.part" && mv "$volume.part" "$volume"; }
  set -- --ntfs "$volume" --columns full,size,dm --stats "letter | *.txt"
fi
echo "\$ build/run/fw ${*@Q}" >&2
exec build/run/fw "$@"
