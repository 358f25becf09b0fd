#!/usr/bin/env bash
# Cross-builds the audio libraries that the command-line tools link statically:
# libsndfile (with FLAC, Ogg, Vorbis, Opus, mpg123 and LAME), libsoxr and
# libebur128 (loudness, EBU R128), from
# Debian 12's source packages with Debian's patches applied, for each Windows
# target, with the project's pinned Zig.
#
#   scripts/third-party.sh prefix TARGET   build TARGET if needed, then print its
#                                          install prefix (the only thing on stdout)
#   scripts/third-party.sh all             build every target if needed
#
# TARGET is x86_64-windows-gnu or aarch64-windows-gnu.
#
# Everything lives in a cache outside the work tree, so fresh clones reuse it:
# ${QUILLON_THIRD_PARTY_CACHE:-/var/cache/quillon/third-party}
#   sources/                 downloaded .dsc and tarballs (checked against the pins below)
#   <key>/<target>/          install prefix: include/, lib/ (static libraries only)
#   <key>/logs/<target>.log  build log; its tail is printed when a build fails
# <key> is a hash of this file and the Zig version, so changing a pin or a build
# option here, or the compiler, builds into a new prefix. A stamp file written
# after the last library is installed marks a prefix as complete; with it present
# the script neither builds nor touches the network.
set -euo pipefail

self=$(readlink -f "${BASH_SOURCE[0]}")
root=$(cd "$(dirname "$self")/.." && pwd)
cache=${QUILLON_THIRD_PARTY_CACHE:-/var/cache/quillon/third-party}
sources="$cache/sources"
zig="$root/.toolchain/zig/zig"
wrappers="$root/cmake/zig"
targets=(x86_64-windows-gnu aarch64-windows-gnu)
stamp_name=quillon-third-party.stamp
jobs=2 # the machine has 2 cores, shared with whatever else runs

