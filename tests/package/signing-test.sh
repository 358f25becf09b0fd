#!/usr/bin/env bash
# make package's signing, with a throwaway certificate made here: every file
# it signs (the library, the programs, the uninstaller inside the setup and
# the setup) verifies with that certificate trusted as its CA; a file changed
# after signing does not; without a certificate nothing is signed and the
# packaging says so.
#   signing-test.sh BUILD_DIR   (an x64 build)
set -euo pipefail
build=$(cd "$1" && pwd)
cd "$(dirname "$0")/../.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

# A self-signed code-signing certificate, as a PKCS#12 file with a password.
openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj "/CN=Quillon test signing" \
  -addext "extendedKeyUsage=codeSigning" -keyout "$work/key.pem" -out "$work/ca.pem" 2>/dev/null
echo "throwaway-$RANDOM" >"$work/password"
openssl pkcs12 -export -inkey "$work/key.pem" -in "$work/ca.pem" -out "$work/sign.pfx" \
  -passout "file:$work/password"

verifies() { osslsigncode verify -CAfile "$work/ca.pem" -in "$1" >"$work/verify.log" 2>&1; }

QUILLON_SIGN_PFX=$work/sign.pfx QUILLON_SIGN_PASSWORD_FILE=$work/password \
  scripts/package.sh "$work/signed" "$build:x64" >"$work/package.log" 2>&1 || { cat "$work/package.log"; exit 1; }
grep -q "package: signing with" "$work/package.log" || fail "packaging did not say it signs"
setup=$(ls "$work"/signed/Quillon-*-x64-setup.exe)
signed=("$work"/signed/files-x64/{Quillon.dll,quillon.exe,quillon-board.exe,uninstall.exe} "$setup")
for file in "${signed[@]}"; do
  if verifies "$file"; then echo "verified: ${file#"$work"/}"; else fail "${file#"$work"/} does not verify:"; cat "$work/verify.log"; fi
done

# One byte changed after signing, in the middle of the setup's data.
cp "$setup" "$work/changed.exe"
size=$(stat -c %s "$work/changed.exe")
printf '\x5a' | dd of="$work/changed.exe" bs=1 seek=$((size / 2)) conv=notrunc status=none
cmp -s "$setup" "$work/changed.exe" && fail "the byte was not changed"
verifies "$work/changed.exe" && fail "a setup changed after signing still verifies"

# Without a certificate: unsigned, and a line says so.
env -u QUILLON_SIGN_PFX -u QUILLON_SIGN_PASSWORD_FILE \
  scripts/package.sh "$work/unsigned" "$build:x64" >"$work/package.log" 2>&1 || { cat "$work/package.log"; exit 1; }
grep -q "the files are left unsigned" "$work/package.log" || fail "packaging without a certificate said nothing"
verifies "$work/unsigned/files-x64/Quillon.dll" && fail "Quillon.dll is signed without a certificate"

# A password file that is not there: one line naming what is wrong, and no setup.
if QUILLON_SIGN_PFX=$work/sign.pfx QUILLON_SIGN_PASSWORD_FILE=$work/absent \
  scripts/package.sh "$work/refused" "$build:x64" >"$work/package.log" 2>&1; then
  fail "packaging went on without the password file"
fi
grep -q "QUILLON_SIGN_PASSWORD_FILE must name a readable file" "$work/package.log" || fail "no line names the missing password file"
compgen -G "$work/refused/Quillon-*-setup.exe" >/dev/null && fail "a setup was made without its signature"

if ((failures)); then
  echo "$failures check(s) failed"
  exit 1
fi
echo "signing: every check passed"
