# shellcheck shell=bash
# Sourced, from the project's root, by the scripts beside it.
set -euo pipefail

export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)}
export CTEST_PARALLEL_LEVEL=${CTEST_PARALLEL_LEVEL:-3}

# Our own sources with one of the given endings, each followed by a NUL.
list_sources() {
  local find_names=(-name "*.$1")
  local ending
  for ending in "${@:2}"; do
    find_names+=(-o -name "*.$ending")
  done
  find v2 host tools examples tests bench fuzz \( "${find_names[@]}" \) -print0 | sort -z
}

# One build tree for the checks by clang, of everything that can be built, each source by itself.
configure_clang() {
  cmake -S . -B build/clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON -DCMAKE_UNITY_BUILD=OFF \
    -DHYL_BUILD_BENCH=ON -DHYL_BUILD_FUZZERS=ON
}

# The optimised tool, in the tree build/demo, with what it needs.
build_tool() {
  scripts/setup build demo
  cmake --preset release -B build/demo -DHYL_BUILD_TESTS=OFF -DHYL_BUILD_BENCH=OFF
  cmake --build build/demo --target hyl_spectral_tool
}
