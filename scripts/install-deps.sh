#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need. Safe to run again:
# apt is only asked when something is missing.
set -euo pipefail

packages=(cmake ninja-build googletest wine wine64 llvm openssl make python3 espeak-ng sox lame opus-tools gnuplot-nox dpkg-dev nsis nlohmann-json3-dev xvfb xdotool imagemagick)
missing=()
# npm may come with a nodejs from elsewhere than Debian; only ask for Debian's when there is none.
command -v npm >/dev/null 2>&1 || missing+=(npm)
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done

if ((${#missing[@]})); then
  if [[ $(id -u) -ne 0 ]]; then
    echo "install-deps: missing packages: ${missing[*]} (run as root to install them)" >&2
    exit 1
  fi
  echo "install-deps: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
