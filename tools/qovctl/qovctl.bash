# Completion of qovctl for bash. Commands, options and kinds of messages are those that its own help
# lists.

# Prints the commands of `qovctl <command>...`.
_qovctl_commands() {
  "$@" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p'
}

# Prints the long options of `qovctl <command>`.
_qovctl_options() {
  "$1" "$2" --help 2>/dev/null | sed -n 's/^  \(-[a-z],\)\{0,1\}\(--[a-z-]*\).*/\2/p'
}

_qovctl() {
  local program="${COMP_WORDS[0]}" command="${COMP_WORDS[1]}"
  local word="${COMP_WORDS[COMP_CWORD]}" before="${COMP_WORDS[COMP_CWORD - 1]}"
  local words=
  COMPREPLY=()
  # bash takes --option=value for three words.
  if [ "$word" = = ]; then
    word=
  elif [ "$before" = = ]; then
    before="${COMP_WORDS[COMP_CWORD - 2]}"
  fi
  case "$COMP_CWORD $before" in
    '1 '*) words="--help $(_qovctl_commands "$program")" ;;
    *' --table') words="interfaces mounts processes" ;;
    *' --kind') words="$("$program" decode --help 2>/dev/null | sed -n 's/.*--kind TEXT:{\(.*\)}.*/\1/p' | tr , ' ')" ;;
    *' --root')
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -d -- "$word")
      return
      ;;
    *' --endpoint' | *' --socket' | *' --timeout' | *' --process' | *' --after' | *' --command' | *' --cell' | *' --text') return ;;
    *)
      case "$command $word" in
        *' -'*) words="$(_qovctl_options "$program" "$command")" ;;
        'get '*) words=counts ;;
        'agent '*)
          if [ "$before" = module ]; then
            command="agent module"
          fi
          # shellcheck disable=SC2086 # one or two words
          words="$(_qovctl_commands "$program" $command)"
          ;;
        'send '* | 'decode '*)
          compopt -o filenames 2>/dev/null
          mapfile -t COMPREPLY < <(compgen -f -- "$word")
          return
          ;;
      esac
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}

complete -F _qovctl qovctl
