#!/usr/bin/env bash
# Builds the release preset and prints every table of docs/PERFORMANCE.md, with the machine they
# ran on. Takes about 50 minutes; run it on an otherwise idle machine. The peers of the real-time
# section (GStreamer, mpv) are compared only where they are installed (bench/compare-peers.sh).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

cmake --preset release >/dev/null
cmake --build --preset release --target resampler_benchmark memory_benchmark pipeline_benchmark \
  realtime_benchmark latency_benchmark radio_benchmark oru_syncsim oruplay_cli >/dev/null
media=build/bench-media
bench/make-media.sh "$media"

cpu=$(lscpu | sed -n 's/^Model name:[[:space:]]*//p' | head -n 1)
echo "Machine: ${cpu:-unknown CPU}, $(nproc) cores, $(uname -m), g++ $(g++ -dumpfullversion)," \
  "$(date -u +%Y-%m-%d)"

echo
echo "## The whole pipeline against a bare FFmpeg loop"
echo
build/release/bench/pipeline_benchmark --repetitions 5 --paced-seconds 60 \
  "$media"/ten-minutes.{flac,mp3,m4a,ogg,opus} "$media"/ten-minutes-96k-float.wav

echo
echo "## Real time: what each thread costs and how often it wakes"
echo
build/release/bench/realtime_benchmark --seconds 60 --media "$media"
echo
bench/compare-peers.sh --seconds 60 "$media"

echo
echo "## Drift correction"
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

echo
echo "## Latency"
echo
build/release/bench/latency_benchmark --repetitions 20 "$media"/ten-minutes.flac \
  --radio "$media"/ten-minutes.mp3 --radio "$media"/ten-minutes.aac \
  --radio "$media"/ten-minutes-radio.ogg --radio "$media"/ten-minutes-radio.opus \
  --radio "$media"/ten-minutes.ogg

echo
echo "## Memory over an hour"
echo
build/release/bench/memory_benchmark || echo "(the stream did not play to its end)"

# A day of radio with a drop every ten minutes, at some 450 times real time (about three
# minutes). A failed check is reported, not fatal.
echo
echo "## A radio for a day"
echo
build/release/bench/radio_benchmark --hours 24 || echo "(a check failed)"

# Two devices on one common clock, their clocks running apart, over a simulated hour
# (docs/SYNC.md). A scenario the engine does not hold within a frame is reported, not fatal.
echo
echo "## Two devices on a common clock"
echo
echo '```'
build/release/tools/oru-syncsim --minutes 60 || echo "(a scenario strayed by more than a frame)"
echo '```'
