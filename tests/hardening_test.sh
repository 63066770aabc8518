#!/usr/bin/env bash
# Checks what the compiler and the linker have made of the library: how it resists attacks, that
# loading it runs nothing, and that it stays loaded. The tools are those that READELF, NM and STRIP name.
# Usage: hardening_test.sh LIBRARY [--optimised]
set -euo pipefail

readonly LIBRARY=$1
readonly KIND=${2:-}
readonly MAX_STRIPPED=$((100 * 1024))
readonly POINTER=8 # bytes
readonly READELF=${READELF:-readelf}
faults=0

fault() {
  echo "hardening: $1" >&2
  faults=$((faults + 1))
}

# has TEXT PATTERN: whether a line of the text matches.
has() {
  grep -qE -- "$2" <<<"$1"
}

segments() {
  local headers dynamic
  headers=$("$READELF" -lW "$LIBRARY")
  dynamic=$("$READELF" -dW "$LIBRARY")
  has "$headers" 'GNU_RELRO' || fault "no RELRO: link with -Wl,-z,relro"
  has "$dynamic" '\(FLAGS_1\).*NOW' || fault "symbols are bound late: link with -Wl,-z,now"
  has "$dynamic" '\(FLAGS_1\).*NODELETE' || fault "can be unloaded: link with -Wl,-z,nodelete"
  has "$headers" 'GNU_STACK.* RW ' || fault "the stack is executable: link with -Wl,-z,noexecstack"
  ! has "$headers" 'LOAD.* (RWE|WE) ' || fault "a segment can be written and executed"
  ! has "$dynamic" 'TEXTREL' || fault "relocations in the code: compile with -fPIC"
}

imports() {
  local names
  names=$("${NM:-nm}" -D --undefined-only "$LIBRARY" | awk '{ print $NF }')
  has "$names" '^__stack_chk_fail' || fault "no stack protector: compile with -fstack-protector-strong"
  if [[ $KIND == --optimised ]]; then
    has "$names" '^__[a-z]+printf_chk' || fault "no fortified calls: compile with -D_FORTIFY_SOURCE=2"
  fi
  ! has "$names" '^__cxa_(thread_)?atexit' ||
    fault "something is destroyed at exit: leave globals without destructors"
}

# The compiler has one entry each of its own, frame_dummy and __do_global_dtors_aux, and on Arm one
# more that looks for the processor's atomic instructions.
load_time() {
  local section size own
  for section in init fini; do
    size=$("$READELF" -SW "$LIBRARY" | sed 's/^ *\[[^]]*\]//' |
      awk -v name=".${section}_array" '$1 == name { print $5 }')
    own=1
    if [[ $section == init ]] && has "$("${NM:-nm}" "$LIBRARY")" ' t init_have_lse_atomics$'; then
      own=2
    fi
    [[ $((16#${size:-0})) -le $((own * POINTER)) ]] ||
      fault "code runs when it is loaded or unloaded (.${section}_array): make the global constexpr"
  done
}

stripped_size() {
  local stripped size
  stripped=$(mktemp)
  "${STRIP:-strip}" -o "$stripped" "$LIBRARY"
  size=$(stat -c %s "$stripped")
  rm "$stripped"
  echo "hardening: $size bytes when stripped"
  [[ $size -lt $MAX_STRIPPED ]] || fault "that is not under $MAX_STRIPPED"
}

segments
imports
load_time
if [[ $KIND == --optimised ]]; then
  stripped_size
fi
[[ $faults -eq 0 ]]