# Source packages in build order (each one's dependencies come before it).
packages=(libogg flac libvorbis opus mpg123 lame libsndfile libsoxr libebur128)
declare -A version=(
  [libogg]=1.3.5-3
  [flac]=1.4.2+ds-2
  [libvorbis]=1.3.7-1
  [opus]=1.3.1-3
  [mpg123]=1.31.2-1+deb12u1
  [lame]=3.100-6
  [libsndfile]=1.2.0-1+deb12u1
  [libsoxr]=0.1.3-4
  [libebur128]=1.2.6-1
)
# SHA-256 of every file used from each source package. The .dsc is hashed too:
# its signature cannot be checked here (no Debian keyring), the pin stands in for it.
pins="
libogg      libogg_1.3.5-3.dsc                       dd0bac7c6961f95290250f82940aba93582edc3924372afc8fd310af5db995a0
libogg      libogg_1.3.5.orig.tar.xz                 c4d91be36fc8e54deae7575241e03f4211eb102afb3fc0775fbbc1b740016705
libogg      libogg_1.3.5-3.debian.tar.xz             980cc7c95d72d2a9c56cf9d602b8296c6551528890f28fee6769b801ea0e54f3
flac        flac_1.4.2+ds-2.dsc                      2f855e77c68e3e9818b47553bb4f33918fb558fe9cf58b30a089a99f811d3beb
flac        flac_1.4.2+ds.orig.tar.xz                47274ac8fcb1f0e6caa91d29f943925d7a40c0a3f6357c3275773bdb1ee46638
flac        flac_1.4.2+ds-2.debian.tar.xz            8e3132e8e4a6e459c5a360c8a7e85c2aa6e2a0612687ef124ff65bcae82e90d8
libvorbis   libvorbis_1.3.7-1.dsc                    b25d27beb9162607c95cf58aa2b764d110bd1a1568d3926a96c523320b49171f
libvorbis   libvorbis_1.3.7.orig.tar.gz              0e982409a9c3fc82ee06e08205b1355e5c6aa4c36bca58146ef399621b0ce5ab
libvorbis   libvorbis_1.3.7-1.debian.tar.xz          c5c40944a3fc1cdd1ce019ef21f580ce5ed3b9f30e0cba7b3d859e8d9fea631f
opus        opus_1.3.1-3.dsc                         c373ac82a1afb824819618c12e279ee47b6ac2fa18083b9ef2bb9e8e9e588419
opus        opus_1.3.1.orig.tar.gz                   65b58e1e25b2a114157014736a3d9dfeaad8d41be1c8179866f144a2fb44ff9d
opus        opus_1.3.1-3.debian.tar.xz               f4a145f0d5b9140106396fc0b0c515b1c3abd59f2aa5fb62b36b69886aa411bc
mpg123      mpg123_1.31.2-1+deb12u1.dsc              a67b2daf33ecf2d2a720e0cd721ac44828f1edee644abac34d8022819abbbb1a
mpg123      mpg123_1.31.2.orig.tar.bz2               b17f22905e31f43b6b401dfdf6a71ed11bb7d056f68db449d70b9f9ae839c7de
mpg123      mpg123_1.31.2-1+deb12u1.debian.tar.xz    9fc7eeeb4be67525fb7901022955b646832f095499612672ad7c24a1b3303599
lame        lame_3.100-6.dsc                         6a402771625fa80785a2b904697ba9c7e74a1ee4fa536354e9e88f08e2a4073b
lame        lame_3.100.orig.tar.gz                   ddfe36cab873794038ae2c1210557ad34857a4b6bdc515785d1da9e175b1da1e
lame        lame_3.100-6.debian.tar.xz               35c6af528d139737c8beede450ad99fe0c1f1764455d23321038b5c4a2b4574c
libsndfile  libsndfile_1.2.0-1+deb12u1.dsc           74686b038b925f4b238d0a37e36671e5b924fe1678083037494923140403fa8e
libsndfile  libsndfile_1.2.0.orig.tar.gz             62dc4e2bcd45f6f0e89cbc3522cc90eb174dca0eef0a0d19ead289833b390cd7
libsndfile  libsndfile_1.2.0-1+deb12u1.debian.tar.xz 77b8c1c5fc6d110f08535ccb76f65c284a441e544a0698e3dee65c5bda882eee
libsoxr     libsoxr_0.1.3-4.dsc                      ce1af0b2dda238ffb7ad2ccea606d132d4153a2bf1b63994fcebc7e0a8db8970
libsoxr     libsoxr_0.1.3.orig.tar.xz                b111c15fdc8c029989330ff559184198c161100a59312f5dc19ddeb9b5a15889
libsoxr     libsoxr_0.1.3-4.debian.tar.xz            ae691692ccee841407c2fc7ebb2f25908ccd0adb256cf55944c71325cef14e71
libebur128  libebur128_1.2.6-1.dsc                   46140388068887be8fe9916e9c01f34a1117a7b37e972be512df5afb6aaa31fe
libebur128  libebur128_1.2.6.orig.tar.gz             baa7fc293a3d4651e244d8022ad03ab797ca3c2ad8442c43199afe8059faa613
"

# Where apt finds Debian's source packages when the machine has no deb-src
# entry: the repository that apt already uses for Debian's binary packages.
# shellcheck source=scripts/apt-sources.sh
source "$root/scripts/apt-sources.sh"
deb_src_file=/etc/apt/sources.list.d/quillon-deb-src.sources
deb_src_entry() {
  printf '%s\n' "Types: deb-src" "URIs: $1" "Suites: bookworm bookworm-updates" \
    "Components: main" "Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg"
}

say() { echo "third-party: $*" >&2; }
die() { say "error: $*"; exit 1; }

usage() {
  echo "usage: $0 prefix TARGET | all   (TARGET: ${targets[*]})" >&2
  exit 2
}

is_target() {
  local t
  for t in "${targets[@]}"; do [[ $t == "$1" ]] && return 0; done
  return 1
}

# ---------------------------------------------------------------- cache key --

ensure_zig() {
  [[ -x $zig ]] || "$root/scripts/fetch-zig.sh" >&2
}

# Short hash of this script (pins, options, build steps) and the compiler version.
compute_key() {
  { cat "$self"; "$zig" version; } | sha256sum | cut -c1-16
}

# ---------------------------------------------------------------- sources --

files_of() { awk -v p="$1" '$1 == p { print $2 }' <<<"$pins"; }
pin_of() { awk -v f="$1" '$2 == f { print $3 }' <<<"$pins"; }

