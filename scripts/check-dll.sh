#!/usr/bin/env bash
# Checks a built Quillon.dll: its machine type, that it imports system DLLs
# only, and (with --exports) that the COM entry points are exported by name.
# Usage: check-dll.sh <dll> <arm64|x64> [--exports]
set -euo pipefail

dll=$1
arch=$2
want_exports=${3:-}
case "$arch" in
  arm64) format="coff-arm64" ;;
  x64) format="coff-x86-64" ;;
  *) echo "check-dll: unknown architecture $arch" >&2; exit 2 ;;
esac

dump=$(llvm-objdump -p "$dll")
if ! grep -q "file format $format" <<<"$dump"; then
  echo "check-dll: $dll is not $format: $(grep -m1 'file format' <<<"$dump")" >&2
  exit 1
fi

system_dlls='^(kernel32|msvcrt|ucrtbase|ntdll|ole32|oleaut32|advapi32|shell32|user32|gdi32|comctl32|comdlg32|uxtheme|shlwapi|bcrypt|api-ms-win-[a-z0-9-]+)\.dll$'
bad=0
imports=$(sed -n 's/^ *DLL Name: //p' <<<"$dump")
for name in $imports; do
  if ! tr '[:upper:]' '[:lower:]' <<<"$name" | grep -Eq "$system_dlls"; then
    echo "check-dll: $dll imports a non-system DLL: $name" >&2
    bad=1
  fi
done

if [[ "$want_exports" == "--exports" ]]; then
  for entry in DllGetClassObject DllCanUnloadNow DllRegisterServer DllUnregisterServer; do
    if ! grep -Eq "^ +[0-9]+ +(0x)?[0-9a-f]+ +$entry\$" <<<"$dump"; then
      echo "check-dll: $dll does not export $entry" >&2
      bad=1
    fi
  done
fi
[[ $bad -eq 0 ]] || exit 1
echo "check-dll: $dll is $format and imports only system DLLs: $(echo $imports)"
