#!/usr/bin/env bash
# Signs Windows files in place (Authenticode, SHA-256) with osslsigncode.
#   QUILLON_SIGN_PFX            the code-signing certificate and key, a PKCS#12 file
#   QUILLON_SIGN_PASSWORD_FILE  a file whose first line is that file's password
#   QUILLON_SIGN_TIMESTAMP      optional: the URL of an RFC 3161 time-stamping server
# Without QUILLON_SIGN_PFX it signs nothing (the caller says so).
set -euo pipefail

[[ -n ${QUILLON_SIGN_PFX:-} ]] || exit 0
if [[ ! -r $QUILLON_SIGN_PFX ]]; then
  echo "sign: cannot read the certificate QUILLON_SIGN_PFX=$QUILLON_SIGN_PFX" >&2
  exit 1
fi
if [[ -z ${QUILLON_SIGN_PASSWORD_FILE:-} || ! -r $QUILLON_SIGN_PASSWORD_FILE ]]; then
  echo "sign: QUILLON_SIGN_PASSWORD_FILE must name a readable file holding the certificate's password" >&2
  exit 1
fi
timestamp=()
[[ -z ${QUILLON_SIGN_TIMESTAMP:-} ]] || timestamp=(-ts "$QUILLON_SIGN_TIMESTAMP")

for file in "$@"; do
  # A whole signed file or none: the signed copy replaces the file only once it is complete.
  if ! osslsigncode sign -pkcs12 "$QUILLON_SIGN_PFX" -readpass "$QUILLON_SIGN_PASSWORD_FILE" -h sha256 \
      -n Quillon "${timestamp[@]}" -in "$file" -out "$file.signing" >"$file.signing.log" 2>&1; then
    echo "sign: $file: $(tail -n 1 "$file.signing.log")" >&2
    rm -f "$file.signing" "$file.signing.log"
    exit 1
  fi
  mv -f "$file.signing" "$file"
  rm -f "$file.signing.log"
done
