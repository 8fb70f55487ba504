#!/bin/bash
# Fails when a Windows program needs a DLL that is not the system's own: check_imports.sh PROGRAM.exe...
set -euo pipefail

system="advapi32 comctl32 comdlg32 gdi32 iphlpapi kernel32 msvcrt ntdll ole32 oleaut32 shell32 shlwapi user32 version ws2_32"
result=0
for program in "$@"; do
  imports=$(x86_64-w64-mingw32-objdump -p "$program" | sed -n 's/^\tDLL Name: //p' | tr '[:upper:]' '[:lower:]')
  [ -n "$imports" ] || { echo "$program: imports nothing: not a Windows program"; result=1; }
  for dll in $imports; do
    if ! grep -qw -- "${dll%.dll}" <<<"$system"; then
      echo "$program: needs $dll, which is not part of Windows"
      result=1
    fi
  done
done
exit $result
