#!/usr/bin/env bash
# Installs every Debian package that building, testing and trying liboruplay needs on a
# Debian 12 machine. Runs as root, or through sudo when not root.
set -euo pipefail

packages=(
  # toolchain
  build-essential cmake ninja-build pkg-config git clang-format
  # engine dependencies
  libboost-thread-dev libboost-system-dev libboost-chrono-dev libboost-date-time-dev
  libboost-atomic-dev
  # building the project's own FFmpeg from Debian's source package
  dpkg-dev nasm libgnutls28-dev zlib1g-dev xz-utils
  # tests and benchmarks
  libgtest-dev libgmock-dev libbenchmark-dev
  # real recordings that the pipeline benchmark encodes (bench/make-media.sh)
  espeak-ng sound-theme-freedesktop
  # reference host components
  libasound2-dev alsa-utils
  # encoders that make the test fixtures
  ffmpeg sox flac lame
  # the 32-bit Arm cross build and its tests under emulation (the target's libraries are
  # Debian armhf packages unpacked by scripts/make-sysroot.sh, not installed)
  crossbuild-essential-armhf qemu-user file
  # checking the Debian packages (scripts/check-packages.sh): their lint, their manual page
  lintian man-db
)

if [ "$(id -u)" -eq 0 ]; then
  as_root=()
else
  as_root=(sudo)
fi

missing=()
for p in "${packages[@]}"; do
  [ "$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null)" = "install ok installed" ] || missing+=("$p")
done

if [ "${#missing[@]}" -eq 0 ]; then
  echo "install-deps: all packages present"
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
