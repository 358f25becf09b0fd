#!/usr/bin/env bash
# Sounds for the end-to-end tests, made once per build folder: a spoken
# microphone signal, a two-tone player sound, and files in wrong formats.
set -euo pipefail
dir=$1
mkdir -p "$dir"
[[ -f "$dir/.ready" ]] && exit 0
espeak-ng -s 160 -w "$dir/voice.wav" "Testing the microphone, one two three. The player joins in now."
sox "$dir/voice.wav" -e floating-point -b 32 -r 48000 -c 2 "$dir/mic.wav" pad 0.2 0.8 norm -3
sox -n -e floating-point -b 32 -r 48000 -c 2 "$dir/tone.wav" synth 1.5 sine 440 sine 550 vol 0.3
sox "$dir/tone.wav" -e signed-integer -b 16 "$dir/tone-pcm16.wav"
sox "$dir/tone.wav" -r 44100 "$dir/tone-44k.wav"
echo "this is not a WAV file" > "$dir/not-a-wav.wav"
rm -f "$dir/voice.wav"
touch "$dir/.ready"