# True when every pinned file of package $1 is in the cache; dies on a file
# whose hash differs from its pin.
have_sources() {
  local f want got missing=0
  for f in $(files_of "$1"); do
    if [[ ! -f $sources/$f ]]; then missing=1; continue; fi
    want=$(pin_of "$f")
    got=$(sha256sum "$sources/$f" | cut -d' ' -f1)
    [[ $got == "$want" ]] || die "SHA-256 mismatch for $sources/$f: expected $want, got $got (delete the file to download it again)"
  done
  return "$missing"
}

has_deb_src() {
  grep -qsE '^[[:space:]]*deb-src[[:space:]]' /etc/apt/sources.list /etc/apt/sources.list.d/*.list && return 0
  grep -qsiE '^[[:space:]]*Types:.*[[:space:]]deb-src([[:space:]]|$)' /etc/apt/sources.list.d/*.sources
}

# Downloads the source packages not in the cache yet with apt-get source, then
# checks every file against its pin. Log output goes to $1.
fetch_sources() {
  local log=$1 p missing=()
  mkdir -p "$sources"
  for p in "${packages[@]}"; do
    have_sources "$p" || missing+=("$p")
  done
  ((${#missing[@]})) || return 0

  command -v dpkg-source >/dev/null || die "dpkg-source is missing (run scripts/install-deps.sh)"
  [[ $(id -u) -eq 0 ]] || die "downloading ${missing[*]} needs root (apt); or point QUILLON_THIRD_PARTY_CACHE at a filled cache"
  if ! has_deb_src; then
    local mirror
    require_debian_mirror mirror third-party
    say "adding $deb_src_file"
    deb_src_entry "$mirror" >"$deb_src_file"
    apt-get update >>"$log" 2>&1 || { tail -n 20 "$log" >&2; die "apt-get update failed"; }
  fi
  for p in "${missing[@]}"; do
    say "downloading $p ${version[$p]}"
    # apt may fail on a file we do not use (mpg123's .dsc lists an upstream
    # signature, orig.tar.bz2.asc, that the mirror does not serve), so its exit
    # status is only logged; the pin check below is what decides.
    (cd "$sources" && apt-get source --download-only "$p=${version[$p]}") >>"$log" 2>&1 ||
      say "apt-get source $p reported an error (see $log); checking the files it got"
    have_sources "$p" || { tail -n 20 "$log" >&2; die "could not download all files of $p ${version[$p]}: $(files_of "$p" | tr '\n' ' ')"; }
  done
}

# Packages built from the upstream tarball of their Debian source package
# alone: Debian's packaging tarball of libebur128 1.2.6-1 (3888 bytes, SHA-256
# fb020439bee55032fcd89c23d969054c203b74e3561fd642ee1335fd47da1368 in its
# .dsc) is missing from the mirror this project's machines reach (404), so
# dpkg-source cannot unpack it. The .orig.tar.gz is the one the pinned .dsc
# names, checked against its pin.
orig_only=(libebur128)

# Unpacks package $1 with Debian's patches applied into $work/src/$1 (once per run).
unpack() {
  local p=$1 dsc tmp orig
  [[ -d $work/src/$p ]] && return 0
  dsc=$(files_of "$p" | grep '\.dsc$')
  tmp="$work/src/.unpack-$p"
  rm -rf "$tmp" && mkdir -p "$tmp"
  if [[ " ${orig_only[*]} " == *" $p "* ]]; then
    orig=$(files_of "$p" | grep '\.orig\.tar\.')
    mkdir -p "$tmp/tree"
    tar -xf "$sources/$orig" -C "$tmp/tree" --strip-components=1
    mv "$tmp/tree" "$work/src/$p"
    rm -rf "$tmp"
    return 0
  fi
  # --no-check: every file was already checked against its SHA-256 pin, which is
  # stronger than dpkg-source's checks (the .dsc signature cannot be verified
  # without debian-keyring, and mpg123's .dsc names an .asc apt cannot get).
  (cd "$tmp" && dpkg-source --no-check -x "$sources/$dsc" tree)
  if declare -F "fix_$p" >/dev/null; then (cd "$tmp/tree" && "fix_$p"); fi
  mv "$tmp/tree" "$work/src/$p"
  rm -rf "$tmp"
}

# Our own fixes on top of Debian's patches, run in the unpacked tree (fix_NAME).

fix_opus() {
  # The 1.3.1 release tarball lacks opus_buildtype.cmake, which its
  # CMakeLists.txt includes (upstream issue xiph/opus#129, fixed after 1.3.1).
  # The file only picks a default build type; ours is always given.
  cat >opus_buildtype.cmake <<'EOF'
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()
EOF
}

fix_mpg123() {
  # On ARM64 libmpg123 probes for NEON by catching SIGILL with sigaction and
  # sigsetjmp, which Windows does not have, so getcpuflags_arm.c does not
  # compile. Windows on ARM64 requires NEON: report it as present.
  patch -p1 --no-backup-if-mismatch <<'EOF'
--- a/src/libmpg123/getcpuflags_arm.c
+++ b/src/libmpg123/getcpuflags_arm.c
@@ -13,6 +13,15 @@
 
 extern void check_neon(void);
 
+#if defined(_WIN32) && defined(__aarch64__)
+/* Windows on ARM64 requires NEON and has no POSIX signals to probe with. */
+unsigned int getcpuflags(struct cpuflags* cf)
+{
+	cf->has_neon = 1;
+	return 0;
+}
+#else
+
 #ifndef _M_ARM
 static sigjmp_buf jmpbuf;
 #else
@@ -59,3 +68,5 @@
 	
 	return 0;
 }
