#!/usr/bin/env bash
# check-package.sh LIBRARY BUILD_DIR CONSUMER_SOURCE FFMPEG_LIBDIR CXX NM
# For a cross build, the environment gives ORUPLAY_TOOLCHAIN_FILE, ORUPLAY_RUN (the emulator
# command), ORUPLAY_LIST_LIBRARIES (ldd's equivalent for the target) and ORUPLAY_CROSS_CXXFLAGS.
set -euo pipefail
library=$1 build=$2 consumer=$3 ffmpeg_libdir=$4 cxx=$5 nm=$6
# Word lists on purpose: each is a command with its arguments.
# shellcheck disable=SC2206
run=(${ORUPLAY_RUN:-})
# shellcheck disable=SC2206
list_libraries=(${ORUPLAY_LIST_LIBRARIES:-ldd})
# shellcheck disable=SC2206
cross_cxxflags=(${ORUPLAY_CROSS_CXXFLAGS:-})
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

soname=$(readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[ "$soname" = "liboruplay.so.1" ] || fail "SONAME is '$soname', expected liboruplay.so.1"

# Every defined dynamic symbol must belong to namespace oru (functions, vtables, type info).
foreign=$("$nm" -D --defined-only -C "$library" | awk '{ $1 = ""; $2 = ""; sub(/^  /, ""); print }' \
  | grep -vE '^(oru::|vtable for oru::|typeinfo for oru::|typeinfo name for oru::)' || true)
[ -z "$foreign" ] || fail "symbols outside the public API are exported:
$foreign"
"$nm" -D --defined-only -C "$library" | grep 'oru::LogMessage::ipAddressFilter' >/dev/null \
  || fail "the public API is not exported"

loaded=$("${list_libraries[@]}" "$library" | awk '/libavformat_oru/ { print $3 }')
case "$loaded" in
  "$ffmpeg_libdir"/*) ;;
  *) fail "libavformat_oru resolves to '$loaded', not into $ffmpeg_libdir" ;;
esac

prefix="$work/prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null

# The installed library must find its FFmpeg inside the installed tree.
installed=$(find "$prefix" -name 'liboruplay.so.1' | head -n 1)
[ -n "$installed" ] || fail "liboruplay.so.1 was not installed"
loaded=$("${list_libraries[@]}" "$installed" | awk '/libavformat_oru/ { print $3 }')
case "$loaded" in
  "$prefix"/*) ;;
  *) fail "installed liboruplay loads libavformat_oru from '$loaded'" ;;
esac

echo "== find_package(oruplay)"
if [ -n "${ORUPLAY_TOOLCHAIN_FILE:-}" ]; then
  # The prefix lies outside the sysroot: it is a root of its own for the package search.
  compiler=(-DCMAKE_TOOLCHAIN_FILE="$ORUPLAY_TOOLCHAIN_FILE" -DCMAKE_FIND_ROOT_PATH="$prefix")
else
  compiler=(-DCMAKE_CXX_COMPILER="$cxx")
fi
cmake -S "$consumer" -B "$work/cmake-build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  "${compiler[@]}" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
"${run[@]}" "$work/cmake-build/consumer"
"${run[@]}" "$work/cmake-build/host_consumer"

echo "== pkg-config oruplay"
pcdir=$(dirname "$(find "$prefix" -name oruplay.pc | head -n 1)")
flags=$(PKG_CONFIG_PATH="$pcdir" pkg-config --cflags --libs oruplay)
libdir=$(PKG_CONFIG_PATH="$pcdir" pkg-config --variable=libdir oruplay)
# shellcheck disable=SC2086
"$cxx" "${cross_cxxflags[@]}" -std=c++17 -o "$work/pc-consumer" "$consumer/main.cpp" $flags \
  -Wl,-rpath,"$libdir"
"${run[@]}" "$work/pc-consumer"
echo "package checks passed"
