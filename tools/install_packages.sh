#!/bin/bash
# Installs what is missing of the distribution's packages, by group: build, test, windows, bench, fuzz.
# Asks the package manager for nothing when all of them are there.
set -euo pipefail

declare -A groups=(
  [build]="g++ cmake ninja-build bzip2 libbz2-dev libpcre2-dev libcli11-dev"
  [test]="libgtest-dev libgmock-dev"
  [windows]="g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 googletest dpkg-dev wine64"
  [browser]="chromium nodejs"
  [bench]="ripgrep fd-find sleuthkit ntfs-3g fuse3 python3 apt-file lz4 apache2-utils nginx-light curl"
  [fuzz]="clang-14 libclang-rt-14-dev"
)

[ $# -gt 0 ] || { echo "usage: install_packages.sh GROUP..., of: ${!groups[*]}" >&2; exit 2; }
command -v dpkg-query >/dev/null || { echo "install_packages.sh: this needs Debian's package manager" >&2; exit 1; }

missing=()
for group in "$@"; do
  for package in ${groups[$group]:?no such group}; do
    state=$(dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null) || state=
    grep -qx installed <<<"$state" || missing+=("$package")
  done
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "These packages are missing, and installing them needs root: ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi
echo "installing: ${missing[*]}"
"${as_root[@]}" apt-get -qq update
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get -qq -o Dpkg::Use-Pty=0 install -y --no-install-recommends "${missing[@]}" >/dev/null
