#!/usr/bin/env bash
# Runs a build's CTest suite under Wine with one wineserver kept alive for the
# whole run (every Wine start then costs far less), and ends that server after.
# Usage: run-tests.sh <build-dir> [ctest arguments...]
set -uo pipefail

build=$(cd "$1" && pwd)
shift
export WINEPREFIX="$build/wineprefix"
export WINEDEBUG=-all

# Make the prefix before the server is started for it.
"$build/wine-run" --prepare || exit 1
wineserver -p >/dev/null 2>&1 </dev/null
trap 'wineserver -k 2>/dev/null; wineserver -w 2>/dev/null' EXIT
# Start Wine's own background services now, detached from any output: started
# by a test instead, they would inherit its output pipe and CTest would wait
# for them to close it.
wine wineboot >/dev/null 2>&1 </dev/null || true

ctest --test-dir "$build" --output-on-failure -j2 "$@"
