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
  "$@" >"$log" 2>&1 </dev/null && return
  local code=$?
  { echo "$name failed ($code). The end of $log:"; tail -n 40 "$log"; } >&2
  exit 1
}

# build PRESET: configures it where that has not been done since the presets changed, and builds what is not up to date.
build() {
  local ninja=build/$1/build.ninja
  if [ ! -e "$ninja" ] || [ CMakePresets.json -nt "$ninja" ]; then
    step "Configuring $1" "configure-$1" cmake --preset "$1"
  fi
  step "Building $1" "build-$1" cmake --build --preset "$1"
}

# prepare COMMAND…: runs one of our own functions while no other script prepares in this tree.
prepare() {
  mkdir -p build
  exec 9>build/.lock
  flock 9
  "$@" 9>&-
  exec 9>&-
}
