#!/usr/bin/env bash
# Compares the symbols that a library exports with a list.
# Usage: exports_test.sh LIBRARY LIST
set -euo pipefail

if ! diff <("${NM:-nm}" -D --defined-only "$1" | awk '{ print $NF }' | LC_ALL=C sort) "$2"; then
  echo "The exported symbols (<) are not those of $2 (>). Clients depend on them: keep what is" \
    "listed, hide what is new, or, for a new version of the interface, update the list."
  exit 1
fi
