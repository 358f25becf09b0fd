#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need. Safe to run again:
# apt is only asked when something is missing.
set -euo pipefail

# wine64-preloader reserves the addresses Windows keeps fixed (the shared user
# data page at 0x7ffe0000 among them) before Linux places anything there.
# Without it, about one Wine start in a thousand found that page taken and
# ended at once ("failed to map the shared user data"), which CreateProcess
# reports as ERROR_INTERNAL_ERROR.
packages=(cmake ninja-build googletest wine wine64 wine64-preloader llvm openssl make python3 espeak-ng sox lame opus-tools gnuplot-nox dpkg-dev nsis nlohmann-json3-dev xvfb xdotool imagemagick python3-yaml ffmpeg)
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

# osslsigncode, which signs the packages, from Debian 12's backports (its own
# 2.5 is older). The backports come from the repository apt already uses for
# Debian's packages, added once as a source of its own.
if ! dpkg-query -W -f='${Status} ${Version}' osslsigncode 2>/dev/null | grep -q 'install ok installed .*bpo12'; then
  if [[ $(id -u) -ne 0 ]]; then
    echo "install-deps: missing osslsigncode from bookworm-backports (run as root to install it)" >&2
    exit 1
  fi
  # shellcheck source=scripts/apt-sources.sh
  source "$(dirname "$0")/apt-sources.sh"
  if [[ -z $(apt_repo_uri bookworm-backports) ]]; then
    require_debian_mirror mirror install-deps
    printf '%s\n' "Types: deb" "URIs: $mirror" "Suites: bookworm-backports" "Components: main" \
      "Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg" >/etc/apt/sources.list.d/quillon-backports.sources
    apt-get update -qq
  fi
  echo "install-deps: installing osslsigncode from bookworm-backports"
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends -t bookworm-backports osslsigncode >/dev/null
fi
