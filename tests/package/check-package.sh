#!/usr/bin/env bash
# check-package.sh LIBRARY BUILD_DIR CONSUMER_SOURCE FFMPEG_LIBDIR CXX
set -euo pipefail
library=$1 build=$2 consumer=$3 ffmpeg_libdir=$4 cxx=$5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

soname=$(readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[ "$soname" = "liboruplay.so.1" ] || fail "SONAME is '$soname', expected liboruplay.so.1"

# Every defined dynamic symbol must belong to namespace oru (functions, vtables, type info).
foreign=$(nm -D --defined-only -C "$library" | awk '{ $1 = ""; $2 = ""; sub(/^  /, ""); print }' \
  | grep -vE '^(oru::|vtable for oru::|typeinfo for oru::|typeinfo name for oru::)' || true)
[ -z "$foreign" ] || fail "symbols outside the public API are exported:
$foreign"
nm -D --defined-only -C "$library" | grep 'oru::LogMessage::ipAddressFilter' >/dev/null \
  || fail "the public API is not exported"

loaded=$(ldd "$library" | awk '/libavformat_oru/ { print $3 }')
case "$loaded" in
  "$ffmpeg_libdir"/*) ;;
  *) fail "libavformat_oru resolves to '$loaded', not into $ffmpeg_libdir" ;;
esac

prefix="$work/prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null

# The installed library must find its FFmpeg inside the installed tree.
installed=$(find "$prefix" -name 'liboruplay.so.1' | head -n 1)
[ -n "$installed" ] || fail "liboruplay.so.1 was not installed"
loaded=$(ldd "$installed" | awk '/libavformat_oru/ { print $3 }')
case "$loaded" in
  "$prefix"/*) ;;
  *) fail "installed liboruplay loads libavformat_oru from '$loaded'" ;;
esac

echo "== find_package(oruplay)"
cmake -S "$consumer" -B "$work/cmake-build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
"$work/cmake-build/consumer"
"$work/cmake-build/host_consumer"

echo "== pkg-config oruplay"
pcdir=$(dirname "$(find "$prefix" -name oruplay.pc | head -n 1)")
flags=$(PKG_CONFIG_PATH="$pcdir" pkg-config --cflags --libs oruplay)
libdir=$(PKG_CONFIG_PATH="$pcdir" pkg-config --variable=libdir oruplay)
# shellcheck disable=SC2086
"$cxx" -std=c++17 -o "$work/pc-consumer" "$consumer/main.cpp" $flags -Wl,-rpath,"$libdir"
"$work/pc-consumer"
echo "package checks passed"
