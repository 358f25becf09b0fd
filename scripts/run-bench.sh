#!/usr/bin/env bash
# Runs the benchmarks of a build under Wine, after Wine's own services have
# started, so that no measurement shares the machine with their start-up.
# Usage: run-bench.sh <build-dir>
set -euo pipefail

build=$(cd "$1" && pwd)
# shellcheck source=scripts/wine-session.sh
source "$(dirname "$0")/wine-session.sh"
# The board's bench shows its window.
start_display || exit 1
start_wine_session "$build"

sounds=$("$(dirname "$0")/bench-sounds.sh" "$build/bench-sounds")
mapfile -t sound_files <<<"$sounds"
"$build/wine-run" "$build/bin/quillon_bench.exe"
"$build/wine-run" "$build/bin/quillon_bench_logger.exe"
"$build/wine-run" "$build/bin/quillon_bench_convert.exe" "${sound_files[@]}"
"$build/wine-run" "$build/bin/quillon_bench_latency.exe"
storm=$("$(dirname "$0")/bench-sounds.sh" "$build/bench-sounds" storm)
mapfile -t storm_files <<<"$storm"
"$build/wine-run" "$build/bin/quillon_bench_storm.exe" "${storm_files[@]}"
"$build/wine-run" "$build/bin/quillon_bench_board.exe"
loudness=$("$(dirname "$0")/bench-sounds.sh" "$build/bench-sounds" loudness)
mapfile -t loudness_files <<<"$loudness"
"$build/wine-run" "$build/bin/quillon_bench_loudness.exe" "${loudness_files[0]}" "${loudness_files[1]}"
"$build/wine-run" "$build/bin/quillon_bench_waveform.exe" "${loudness_files[2]}" "${loudness_files[0]}"
