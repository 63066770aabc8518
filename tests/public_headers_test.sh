#!/usr/bin/env bash
# Fails when one of the headers includes a header below ROOT that is none of them, or leaves a macro
# defined that a header below ROOT has made.
# Usage: public_headers_test.sh ROOT COMPILER FLAG... -- HEADER...
set -euo pipefail

root=$1
shift
compile=()
while [[ $1 != -- ]]; do
  compile+=("$1")
  shift
done
shift

preprocessed() { # HEADER...
  printf '#include "%s"\n' "$@" | "${compile[@]}" -E -dD -x c++ -
}

# Of the headers below ROOT.
included_by() { # HEADER...
  preprocessed "$@" | awk -F '"' -v root="$root/" '/^# [0-9]+ "/ && index($2, root) == 1 { print $2 }' |
    sort -u
}

macros_of() { # HEADER...
  preprocessed "$@" | awk -v root="$root/" '
    /^# [0-9]+ "/ { ours = index($3, "\"" root) == 1 }
    /^#define / && ours { split($2, part, "("); defined[part[1]] = $0 }
    /^#undef / { delete defined[$2] }
    END { for (name in defined) print defined[name] }'
}

if [[ -z $(macros_of "$root/v2/api/include/hyl/internal/thread_annotations.h") ]]; then
  echo "Macros of the project's headers are not seen."
  exit 1
fi
leaks=$(macros_of "$@")
others=$(comm -13 <(printf '%s\n' "$@" | sort -u) <(included_by "$@"))
if [[ -n $leaks$others ]]; then
  printf 'Macros left by the headers:\n%s\nOther headers that they include:\n%s\n' "$leaks" "$others"
  exit 1
fi
