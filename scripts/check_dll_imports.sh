#!/usr/bin/env bash
# Fails when a DLL imports anything but Windows system DLLs and the project's
# own wisp.dll (no libstdc++, libgcc or winpthread DLLs).
set -euo pipefail
status=0
for dll in "$@"; do
  imports=$(x86_64-w64-mingw32-objdump -p "$dll" | awk '/DLL Name:/ {print $3}')
  echo "$(basename "$dll") imports: $(echo $imports)"
  for name in $imports; do
    case "${name,,}" in
      kernel32.dll|msvcrt.dll|winhttp.dll|ws2_32.dll|advapi32.dll|user32.dll|bcrypt.dll|crypt32.dll|wisp.dll) ;;
      *) echo "  not a system DLL: $name"; status=1 ;;
    esac
  done
done
exit $status