+
+#endif
EOF
  # Quiet from the start: libsndfile never asks for MPG123_QUIET, and libmpg123
  # otherwise prints notes on a damaged file to standard error, past the
  # program that reports it in one line.
  sed -i 's/mp->flags |= MPG123_AUTO_RESAMPLE|MPG123_FLOAT_FALLBACK;/&\n\tmp->flags |= MPG123_QUIET;/' \
    src/libmpg123/frame.c
  grep -q 'mp->flags |= MPG123_QUIET;' src/libmpg123/frame.c || { echo "mpg123: frame.c did not take the quiet flag"; return 1; }
}

# ---------------------------------------------------------------- building --

# Configures, builds and installs one CMake project into $prefix.
#   cmake_install NAME SOURCE_DIR [-DOPTION=VALUE ...]
# Only the prefix is searched for dependencies (CMAKE_FIND_ROOT_PATH with the
# toolchain's ONLY modes, pkg-config restricted to the prefix), never the host.
cmake_install() {
  local name=$1 src=$2
  shift 2
  local bld="$work/build/$target/$name"
  cmake -G Ninja -S "$src" -B "$bld" \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/$target.cmake" \
    -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_C_FLAGS="-fno-lto" -DCMAKE_CXX_FLAGS="-fno-lto" \
    -DCMAKE_C_FLAGS_RELEASE="-O2 -DNDEBUG" -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" \
    -DCMAKE_INTERPROCEDURAL_OPTIMIZATION=OFF \
    -DBUILD_SHARED_LIBS=OFF -DBUILD_TESTING=OFF \
    -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_INSTALL_LIBDIR=lib \
    -DCMAKE_INSTALL_INCLUDEDIR=include -DCMAKE_INSTALL_BINDIR=bin \
    -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_FIND_ROOT_PATH="$prefix" \
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -DCMAKE_FIND_USE_SYSTEM_PACKAGE_REGISTRY=OFF \
    "$@"
  check_found_paths "$bld/CMakeCache.txt"
  cmake --build "$bld" --parallel "$jobs"
  cmake --install "$bld"
}

# Fails when a configure step found a library or header outside the prefix
# (a Linux host library would link into nothing good).
check_found_paths() {
  local bad
  bad=$(grep -E '^[A-Za-z0-9_]+_(LIBRARY|LIBRARIES|INCLUDE_DIR|INCLUDE_DIRS)(_[A-Z]+)?:(FILEPATH|PATH|STRING)=/' "$1" |
    grep -v -F "=$prefix/" || true)
  if [[ -n $bad ]]; then
    echo "found outside $prefix:"
    echo "$bad"
    return 1
  fi
}

build_libogg() {
  cmake_install libogg "$work/src/libogg" \
    -DINSTALL_DOCS=OFF -DINSTALL_PKG_CONFIG_MODULE=ON -DINSTALL_CMAKE_PACKAGE_MODULE=ON
}

