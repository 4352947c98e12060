#!/usr/bin/env bash
# Makes the pipeline benchmark's inputs in DIR (default build/bench-media): ten minutes of real
# recordings that Debian ships, speech from espeak-ng over the sounds of alsa-utils and
# sound-theme-freedesktop, 44.1 kHz stereo, encoded as FLAC, MP3, AAC (M4A), Ogg Vorbis, Opus and
# a 96 kHz float WAV; and, for the latency benchmark's radios, as ADTS AAC and as Ogg Vorbis and
# Opus with pages of 250 ms, as a radio's encoder flushes them (the ffmpeg program's pages last a
# second). Codecs behave differently on tones, so no tone is used. Files that exist
# are kept.
set -euo pipefail
dir=${1:-build/bench-media}
mkdir -p "$dir"
ff() { ffmpeg -nostdin -hide_banner -loglevel error -y "$@"; }

source="$dir/source.wav"
if [ ! -s "$source" ]; then
  # Speech: espeak-ng reads the GPL, at two speeds and pitches on the two channels' mix.
  head -c 40000 /usr/share/common-licenses/GPL-3 >"$dir/text.txt"
  espeak-ng -s 165 -p 45 -f "$dir/text.txt" -w "$dir/speech.wav"

  # Effects: every alsa-utils and freedesktop sound in turn, as 44.1 kHz stereo.
  sounds=(/usr/share/sounds/alsa/*.wav /usr/share/sounds/freedesktop/stereo/*.oga)
  inputs=() filters="" labels=""
  for i in "${!sounds[@]}"; do
    inputs+=(-i "${sounds[$i]}")
    filters+="[$i:a]aresample=44100,aformat=sample_fmts=fltp:channel_layouts=stereo[a$i];"
    labels+="[a$i]"
  done
  ff "${inputs[@]}" -filter_complex "${filters}${labels}concat=n=${#sounds[@]}:v=0:a=1" \
    "$dir/effects.wav"

  # Ten minutes: the speech, panned, over the effects, both looped.
  ff -stream_loop -1 -i "$dir/speech.wav" -stream_loop -1 -i "$dir/effects.wav" \
    -filter_complex "[0:a]aresample=44100,pan=stereo|c0=0.8*c0|c1=0.6*c0[s];[1:a]volume=0.7[e];[s][e]amix=inputs=2:normalize=0" \
    -t 600 -c:a pcm_s16le "$source"
  rm -f "$dir/text.txt" "$dir/speech.wav" "$dir/effects.wav"
fi

encode() {
  local out="$dir/$1"
  shift
  [ -s "$out" ] || ff -i "$source" "$@" "$out"
}
encode ten-minutes.flac -c:a flac
encode ten-minutes.mp3 -c:a libmp3lame -b:a 192k
encode ten-minutes.m4a -c:a aac -b:a 192k
encode ten-minutes.ogg -c:a libvorbis -q:a 5
encode ten-minutes.opus -c:a libopus -b:a 128k
encode ten-minutes-96k-float.wav -ar 96000 -c:a pcm_f32le
encode ten-minutes.aac -c:a aac -b:a 128k -f adts
encode ten-minutes-radio.ogg -c:a libvorbis -q:a 5 -page_duration 250000
encode ten-minutes-radio.opus -c:a libopus -b:a 128k -page_duration 250000
