# shellcheck shell=bash
# What the scripts share. Source it with the working directory at the repository root.

build_log=build/log

# step NAME LOG COMMAND…: says NAME in one line on standard error (nothing when $quiet is set) and runs the command with
# its output in build/log/LOG.log. When the command fails, shows the end of that log and ends the script.
step() {
  local name=$1 log=$build_log/$2.log
  shift 2
  mkdir -p "$build_log"
  [ -n "${quiet:-}" ] || echo "$name …" >&2
  local code=0
  : >"$log"
  if [ -n "${quiet:-}" ] || [ ! -t 2 ]; then
    "$@" >>"$log" 2>&1 </dev/null || code=$?
  else
    follow "$log" "$name" &
    "$@" >>"$log" 2>&1 </dev/null || code=$?
    kill $! 2>/dev/null && wait $! 2>/dev/null || true
    printf '\r\033[K' >&2
  fi
  [ "$code" -ne 0 ] || return 0
  { echo "$name failed ($code). The end of $log:"; tail -n 40 "$log"; } >&2
  exit 1
}

# follow LOG NAME: says in one line how far the builder is that writes "[n/m]" into the log, until it is ended.
follow() {
  local done_of
  while sleep 0.5; do
    done_of=$(tail -n 1 "$1" | sed -n 's/^\[\([0-9]*\)\/\([0-9]*\)\].*/\1 of \2/p')
    [ -z "$done_of" ] || printf '\r\033[K%s … %s' "$2" "$done_of" >&2
  done
}

# configure PRESET: where that has not been done since the presets changed.
configure() {
  local ninja=build/$1/build.ninja
  if [ ! -e "$ninja" ] || [ CMakePresets.json -nt "$ninja" ]; then
    step "Configuring $1" "configure-$1" cmake --preset "$1"
  fi
}

# build PRESET [WHAT]: configures it, and builds what is not up to date of what the build preset WHAT, by default the one of
# the same name, says.
build() {
  local what=${2-$1}
  configure "$1"
  step "Building $1" "build-$what" cmake --build --preset "$what"
}

# prepare COMMAND…: runs one of our own functions while no other script prepares in this tree.
prepare() {
  mkdir -p build
  exec 9>build/.lock
  flock 9
  "$@" 9>&-
  exec 9>&-
}
