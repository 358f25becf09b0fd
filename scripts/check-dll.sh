#!/usr/bin/env bash
# Checks a built Quillon.dll or program: its machine type, that it imports
# system DLLs only, that it carries the project's version in its version
# information, with --exports that the COM entry points are exported by name,
# and with --gui or --console the subsystem Windows starts a program in (a
# console program started from the Start menu opens a console beside it, and
# closing that console ends it).
# Usage: check-dll.sh <dll> <arm64|x64> [--exports|--gui|--console]
set -euo pipefail

dll=$1
arch=$2
option=${3:-}
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

system_dlls='^(kernel32|msvcrt|ucrtbase|ntdll|ole32|oleaut32|advapi32|shell32|user32|gdi32|comctl32|comdlg32|uxtheme|oleacc|shlwapi|bcrypt|version|api-ms-win-[a-z0-9-]+)\.dll$'
bad=0
imports=$(sed -n 's/^ *DLL Name: //p' <<<"$dump")
for name in $imports; do
  if ! tr '[:upper:]' '[:lower:]' <<<"$name" | grep -Eq "$system_dlls"; then
    echo "check-dll: $dll imports a non-system DLL: $name" >&2
    bad=1
  fi
done

subsystem=$(sed -n 's/^Subsystem[[:space:]]*[0-9a-f]*[[:space:]]*(\(.*\))$/\1/p' <<<"$dump")
case "$option" in
  --gui) want="Windows GUI" ;;
  --console) want="Windows CUI" ;;
  *) want="" ;;
esac
if [[ -n $want && $subsystem != "$want" ]]; then
  echo "check-dll: $dll is a ${subsystem:-program of no subsystem} program, not $want" >&2
  bad=1
fi

if [[ "$option" == "--exports" ]]; then
  for entry in DllGetClassObject DllCanUnloadNow DllRegisterServer DllUnregisterServer; do
    if ! grep -Eq "^ +[0-9]+ +(0x)?[0-9a-f]+ +$entry\$" <<<"$dump"; then
      echo "check-dll: $dll does not export $entry" >&2
      bad=1
    fi
  done
fi
# The FileVersion text of its version information is the project's version.
# (The resources are read whole first: grep -q ending a pipe early would kill
# llvm-readobj with SIGPIPE, which pipefail reports as a failure.)
version=$(sed -n 's/^project(Quillon VERSION \([0-9.]*\) .*/\1/p' "$(dirname "$0")/../CMakeLists.txt")
resources=$(llvm-readobj --coff-resources "$dll" 2>/dev/null || true)
if ! grep -q "Type: VERSIONINFO" <<<"$resources" ||
  ! python3 - "$dll" "$version" <<'PY'; then
import sys
data = open(sys.argv[1], "rb").read()
name = "FileVersion\0".encode("utf-16-le")
at = data.find(name)
# The value follows its name, aligned to four bytes.
sys.exit(0 if at >= 0 and (sys.argv[2] + "\0").encode("utf-16-le") in data[at + len(name):at + len(name) + 40] else 1)
PY
  echo "check-dll: $dll does not carry version $version in its version information" >&2
  bad=1
fi
[[ $bad -eq 0 ]] || exit 1
echo "check-dll: $dll is $format, version $version, and imports only system DLLs: $(echo $imports)"
