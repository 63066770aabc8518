#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Checks what the compiler and the linker have made of the library: its exports, how it resists
# attacks, that loading it runs nothing, and that it stays loaded. The tools are those that READELF,
# NM and STRIP name.
# Usage: library_file_test.sh LIBRARY EXPORTS-LIST [--optimised]
set -euo pipefail

readonly LIBRARY=$1 EXPORTS=$2 KIND=${3:-}
readonly NM=${NM:-nm} READELF=${READELF:-readelf} STRIP=${STRIP:-strip}
readonly MAX_STRIPPED=$((100 * 1024))
faults=0

fault() {
  echo "library file: $1" >&2
  faults=$((faults + 1))
}

# A line of the text must match the pattern.
need() { # TEXT PATTERN FAULT
  grep -qE -- "$2" <<<"$1" || fault "$3"
}

# No line of the text may match the pattern.
refuse() { # TEXT PATTERN FAULT
  ! grep -E -- "$2" <<<"$1" || fault "$3"
}

if ! diff <("$NM" -D --defined-only "$LIBRARY" | awk '{ print $NF }' | LC_ALL=C sort) "$EXPORTS"; then
  fault "the exports (<) are not those of $EXPORTS (>): keep what clients use, hide what is new, or,
    for a new version of the interface, update the list"
fi

segments=$("$READELF" -lW "$LIBRARY")
dynamic=$("$READELF" -dW "$LIBRARY")
imports=$("$NM" -D --undefined-only "$LIBRARY")
need "$segments" 'GNU_RELRO' "no RELRO: link with -Wl,-z,relro"
need "$segments" 'GNU_STACK.* RW ' "the stack is executable: link with -Wl,-z,noexecstack"
refuse "$segments" 'LOAD.* (RWE|WE) ' "a segment can be written and executed"
need "$dynamic" '\(FLAGS_1\).*NOW' "symbols are bound late: link with -Wl,-z,now"
need "$dynamic" '\(FLAGS_1\).*NODELETE' "can be unloaded: link with -Wl,-z,nodelete"
refuse "$dynamic" 'TEXTREL' "relocations in the code: compile with -fPIC"
need "$imports" ' __stack_chk_fail' "no stack protector: compile with -fstack-protector-strong"
refuse "$imports" ' __cxa_(thread_)?atexit' \
  "something is destroyed at exit: leave globals without destructors"
refuse "$("$NM" "$LIBRARY")" ' _GLOBAL__sub_[ID]' "code runs at load time: make the global constexpr"

if [[ $KIND == --optimised ]]; then
  need "$imports" ' __[a-z]+printf_chk' "no fortified calls: compile with -D_FORTIFY_SOURCE=2"
  stripped=$(mktemp)
  "$STRIP" -o "$stripped" "$LIBRARY"
  size=$(stat -c %s "$stripped")
  rm "$stripped"
  echo "library file: $size bytes when stripped"
  [[ $size -lt $MAX_STRIPPED ]] || fault "that is not under $MAX_STRIPPED"
fi
[[ $faults -eq 0 ]]
