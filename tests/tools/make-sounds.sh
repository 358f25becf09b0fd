#!/usr/bin/env bash
# Sounds for the tests, made once per build folder with espeak-ng, sox, lame
# and opusenc:
#   - the end-to-end signals: a spoken microphone signal and a two-tone sound;
#   - the format table: each file `quillon play` must read, and beside it
#     <name>-ref.wav, sox's own conversion of the same sound to the stream the
#     test runs (float, 48 kHz, the channel count in the name's last part);
#   - files it must refuse.
set -euo pipefail
dir=$1
mkdir -p "$dir"
# Made again whenever this script changes.
stamp=.ready-$(sha256sum "$0" | cut -c1-16)
[[ -f "$dir/$stamp" ]] && exit 0
cd "$dir"
rm -f .ready*

espeak-ng -s 160 -w voice.wav "Testing the microphone, one two three. The player joins in now."
sox voice.wav -e floating-point -b 32 -r 48000 -c 2 mic.wav pad 0.2 0.8 norm -3
sox -n -e floating-point -b 32 -r 48000 -c 2 tone.wav synth 1.5 sine 440 sine 550 vol 0.3

# A short spoken phrase, and six different signals for six channels, so that a
# channel in the wrong place or with the wrong weight shows.
espeak-ng -s 170 -w phrase.wav "One two three, four."
sox phrase.wav -r 48000 -c 1 -b 32 -e floating-point phrase48.wav norm -6
len=$(soxi -D phrase48.wav)
sox phrase48.wav ch1.wav
sox phrase48.wav ch2.wav reverse
sox -n -r 48000 -b 32 -e floating-point ch3.wav synth "$len" sine 300 vol 0.4
sox -n -r 48000 -b 32 -e floating-point ch4.wav synth "$len" sine 50 vol 0.5
sox -n -r 48000 -b 32 -e floating-point ch5.wav synth "$len" pinknoise vol 0.3
sox -n -r 48000 -b 32 -e floating-point ch6.wav synth "$len" square 700 vol 0.2
sox -M ch1.wav ch2.wav ch3.wav ch4.wav ch5.wav ch6.wav six.wav

# ref SOURCE NAME CHANNELS [REMIX...]: the reference for the stream of NAME.
ref() {
  local source=$1 name=$2 channels=$3
  shift 3
  sox "$source" -e floating-point -b 32 "$name-ref.wav" ${1+remix "$@"} rate -v 48000 channels "$channels"
}
down_to_stereo=(1v0.414214,3v0.292893,5v0.292893 2v0.414214,3v0.292893,6v0.292893)

sox phrase48.wav -e unsigned-integer -b 8 -r 8000 u8-mono-8k-to2.wav
ref u8-mono-8k-to2.wav u8-mono-8k-to2 2 1 1
sox -M ch1.wav ch2.wav -e signed-integer -b 16 -r 44100 s16-stereo-44k-to2.wav
ref s16-stereo-44k-to2.wav s16-stereo-44k-to2 2
sox six.wav -e signed-integer -b 24 -r 96000 s24-six-96k-to2.wav
ref s24-six-96k-to2.wav s24-six-96k-to2 2 "${down_to_stereo[@]}"
sox phrase48.wav -e signed-integer -b 32 -r 22050 s32-mono-22k-to1.wav
ref s32-mono-22k-to1.wav s32-mono-22k-to1 1
sox -M ch1.wav ch2.wav -e floating-point -b 32 -r 192000 f32-stereo-192k-to1.wav
ref f32-stereo-192k-to1.wav f32-stereo-192k-to1 1 1v0.5,2v0.5
sox phrase48.wav -e floating-point -b 64 -r 16000 f64-mono-16k-to6.wav
ref f64-mono-16k-to6.wav f64-mono-16k-to6 6 1 1 1 1 1 1
sox six.wav -e floating-point -b 32 -r 48000 f32-six-48k-to6.wav
ref f32-six-48k-to6.wav f32-six-48k-to6 6
sox six.wav -e signed-integer -b 16 -r 44100 s16-six-44k-to1.wav
ref s16-six-44k-to1.wav s16-six-44k-to1 1 1v0.207107,2v0.207107,3v0.292893,5v0.146447,6v0.146447
sox -M ch1.wav ch2.wav -b 16 -r 44100 flac-stereo-44k-to2.flac
ref flac-stereo-44k-to2.flac flac-stereo-44k-to2 2
sox phrase48.wav -r 32000 vorbis-mono-32k-to2.ogg
ref vorbis-mono-32k-to2.ogg vorbis-mono-32k-to2 2 1 1
# Opus and MP3 are decoded for the reference by their own tools (sox reads neither here).
sox -M ch1.wav ch2.wav -b 16 opus-input.wav
opusenc --quiet --bitrate 128 opus-input.wav opus-stereo-48k-to2.opus
opusdec --quiet --float opus-stereo-48k-to2.opus opus-decoded.wav
ref opus-decoded.wav opus-stereo-48k-to2 2
sox phrase48.wav -b 16 -r 44100 mp3-input.wav
lame --quiet -b 128 mp3-input.wav mp3-mono-44k-to2.mp3
lame --quiet --decode mp3-mono-44k-to2.mp3 mp3-decoded.wav
ref mp3-decoded.wav mp3-mono-44k-to2 2 1 1
# MP3s without a length tag (lame -t), as many encoders and downloads come: a
# 10-second one for the table, and a 30-minute one (64 kbit/s) to start while
# another sound plays.
sox phrase48.wav -b 16 -r 44100 -c 2 mp3t-input.wav repeat 6
lame --quiet -t -b 128 mp3t-input.wav mp3untagged-stereo-44k-to2.mp3
lame --quiet --decode mp3untagged-stereo-44k-to2.mp3 mp3t-decoded.wav
ref mp3t-decoded.wav mp3untagged-stereo-44k-to2 2
sox -n -r 22050 -c 1 -b 16 long-input.wav synth 1800 sine 300 vol 0.5
lame --quiet -t -b 64 long-input.wav long-untagged.mp3
rm -f long-input.wav

