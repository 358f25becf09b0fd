#!/usr/bin/env bash
# Quillon's main job, end to end: a host drives the effect like the Windows
# audio engine on a spoken microphone signal, while `quillon play` sends an
# MP3 and a 44.1 kHz mono WAV from another process, converted to the stream's
# 48 kHz stereo as they play; then the board plays two of its sounds into
# the host. Leaves the signals, a picture of them and a screenshot of the
# board while it plays in out/demo/.
#
#   scripts/demo.sh [--block-voice]
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build/x64"
out="$root/out/demo"
block_voice=0
[[ "${1:-}" == "--block-voice" ]] && block_voice=1

mkdir -p "$out"
export WINEPREFIX="$out/wineprefix"
export WINEDEBUG=-all
winpath() { echo "Z:${1//\//\\}"; }

echo "demo: making the signals"
espeak-ng -s 150 -w "$out/voice.wav" \
  "Hello, this is the microphone. In a moment the player's sound joins the call, and everybody who records this microphone hears it."
sox "$out/voice.wav" -e floating-point -b 32 -r 48000 -c 2 "$out/microphone.wav" pad 0.5 1.5 norm -3
# The player's files: a rising jingle as MP3, then a chord as 44.1 kHz mono WAV.
sox -n -b 16 -r 44100 -c 2 "$out/jingle.wav" synth 1.2 sine 440-880 fade 0.05 1.2 0.2 vol 0.3
lame --quiet -b 128 "$out/jingle.wav" "$out/jingle.mp3"
sox -n -b 16 -r 44100 -c 1 "$out/chord.wav" synth 2.5 sine 523.25 sine 659.25 tremolo 6 40 fade 0.05 2.5 0.3 vol 0.35
# What they sound like in the stream, one after the other (for the picture only).
lame --quiet --decode "$out/jingle.mp3" "$out/jingle-decoded.wav"
sox "$out/jingle-decoded.wav" -e floating-point -b 32 -r 48000 -c 2 "$out/jingle-48k.wav"
sox "$out/chord.wav" -e floating-point -b 32 -r 48000 -c 2 "$out/chord-48k.wav"
sox "$out/jingle-48k.wav" "$out/chord-48k.wav" "$out/player.wav"

# An X server for the board's window, known to Wine's services from their
# start. It is there when the prefix is made too: in a prefix made without
# one, the first window of the first program fails to open.
# shellcheck source=scripts/wine-session.sh
source "$root/scripts/wine-session.sh"
start_display
if [[ ! -f "$WINEPREFIX/.demo-ready" ]]; then
  echo "demo: making a Wine prefix of its own (takes a few seconds, once)"
  wine wineboot -i >/dev/null 2>&1
  touch "$WINEPREFIX/.demo-ready"
fi
wineserver -p >/dev/null 2>&1 </dev/null || true
trap end_session EXIT
wine wineboot >/dev/null 2>&1 </dev/null || true
wine "$build/bin/quillon.exe" set block-voice "$([[ $block_voice == 1 ]] && echo on || echo off)" >/dev/null

echo "demo: running the host in real time, and the player 2 seconds in"
wine "$build/bin/quillon-host.exe" --in "$(winpath "$out/microphone.wav")" --out "$(winpath "$out/output.wav")" \
  > "$out/host.txt" 2>&1 &
host=$!
sleep 2
wine "$build/bin/quillon.exe" play --verbose --wait 10 "$(winpath "$out/jingle.mp3")" "$(winpath "$out/chord.wav")" \
  > "$out/player.txt" 2>&1
wait $host

echo "demo: the board plays its sounds into another host, by name from a second start"
board_mic='{0.0.1.00000000}.{quillon-demo-board}'
json_path() { winpath "$1" | sed 's/\\/\\\\/g'; }
cat > "$out/board.json" <<JSON
{
  "version": 1,
  "pages": [
    { "name": "Demo", "sounds": [
      { "file": "$(json_path "$out/chord.wav")", "name": "Chord", "hotkey": "Ctrl+Alt+2", "volumeDb": -3, "color": "#fdd835",
        "startMs": 250, "endMs": 2000 },
      { "file": "$(json_path "$out/jingle.mp3")", "name": "Jingle", "hotkey": "Ctrl+Alt+1", "volumeDb": 0, "color": "#1e88e5" },
      { "file": "$(json_path "$out/microphone.wav")", "name": "Hello", "hotkey": null, "volumeDb": -6, "color": "#00897b" },
      { "file": "$(json_path "$out/chord.wav")", "name": "Chord, quiet", "hotkey": "Ctrl+Alt+3", "volumeDb": -18 } ] },
    { "name": "Later", "hotkeysOnlyWhenShown": true, "sounds": [] }
  ],
  "settings": { "microphone": "$board_mic", "stopAllHotkey": "Ctrl+Alt+0", "keepInTray": false,
                "evenLoudness": true, "loudnessTargetLufs": -16 }
}
JSON
wine "$build/bin/quillon-host.exe" --endpoint "$board_mic" --name "Microphone (USB Audio)" --seconds 6 --in "$(winpath "$out/microphone.wav")" \
  --out "$(winpath "$out/board-output.wav")" > "$out/board-host.txt" 2>&1 &
