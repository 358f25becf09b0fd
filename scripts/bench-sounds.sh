#!/usr/bin/env bash
# Files for the conversion benchmark, made once into DIR: ten minutes of a
# tone over pink noise (44.1 kHz stereo) as WAV, FLAC, Ogg Vorbis, Opus and
# MP3, and one hour of it as MP3. Prints their paths as Wine sees them.
set -euo pipefail
dir=$1
mkdir -p "$dir"
cd "$dir"
if [[ ! -f .ready ]]; then
  sox -n -b 16 -r 44100 -c 2 ten.wav synth 600 pinknoise synth 600 sine mix 440 vol 0.3
  sox ten.wav ten.flac
  sox ten.wav -C 5 ten.ogg
  opusenc --quiet --bitrate 128 ten.wav ten.opus
  lame --quiet -b 128 ten.wav ten.mp3
  sox ten.wav ten.wav ten.wav ten.wav ten.wav ten.wav -t wav - | lame --quiet -b 128 - hour.mp3
  touch .ready
fi
for f in ten.wav ten.flac ten.ogg ten.opus ten.mp3 hour.mp3; do echo "Z:$PWD/$f"; done
