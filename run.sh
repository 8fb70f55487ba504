#!/bin/bash
# Builds Findwright and has it at work:
#
#   ./run.sh                       indexes the home folder, keeps it current, and serves http://127.0.0.1:8080/
#   ./run.sh serve [FOLDER] [--port N] [--password] [--bind ADDRESS [--no-password]]
#   ./run.sh ARGUMENTS             passes them to fw, the console client
#
# What serves has its settings, its index and its log in build/serve, apart from those of the user's own Findwright.
set -euo pipefail
started_in=$PWD
cd "$(dirname "${BASH_SOURCE[0]}")"
DATA=$PWD/build/serve
SETTINGS=$DATA/Findwright.ini

fail() { echo "run.sh: $*" >&2; exit 1; }
usage() {
  cat >&2 <<'END'
usage: ./run.sh [serve [FOLDER] [--port N] [--password] [--bind ADDRESS [--no-password]]]
       ./run.sh ARGUMENTS      passes them to fw

  FOLDER          what is indexed; the home folder without it
  --port N        of the address; 8080 without it
  --password      asks for a password that browsers have to give, also on this machine
  --bind ADDRESS  lets other machines in by this address of the machine, * for all of them; asks for a password
  --no-password   lets everybody in
END
  exit 2
}

build() {
  local log=build/run.log
  tools/install_packages.sh build
  mkdir -p build
  [ -x build/run/findwright ] || echo "building; the first time takes some minutes" >&2
  if ! { cmake --preset release -B build/run -DFINDWRIGHT_TESTS=OFF -DFINDWRIGHT_BENCH=OFF &&
         cmake --build build/run --target fw findwright; } >"$log" 2>&1; then
    cat "$log" >&2
    exit 1
  fi
}

# --- serve ------------------------------------------------------------------------------------------------------------

# The line of a setting in the file of the last time.
setting() { [ ! -e "$SETTINGS" ] || sed -n "s/\r$//; s/^$1=//p" "$SETTINGS"; }

# The program has the last word on this: it refuses to serve others without a password.
is_loopback() {
  case $1 in *[\;,\ ]*) return 1 ;; '' | localhost | 127.* | ::1 | '[::1]') return 0 ;; *) return 1 ;; esac
}

ask_password() {
  local earlier again prompt='Password for visitors (their user name does not matter): '
  earlier=$(setting http_server_password)
  [ -z "$earlier" ] || prompt='Password for visitors (empty: that of the last time): '
  trap 'stty echo; echo >&2; exit 130' INT
  while :; do
    IFS= read -rsp "$prompt" password && echo >&2 || fail "no password"
    if [ -z "$password" ]; then
      password=$earlier
      [ -z "$password" ] || break
      echo "It cannot be empty." >&2
      continue
    fi
    IFS= read -rsp 'Once more: ' again && echo >&2 || fail "no password"
    [ "$password" != "$again" ] || break
    echo "These are two different ones." >&2
  done
  trap - INT
}

