#!/usr/bin/env bash
# Plays the first seconds of each input of bench/make-media.sh at the real rate with oruplay
# (`oruplay -t -o null`) and with the peers that are installed: GStreamer (`gst-launch-1.0
# playbin` into a fakesink that keeps time) and mpv (`--ao=null`). Prints, per input, each
# program's CPU time (user + system) and voluntary context switches for the whole process,
# from GNU time, and oruplay's CPU time as a fraction of the cheaper peer's, as a Markdown
# table.
#
# Every program plays the same clip of each file: its first S seconds, cut by ffmpeg without
# re-encoding (the packets are copied), so that none needs an option of its own to stop. Each
# program first plays a one-second clip unmeasured, so that one-off work (GStreamer's plugin
# registry) is not counted. oruplay converts every input to 48 kHz 16-bit stereo; without
# --convert the peers hand the decoded audio to their sinks as it comes (GStreamer's MP3 decoder
# gives 16-bit, mpv's float), with --convert they convert it as oruplay does.
#
# The peers are not dependencies of the project, only programs to compare with; on Debian:
#   apt-get install gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good \
#     gstreamer1.0-libav mpv time
#
#   compare-peers.sh [--seconds S] [--format NAME] [--convert] [MEDIA_DIR]
# S: 30 by default; NAME: flac, mp3, m4a, ogg, opus or wav; MEDIA_DIR: build/bench-media.
# Takes oruplay from build/release/tools (ORUPLAY=PATH for another).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

seconds=30 format="" convert=false media=build/bench-media
while [ $# -gt 0 ]; do
  case $1 in
    --seconds) seconds=$2; shift 2 ;;
    --format) format=$2; shift 2 ;;
    --convert) convert=true; shift ;;
    -*) sed -n 's/^#   //p' "${BASH_SOURCE[0]}" >&2; exit 2 ;;
    *) media=$1; shift ;;
  esac
done
oruplay=${ORUPLAY:-build/release/tools/oruplay}
for tool in "$oruplay" /usr/bin/time ffmpeg; do
  if ! command -v "$tool" >/dev/null; then
    echo "compare-peers.sh: $tool is missing" >&2
    exit 1
  fi
done
peers=()
command -v gst-launch-1.0 >/dev/null && peers+=(gstreamer)
command -v mpv >/dev/null && peers+=(mpv)

clips=$(mktemp -d)
trap 'rm -rf "$clips"' EXIT

# command_of PROGRAM FILE: sets `run` to the command that plays FILE with PROGRAM.
command_of() {
  local file
  file=$(realpath "$2")
  case $1 in
    oruplay) run=("$oruplay" -t -o null "$file") ;;
    gstreamer)
      local sink="fakesink sync=true"
      if $convert; then
        sink="audioconvert ! audioresample ! audio/x-raw,format=S16LE,rate=48000,channels=2 ! $sink"
      fi
      run=(gst-launch-1.0 -q playbin "uri=file://$file" "audio-sink=$sink" video-sink=fakesink) ;;
    mpv)
      run=(mpv --no-video --ao=null)
      if $convert; then
        run+=(--audio-format=s16 --audio-samplerate=48000 --audio-channels=stereo)
      fi
      run+=("$file") ;;
  esac
}

# measure PROGRAM FILE: prints "CPU-s voluntary-switches wall-s" of PROGRAM playing FILE.
measure() {
  command_of "$1" "$2"
  /usr/bin/time -o "$clips/time" -f '%U %S %w %e' "${run[@]}" >/dev/null 2>&1 ||
    echo "compare-peers.sh: $1 failed on $2" >&2
  awk '{ printf "%.2f %d %.2f\n", $1 + $2, $3, $4 }' "$clips/time"
}

inputs=(ten-minutes.flac ten-minutes.mp3 ten-minutes.m4a ten-minutes.ogg ten-minutes.opus
  ten-minutes-96k-float.wav)
clip() { echo "$clips/$2-$1"; }
ffmpeg -nostdin -loglevel error -i "$media/${inputs[0]}" -map 0:a -t 1 -c copy \
  "$(clip "${inputs[0]}" warm-up)"
for program in oruplay "${peers[@]}"; do
  command_of "$program" "$(clip "${inputs[0]}" warm-up)"
  "${run[@]}" >/dev/null 2>&1 || true
done

header="| input | oruplay: CPU s | voluntary switches |"
rule="|---|---:|---:|"
declare -A label=([gstreamer]=GStreamer [mpv]=mpv)
for peer in gstreamer mpv; do
  header+=" ${label[$peer]}: CPU s | voluntary switches |"
  rule+="---:|---:|"
done
echo "$header oruplay's CPU / cheaper peer's |"
echo "$rule---:|"
slow=()
for input in "${inputs[@]}"; do
  [ -z "$format" ] || [ "${input##*.}" = "$format" ] || continue
  file=$(clip "$input" "$seconds-s")
  ffmpeg -nostdin -loglevel error -i "$media/$input" -map 0:a -t "$seconds" -c copy "$file"
  row="| $input |"
  read -r ours switches wall < <(measure oruplay "$file")
  row+=" $ours | $switches |"
  cheapest=""
  for peer in gstreamer mpv; do
    if [[ " ${peers[*]} " != *" $peer "* ]]; then
      row+=" - | - |"
      continue
    fi
    read -r cpu switches peerWall < <(measure "$peer" "$file")
    row+=" $cpu | $switches |"
    cheapest=$(awk -v a="$cpu" -v b="$cheapest" 'BEGIN { print (b == "" || a < b) ? a : b }')
    awk -v wall="$peerWall" -v s="$seconds" 'BEGIN { exit !(wall < 0.9 * s) }' &&
      slow+=("$peer on $input: $peerWall s")
  done
  awk -v wall="$wall" -v s="$seconds" 'BEGIN { exit !(wall < 0.9 * s) }' &&
    slow+=("oruplay on $input: $wall s")
  if [ -n "$cheapest" ]; then
    row+=$(awk -v a="$ours" -v b="$cheapest" \
      'BEGIN { printf (b > 0 ? " %.2f |" : " - |"), a / b }')
  else
    row+=" - |"
  fi
  echo "$row"
  rm -f "$file"
done
echo
echo "$seconds s of each input at the real rate; peers: ${peers[*]:-none}" \
  "($($convert && echo "converting to 48 kHz 16-bit stereo" || echo "decoded audio as it comes"));" \
  "load average (1 min) at the end: $(cut -d' ' -f1 /proc/loadavg)."
for run in "${slow[@]}"; do
  echo "Faster than the real rate, so not comparable: $run of wall time."
done
