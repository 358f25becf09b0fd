# Sourced by the scripts that fetch from Debian 12 (bookworm): where apt's own
# configuration gets its packages. The project names no package host itself;
# on a machine whose apt has no source of bookworm, the script stops and says so.

# The repository URI of apt's binary-package source of SUITE (bookworm,
# bookworm-updates, bookworm-security), component main, as apt resolves its
# sources; nothing when apt has none (see require_debian_mirror).
apt_repo_uri() {
  local uri
  # Single quotes on purpose: the $(...) fields are apt's, not the shell's.
  # shellcheck disable=SC2016
  uri=$(apt-get indextargets --format '$(TARGET_OF) $(RELEASE) $(COMPONENT) $(REPO_URI)' 2>/dev/null |
    awk -v suite="$1" '$1 == "deb" && $2 == suite && $3 == "main" { print $4; exit }')
  echo "${uri%/}"
}

# Sets the variable named $1 to apt's source of bookworm main, or stops the
# script with one line naming what is missing ($2 prefixes it). apt lists a
# source only once its index was downloaded, so a machine that never ran
# apt-get update runs it here, once, before any source is looked up.
require_debian_mirror() {
  local uri
  uri=$(apt_repo_uri bookworm)
  if [[ -z $uri && $(id -u) -eq 0 ]]; then
    apt-get update -qq >/dev/null 2>&1 || true
    uri=$(apt_repo_uri bookworm)
  fi
  if [[ -z $uri ]]; then
    echo "$2: apt has no source of Debian 12 packages: add a 'deb' entry for bookworm main to /etc/apt/sources.list.d/" >&2
    exit 1
  fi
  printf -v "$1" '%s' "$uri"
}
