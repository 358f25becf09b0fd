# Sourced by the scripts that run a build's programs under Wine many times:
# one wineserver, with Wine's own background services started before anything
# else runs, kept for the whole session and ended when the script exits.
# Started by a test instead, the services would inherit its output pipe (and
# CTest would wait for them to close it); started during a benchmark, their
# start-up would fall into its measurements.
#
#   start_wine_session <build-dir>

# Ends Wine's server for the prefix, then the X server if the session has one.
end_session() {
  wineserver -k 2>/dev/null
  wineserver -w 2>/dev/null
  if [ -n "${_quillon_xvfb:-}" ]; then kill "$_quillon_xvfb" 2>/dev/null; fi
}

start_wine_session() {
  local build=$1
  export WINEPREFIX="$build/wineprefix"
  export WINEDEBUG=-all
  # Make the prefix before the server is started for it.
  "$build/wine-run" --prepare || exit 1
  # A server already running for the prefix (another run's) serves this one too.
  wineserver -p >/dev/null 2>&1 </dev/null || true
  trap end_session EXIT
  wine wineboot >/dev/null 2>&1 </dev/null || true
}

# Starts an X server of its own (Xvfb) for the session's windows, on the
# first free display from :90 on, exports DISPLAY, and ends it with the
# session. Wine draws real windows there; xdotool and screenshots use it too.
#   start_display
start_display() {
  local n=90
  while [ -e "/tmp/.X11-unix/X$n" ] || [ -e "/tmp/.X$n-lock" ]; do n=$((n + 1)); done
  Xvfb ":$n" -screen 0 1280x800x24 -nolisten tcp >/dev/null 2>&1 </dev/null &
  local xvfb=$!
  _quillon_xvfb=$xvfb
  local waited=0
  until [ -e "/tmp/.X11-unix/X$n" ]; do
    if ! kill -0 "$xvfb" 2>/dev/null || [ "$waited" -ge 100 ]; then
      echo "start_display: Xvfb did not start on :$n" >&2
      return 1
    fi
    sleep 0.1
    waited=$((waited + 1))
  done
  export DISPLAY=":$n"
  trap end_session EXIT
}
