#!/usr/bin/env bash
# Files for the benchmarks, made once into DIR, their paths printed as Wine
# sees them:
#   bench-sounds.sh DIR        the conversion benchmark's: ten minutes of a tone
#                              over pink noise (44.1 kHz stereo) as WAV, FLAC,
#                              Ogg Vorbis, Opus and MP3, and one hour as MP3;
#   bench-sounds.sh DIR storm  the press storm's: a 30-minute MP3 without a
#                              length tag (64 kbit/s), a 200 MB WAV, a FLAC
#                              and a 5.1 Opus file;
#   bench-sounds.sh DIR loudness  the loudness and waveform benchmarks': the
#                              storm's 30-minute MP3, five minutes of 48 kHz
#                              stereo WAV and ten seconds of WAV.
set -euo pipefail
dir=$1
self=$(cd "$(dirname "$0")" && pwd)/$(basename "$0")
mkdir -p "$dir"
dir=$(cd "$dir" && pwd)
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
if [[ ${2:-} == loudness ]]; then
  "$self" "$dir" storm >/dev/null
  if [[ ! -f .loudness-ready ]]; then
    sox -n -b 16 -r 48000 -c 2 five.wav synth 300 pinknoise synth 300 sine mix 440 vol 0.3
    sox ten.wav ten-seconds.wav trim 0 10
    touch .loudness-ready
  fi
  for f in storm-untagged.mp3 five.wav ten-seconds.wav; do echo "Z:$PWD/$f"; done
  exit 0
fi
if [[ ${2:-} == storm ]]; then
  if [[ ! -f .storm-ready ]]; then
    sox -n -b 16 -r 44100 -c 2 -t wav - synth 1800 pinknoise synth 1800 sine mix 440 vol 0.3 |
      lame --quiet -t -b 64 - storm-untagged.mp3
    sox -n -b 24 -r 48000 -c 2 storm-big.wav synth 695 sine 440 vol 0.3
    sox ten.wav storm.flac trim 0 60
    sox -n -b 16 -r 48000 -c 6 storm-six.wav synth 60 sine 200 sine 300 sine 400 sine 60 pinknoise sine 500 vol 0.3
    opusenc --quiet --bitrate 256 storm-six.wav storm-51.opus
    rm storm-six.wav
    touch .storm-ready
  fi
  for f in storm-untagged.mp3 storm-big.wav storm.flac storm-51.opus; do echo "Z:$PWD/$f"; done
  exit 0
fi
for f in ten.wav ten.flac ten.ogg ten.opus ten.mp3 hour.mp3; do echo "Z:$PWD/$f"; done
