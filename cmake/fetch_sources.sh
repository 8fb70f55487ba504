#!/bin/bash
# Puts the sources of the libraries that the Windows build compiles itself into FOLDER/bzip2 and FOLDER/pcre2.
# They are the distribution's source packages, and come through its package manager's own download.
set -euo pipefail

# The versions that the program is built with and tested against.
packages=(bzip2=1.0.8 pcre2=10.42)

folder=${1:?usage: fetch_sources.sh FOLDER}
mkdir -p "$folder"
folder=$(cd "$folder" && pwd)

missing=()
for package in "${packages[@]}"; do
  [ "$(cat "$folder/${package%%=*}.version" 2>/dev/null)" = "${package#*=}" ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

# The machine's own package sources say "deb" (one line each) or "Types: deb" (one stanza each). What the source
# download needs is the same entry as deb-src, for the release's main suite only: the index of the security suite
# may name files that are gone.
suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
apt=$folder/apt
rm -rf "$apt"
mkdir -p "$apt/lists/partial"
shopt -s nullglob
for file in /etc/apt/sources.list.d/*.sources; do cat "$file"; echo; done |
  awk -v suite="$suite" '
    function flush(i) {
      if (types ~ /deb/ && enabled != "no")
        for (i = 1; i <= split(suites, one, " "); i++)
          if (one[i] == suite && components ~ /main/)
            print "deb-src " (key == "" ? "" : "[signed-by=" key "] ") uri " " suite " main"
      types = suites = components = uri = key = enabled = ""
    }
    /^#/ { next }
    /^[ \t]*$/ { flush() }
    tolower($1) == "types:" { types = $0 }
    tolower($1) == "uris:" { uri = $2 }
    tolower($1) == "suites:" { $1 = ""; suites = $0 }
    tolower($1) == "components:" { components = $0 }
    tolower($1) == "signed-by:" { key = $2 }
    tolower($1) == "enabled:" { enabled = tolower($2) }
    END { flush() }' >"$apt/sources.list"
for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
  [ ! -f "$file" ] || sed -nE "s/^deb +((\[[^]]*\] +)?[^ ]+ +$suite) +(.* )?main( .*)?\$/deb-src \1 main/p" "$file"
done >>"$apt/sources.list"
if [ ! -s "$apt/sources.list" ]; then
  echo "fetch_sources.sh: this machine's package sources name no main suite of $suite" >&2
  exit 1
fi

options=(-q -o "Dir::Etc::sourcelist=$apt/sources.list" -o Dir::Etc::sourceparts=- -o "Dir::State::lists=$apt/lists"
         -o APT::Get::List-Cleanup=0)
[ "$(id -u)" -ne 0 ] || options+=(-o APT::Sandbox::User=root)

apt-get "${options[@]}" update >"$apt/log" 2>&1 || { cat "$apt/log" >&2; exit 1; }
for package in "${missing[@]}"; do
  name=${package%%=*}
  version=${package#*=}
  echo "fetching the source of $name $version"
  rm -rf "${folder:?}/$name" "$folder/$name.version" "$apt/$name"
  mkdir -p "$apt/$name"
  (cd "$apt/$name" && apt-get "${options[@]}" source --only-source "$name") >"$apt/log" 2>&1 || { cat "$apt/log" >&2; exit 1; }
  if [ ! -d "$apt/$name/$name-$version" ]; then
    echo "fetch_sources.sh: wanted $name $version, and got:" "$apt/$name"/*.dsc >&2
    exit 1
  fi
  mv "$apt/$name/$name-$version" "$folder/$name"
  echo "$version" >"$folder/$name.version"
done
rm -rf "$apt"