# Sounds played together, and sox's sum of them (each at full volume): a
# spoken phrase and two tones in a FLAC file. A loud pair, whose sum goes far
# above full scale (sox would clip it: the test adds them itself). Two tones with an offset (their first sample is not 0)
# for the voice that is stopped and the one that plays on.
sox phrase48.wav -e floating-point -b 32 -c 2 together-a.wav
sox -n -r 48000 -c 2 -b 16 together-b.flac synth "$len" sine 330 sine 520 vol 0.2
sox -m -v 1 together-a.wav -v 1 together-b.flac -e floating-point -b 32 together-sum-ref.wav
sox -n -r 48000 -c 2 -e floating-point -b 32 loud-a.wav synth 1 sine 300 vol 0.8
sox -n -r 48000 -c 2 -e floating-point -b 32 loud-b.wav synth 1 sine 500 vol 0.8
sox -n -r 48000 -c 2 -e floating-point -b 32 stays.wav synth 1.5 sine 440 vol 0.3 dcshift 0.1
sox -n -r 48000 -c 2 -e floating-point -b 32 stopped.wav synth 4 sine 660 vol 0.3 dcshift 0.1

# Files to refuse.
# Trimming: a sweep (every moment differs, so the part played is found by
# correlation), and sox's cut of its 500 to 1200 ms.
sox -n -r 48000 -c 2 -b 32 -e floating-point trim-source.wav synth 2 sine 200-3000 sine 3000-200 vol 0.4
sox trim-source.wav trim-ref.wav trim 0.5 =1.2
# Loudness: EBU Tech 3341's first two signals (stereo 1 kHz sines at -23 and
# -33 dBFS, 20 s); a 12 kHz tone whose samples miss its crests (true peak
# -6.02 dBTP, its samples 3 dB lower); 300 ms of tone (too short for an
# integrated loudness); silence, and silence with 16-bit dither only (about
# -86 dBTP). And ffmpeg's ebur128 filter's integrated
# loudness of sounds the other tests use, beside each as <file>.ffmpeg-lufs.
sox -n -r 48000 -c 2 -b 32 -e floating-point ebu-23.wav synth 20 sine 1000 vol -23dB
sox -n -r 48000 -c 2 -b 32 -e floating-point ebu-33.wav synth 20 sine 1000 vol -33dB
sox -n -r 48000 -c 2 -b 32 -e floating-point true-peak.wav synth 5 sine 12000 0 12.5 vol 0.5
sox -n -r 48000 -c 2 -b 32 -e floating-point short-tone.wav synth 0.3 sine 1000 vol -12dB
sox -D -n -r 48000 -c 2 -b 16 silence.wav trim 0 1
sox -n -r 48000 -c 2 -b 16 dither-only.wav trim 0 1
# Evened out: two tones 15 dB apart, and a 1 Hz square whose true peak
# (+0.9 dBTP) would pass -1 dBTP at the target loudness.
sox -n -r 48000 -c 2 -b 32 -e floating-point loud.wav synth 3 sine 440 vol -10dB
sox -n -r 48000 -c 2 -b 32 -e floating-point quiet.wav synth 3 sine 440 vol -25dB
sox -n -r 48000 -c 2 -b 32 -e floating-point peaky.wav synth 3 square 1 vol -1dB
for f in tone.wav mic.wav flac-stereo-44k-to2.flac vorbis-mono-32k-to2.ogg opus-stereo-48k-to2.opus mp3-mono-44k-to2.mp3; do
  ffmpeg -nostats -hide_banner -i "$f" -af ebur128 -f null - 2>&1 |
    awk '/Integrated loudness:/ { found = 1 } found && $1 == "I:" { print $2; exit }' > "$f.ffmpeg-lufs"
  [[ -s "$f.ffmpeg-lufs" ]] || { echo "ffmpeg measured no loudness of $f" >&2; exit 1; }
done
echo "this is not a WAV file" > not-a-wav.wav
sox -n -r 48000 -c 2 -b 16 empty.wav trim 0 0
size=$(stat -c %s s16-stereo-44k-to2.wav)
head -c $((size / 2)) s16-stereo-44k-to2.wav > truncated.wav
size=$(stat -c %s flac-stereo-44k-to2.flac)
head -c $((size / 2)) flac-stereo-44k-to2.flac > truncated.flac
# Noise named .mp3, and an MP3 with noise over part of its frames.
sox -R -n -t raw -r 8000 -b 8 -e unsigned-integer noise.mp3 synth 4 whitenoise
{ head -c 8000 mp3-mono-44k-to2.mp3; head -c 5000 noise.mp3; tail -c +13001 mp3-mono-44k-to2.mp3; } > garbled.mp3
# A RIFF header whose format chunk names 0 channels.
printf 'RIFF\x24\x00\x00\x00WAVEfmt \x10\x00\x00\x00\x01\x00\x00\x00\x80\xbb\x00\x00\x00\x00\x00\x00\x00\x00\x10\x00data\x00\x00\x00\x00' > bad-header.wav

rm -f voice.wav phrase.wav phrase48.wav ch?.wav six.wav opus-input.wav opus-decoded.wav mp3-input.wav mp3-decoded.wav \
  mp3t-input.wav mp3t-decoded.wav
touch "$stamp"
