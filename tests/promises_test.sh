#!/usr/bin/env bash
# Every test that a document names, as `Suite.Test` or `Suite`, must be there.
# Usage: promises_test.sh DOCUMENT TEST-SOURCE...
set -euo pipefail

readonly DOCUMENT=$1
shift
tests=$(sed -nE 's/^TEST(_F|_P)?\((\w+), *(\w+)?.*/\2.\3/p' "$@")
# shellcheck disable=SC2016 # backticks are the document's
readonly NAME='`[A-Z]\w*Tests?(\.\w+)?`'
missing=0
count=0
while read -r name; do
  count=$((count + 1))
  if ! grep -qE "^${name/./\\.}(\.|\$)" <<<"$tests"; then
    echo "promises: $DOCUMENT names $name, which is not there" >&2
    missing=1
  fi
done < <(grep -oE "$NAME" "$DOCUMENT" | tr -d '`' | sort -u)
# A row of the first table names what shows it: a test, a script, or a test of the built file.
# shellcheck disable=SC2016
if sed '/^## Bad input/,$d' "$DOCUMENT" | grep '^| [A-Z0-9]' | grep -vE '\| .*`[^`]+`.* \|$'; then
  echo "promises: nothing shows the promise above" >&2
  missing=1
fi
echo "promises: $count tests are named in $DOCUMENT"
[[ $count -gt 0 && $missing -eq 0 ]]
