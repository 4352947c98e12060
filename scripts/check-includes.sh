#!/usr/bin/env bash
# Which folder may include what. Dependencies run one way: the player sits on the renderer and
# the decoding side, which meet only at the track interface and the FFmpeg facade; the decoding
# side borrows the PCM plumbing that lives in render/; host components, tools, benchmarks and
# examples use the engine only through its public headers; tools and benchmarks share code only
# through tools/common, and the units and WAV header layout of host/internal.
#
# A row names a folder (or one file) and what the files below it may include: folders, or
# single files. The row with the longest name that holds a file applies to it. include/oru
# and host/include/oru/host hold the public headers of the engine and of the host components.
#
#   FILES IN                            MAY INCLUDE
rules='
include/oru                           include/oru
src/common                            include/oru src/common
src/decode                            include/oru src/common src/decode src/render/BufferQueue.h src/render/LibavResampler.h
src/render                            include/oru src/common src/render src/decode/AudioTrack.h src/decode/AVWrapper.h src/decode/FFmpeg.h
src/player                            include/oru src/common src/player src/decode/AudioTrack.h src/render/AudioRenderer.h
src/gapless                           include/oru src/common src/gapless
host                                  include/oru host
host/include/oru/host                 include/oru host/include/oru/host
host/internal                         include/oru host/internal
tools/common                          include/oru host/include/oru/host host/internal tools/common
tools/oruplay                         include/oru host/include/oru/host host/internal tools/common tools/oruplay
tools/syncsim                         include/oru host/include/oru/host host/internal tools/common tools/syncsim
bench                                 include/oru host/include/oru/host host/internal tools/common bench
bench/LinearResamplerBenchmark.cpp    include/oru host/include/oru/host host/internal bench src/render/LinearResampler.h
examples                              include/oru host/include/oru/host examples
'
# Quoted includes are checked, and angle includes that name an engine folder (<decode/...>):
# other angle includes are system headers or public ones (<oru/...>). An include is looked up beside the including file first, then as the one
# file outside tests/ whose path ends in it (as the build's include paths find it), then in
# tests/. tests/ may include anything and is not checked. Prints each include that breaks the
# rule and exits 1.
#
#   check-includes.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
export LC_ALL=C

checked=()
for folder in src include host tools bench examples; do
  [ -d "$folder" ] && checked+=("$folder")
done
sources() {
  find "$@" -type f \( -name '*.h' -o -name '*.hpp' -o -name '*.c' -o -name '*.cc' -o -name '*.cpp' \) |
    sort
}
mapfile -t tree < <(sources "${checked[@]}")
mapfile -t testTree < <(sources tests)

declare -A allowed
while read -r folder targets; do
  [ -n "$folder" ] && allowed[$folder]=$targets
done <<<"$rules"

# The row that applies to a file: the longest folder or file name that holds it.
rule_for() {
  local path=$1
  while [ "$path" != . ]; do
    if [ -n "${allowed[$path]+set}" ]; then
      echo "$path"
      return
    fi
    path=$(dirname "$path")
  done
}

# The file of the tree that `#include "$2"` in $1 names, or a reason why there is none.
resolve() {
  local from=$1 name=$2 beside found=()
  beside=$(realpath -m --relative-to=. "$(dirname "$from")/$name")
  if [ -f "$beside" ]; then
    echo "$beside"
    return
  fi
  local candidate
  for candidate in "${tree[@]}"; do
    [[ "$candidate" == "$name" || "$candidate" == */"$name" ]] && found+=("$candidate")
  done
  if [ ${#found[@]} -eq 0 ]; then
    for candidate in "${testTree[@]}"; do
      [[ "$candidate" == */"$name" ]] && found+=("$candidate")
    done
  fi
  case ${#found[@]} in
    0) echo "!not in the tree (a header from outside is included with <>)" ;;
    1) echo "${found[0]}" ;;
    *) echo "!ambiguous: ${found[*]}" ;;
  esac
}

under() {  # whether path $1 is $2 or lies below it
  [[ "$1" == "$2" || "$1" == "$2"/* ]]
}

# The engine's folders, which src/ puts on the include path: <decode/...> is one of its headers.
engineFolders=$(find src -mindepth 1 -maxdepth 1 -type d -printf '%f|' | sed 's/|$//')

failures=0
report() {
  echo "$1" >&2
  failures=$((failures + 1))
}

for file in "${tree[@]}"; do
  row=$(rule_for "$file")
  if [ -z "$row" ]; then
    report "$file: no rule says what this folder may include (add a row to scripts/check-includes.sh)"
    continue
  fi
  while IFS=: read -r line text; do
    spelled=$(sed -E 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*/#include /; s/[[:space:]]*$//' <<<"$text")
    name=$(sed -E 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*["<]([^">]*)[">].*/\1/' <<<"$text")
    target=$(resolve "$file" "$name")
    if [[ "$target" == '!'* ]]; then
      report "$file:$line: $spelled: ${target#!}"
      continue
    fi
    ok=
    for folder in ${allowed[$row]}; do
      under "$target" "$folder" && ok=1
    done
    [ -n "$ok" ] ||
      report "$file:$line: $spelled ($target): files in $row may include only ${allowed[$row]// /, }"
  done < <(grep -nE "^[[:space:]]*#[[:space:]]*include[[:space:]]*(\"|<($engineFolders)/)" "$file" |
    tr -d '\r' || true)
done

if [ "$failures" -gt 0 ]; then
  echo "check-includes: $failures finding(s)" >&2
  exit 1
fi
echo "check-includes: every include of a project header in ${checked[*]} keeps the rule"
