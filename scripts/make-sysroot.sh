#!/usr/bin/env bash
# Makes the sysroot of a cross build: Debian's own packages for the target architecture of
# every library that liboruplay, its FFmpeg and its tests link (Boost.Thread and companions,
# GoogleTest, ALSA, GnuTLS, zlib, the C and C++ runtimes), with all they depend on, unpacked
# into DIR. The cross compiler builds against DIR (--sysroot) and qemu runs the result in it
# (qemu-arm -L DIR). DIR/var/lib/dpkg records which package each file came from, with each
# package's shlibs and symbols files, so that dpkg-shlibdeps can compute the dependencies of the
# project's own armhf packages as it would on the device (DPKG_ADMINDIR=DIR/var/lib/dpkg).
#
#   make-sysroot.sh ARCH DIR     ARCH is a Debian architecture (armhf)
#
# Nothing is installed on the machine. apt runs with a state of its own under DIR.apt that
# knows only ARCH, so dpkg's architectures and the machine's own package lists are untouched,
# and no package of the target has to match the version of its build-machine twin. An index
# that cannot be fetched (a mirror caught in a sync: "File has unexpected size") is left out
# with a warning; the packages then come from the suites that could be read. DIR is reused
# while this script is unchanged.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
arch=${1:?usage: make-sysroot.sh ARCH DIR}
dir=${2:?usage: make-sysroot.sh ARCH DIR}
# shellcheck source=apt-entries.sh
. "$here/apt-entries.sh"

packages=(
  libc6-dev libstdc++-12-dev
  libboost-thread-dev libboost-system-dev libboost-chrono-dev libboost-date-time-dev
  libboost-atomic-dev
  libgtest-dev libgmock-dev
  libasound2-dev
  libgnutls28-dev zlib1g-dev
)

# The package database names the files at their place under DIR: a new place makes it anew.
stamp=$( (cat "$here/make-sysroot.sh"; echo "$arch $dir") | sha256sum | cut -c1-12)
if [ "$(cat "$dir/.complete" 2>/dev/null)" = "$stamp" ]; then
  exit 0
fi

apt_dir="$dir.apt"
rm -rf "$dir" "$apt_dir"
mkdir -p "$apt_dir/etc/parts" "$apt_dir/state/lists/partial" "$apt_dir/cache/archives/partial" \
  "$apt_dir/debs"
: >"$apt_dir/state/status"
# Keep each entry's signed-by: the arch option joins it inside one pair of brackets.
apt_binary_entries | awk -v arch="$arch" '
  {
    options = "arch=" arch
    rest = $0
    sub(/^[[:space:]]*deb[[:space:]]+/, "", rest)
    if (rest ~ /^\[/) {
      inner = substr(rest, 2, index(rest, "]") - 2)
      options = options " " inner
      rest = substr(rest, index(rest, "]") + 1)
      sub(/^[[:space:]]+/, "", rest)
    }
    print "deb [" options "] " rest
  }' | sort -u >"$apt_dir/etc/sources.list"
[ -s "$apt_dir/etc/sources.list" ] || { echo "sysroot: the machine has no deb entries" >&2; exit 1; }

apt_options=(
  -o "Dir::State=$apt_dir/state" -o "Dir::State::status=$apt_dir/state/status"
  -o "Dir::Cache=$apt_dir/cache" -o "Dir::Etc::SourceList=$apt_dir/etc/sources.list"
  -o "Dir::Etc::SourceParts=$apt_dir/etc/parts" -o "Dir::Etc::Preferences=/dev/null"
  -o "Dir::Etc::PreferencesParts=$apt_dir/etc/parts"
  -o "APT::Architecture=$arch" -o "APT::Architectures::=$arch"
  -o "APT::Sandbox::User=$(id -un)"
)
echo "sysroot: reading the $arch package lists" >&2
if ! apt-get "${apt_options[@]}" -qq update >"$apt_dir/update.log" 2>&1; then
  echo "sysroot: warning: some $arch package lists could not be read; using the others:" >&2
  grep -E '^(E|W|Err):' "$apt_dir/update.log" >&2 || true
fi

# The closure of the packages' dependencies, as apt would install them on an empty system.
mapfile -t closure < <(apt-get "${apt_options[@]}" -s --no-install-recommends install \
  "${packages[@]}" | awk '/^Inst / { print $2 }')
[ "${#closure[@]}" -gt 0 ] || { echo "sysroot: apt resolved no packages" >&2; exit 1; }
echo "sysroot: downloading ${#closure[@]} $arch packages" >&2
(cd "$apt_dir/debs" && apt-get "${apt_options[@]}" -qq download "${closure[@]}" >&2)

admin="$dir/var/lib/dpkg"
mkdir -p "$admin/info" "$admin/updates" "$apt_dir/control"
: >"$admin/status"
echo 1 >"$admin/info/format"  # control files named PACKAGE:ARCH.* for Multi-Arch: same
for deb in "$apt_dir"/debs/*.deb; do
  dpkg-deb -x "$deb" "$dir"
  # dpkg names the control files of a Multi-Arch: same package after its architecture too.
  name=$(dpkg-deb -f "$deb" Package)
  [ "$(dpkg-deb -f "$deb" Multi-Arch)" != same ] || name="$name:$arch"
  { dpkg-deb -f "$deb"; printf 'Status: install ok installed\n\n'; } >>"$admin/status"
  dpkg-deb --fsys-tarfile "$deb" | tar -t | awk -v root="$dir" '
    { sub(/^\./, ""); sub(/\/$/, ""); if ($0 != "") print root $0 }' >"$admin/info/$name.list"
  rm -rf "$apt_dir/control"/*
  dpkg-deb -e "$deb" "$apt_dir/control"
  for file in shlibs symbols; do
    [ ! -f "$apt_dir/control/$file" ] || cp "$apt_dir/control/$file" "$admin/info/$name.$file"
  done
done
# Absolute symbolic links must point into the sysroot, not at the build machine's own files;
# relative ones keep the sysroot movable.
find "$dir" -type l -lname '/*' -print0 | while IFS= read -r -d '' link; do
  ln -sfnr "$dir$(readlink "$link")" "$link"
done
rm -rf "$apt_dir"
echo "$stamp" >"$dir/.complete"
