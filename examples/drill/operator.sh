# An operator's drill with the running agent; examples/run_demo sources this and has what it uses.

# asks <command> <extended regular expression>...: asks the agent, and looks for a line with each.
asks() {
  local command="$1" line
  shift
  answer="$("$qovctl" agent $command 2>&1)" || return 1
  for line; do
    grep -Eq -- "$line" <<<"$answer" || return 1
  done
}

# tells <words> <command> <extended regular expression>...: says so, asks until the agent's answer has
# a line with each, and prints that answer.
tells() {
  printf '\n  %s\n' "$1"
  shift
  wait_until 60 "qovctl agent $1 with $(printf '"%s" ' "${@:2}")" asks "$@"
  printf '  $ qovctl agent %s\n' "$1"
  sed 's/^./  &/' <<<"$answer"
}

# The file that the trace has written, which https://ui.perfetto.dev opens.
show_trace() {
  local slices
  slices="$(grep -c '"ph":"X"' -- "$root/trace.json")" || fail "the trace has no slices"
  printf '  %s slices of time are in %s/trace.json\n' "$slices" "$root"
}

drill() {
  local link="^127\.0\.0\.1:$port +"
  tells 'What runs here and since when, by which configuration; what its modules do; its link:' \
    status '^process +devagent, number 1, pid '"$agent_pid"'$' '^50 +drill ' "$link"'connected '
  tells 'One handler of the module drill takes its time, that of operation 16385:' \
    slow '^16385 +50 drill +1 '
  tells 'Now drill and its partner ask each other, and neither has a worker left that could answer:' \
    pending '^modules wait for each other: 50 drill -> 60 partner -> 50 drill$'
  tells 'All this on one screen, which is live without --once:' \
    'top --once' '^50 drill -> 60 partner -> 50 drill$' "$link"'connected '
  tells 'Where the time of the slowest of the requests of module collector goes:' \
    "trace --seconds 1 --module 20 -o $root/trace.json --text" '^ +title: request ' '^ +P[0-9]+->>P[0-9]+: '
  show_trace
  printf '\n  killing the endpoint at %s\n' "$(address_of 1)"
  end_endpoint KILL 137
  tells 'The endpoint is away, as the last line says:' \
    status "$link"'not connected .* Connection refused$'
}
