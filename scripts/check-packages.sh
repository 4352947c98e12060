#!/usr/bin/env bash
# Checks the Debian packages that `cmake --workflow --preset package` and `--preset
# package-armhf` leave in build/packages/, as a device maker would use them:
#
#   amd64  lintian finds no error; apt-get installs them with their dependencies from the
#          archive; from the installed files alone, the example host builds with pkg-config and
#          with find_package(oruplay) and plays a file to its end, /usr/bin/oruplay writes a
#          file's audio and `man -w oruplay` finds its page; purged, they leave nothing behind.
#   armhf  each is armhf and holds only ARM EABI5 code; the example host, built against the
#          -dev package unpacked into a copy of the sysroot, plays a file under qemu-arm.
#
#   check-packages.sh [amd64] [armhf]     (both by default)
#
# Runs as root (it installs and purges). The machine is left as it was: what apt installed for
# the packages is purged with them, also when a check fails.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$PWD
version=$(sed -n 's/^project(oruplay VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
packages=(liboruplay1 liboruplay-dev oruplay)
[ "$#" -gt 0 ] || set -- amd64 armhf
work=$(mktemp -d)
fail() { echo "check-packages: FAIL: $*" >&2; exit 1; }
say() { echo "check-packages: $*"; }
# grep -q, reading all its input: a writer cut off early would fail the pipe (pipefail).
has() { grep "$@" >/dev/null; }

deb_of() { # PACKAGE ARCH
  local deb="$root/build/packages/${1}_${version}_$2.deb" preset=package
  [ "$2" = amd64 ] || preset="package-$2"
  [ -f "$deb" ] || fail "$deb is missing: cmake --workflow --preset $preset makes it"
  echo "$deb"
}

# A tone whose length the outputs must keep, and a check that a WAV holds it, not silence.
sox -q -n -r 44100 -c 2 "$work/tone.flac" synth 1.5 sine 440 vol 0.5
check_wav() { # WAV WHAT
  local seconds rms
  seconds=$(soxi -D "$1") || fail "$2 wrote no readable WAV"
  rms=$(sox "$1" -n stat 2>&1 | awk '/^RMS +amplitude/ { print $3 }')
  awk -v s="$seconds" -v r="$rms" 'BEGIN { exit !(s > 1.45 && s < 1.55 && r > 0.2) }' \
    || fail "$2 wrote ${seconds} s at RMS ${rms}, not the 1.5 s tone"
}

installed_packages() { dpkg-query -W -f '${db:Status-Abbrev} ${Package}\n' | awk '/^.i/ { print $2 }'; }
apt_quiet=(-y -qq -o DPkg::Lock::Timeout=300)
purge_ours() { # the three, and whatever apt installed for them (listed in $work/added)
  local present=()
  mapfile -t present < <(dpkg-query -W -f '${db:Status-Abbrev} ${Package}\n' "${packages[@]}" \
    2>/dev/null | awk '$1 != "un" { print $2 }')
  [ -s "$work/added" ] && mapfile -t -O "${#present[@]}" present <"$work/added"
  [ "${#present[@]}" -eq 0 ] || DEBIAN_FRONTEND=noninteractive apt-get purge "${apt_quiet[@]}" \
    "${present[@]}" >/dev/null
  rm -f "$work/added"
}
installing=false
cleanup() {
  if $installing; then purge_ours || true; fi
  rm -rf "$work"
}
trap cleanup EXIT

check_amd64() {
  local debs=() deb
  for p in "${packages[@]}"; do debs+=("$(deb_of "$p" amd64)"); done

  say "lintian"
  lintian --fail-on error "${debs[@]}" || fail "lintian reports an error"

  say "apt-get install$(printf " ./%s_${version}_amd64.deb" "${packages[@]}")"
  installing=true
  purge_ours  # a run that was killed may have left them
  installed_packages | sort >"$work/before"
  # Every path of the packages that the machine had already (folders such as /usr/lib).
  for deb in "${debs[@]}"; do dpkg-deb -c "$deb"; done | awk '{ sub(/^\./, "", $6); print $6 }' \
    | sed 's|/$||' | sort -u | while read -r path; do [ ! -e "$path" ] || echo "$path"; done \
    >"$work/existed"
  DEBIAN_FRONTEND=noninteractive apt-get install "${apt_quiet[@]}" --no-install-recommends \
    "${debs[@]}" >/dev/null
  installed_packages | sort | comm -13 "$work/before" - | grep -vxF -f <(printf '%s\n' "${packages[@]}") \
    >"$work/added" || true
  dpkg -L "${packages[@]}" | grep -vx '/\.' | sort -u >"$work/files"

  say "the private FFmpeg: found by liboruplay's run path only"
  local triplet libdir
  triplet=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
  libdir=/usr/lib/$triplet
  ! ldconfig -p | has '_oru\.so' || fail "the private FFmpeg is in the loader's cache"
  local loaded  # through /lib or /usr/lib, the same folder on a merged /usr
  loaded=$(ldd /usr/bin/oruplay | awk '/libavformat_oru/ { print $3 }')
  [ "$(dirname "$(readlink -f "$loaded")")" = "$(readlink -f "$libdir/oruplay")" ] \
    || fail "oruplay loads libavformat_oru from '$loaded', not from $libdir/oruplay"
  ! ldd "$(command -v ffmpeg)" | has _oru || fail "Debian's ffmpeg loads the private FFmpeg"

  # A clean environment: nothing of a build tree on any path.
  local clean=(env -u LD_LIBRARY_PATH -u PKG_CONFIG_PATH -u CMAKE_PREFIX_PATH -u LIBRARY_PATH
    -u CPATH)
  local example=/usr/share/doc/liboruplay-dev/examples/minimal_host.cpp
  say "the example host, built with pkg-config oruplay"
  # shellcheck disable=SC2046  # pkg-config's words are the compiler's arguments
  "${clean[@]}" g++ -std=c++17 -o "$work/pc-host" "$example" \
    $("${clean[@]}" pkg-config --cflags --libs oruplay)
  (cd "$work" && "${clean[@]}" ./pc-host tone.flac pc-host.wav) | has '^finished at' \
    || fail "the pkg-config host did not play to the end"
  check_wav "$work/pc-host.wav" "the pkg-config host"

  say "the example host, built with find_package(oruplay)"
  mkdir "$work/cmake-host"
  printf '%s\n' 'cmake_minimum_required(VERSION 3.25)' 'project(host CXX)' \
    'find_package(oruplay REQUIRED)' "add_executable(host $example)" \
    'target_link_libraries(host PRIVATE oruplay::oruplay oruplay::host)' \
    >"$work/cmake-host/CMakeLists.txt"
  "${clean[@]}" cmake -S "$work/cmake-host" -B "$work/cmake-host/build" -G Ninja >/dev/null
  "${clean[@]}" cmake --build "$work/cmake-host/build" >/dev/null
  ! readelf -d "$work/cmake-host/build/host" | has "$root" \
    || fail "the find_package host has a run path into $root"
  (cd "$work" && "${clean[@]}" ./cmake-host/build/host tone.flac cmake-host.wav) \
    | has '^finished at' || fail "the find_package host did not play to the end"
  check_wav "$work/cmake-host.wav" "the find_package host"

  say "/usr/bin/oruplay -o wav:..., man oruplay"
  (cd "$work" && "${clean[@]}" /usr/bin/oruplay -q -o wav:oruplay.wav tone.flac) \
    || fail "oruplay failed"
  check_wav "$work/oruplay.wav" "oruplay"
  [ "$(man -w oruplay)" = /usr/share/man/man1/oruplay.1.gz ] || fail "man -w oruplay finds no page"
  local warnings
  warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 oruplay 2>&1 >/dev/null)
  [ -z "$warnings" ] || fail "the manual page does not format cleanly: $warnings"

  say "apt-get purge: nothing left"
  purge_ours
  ! dpkg-query -W "${packages[@]}" >/dev/null 2>&1 || fail "dpkg still knows a package"
  local left
  left=$(grep -vxF -f "$work/existed" "$work/files" | while read -r path; do
    [ ! -e "$path" ] && [ ! -L "$path" ] || echo "$path"; done)
  [ -z "$left" ] || fail "left after the purge: $left"
  ! ldconfig -p | has liboruplay || fail "liboruplay is still in the loader's cache"
}

