#!/usr/bin/env bash
# An ARM64 Debian root with Debian's ARM64 Wine, run through QEMU's user-mode
# emulator, in which the ARM64 build's test suite runs.
#
#   arm64-wine.sh setup               make the root if it is missing or incomplete
#   arm64-wine.sh check               say whether this kernel can run ARM64 programs
#   arm64-wine.sh run-tests <build>   run <build>'s CTest suite inside the root
#   arm64-wine.sh exec <cmd...>       run a command inside the root (mounts must be up)
#
# The root lives outside the clone (QUILLON_ARM64_ROOT, default
# /var/cache/quillon/arm64-root) so later runs and fresh clones reuse it; a
# marker written last says it is complete.
set -euo pipefail

root=${QUILLON_ARM64_ROOT:-/var/cache/quillon/arm64-root}
marker="$root/.quillon-arm64-wine-ready"
here=$(cd "$(dirname "$0")" && pwd)

say() { echo "arm64-wine: $*" >&2; }

# The root fetches from the repositories that this machine's apt uses.
# shellcheck source=scripts/apt-sources.sh
source "$here/apt-sources.sh"

enable_binfmt() {
  if [[ ! -e /proc/sys/fs/binfmt_misc/register ]]; then
    mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc 2>/dev/null || true
  fi
  local missing=()
  for p in qemu-user-static binfmt-support debootstrap; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
  done
  if ((${#missing[@]})); then
    say "installing ${missing[*]}"
    apt-get update -qq
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >/dev/null
  fi
  if [[ ! -e /proc/sys/fs/binfmt_misc/qemu-aarch64 ]]; then
    update-binfmts --enable qemu-aarch64 >/dev/null 2>&1 || true
  fi
}

can_run_arm64() {
  [[ -e /proc/sys/fs/binfmt_misc/qemu-aarch64 ]] && grep -q enabled /proc/sys/fs/binfmt_misc/qemu-aarch64
}

# ---- Mounts, undone on every exit path ------------------------------------------
mounted=()
mount_into_root() {
  local source=$1 target="$root$2"
  mkdir -p "$target"
  mount --bind "$source" "$target"
  mounted+=("$target")
}
unmount_all() {
  local i
  for ((i = ${#mounted[@]} - 1; i >= 0; i--)); do
    umount -l "${mounted[i]}" 2>/dev/null || true
  done
  mounted=()
}

setup() {
  enable_binfmt
  can_run_arm64 || { say "this kernel cannot run ARM64 programs (binfmt_misc with qemu-aarch64 is missing)"; exit 1; }
  [[ -f "$marker" ]] && return 0

  local start=$SECONDS mirror updates security
  require_debian_mirror mirror arm64-wine
  updates=$(apt_repo_uri bookworm-updates)
  security=$(apt_repo_uri bookworm-security)
  say "building the ARM64 root in $root from $mirror (takes a few minutes, once)"
  rm -rf "$root"
  mkdir -p "$root"
  trap unmount_all EXIT
  debootstrap --arch=arm64 --foreign --variant=minbase bookworm "$root" "$mirror" >/dev/null
  cp /usr/bin/qemu-aarch64-static "$root/usr/bin/"
  chroot "$root" /debootstrap/debootstrap --second-stage >/dev/null
  # The updates and security suites come along where this machine's apt has them.
  {
    echo "deb $mirror bookworm main"
    [[ -z $updates ]] || echo "deb $updates bookworm-updates main"
    [[ -z $security ]] || echo "deb $security bookworm-security main"
  } >"$root/etc/apt/sources.list"
  mount_into_root /proc /proc
  mount_into_root /dev /dev
  chroot "$root" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive chroot "$root" apt-get install -y -qq --no-install-recommends wine wine64 >/dev/null
  chroot "$root" apt-get clean
  unmount_all
  trap - EXIT
  touch "$marker"
  say "ARM64 root ready in $((SECONDS - start)) s"
}

mount_for_build() {
  local build=$1
  trap unmount_all EXIT
  mount_into_root /proc /proc
  mount_into_root /dev /dev
  mount_into_root /dev/shm /dev/shm
  # The build folder at the same path inside the root, so CTest's paths hold there too.
  mount_into_root "$build" "$build"
}

wine_env=()
stop_server() {
  if ((${#wine_env[@]})); then
    chroot "$root" "${wine_env[@]}" wineserver -k >/dev/null 2>&1 || true
    chroot "$root" "${wine_env[@]}" wineserver -w >/dev/null 2>&1 || true
  fi
  unmount_all
}

run_tests() {
  local build
  build=$(cd "$1" && pwd)
  shift
  setup
  mount_for_build "$build"
  wine_env=(env WINEPREFIX="$build/wineprefix" WINEDEBUG=-all HOME=/root)
  "$build/wine-run" --prepare
  chroot "$root" "${wine_env[@]}" wineserver -p >/dev/null 2>&1 </dev/null || true
  trap stop_server EXIT
  # Wine's background services, started now and detached from every output
  # (started by a test they would hold its output pipe open).
  chroot "$root" "${wine_env[@]}" wine wineboot >/dev/null 2>&1 </dev/null || true
  ctest --test-dir "$build" --output-on-failure -j2 "$@"
}

case "${1:-}" in
  setup) setup ;;
  check) enable_binfmt; can_run_arm64 ;;
  run-tests) shift; run_tests "$@" ;;
  exec)
    shift
    cd_to=$PWD
    exec chroot "$root" /usr/bin/env WINEDEBUG="${WINEDEBUG:--all}" HOME=/root /bin/sh -c 'cd "$0" && exec "$@"' "$cd_to" "$@"
    ;;
  *) echo "usage: $0 setup|check|run-tests <build>|exec <cmd...>" >&2; exit 2 ;;
esac
