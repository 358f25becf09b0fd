# Sourced by the scripts that run a build's programs under Wine many times:
# one wineserver, with Wine's own background services started before anything
# else runs, kept for the whole session and ended when the script exits.
# Started by a test instead, the services would inherit its output pipe (and
# CTest would wait for them to close it); started during a benchmark, their
# start-up would fall into its measurements.
#
#   start_wine_session <build-dir>
start_wine_session() {
  local build=$1
  export WINEPREFIX="$build/wineprefix"
  export WINEDEBUG=-all
  # Make the prefix before the server is started for it.
  "$build/wine-run" --prepare || exit 1
  # A server already running for the prefix (another run's) serves this one too.
  wineserver -p >/dev/null 2>&1 </dev/null || true
  trap 'wineserver -k 2>/dev/null; wineserver -w 2>/dev/null' EXIT
  wine wineboot >/dev/null 2>&1 </dev/null || true
}
