#!/usr/bin/env bash
# Fails when one of the headers leaves a macro defined that a header below ROOT has made.
# Usage: macro_leaks_test.sh ROOT COMPILER FLAG... -- HEADER...
set -euo pipefail

root=$1
shift
compile=()
while [[ $1 != -- ]]; do
  compile+=("$1")
  shift
done
shift

macros_of() { # HEADER...
  printf '#include <%s>\n' "$@" | "${compile[@]}" -E -dD -x c++ - | awk -v root="$root/" '
    /^# [0-9]+ "/ { ours = index($3, "\"" root) == 1 }
    /^#define / && ours { split($2, part, "("); defined[part[1]] = $0 }
    /^#undef / { delete defined[$2] }
    END { for (name in defined) print defined[name] }'
}

if [[ -z $(macros_of hyl/thread_annotations.h) ]]; then
  echo "Macros of the project's headers are not seen."
  exit 1
fi
leaks=$(macros_of "$@")
if [[ -n $leaks ]]; then
  printf 'Macros left by the headers:\n%s\n' "$leaks"
  exit 1
fi
