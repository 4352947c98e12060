#!/usr/bin/env bash
# Builds the release preset and runs the micro-benchmarks, printing the machine they ran on
# and a Markdown table for docs/PERFORMANCE.md.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

cmake --preset release >/dev/null
cmake --build --preset release --target resampler_benchmark >/dev/null

cpu=$(lscpu | sed -n 's/^Model name:[[:space:]]*//p' | head -n 1)
echo "Machine: ${cpu:-unknown CPU}, $(nproc) cores, $(uname -m), g++ $(g++ -dumpfullversion)"
echo
echo "| benchmark | ppm | ns per 1152-frame buffer | frames per second |"
echo "|---|---:|---:|---:|"
build/release/bench/resampler_benchmark --benchmark_repetitions=5 \
    --benchmark_report_aggregates_only=true --benchmark_format=csv 2>/dev/null \
  | awk -F, '/_median"?,/ {
      gsub(/"/, "", $1); split($1, parts, "/"); name = parts[1]; ppm = parts[2]
      sub(/_median$/, "", ppm)
      printf "| %s | %s | %.0f | %.1f M |\n", name, ppm, $3, $(NF) / 1e6
    }'
