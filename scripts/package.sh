#!/usr/bin/env bash
# The setup packages, for make package:
#   package.sh OUT_DIR BUILD_DIR:ARCH...   (ARCH is x64 or arm64)
# Each build's Quillon.dll, quillon.exe and quillon-board.exe are copied to
# OUT_DIR/files-ARCH, signed there when a code-signing certificate is given
# (see sign.sh), and packed into OUT_DIR/Quillon-<version>-ARCH-setup.exe,
# whose uninstaller and which itself are signed too.
#
# Then OUT_DIR/winget gets the winget manifest of the version, for the setups
# just made: Marrowin.Quillon.yaml (version), Marrowin.Quillon.installer.yaml
# (one installer per architecture, with its SHA-256) and
# Marrowin.Quillon.locale.en-US.yaml, manifest version 1.6.0. Each installer's
# URL is QUILLON_DOWNLOAD_URL with {version} and {file} replaced by the
# version and the setup's file name; the default,
#   https://downloads.example.invalid/quillon/{version}/{file}
# names no real host (the project has none), so set it to where the setups
# are published before submitting the manifest.
set -euo pipefail

# Paths as the caller gave them; makensis reads them from package/.
mkdir -p "$1"
out=$(cd "$1" && pwd)
shift
builds=()
for build_arch in "$@"; do builds+=("$(cd "${build_arch%%:*}" && pwd):${build_arch##*:}"); done
cd "$(dirname "$0")/.."
version=$(sed -n 's/^project(Quillon VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
# Checked before any setup is made: every installer needs a URL of its own.
default_url='https://downloads.example.invalid/quillon/{version}/{file}'
download_url=${QUILLON_DOWNLOAD_URL:-$default_url}
if [[ $download_url != https://* || $download_url != *"{file}"* || $download_url =~ [[:space:]] ]]; then
  echo "package: QUILLON_DOWNLOAD_URL must be an https:// URL without spaces that contains {file}: $download_url" >&2
  exit 1
fi
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

# The winget manifest, written by hand; values that could read as a number or
# as YAML syntax are single-quoted (a quote doubles inside one).
quote() { printf "'%s'" "${1//\'/\'\'}"; }
manifest_head() {
  echo "# yaml-language-server: \$schema=https://aka.ms/winget-manifest.$1.1.6.0.schema.json"
  echo
  echo "PackageIdentifier: Marrowin.Quillon"
  echo "PackageVersion: $(quote "$version")"
}
winget=$out/winget
rm -rf "$winget"
mkdir -p "$winget"
copyright=$(sed -n 's/^VIAddVersionKey .*"LegalCopyright" "\(.*\)"$/\1/p' package/Quillon.nsi)

{
  manifest_head version
  echo "DefaultLocale: en-US"
  echo "ManifestType: version"
  echo "ManifestVersion: 1.6.0"
} >"$winget/Marrowin.Quillon.yaml"

# The setup is NSIS's, asks for administrator rights itself and installs for
# every user; winget knows an installed Quillon by the setup's entry in
# Programs and Features (see Quillon.nsi).
{
  manifest_head installer
  cat <<EOF
InstallerType: nullsoft
Scope: machine
InstallerSwitches:
  Silent: '/S'
  SilentWithProgress: '/S'
UpgradeBehavior: install
ElevationRequirement: elevatesSelf
MinimumOSVersion: 10.0.0.0
AppsAndFeaturesEntries:
  - DisplayName: Quillon
    Publisher: Marrowin
    DisplayVersion: $(quote "$version")
Installers:
EOF
  for build_arch in "${builds[@]}"; do
    arch=${build_arch##*:}
    file=Quillon-$version-$arch-setup.exe
    url=${download_url//"{version}"/$version}
    url=${url//"{file}"/$file}
    sha256=$(sha256sum "$out/$file")
    sha256=${sha256%% *}
    echo "  - Architecture: $arch"
    echo "    InstallerUrl: $(quote "$url")"
    echo "    InstallerSha256: $(quote "${sha256^^}")"
  done
  echo "ManifestType: installer"
  echo "ManifestVersion: 1.6.0"
} >"$winget/Marrowin.Quillon.installer.yaml"

{
  manifest_head defaultLocale
  cat <<EOF
PackageLocale: en-US
Publisher: Marrowin
PackageName: Quillon
Moniker: quillon
License: Proprietary
Copyright: $(quote "$copyright")
ShortDescription: Plays sounds into your microphone, so that calls, games and streams hear them.
Description: >-
  Quillon is an audio effect that Windows runs on a microphone: it mixes the
  sounds its player and its board play into what the microphone records, or
  replaces the voice with them, so that every program that records from the
  microphone hears them.
Tags:
  - audio
  - microphone
  - sound-effects
ManifestType: defaultLocale
ManifestVersion: 1.6.0
EOF
} >"$winget/Marrowin.Quillon.locale.en-US.yaml"
echo "package: winget manifest in $winget"
