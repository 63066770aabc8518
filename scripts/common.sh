# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Sourced, from the project's root, by the scripts beside it.
set -euo pipefail

export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)}
export CTEST_PARALLEL_LEVEL=${CTEST_PARALLEL_LEVEL:-3}

fail() {
  echo "$(basename "$0"): $1" >&2
  exit 1
}

as_root() {
  if [[ $EUID -eq 0 ]]; then
    "$@"
  else
    sudo "$@"
  fi
}

# Our own C++ files, each followed by a NUL.
list_sources() {
  find v2 host tools examples tests bench fuzz \( -name '*.h' -o -name '*.cpp' \) -print0 | sort -z
}

# The optimised tool, in the tree build/release, with what it needs.
build_tool() {
  scripts/setup build tool
  cmake --preset release
  cmake --build build/release --target hyl_spectral_tool
}

# Runs a client that prints its samples.
run_client() {
  "$1" | tee /dev/stderr | grep ' s: ' >/dev/null || fail "the client has received no samples"
}