read_arguments() {
  folder='' bind='' port=8080 with_password=0 no_password=0 password=''
  while [ $# -gt 0 ]; do
    case $1 in
      --port) [ $# -gt 1 ] || usage; port=$2; shift ;;
      --port=*) port=${1#*=} ;;
      --bind) [ $# -gt 1 ] || usage; bind=$2; shift ;;
      --bind=*) bind=${1#*=} ;;
      --password) with_password=1 ;;
      --no-password) no_password=1 ;;
      -*) usage ;;
      *) [ -z "$folder" ] || usage; folder=$1 ;;
    esac
    shift
  done
  [[ $port =~ ^[0-9]{1,5}$ ]] && ((10#$port >= 1 && 10#$port <= 65535)) || fail "$port is no port: 1 to 65535"
  port=$((10#$port))
  [ -n "$bind" ] || [ $no_password = 0 ] || fail "--no-password goes with --bind ADDRESS"
  [ $with_password = 0 ] || [ $no_password = 0 ] || usage
  asks=$with_password
  is_loopback "$bind" || [ $no_password = 1 ] || asks=1
  [ $asks = 0 ] || [ -t 0 ] || fail "there is no terminal to ask for a password${bind:+. --bind lets other machines in: leave it out, or let everybody in with --no-password}"
  [ -n "$folder" ] || folder=${HOME:?is not set: name a folder, ./run.sh serve FOLDER}
  [[ $folder == /* ]] || folder=$started_in/$folder
  [ -d "$folder" ] || fail "there is no folder $folder"
  [ -r "$folder" ] && [ -x "$folder" ] || fail "the folder $folder cannot be read"
  folder=$(realpath -- "$folder")
  [[ $folder$bind != *[$'\n\r']* ]] || fail "a name of two lines cannot be in the settings"
}

# Only this machine is asked; whether it has another address the program finds out.
check_port() {
  local host=${bind:-127.0.0.1}
  host=${host#[} host=${host%]}
  case $host in '*' | 0.0.0.0 | ::) host=127.0.0.1 ;; esac
  is_loopback "$host" || return 0
  # shellcheck disable=SC2016 # the other shell's words
  ! timeout 2 bash -c 'exec 3<>"/dev/tcp/$0/$1"' "$host" "$port" 2>/dev/null ||
    fail "another program answers at port $port. Choose another port: ./run.sh serve --port $((port < 65535 ? port + 1 : 8080))"
}

# Ours are set anew; what else the user has changed in the file stays.
write_settings() {
  local keys='folders|allow_multiple_instances|auto_include_[a-z_]*|http_server_(enabled|port|bindings|username|password|allow_no_password|home|log_file_name)'
  local quoted=${folder//\\/\\\\}
  quoted=${quoted//\"/\\\"}
  {
    echo '[Findwright]'
    [ ! -e "$SETTINGS" ] || grep -Eva "^(\[|($keys)=)" "$SETTINGS" || :
    printf '%s\n' \
      "folders=\"$quoted\"" \
      allow_multiple_instances=1 \
      auto_include_{fixed,removable}_{,refs_}volumes=0 \
      http_server_enabled=2 \
      "http_server_port=$port" \
      "http_server_bindings=$bind" \
      http_server_username= \
      "http_server_password=$password" \
      "http_server_allow_no_password=$no_password" \
      "http_server_home=$DATA/pages" \
      "http_server_log_file_name=$DATA/HTTP_Server_Log.txt"
  } >"$SETTINGS.part"
  mv "$SETTINGS.part" "$SETTINGS"
}

tell_addresses() {
  local addresses=$bind address
  ! is_loopback "$bind" || return 0
  case $bind in '*' | 0.0.0.0 | ::) addresses=$(hostname -I) ;; esac
  for address in ${addresses//[\[\];,]/ }; do
    ! is_loopback "$address" || continue
    [[ $address != *:* ]] || address=[$address]
    echo "other machines reach it at http://$address:$port/" >&2
  done
}

has_other_users() { awk -F: -v own="$(id -u)" '$3 >= 1000 && $3 < 60000 && $3 != own { found = 1 } END { exit !found }' /etc/passwd; }

serve() {
  read_arguments "$@"
  umask 077 # an index tells of files, and settings hold a password
  mkdir -p "$DATA"
  exec 9>"$DATA/lock"
  flock -n 9 || fail "it runs already, at port $(setting http_server_port)"
  check_port
  [ $asks = 0 ] || ask_password
  write_settings
  echo "Findwright indexes $folder; Ctrl+C ends it" >&2
  tell_addresses
  if [ -z "$password" ] && has_other_users; then
    echo "other users of this machine reach it, too; --password asks for a password" >&2
  fi
  exec build/run/findwright -config "$SETTINGS" -db "$DATA/Findwright.db"
}

# ----------------------------------------------------------------------------------------------------------------------

main() {
  if [ $# -gt 0 ] && [ "$1" != serve ]; then
    build
    echo "\$ build/run/fw ${*@Q}" >&2
    exec build/run/fw "$@"
  fi
  [ $# -eq 0 ] || shift
  (read_arguments "$@") # a mistake is told before anything is built
  build
  serve "$@"
}

# Its test reads the functions alone.
[ "${BASH_SOURCE[0]}" != "$0" ] || main "$@"
