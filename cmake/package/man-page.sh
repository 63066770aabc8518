#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Prints the man page of the tool, which is made of its --help. Usage: man-page.sh TOOL
set -euo pipefail

readonly TOOL=$1

# A section for each command, in the format of help2man's --include.
sections() {
  local command
  for command in $("$TOOL" --complete ""); do
    printf '[HYL-SPECTRAL %s]\n.nf\n' "${command^^}"
    "$TOOL" "$command" --help | sed 's/\\/\\e/g; s/-/\\-/g; s/^[.'\'']/\\\&&/'
    printf '.fi\n'
  done
}

help2man --no-info --name "show and set the optical sensors of this device" \
  --include <(sections) "$TOOL"
