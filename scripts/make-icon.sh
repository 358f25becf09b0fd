#!/usr/bin/env bash
# Draws Quillon's icon with ImageMagick: a microphone on a blue rounded
# square, with a note beside it, in the sizes Windows asks for.
# Usage: make-icon.sh <out.ico>
set -euo pipefail
out=$1
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
convert -size 256x256 xc:none \
  -fill '#2f5fa7' -draw 'roundrectangle 8,8 247,247 44,44' \
  -fill white -draw 'roundrectangle 70,40 134,150 32,32' \
  -fill none -stroke white -strokewidth 14 -draw 'arc 52,80 152,180 0,180' \
  -draw 'line 102,180 102,214' -draw 'line 72,216 132,216' \
  -stroke none -fill '#ffd24a' -draw 'ellipse 176,176 22,17 0,360' \
  -draw 'rectangle 186,76 198,176' -draw 'polygon 186,76 226,92 226,112 198,98' \
  "$tmp/icon.png"
convert "$tmp/icon.png" -depth 8 -define icon:auto-resize=256,64,48,40,32,24,20,16 "$out"
