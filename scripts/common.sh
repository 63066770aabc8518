# shellcheck shell=bash
# Sourced, from the project's root, by the scripts beside it.
set -euo pipefail

export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)}
export CTEST_PARALLEL_LEVEL=${CTEST_PARALLEL_LEVEL:-3}

as_root() {
  if [[ $EUID -eq 0 ]]; then
    "$@"
  else
    sudo "$@"
  fi
}

# Our own sources with the given ending, each followed by a NUL.
list_sources() {
  find v2 host tools examples tests bench fuzz -name "*.$1" -print0 | sort -z
}

# The optimised tool, in the tree build/release, with what it needs.
build_tool() {
  scripts/setup build tool
  cmake --preset release
  cmake --build build/release --target hyl_spectral_tool
}
