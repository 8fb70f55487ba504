#!/bin/bash
# ./run.sh serve, up to the start of the program: what it takes for an address of this machine alone, which arguments it
# refuses, and the settings that it writes.
# shellcheck disable=SC2034,SC2154 # the script's variables
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../run.sh"

failed=0
temp=$(mktemp -d)
trap 'rm -rf "$temp"' EXIT
DATA=$temp
SETTINGS=$temp/Findwright.ini
started_in=$temp
HOME=$temp

wrong() { echo "run_test.sh: $*" >&2; failed=1; }
expect() { [ "$2" = "$3" ] || wrong "$1: '$2' instead of '$3'"; }

for address in '' localhost 127.0.0.1 127.1.2.3 ::1 '[::1]'; do
  is_loopback "$address" || wrong "$address is this machine's own"
done
for address in '*' 0.0.0.0 :: 192.168.1.5 '127.0.0.1;*' '127.0.0.1, 10.0.0.1' localhost.example.org 1270.0.0.1; do
  ! is_loopback "$address" || wrong "others reach $address"
done

# Exit statuses, with no terminal to ask for a password.
mkdir "$temp/folder"
status() { (read_arguments "$@") </dev/null >/dev/null 2>&1 && echo 0 || echo $?; }
while IFS='|' read -r expected arguments; do
  read -ra words <<<"$arguments"
  expect "serve $arguments" "$(status ${words[@]+"${words[@]}"})" "$expected"
done <<'END'
0|
0|folder
0|--port 9000 folder
0|--port=65535
0|--bind 127.0.0.1
0|--bind 0.0.0.0 --no-password
1|none
1|--port 0
1|--port 65536
1|--port 80x
1|--bind 0.0.0.0
1|--password
1|--no-password
2|--password --bind 0.0.0.0 --no-password
2|--port
2|folder folder
2|--unknown
END
(read_arguments folder && expect folder "$folder" "$temp/folder" && exit $failed) || failed=1

# What the program wrote stays, but for the lines that are ours.
umask 077
name=$temp/'a "b" \c; d'
mkdir "$name"
printf '[Findwright]\r\nfolders="/old"\r\nindex_size=0\r\nhttp_server_password=earlier\r\nhttp_title_format=x\r\n' >"$SETTINGS"
expect "a setting" "$(setting http_server_password)" earlier
read_arguments "$name" --port 8081
password=' p=;" '
write_settings
expect mode "$(stat -c %a "$SETTINGS")" 600
expect section "$(head -n 1 "$SETTINGS")" '[Findwright]'
expect "one section" "$(grep -c '^\[' "$SETTINGS")" 1
for line in "folders=\"$temp/a \\\"b\\\" \\\\c; d\"" http_server_port=8081 "http_server_password= p=;\" " http_server_bindings= \
  http_server_allow_no_password=0 http_server_enabled=2; do
  expect "$line" "$(grep -Fxc -- "$line" "$SETTINGS")" 1
  expect "the only ${line%%=*}" "$(grep -c "^${line%%=*}=" "$SETTINGS")" 1
done
for line in index_size=0 http_title_format=x; do
  grep -Fq "$line" "$SETTINGS" || wrong "$line is lost"
done
exit $failed