build_flac() {
  # Zig's MinGW target has no libssp, so the stack protector and
  # _FORTIFY_SOURCE options (ON by default) are turned off.
  cmake_install flac "$work/src/flac" \
    -DBUILD_CXXLIBS=OFF -DBUILD_PROGRAMS=OFF -DBUILD_EXAMPLES=OFF -DBUILD_DOCS=OFF \
    -DINSTALL_MANPAGES=OFF -DWITH_OGG=ON \
    -DWITH_STACK_PROTECTOR=OFF -DWITH_FORTIFY_SOURCE=OFF
}

build_libvorbis() {
  cmake_install libvorbis "$work/src/libvorbis" -DINSTALL_CMAKE_PACKAGE_MODULE=ON
}

build_opus() {
  cmake_install opus "$work/src/opus" \
    -DOPUS_BUILD_PROGRAMS=OFF -DOPUS_STACK_PROTECTOR=OFF \
    -DOPUS_INSTALL_PKG_CONFIG_MODULE=ON -DOPUS_INSTALL_CMAKE_CONFIG_MODULE=ON
}

build_mpg123() {
  # The CMake build lives in ports/cmake. Only libmpg123 (and the small
  # libsyn123 it comes with) is needed: no audio output library, no programs.
  # Without its console messages: a damaged MP3 is reported by the program,
  # in one line, never by the library on standard error.
  cmake_install mpg123 "$work/src/mpg123/ports/cmake" \
    -DBUILD_LIBOUT123=OFF -DBUILD_PROGRAMS=OFF -DNO_MESSAGES=ON
}

build_lame() {
  # Autotools. The shipped configure is used as is: Debian's patches to
  # configure.in/Makefile.am (a pkg-config file, -msse for i386) only matter to
  # Debian's autoreconf'd build, and AM_MAINTAINER_MODE keeps make from
  # regenerating anything. The encoder library alone: no frontend, no decoder
  # (mpg123 decodes).
  local bld="$work/build/$target/lame" host
  case $target in
    x86_64-windows-gnu) host=x86_64-w64-mingw32 ;;
    aarch64-windows-gnu) host=aarch64-w64-mingw32 ;;
  esac
  mkdir -p "$bld"
  (
    cd "$bld"
    "$work/src/lame/configure" --build="$(uname -m)-pc-linux-gnu" --host="$host" \
      --prefix="$prefix" --libdir="$prefix/lib" --includedir="$prefix/include" \
      --disable-shared --enable-static --disable-frontend --disable-decoder \
      --disable-gtktest --disable-rpath \
      CC="$wrappers/$target-cc" CFLAGS="-O2 -fno-lto" CPPFLAGS="" LDFLAGS="" \
      AR="$wrappers/zig-ar" RANLIB="$wrappers/zig-ranlib" NM=llvm-nm
    make -j"$jobs"
    make install
  )
}

build_libsndfile() {
  # libsndfile's find modules do not add FLAC__NO_DLL, without which FLAC's
  # headers declare every function as imported from a DLL on Windows.
  local src="$work/src/libsndfile" bld="$work/build/$target/libsndfile"
  cmake_install libsndfile "$src" \
    -DCMAKE_C_FLAGS="-fno-lto -DFLAC__NO_DLL" \
    -DBUILD_PROGRAMS=OFF -DBUILD_EXAMPLES=OFF -DBUILD_REGTEST=OFF \
    -DENABLE_CPACK=OFF -DENABLE_EXPERIMENTAL=OFF -DENABLE_BOW_DOCS=OFF \
    -DINSTALL_MANPAGES=OFF -DENABLE_PACKAGE_CONFIG=ON -DINSTALL_PKGCONFIG_MODULE=ON \
    -DENABLE_EXTERNAL_LIBS=ON -DENABLE_MPEG=ON
  # libsndfile quietly turns a codec family off when it does not find its
  # libraries; the build is only good with all of them in.
  grep -qx '#define HAVE_EXTERNAL_XIPH_LIBS 1' "$bld/src/config.h" ||
    { echo "libsndfile was configured without FLAC/Ogg/Vorbis/Opus"; return 1; }
  grep -qx '#define HAVE_MPEG 1' "$bld/src/config.h" ||
    { echo "libsndfile was configured without MPEG (mpg123/lame)"; return 1; }
}

