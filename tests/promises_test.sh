#!/usr/bin/env bash
# Every test that a document names, as `Suite.Test` or `Suite`, must be there, and each row of its
# first table must name what shows it: a test, a script, or a test of the built file.
# Usage: promises_test.sh DOCUMENT CTEST BUILD-FOLDER
set -euo pipefail

tests=$("$2" --test-dir "$3" -N)
# shellcheck disable=SC2016 # backticks are the document's
names=$(grep -oE '`[A-Z]\w*Tests?(\.\w+)?`' "$1" | tr -d '`' | sort -u)
missing=0
for name in $names; do
  if ! grep -qE "[ /]${name/./\\.}([./]|\$)" <<<"$tests"; then
    echo "promises: $1 names $name, which is not there" >&2
    missing=1
  fi
done
# shellcheck disable=SC2016
if sed '/^## Bad input/,$d' "$1" | grep '^| [A-Z0-9]' | grep -vE '\| .*`[^`]+`.* \|$'; then
  echo "promises: nothing shows the promise above" >&2
  missing=1
fi
[[ -n $names && $missing -eq 0 ]]
