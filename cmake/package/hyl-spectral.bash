# SPDX-License-Identifier: Apache-2.0
# bash completion for hyl-spectral, which knows itself what fits.
_hyl_spectral() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  if [[ $previous =~ ^(--plot|--replay|record)$ ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    compopt -o filenames 2>/dev/null
    return
  fi
  # The tool gets the word as the shell would hand it on, but for a quote that is still open.
  local plain=${current#[\"\']}
  mapfile -t COMPREPLY < <("$1" --complete "${COMP_WORDS[@]:1:COMP_CWORD-1}" "${plain//\\/}" 2>/dev/null)
  if [[ ${#COMPREPLY[@]} -gt 0 && $plain == "$current" ]]; then
    mapfile -t COMPREPLY < <(printf '%q\n' "${COMPREPLY[@]}")
  fi
  if [[ $previous == --set ]]; then
    compopt -o nospace 2>/dev/null # a value follows
  fi
}

complete -F _hyl_spectral hyl-spectral
