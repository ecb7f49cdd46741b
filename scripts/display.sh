# shellcheck shell=bash
# shellcheck disable=SC2154
# A display with a window manager for scripts that run the application in a window. Source it after setting $size
# (1920x1080), $log and fail(); start_display sets DISPLAY, and the script's end ends what it started, each by its own id.

helpers=()
app_pid=
end_all() {
  for pid in $app_pid "${helpers[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in $app_pid "${helpers[@]}"; do wait "$pid" 2>/dev/null || true; done
}
trap end_all EXIT

start_display() {
  local number_file
  number_file=$(mktemp)
  Xvfb -displayfd 3 -screen 0 "${size}x24" -nolisten tcp -noreset 3>"$number_file" >>"$log" 2>&1 &
  helpers+=($!)
  await "a display" test -s "$number_file"
  DISPLAY=:$(cat "$number_file")
  export DISPLAY
  rm -f "$number_file"
  openbox >>"$log" 2>&1 &
  helpers+=($!)
  await "a window manager" wm_runs
}

wm_runs() {
  xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q "window id"
}

# await WHAT COMMAND…: until it succeeds, thirty seconds at most.
await() {
  local what=$1
  shift
  for _ in $(seq 300); do
    ! "$@" || return 0
    sleep 0.1
  done
  fail "$what did not come"
}
