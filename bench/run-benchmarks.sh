#!/usr/bin/env bash
# Builds the release preset and runs the micro-benchmarks, printing the machine they ran on
# and a Markdown table for docs/PERFORMANCE.md.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

cmake --preset release >/dev/null
cmake --build --preset release --target resampler_benchmark memory_benchmark oruplay_cli oru_syncsim \
  >/dev/null

cpu=$(lscpu | sed -n 's/^Model name:[[:space:]]*//p' | head -n 1)
echo "Machine: ${cpu:-unknown CPU}, $(nproc) cores, $(uname -m), g++ $(g++ -dumpfullversion)"
echo
echo "| benchmark | ppm | CPU ns per 1152-frame buffer | ns per frame | frames per CPU second |"
echo "|---|---:|---:|---:|---:|"
build/release/bench/resampler_benchmark --benchmark_repetitions=5 \
    --benchmark_report_aggregates_only=true --benchmark_format=csv 2>/dev/null \
  | awk -F, '/_median"?,/ {
      gsub(/"/, "", $1); split($1, parts, "/"); name = parts[1]; ppm = parts[2]
      sub(/_median$/, "", ppm)
      printf "| %s | %s | %.0f | %.2f | %.1f M |\n", name, ppm, $4, $4 / 1152, $(NF) / 1e6
    }'

# Whole playback path, as fast as it runs: oruplay decodes a minute of 44.1 kHz stereo music-like
# material, converts it to 48 kHz 16-bit and hands it to the null output (unpaced). Median of
# five runs each.
media=build/bench-media
mkdir -p "$media"
ff() { ffmpeg -nostdin -hide_banner -loglevel error -y "$@"; }
source="aevalsrc=0.3*sin(2*PI*(220+30*sin(t))*t)+0.2*sin(2*PI*(330+20*sin(3*t))*t):s=44100:d=60"
ff -f lavfi -i "$source" -ac 2 -c:a flac "$media/minute.flac"
ff -f lavfi -i "$source" -ac 2 -c:a libmp3lame -b:a 192k "$media/minute.mp3"
ff -f lavfi -i "$source" -ac 2 -c:a libvorbis -q:a 5 "$media/minute.ogg"
ff -f lavfi -i "$source" -ac 2 -c:a aac -b:a 192k "$media/minute.m4a"
ff -f lavfi -i "$source" -ac 2 -ar 48000 -c:a libopus -b:a 128k "$media/minute.opus"
echo
echo "| input (60 s) | wall time, median of 5 | times real time |"
echo "|---|---:|---:|"
for file in "$media"/minute.*; do
  times=()
  for _ in 1 2 3 4 5; do
    start=$(date +%s%N)
    build/release/tools/oruplay -q -o null "$file"
    times+=($(( $(date +%s%N) - start )))
  done
  median=$(printf '%s\n' "${times[@]}" | sort -n | sed -n 3p)
  awk -v ns="$median" -v name="$(basename "$file")" \
    'BEGIN { printf "| %s | %.0f ms | %.0f x |\n", name, ns / 1e6, 60e9 / ns }'
done

# Two devices on one common clock, their clocks running apart, over a simulated hour
# (docs/SYNC.md). A scenario the engine does not hold within a frame is reported, not fatal.
echo
echo '```'
build/release/tools/oru-syncsim --minutes 60 || echo "(a scenario strayed by more than a frame)"
echo '```'

# An hour of audio through the data callback, at 60 times real time (a minute): resident memory,
# and heap allocations once playing.
echo
build/release/bench/memory_benchmark || echo "(the stream did not play to its end)"
