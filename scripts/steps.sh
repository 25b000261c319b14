# What the commands of this folder share; they source it. `log` names the log of a command.

# Runs a step with its output in the log, and shows the end of the log when the step fails.
quietly() {
  if ! "$@" >>"$log" 2>&1; then
    tail -n 40 "$log" >&2
    echo "Failed: $*   (all of its output: $log)" >&2
    exit 1
  fi
}

# Relative paths let the build folders, and other clones, share what is in the cache.
use_compiler_cache() {
  export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
  export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
  # What the cache has to overlook where a header is precompiled.
  export CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
}

# Builds a preset, or of it the targets that are named, with the output in a log of its own.
build_quietly() {
  log=build/$1.log
  mkdir -p build
  : >"$log"
  use_compiler_cache
  echo "Building (the first time takes a minute or two) ..." >&2
  quietly cmake --preset "$1"
  quietly cmake --build --preset "$1" ${2:+--target "${@:2}"}
}
