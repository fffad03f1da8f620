#!/usr/bin/env bash
# Goes through docs/cim.md with a WBEM client, on a simulated host: each command there answers what stands below it.
# Arguments: ostrel-simhost, the library. The exit code is 77 where there is no client.
#
# In the document's blocks, "$ " begins a command, "# " an event of the host, and "..." stands for any text.
set -o pipefail
command -v wbemcli >/dev/null && command -v curl >/dev/null || { echo "no wbemcli or no curl"; exit 77; }

work=$(mktemp -d)
said=$work/said
mkdir "$work/root"
coproc HOST {
    exec "$1" cim --library "$2" --root "$work/root" --speed 60 --cim 127.0.0.1:0 --events --json >"$said"
}
host_pid=$HOST_PID
trap 'kill "$host_pid" 2>/dev/null; rm -rf "$work"' EXIT
checks=0
failures=0
events=0

# told NUMBER PATTERN: the host tells so many lines that match.
told() {
    local waits
    for waits in {1..600}; do
        [ "$(grep -cE -- "$2" "$said")" -ge "$1" ] && return
        kill -0 "$host_pid" 2>/dev/null || break
        sleep 0.1
    done
    echo "host: no $2 after $waits looks"
    exit 1
}

# expect NAME PATTERN TEXT: the text matches the pattern of the shell.
expect() {
    checks=$((checks + 1))
    # shellcheck disable=SC2053
    [[ $3 == $2 ]] && return
    failures=$((failures + 1))
    printf 'FAILED %s: expected\n%s\nfound\n%s\n' "$1" "$2" "$3"
}

# The command that was read last and the lines below it.
command=''
expected=''
run_command() {
    if [ -n "$command" ]; then
        eval "$command" >"$work/answer" 2>&1 </dev/null
        expect "$command" "$(sed 's/[][*?\\]/\\&/g; s/\.\.\./*/g' <<<"$expected")" "$(<"$work/answer")"
    fi
    command=''
    expected=''
}

told 1 '"type":"serving"'
port=$(sed -nE '/"type":"serving"/s/.*"url":"[^"]*:([0-9]+)".*/\1/p' "$said")
in_block=false
while IFS= read -r line; do
    if [[ $line == '```' ]]; then
        run_command
        $in_block && in_block=false || in_block=true
    elif ! $in_block; then
        continue
    elif [[ $command == *"<<'END'"* && $command != *$'\nEND' ]]; then
        command+=$'\n'$line
    elif [[ $line == '$ '* ]]; then
        run_command
        command=${line#'$ '}
    elif [[ $line == '# '* ]]; then
        run_command
        echo "${line#'# '}" >&"${HOST[1]}"
        told $((++events)) '"kind":"action"'
    else
        expected+=$line$'\n'
    fi
done < <(sed "s#localhost:5988#localhost:$port#g; s#/tmp/host#$work/root#g" "${BASH_SOURCE[0]%/*}/../../docs/cim.md")

echo 'nic_down = "10.0.0.0"' >&"${HOST[1]}"
told 1 'event refused: event.nic_down: expected the address of a NIC'
kill "$host_pid"
wait "$host_pid"
expect "the host's end" 0 $?
expect "the host's invariants" '*"violations":\[]*' "$(tail -n 1 "$said")"
echo "$checks checks, $failures failed"
[ "$failures" -eq 0 ]
