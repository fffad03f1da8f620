#!/usr/bin/env bash
# What oxrctl prints with --json is as docs/oxrctl.schema.json says.
# Argument: the build's folder. The exit code is 77 where there is no validator.
set -uo pipefail
/usr/bin/python3 -c 'import jsonschema' 2>/dev/null || { echo "no python3-jsonschema"; exit 77; }
build=$(realpath "$1")
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
schema=$PWD/docs/oxrctl.schema.json
export PATH="$build/programs/oxrctl:$build/programs/ostrel-simhost:$PATH" PYTHONWARNINGS=ignore
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
failures=0
ostrel-simhost --root "$folder/host" --set log_level=2 >"$folder/said" || exit 1
log=$folder/host/var/log/ostrel/oxr.log
mkdir -p "$folder/logs/a"
cp "$log" "$folder/logs/a"
printf 'interval=5\n\xc2\xa0vol_sessions=3\r\n' >"$folder/odd.conf"
while read -r -a command; do
    oxrctl "${command[@]}" --json </dev/null >"$folder/answer" 2>/dev/null
    tried=$((${tried:-0} + 1))
    /usr/bin/python3 -m jsonschema -i "$folder/answer" "$schema" >"$folder/said" 2>&1 || {
        echo "FAILED oxrctl ${command[*]}"
        head -c 2000 "$folder/said"
        failures=$((failures + 1))
    }
done <<END
status $log
status --volume db-0* $log
status $folder/logs none=$folder/none
check $folder/host/etc/ostrel/oxr.conf
check $folder/odd.conf
explain 8
explain no_path
explain No sessions.
plan demo --for 10m
plan demo --what-if worker_stop=1 --for 10m
plan demo --what-if vol_sessions=31 --for 10m
plan --from-log $log --for 10m
END
echo '{"version": 1}' >"$folder/answer"
/usr/bin/python3 -m jsonschema -i "$folder/answer" "$schema" >/dev/null 2>&1 && { echo "FAILED anything fits"; failures=1; }
[ "$failures" -eq 0 ] && echo "schema: $tried answers fit"
