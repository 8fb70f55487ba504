#!/bin/bash
# Builds and tests everything, from a clean checkout: ./test.sh, or ./test.sh --quick for the Linux part alone.
#
#   build/debug     the whole suite, the pages in a browser, and the replay of the fuzz seeds, AddressSanitizer and
#                   UndefinedBehaviorSanitizer
#   build/thread    the tests that start threads, ThreadSanitizer
#   build/windows   the whole suite and the pages again, cross-built, run under Wine
#
# All trees are built first and then tested by one run of ctest, whose summary is the end of the output.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")" || exit 1

quick=0
case "${1:-}" in
  "") ;;
  --quick) quick=1 ;;
  *) echo "usage: ./test.sh [--quick]" >&2; exit 2 ;;
esac

# Runs one step under a heading; the first that fails ends the script.
step() {
  local name=$1 start=$SECONDS
  shift
  echo "=== $name"
  if ! "$@"; then
    echo "test.sh: FAILED: $name" >&2
    exit 1
  fi
  echo "--- $name: $((SECONDS - start)) s"
}

build() {
  local log=build/$1.log
  mkdir -p build
  cmake --preset "$1" >"$log" 2>&1 || { cat "$log"; return 1; }
  # Ninja's lines are of use only when something fails.
  cmake --build --preset "$1" >"$log" 2>&1 || { grep -vE '^\[[0-9]+/[0-9]+\] ' "$log"; return 1; }
}

windows_tools() {
  cmake/fetch_sources.sh build/sources && cmake/wine.sh --prepare
}

# One test tree over all build trees.
run_tests() {
  local tree
  mkdir -p build/all
  for tree in "$@"; do
    echo "subdirs(\"$PWD/build/$tree\")"
  done >build/all/CTestTestfile.cmake
  ctest --test-dir build/all --output-on-failure --parallel "$(nproc)"
}

trees=(debug)
if [ $quick = 1 ]; then
  step "packages" tools/install_packages.sh build test browser
  step "build: Linux, AddressSanitizer and UndefinedBehaviorSanitizer" build debug
else
  trees+=(thread windows)
  step "packages" tools/install_packages.sh build test browser windows
  step "build: Linux, AddressSanitizer and UndefinedBehaviorSanitizer" build debug
  step "build: Linux, ThreadSanitizer" build thread
  step "Windows: sources of its libraries, Wine" windows_tools
  step "build: Windows" build windows
fi

echo "=== tests: ${trees[*]}"
run_tests "${trees[@]}"
