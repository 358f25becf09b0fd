#!/usr/bin/env bash
# The setup packages, for make package:
#   package.sh OUT_DIR BUILD_DIR:ARCH...   (ARCH is x64 or arm64)
# Each build's Quillon.dll, quillon.exe and quillon-board.exe are copied to
# OUT_DIR/files-ARCH, signed there when a code-signing certificate is given
# (see sign.sh), and packed into OUT_DIR/Quillon-<version>-ARCH-setup.exe,
# whose uninstaller and which itself are signed too.
set -euo pipefail

# Paths as the caller gave them; makensis reads them from package/.
mkdir -p "$1"
out=$(cd "$1" && pwd)
shift
builds=()
for build_arch in "$@"; do builds+=("$(cd "${build_arch%%:*}" && pwd):${build_arch##*:}"); done
cd "$(dirname "$0")/.."
version=$(sed -n 's/^project(Quillon VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
sign=()
if [[ -n ${QUILLON_SIGN_PFX:-} ]]; then
  echo "package: signing with $QUILLON_SIGN_PFX"
  sign=(-DSIGN="$PWD/scripts/sign.sh")
else
  echo "package: no code-signing certificate (QUILLON_SIGN_PFX is not set): the files are left unsigned"
fi

for build_arch in "${builds[@]}"; do
  build=${build_arch%%:*} arch=${build_arch##*:}
  files=$out/files-$arch
  rm -rf "$files"
  mkdir -p "$files"
  cp "$build/bin/Quillon.dll" "$build/bin/quillon.exe" "$build/bin/quillon-board.exe" "$files/"
  scripts/sign.sh "$files/Quillon.dll" "$files/quillon.exe" "$files/quillon-board.exe"
  setup=$out/Quillon-$version-$arch-setup.exe
  makensis -V2 -DVERSION="$version" -DARCH="$arch" -DBIN="$files" -DLIBRARY="$files/Quillon.dll" \
    -DICON="$build/tools/icons/quillon.ico" -DUNINSTALLER_COPY="$files/uninstall.exe" "${sign[@]}" \
    -DOUTFILE="$setup" package/Quillon.nsi
  ls -l "$setup"
done
