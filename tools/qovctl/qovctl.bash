# Completion of qovctl for bash. Commands, options and kinds of messages are those that its own help
# lists; tables and columns are those that it prints.

# Prints the commands of `qovctl <command>...`.
_qovctl_commands() {
  "$@" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p'
}

# Prints the long options of `qovctl <command>...`.
_qovctl_options() {
  "$@" --help 2>/dev/null | sed -n 's/^  \(-[a-z],\)\{0,1\}\(--[a-z-]*\).*/\2/p'
}

# _qovctl_after <option>: the word behind it on the command line.
_qovctl_after() {
  local i
  for ((i = 2; i < COMP_CWORD - 1; ++i)); do
    [ "${COMP_WORDS[i]}" = "$1" ] || continue
    [ "${COMP_WORDS[i + 1]}" != = ] || ((++i))
    printf '%s\n' "${COMP_WORDS[i + 1]}"
  done
}

# Prints the lines of `qovctl tables`, with the file that the command line names.
_qovctl_tables() {
  local file
  file="$(_qovctl_after --tables)"
  "$1" tables ${file:+--tables "$file"} 2>/dev/null | sed 1d
}

_qovctl() {
  local program="${COMP_WORDS[0]}" command="${COMP_WORDS[1]}"
  local word="${COMP_WORDS[COMP_CWORD]}" before="${COMP_WORDS[COMP_CWORD - 1]}"
  local words= deeper
  COMPREPLY=()
  # bash takes --option=value for three words.
  if [ "$word" = = ]; then
    word=
  elif [ "$before" = = ]; then
    before="${COMP_WORDS[COMP_CWORD - 2]}"
  fi
  case "$COMP_CWORD $before" in
    '1 '*) words="--help --version $(_qovctl_commands "$program")" ;;
    *' --table') words="$(_qovctl_tables "$program" | awk '!known[$1]++ { print $1 }')" ;;
    *' --columns')
      # The one that is being typed, behind those that are there.
      words="$(_qovctl_tables "$program" | awk -v table="$(_qovctl_after --table)" -v before="${word%"${word##*,}"}" \
        '$1 == table || $2 == table { print before $3 } END { print before "key" }')"
      ;;
    *' --kind') words="$("$program" decode --help 2>/dev/null | sed -n 's/.*--kind TEXT:{\(.*\)}.*/\1/p' | tr , ' ')" ;;
    *' --root')
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -d -- "$word")
      return
      ;;
    *' --tables' | *' -o' | *' --output' | *' --cafile' | *' --cert' | *' --key' | *' --password-file')
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
    *' --ssk' | *' --nid' | *' --bid' | *' --retries' | *' --endpoint' | *' --socket' | *' --timeout' | *' --process' | *' --after' | *' --command' | *' --cell' | *' --text' | *' --log-mib' | *' --interval' | *' --seconds' | *' --module' | *' --sn' | *' --broker' | *' --user' | *' --quiet' | *' --opc') return ;;
    *)
      case "$command $word" in
        *' -'*)
          words="$(_qovctl_options "$program" "$command")"
          # Behind these there are more of them.
          for deeper in bundle top trace list watch ask; do
            [[ "${COMP_WORDS[*]}" != *" $command "*"$deeper "* ]] ||
              words+=" $(_qovctl_options "$program" "$command" "$deeper")"
          done
          ;;
        'get '*) words=counts ;;
        'agent '*)
          if [ "$before" = module ]; then
            command="agent module"
          fi
          # shellcheck disable=SC2086 # one or two words
          words="$(_qovctl_commands "$program" $command)"
          ;;
        'fleet '*) [ "$COMP_CWORD" -ne 2 ] || words="$(_qovctl_commands "$program" fleet)" ;;
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
