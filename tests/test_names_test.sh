#!/usr/bin/env bash
# CTest's names of the tests of a build are the same in every run, and short enough for its lines.
# Usage: test_names_test.sh CTEST BUILD-FOLDER
set -euo pipefail

readonly LONGEST=56 # its lines then have 100 columns
names=$("$1" --test-dir "$2" -N | sed -nE 's/^ *Test +#[0-9]+: //p')
[[ -n $names ]] || { echo "test names: no test in $2" && exit 1; }
if grep -E "[^A-Za-z0-9_./-]|.{$((LONGEST + 1))}" <<<"$names"; then
  echo "test names: these are longer than $LONGEST characters, or print a value (see above)"
  exit 1
fi
