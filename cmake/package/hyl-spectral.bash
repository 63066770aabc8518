# bash completion for hyl-spectral. The words come from the tool's own --help.

# The help of the command that has been typed so far; without one, that of the tool.
_hyl_spectral_help() {
  local word
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    case $word in
      list | stream | flicker | get | set)
        hyl-spectral "$word" --help 2>/dev/null
        return
        ;;
    esac
  done
  hyl-spectral --help 2>/dev/null
}

# Prints the first word of each indented line below a heading.
_hyl_spectral_names_below() {
  awk -v heading="$1" '$0 == heading { on = 1; next } /^[^ ]|^$/ { on = 0 } on { print $1 }'
}

# Prints what may follow an option, where the help has it as --option one|two.
_hyl_spectral_choices_of() {
  awk -v option="$1" '$1 == option && $2 ~ /^[a-z0-9-]+\|/ { gsub(/\|/, "\n", $2); print $2 }'
}

# Prints the words that may stand after the word $1, of which the next begins with $2.
_hyl_spectral_words() {
  local help choices
  help=$(_hyl_spectral_help)
  choices=$(_hyl_spectral_choices_of "$1" <<<"$help")
  if [[ -n $choices ]]; then
    echo "$choices"
  elif [[ $1 == --set ]]; then
    hyl-spectral set --help 2>/dev/null | _hyl_spectral_names_below Settings: | sed 's/$/=/'
  elif [[ $2 == -* ]]; then
    grep -oE '^ +(-.,)?--[a-z-]+' <<<"$help" | grep -oE -- '--[a-z-]+'
  else
    _hyl_spectral_names_below Subcommands: <<<"$help"
    _hyl_spectral_names_below Settings: <<<"$help"
  fi
}

_hyl_spectral() {
  local current=${COMP_WORDS[COMP_CWORD]}
  local previous=${COMP_WORDS[COMP_CWORD - 1]}
  if [[ $previous == --plot ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    return
  fi
  mapfile -t COMPREPLY < <(compgen -W "$(_hyl_spectral_words "$previous" "$current")" -- "$current")
  if [[ $previous == --set ]]; then
    compopt -o nospace 2>/dev/null # a value follows
  fi
}

complete -F _hyl_spectral hyl-spectral