board_host=$!
wine "$build/bin/quillon-board.exe" --board "$(winpath "$out/board.json")" >/dev/null 2>&1 &
board=$!
waited=0
until wine "$build/bin/quillon.exe" list 2>/dev/null | grep -q quillon-demo-board && board_window=$(xdotool search --name '^Quillon Board$' 2>/dev/null | head -1) && [[ -n "$board_window" ]]; do
  kill -0 "$board" 2>/dev/null || { echo "demo: the board ended before its window showed" >&2; exit 1; }
  (( waited++ < 100 )) || { echo "demo: the board or its host did not start" >&2; exit 1; }
  sleep 0.2
done
# The longer sound first, so that both still play when the picture is taken.
wine "$build/bin/quillon-board.exe" --play Chord
sleep 0.5
wine "$build/bin/quillon-board.exe" --play Jingle
sleep 0.3
eval "$(xdotool getwindowgeometry --shell "$board_window")"
import -window root -crop "${WIDTH}x${HEIGHT}+${X}+${Y}" +repage "$out/board.png"
wait $board_host
# The trimmed, evened Chord in its editor (F2 edits the focused sound, the
# first). With no window manager, keys go to the window under the pointer.
xdotool mousemove --window "$board_window" 20 20 key F2
waited=0
until editor=$(xdotool search --name '^Edit sound$' 2>/dev/null | head -1) && [[ -n "$editor" ]]; do
  (( waited++ < 50 )) || { echo "demo: the sound's editor did not open" >&2; exit 1; }
  sleep 0.2
done
sleep 1  # its waveform and loudness drawn
eval "$(xdotool getwindowgeometry --shell "$editor")"
import -window root -crop "${WIDTH}x${HEIGHT}+${X}+${Y}" +repage "$out/board-editor.png"
xdotool mousemove --window "$editor" 20 20 key Escape

sed -i 's/\r$//' "$out/host.txt" "$out/player.txt"
# The picture: the three signals one above the other (left channel), the
# player's sound placed where it entered the output.
entered=$(awk '/first period with received sound/ { print ($6 > 0 ? $6 : 0) * 0.01 }' "$out/host.txt")
for name in microphone player output; do
  sox "$out/$name.wav" -r 4000 -c 1 "$out/$name.dat" remix 1
done
gnuplot <<PLOT
set terminal pngcairo size 1400,900 font ",11" noenhanced
set output "$out/signals.png"
set multiplot layout 3,1 title "Quillon demo$([[ $block_voice == 1 ]] && echo ' (block voice)')"
set xrange [0:$(soxi -D "$out/microphone.wav")]
set yrange [-1:1]
set grid
set xlabel "seconds"
plot "$out/microphone.dat" using 1:2 with lines lc rgb "#1f77b4" title "microphone"
plot "$out/player.dat" using (\$1 + $entered):2 with lines lc rgb "#ff7f0e" title "player sound (placed where it entered)"
plot "$out/output.dat" using 1:2 with lines lc rgb "#2ca02c" title "output: what every recording program hears"
unset multiplot
PLOT
rm -f "$out"/*.dat "$out/voice.wav" "$out/jingle.wav" "$out/jingle-decoded.wav" "$out"/*-48k.wav

first_period=$(sed -n 's/first period with received sound: \([0-9-]*\).*/\1/p' "$out/host.txt")
host_us=$(sed -n 's/.*first period with received sound: .*qpc_us=\([0-9-]*\).*/\1/p' "$out/host.txt")
play_us=$(sed -n 's/first block taken at qpc_us=\([0-9]*\)/\1/p' "$out/player.txt")
{
  echo "Quillon demo summary"
  if [[ $block_voice == 1 ]]; then
    echo "  mixed: the player's sound replaced the microphone while it played (block voice on)"
  else
    echo "  mixed: an MP3 jingle (1.2 s) and a 44.1 kHz mono WAV chord (2.5 s) were added to the spoken microphone signal"
  fi
  echo "  the sound entered the output at $(awk "BEGIN { printf \"%.2f\", $first_period * 0.01 }") s (period $first_period)"
  [[ -n "$host_us" && -n "$play_us" ]] && \
    echo "  delay from the first block taken to its first sample in the output: $(( (host_us - play_us) / 1000 )) ms"
  grep -E 'APOProcess per period|periods' "$out/host.txt" | sed 's/^/  /'
  sed -n 's/^\(playing\|played\) /  player: \1 /p' "$out/player.txt"
  echo "  board: played Jingle and Chord into $out/board-output.wav; $(grep -m1 'periods with received sound' "$out/board-host.txt" | tr -d '\r')"
  echo "  board: Even loudness at -16 LUFS; sounds measured at $(grep -o '"lufs": -[0-9.]*' "$out/board.json" | awk '{ printf "%.1f ", $2 }')LUFS; Chord plays 0.25 s to 2.0 s"
  echo "  files: $out/{microphone,output}.wav, the player's $out/{jingle.mp3,chord.wav}, $out/signals.png, $out/board.png and $out/board-editor.png"
} | tee "$out/summary.txt"
