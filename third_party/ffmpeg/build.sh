#!/usr/bin/env bash
# Builds the engine's own FFmpeg: Debian's ffmpeg source package with the patches of this folder
# applied (oru-version.patch: the player protocol option; http-resume.patch: reconnections that
# continue a stream exactly or end it, when the http option "resume_exact" asks for them),
# trimmed to the protocols, demuxers, decoders and parsers the engine uses, as shared libraries
# with the build suffix "_oru" (so that they can never be confused with a stock FFmpeg installed
# on the same machine).
#
#   build.sh ROOT      builds into ROOT/ffmpeg-<source version>-<hash> unless that prefix is
#                      already complete, and prints the prefix as the last line of stdout.
#   build.sh ROOT armhf SYSROOT
#                      cross-builds the same for 32-bit Arm (ARMv7, hard float, NEON) with
#                      Debian's arm-linux-gnueabihf toolchain, against the target libraries in
#                      SYSROOT (scripts/make-sysroot.sh). Give each architecture its own ROOT.
#
# The hash covers this script, the patches and the architecture, so a change to any, or a new
# Debian source version, makes a new prefix; an unchanged one is reused without building.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=${1:?usage: build.sh ROOT [armhf SYSROOT]}
arch=${2:-native}
sysroot=${3:-}
mkdir -p "$root"
root=$(cd "$root" && pwd)
jobs=$(nproc)
# shellcheck source=../../scripts/apt-entries.sh
. "$here/../../scripts/apt-entries.sh"

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# apt-get source needs deb-src entries. When the machine has none, add them for the same
# URIs and suites as its own deb entries, in one file of ours.
ensure_deb_src() {
  # grep reads everything (no -q): under pipefail an early exit would fail the pipeline.
  apt-cache showsrc ffmpeg 2>/dev/null | grep '^Version:' >/dev/null && return 0
  local list=/etc/apt/sources.list.d/oruplay-deb-src.list tmp
  tmp=$(mktemp)
  apt_binary_entries | sed -E 's/^\s*deb\s/deb-src /' | sort -u >"$tmp"
  if [ ! -s "$tmp" ]; then
    rm -f "$tmp"
    echo "ffmpeg: no deb entries found to derive deb-src entries from" >&2
    return 1
  fi
  echo "ffmpeg: adding deb-src entries in $list" >&2
  as_root install -m 0644 "$tmp" "$list"
  rm -f "$tmp"
  as_root apt-get update -qq >&2
}

ensure_deb_src
version=$(apt-cache showsrc ffmpeg | awk '/^Version:/ { print $2 }' | sort -V | tail -n 1)
[ -n "$version" ] || { echo "ffmpeg: no source version of ffmpeg is known to apt" >&2; exit 1; }
hash=$( (cat "$here/build.sh" "$here"/*.patch; echo "$arch") | sha256sum | cut -c1-12)
prefix="$root/ffmpeg-${version#*:}-$hash"

if [ -f "$prefix/.complete" ]; then
  echo "$prefix"
  exit 0
fi

work="$root/work-${version#*:}-$hash"
rm -rf "$work" "$prefix"
mkdir -p "$work"
echo "ffmpeg: fetching source $version" >&2
(cd "$work" && apt-get source -qq "ffmpeg=$version" >&2)
src=$(find "$work" -maxdepth 1 -mindepth 1 -type d -name 'ffmpeg-*' | head -n 1)
[ -n "$src" ] || { echo "ffmpeg: apt-get source left no source tree" >&2; exit 1; }

echo "ffmpeg: patching and configuring" >&2
for patch in "$here"/*.patch; do
  (cd "$src" && patch -p1 --forward --quiet <"$patch" >&2)
done

# HLS radio: playlists over HTTP(S), segments in MPEG-TS, ADTS or fragmented MP4, optionally
# AES-128 encrypted (crypto).
components=(
  --enable-protocol=file,http,https,tcp,tls,pipe,crypto
  --enable-demuxer=mp3,aac,mov,flac,ogg,wav,matroska,hls,mpegts
  --enable-demuxer='pcm_*'
  --enable-decoder=mp3,mp3float,aac,aac_fixed,aac_latm,flac,alac,vorbis,opus
  --enable-decoder='pcm_*'
  --enable-parser=mpegaudio,aac,aac_latm,flac,vorbis,opus
)

case "$arch" in
  native) cross=() ;;
  armhf)
    [ -d "$sysroot/usr/lib/arm-linux-gnueabihf" ] \
      || { echo "ffmpeg: '$sysroot' is not an armhf sysroot" >&2; exit 1; }
    cross=(
      --enable-cross-compile --cross-prefix=arm-linux-gnueabihf- --target-os=linux
      --arch=arm --cpu=armv7-a --enable-neon --extra-cflags="-mfpu=neon -mfloat-abi=hard"
      --sysroot="$sysroot" --pkg-config=pkg-config
    )
    # GnuTLS and zlib are found in the sysroot, never on the build machine.
    export PKG_CONFIG_PATH=
    export PKG_CONFIG_LIBDIR="$sysroot/usr/lib/arm-linux-gnueabihf/pkgconfig:$sysroot/usr/share/pkgconfig"
    export PKG_CONFIG_SYSROOT_DIR="$sysroot"
    ;;
  *) echo "ffmpeg: unknown architecture '$arch' (native or armhf)" >&2; exit 1 ;;
esac

(
  cd "$src"
  ./configure \
    "${cross[@]}" \
    --prefix="$prefix" \
    --build-suffix=_oru \
    --extra-version=oru \
    --enable-shared --disable-static \
    --enable-pic \
    --disable-autodetect \
    --enable-gnutls --enable-zlib \
    --disable-programs --disable-doc \
    --disable-avdevice --disable-avfilter --disable-swscale --disable-postproc \
    --disable-everything \
    "${components[@]}" \
    ${ORUPLAY_FFMPEG_CONFIGURE_FLAGS:-} >"$work/configure.log" 2>&1 \
    || { tail -n 40 "$work/configure.log" >&2; exit 1; }
  # Each library finds its siblings in its own folder, wherever the prefix is installed.
  # The value is expanded twice by make, then seen by the shell, hence the quoting.
  sed -i "s|^LDSOFLAGS=.*|LDSOFLAGS=-Wl,-rpath,'\$\$\$\$ORIGIN'|" ffbuild/config.mak
  echo "ffmpeg: building with $jobs jobs" >&2
  make -j"$jobs" >"$work/build.log" 2>&1 || { tail -n 40 "$work/build.log" >&2; exit 1; }
  make install >>"$work/build.log" 2>&1 || { tail -n 40 "$work/build.log" >&2; exit 1; }
)

rm -rf "$work"
touch "$prefix/.complete"
# Builds of an older source version, script or patch are not used any more.
find "$root" -mindepth 1 -maxdepth 1 -type d -name 'ffmpeg-*' ! -path "$prefix" -exec rm -rf {} +
echo "$prefix"
