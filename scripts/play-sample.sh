#!/usr/bin/env bash
# Sets everything up on a Debian 12 machine, builds oruplay, makes a short two-track sample
# and plays it: through the sound card when there is one, otherwise (in real time, so that the
# status line can be watched) into build/sample/played.wav.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

./scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target oruplay_cli

sample=build/sample
mkdir -p "$sample"
ff() { ffmpeg -nostdin -hide_banner -loglevel error -y "$@"; }
ff -f lavfi -i "aevalsrc=0.2*sin(2*PI*440*t)+0.1*sin(2*PI*660*t):s=44100:d=4" -ac 2 \
  -metadata title="First Light" -metadata artist="The Sample Band" "$sample/1-first-light.flac"
ff -f lavfi -i "aevalsrc=0.2*sin(2*PI*392*t)+0.1*sin(2*PI*587*t):s=48000:d=4" -ac 2 \
  -c:a libvorbis -metadata title="Second Wind" -metadata artist="The Sample Band" \
  "$sample/2-second-wind.ogg"

inputs=("$sample/1-first-light.flac" "$sample/2-second-wind.ogg")
if aplay -l 2>/dev/null | grep '^card ' >/dev/null; then
  echo "Playing through the sound card:"
  build/release/tools/oruplay "${inputs[@]}"
else
  echo "No sound card here: playing in real time into $sample/played.wav"
  build/release/tools/oruplay --realtime -o "wav:$sample/played.wav" "${inputs[@]}"
  echo "Done: $sample/played.wav"
fi