check_armhf() {
  local deb name sysroot="$work/sysroot-armhf"
  for name in "${packages[@]}"; do
    deb=$(deb_of "$name" armhf)
    say "$name: armhf, ARM EABI5 code only"
    [ "$(dpkg-deb -f "$deb" Architecture)" = armhf ] || fail "$deb is not armhf"
    dpkg-deb --info "$deb" | has '^ Architecture: armhf$' || fail "dpkg-deb --info: not armhf"
    rm -rf "$work/tree" && mkdir "$work/tree" && dpkg-deb -x "$deb" "$work/tree"
    # The objects of a static library count too.
    find "$work/tree" -name '*.a' | while read -r archive; do
      mkdir "$archive.members" && (cd "$archive.members" && ar x "$archive")
    done
    local types foreign
    types=$(find "$work/tree" -type f -exec file {} +)
    foreign=$(grep ': *ELF' <<<"$types" | grep -v 'ARM, EABI5' || true)
    [ -z "$foreign" ] || fail "$name holds code that is not ARM EABI5: $foreign"
    grep -q 'ELF.*ARM, EABI5' <<<"$types" || fail "$name holds no ARM code"
  done

  say "the example host against the armhf -dev package, under qemu-arm"
  [ -f build/sysroot-armhf/.complete ] || fail "no armhf sysroot: build the armhf packages first"
  # Hard links: a copy of the sysroot in no time, which the packages' files then join.
  cp -al build/sysroot-armhf "$sysroot"
  dpkg-deb -x "$(deb_of liboruplay1 armhf)" "$sysroot"
  dpkg-deb -x "$(deb_of liboruplay-dev armhf)" "$sysroot"
  local pc=(env -u PKG_CONFIG_PATH PKG_CONFIG_SYSROOT_DIR="$sysroot"
    PKG_CONFIG_LIBDIR="$sysroot/usr/lib/arm-linux-gnueabihf/pkgconfig:$sysroot/usr/share/pkgconfig")
  # shellcheck disable=SC2046  # pkg-config's words are the compiler's arguments
  arm-linux-gnueabihf-g++ --sysroot="$sysroot" -march=armv7-a -mfpu=neon -mfloat-abi=hard \
    -std=c++17 -o "$work/armhf-host" \
    "$sysroot/usr/share/doc/liboruplay-dev/examples/minimal_host.cpp" \
    $("${pc[@]}" pkg-config --cflags --libs oruplay)
  file "$work/armhf-host" | has 'ARM, EABI5' || fail "the example host is not ARM code"
  # The sysroot's loader, its library path standing in for the device's own folders: under
  # qemu-arm -L, a folder that exists only in the sysroot fails the loader's statx(), so that
  # liboruplay's run path would never be searched.
  local run=(qemu-arm "$sysroot/lib/ld-linux-armhf.so.3" --library-path
    "$sysroot/lib/arm-linux-gnueabihf:$sysroot/usr/lib/arm-linux-gnueabihf")
  "${run[@]}" --list "$work/armhf-host" \
    | has "libavformat_oru.so.59 => $sysroot/usr/lib/arm-linux-gnueabihf/oruplay/" \
    || fail "the armhf host does not find the private FFmpeg through liboruplay's run path"
  (cd "$work" && "${run[@]}" ./armhf-host tone.flac armhf-host.wav) \
    | has '^finished at' || fail "the armhf host did not play to the end"
  check_wav "$work/armhf-host.wav" "the armhf host"
}

for arch in "$@"; do
  case "$arch" in
    amd64) check_amd64 ;;
    armhf) check_armhf ;;
    *) fail "unknown architecture '$arch' (amd64 or armhf)" ;;
  esac
done
say "all checks passed ($*)"
