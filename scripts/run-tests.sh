#!/usr/bin/env bash
# Runs a build's CTest suite under Wine with one wineserver kept alive for the
# whole run (every Wine start then costs far less), and ends that server after.
# Usage: run-tests.sh <build-dir> [ctest arguments...]
set -uo pipefail

build=$(cd "$1" && pwd)
shift
# shellcheck source=scripts/wine-session.sh
source "$(dirname "$0")/wine-session.sh"
# The display first: Wine's services, started with the session, then know it.
start_display || exit 1
start_wine_session "$build"

ctest --test-dir "$build" --output-on-failure -j2 "$@"