build_libsoxr() {
  cmake_install libsoxr "$work/src/libsoxr" \
    -DWITH_OPENMP=OFF -DBUILD_TESTS=OFF -DBUILD_EXAMPLES=OFF \
    -DWITH_LSR_BINDINGS=OFF -DBUILD_LSR_TESTS=OFF
}

build_libebur128() {
  # MinGW has no sys/queue.h: the library's own copy.
  cmake_install libebur128 "$work/src/libebur128" -DENABLE_INTERNAL_QUEUE_H=ON
}

# Runs "$@" with errexit in force and all output appended to $log; prints the
# log's tail and exits when it fails.
run_logged() {
  local status
  set +e
  (
    set -e
    "$@"
  ) >>"$log" 2>&1
  status=$?
  set -e
  if ((status != 0)); then
    say "$target: failed; last lines of $log:"
    tail -n 60 "$log" >&2
    exit "$status"
  fi
}

# Builds every library for $1 into $keydir/$1 unless its stamp is there.
build_target() {
  target=$1
  prefix="$keydir/$target"
  log="$keydir/logs/$target.log"
  [[ -f $prefix/$stamp_name ]] && return 0

  mkdir -p "$keydir/logs"
  : >"$log"
  fetch_sources "$log"
  # A prefix without a stamp is what a failed or interrupted build left: start over.
  rm -rf "$prefix" "$work/build/$target"
  mkdir -p "$prefix" "$work/src"

  # Nothing from the caller's environment steers the build: the key would not see it.
  unset CFLAGS CXXFLAGS CPPFLAGS LDFLAGS CC CXX AR RANLIB CMAKE_PREFIX_PATH \
    CMAKE_INCLUDE_PATH CMAKE_LIBRARY_PATH CMAKE_TOOLCHAIN_FILE CMAKE_GENERATOR \
    PKG_CONFIG_SYSROOT_DIR MAKEFLAGS
  export PKG_CONFIG_LIBDIR="$prefix/lib/pkgconfig" PKG_CONFIG_PATH="$prefix/lib/pkgconfig"

  say "$target: building into $prefix (log: $log)"
  local p start
  for p in "${packages[@]}"; do
    start=$SECONDS
    run_logged unpack "$p"
    run_logged "build_$p"
    say "$target: built $p ${version[$p]} ($((SECONDS - start)) s)"
  done

  # Static libraries and headers are all the tools need: no docs (libsoxr puts
  # its own in doc/), no libtool archive, no headers of the FLAC++ library that
  # was not built.
  rm -rf "${prefix:?}/bin" "$prefix/share" "$prefix/doc" "$prefix/include/FLAC++"
  rm -f "$prefix"/lib/*.la
  rm -rf "$work/build/$target"
  {
    echo "target=$target"
    echo "key=$key"
    for p in "${packages[@]}"; do echo "$p=${version[$p]}"; done
  } >"$prefix/$stamp_name"
}

# Builds the targets given unless already built; one run at a time per cache.
ensure_built() {
  local t pending=()
  for t in "$@"; do
    [[ -f $keydir/$t/$stamp_name ]] || pending+=("$t")
  done
  ((${#pending[@]})) || return 0

  mkdir -p "$keydir" || die "cannot create $keydir (set QUILLON_THIRD_PARTY_CACHE to a writable place)"
  exec 9>"$cache/.lock"
  flock -n 9 || { say "waiting for another third-party build to finish"; flock 9; }
  work="$keydir/work"
  rm -rf "$work" # sources and build trees of an earlier run that did not finish
  for t in "${pending[@]}"; do
    build_target "$t"
  done
  rm -rf "$work"
  exec 9>&-
}

# ---------------------------------------------------------------- main --

(($# >= 1)) || usage
case $1 in
  prefix)
    if (($# != 2)) || ! is_target "$2"; then usage; fi
    ensure_zig
    key=$(compute_key)
    keydir="$cache/$key"
    ensure_built "$2"
    echo "$keydir/$2"
    ;;
  all)
    (($# == 1)) || usage
    ensure_zig
    key=$(compute_key)
    keydir="$cache/$key"
    ensure_built "${targets[@]}"
    for t in "${targets[@]}"; do say "$t: $keydir/$t"; done
    ;;
  *) usage ;;
esac
