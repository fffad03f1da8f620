#!/usr/bin/env bash
# The metrics and the alert rules with the real Prometheus and node exporter: a simulated host loses all NICs, and the
# alert fires; it gets them back, and the alert clears.
# Argument: the build's folder.
set -uo pipefail
build=$(realpath "$1")
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
export PATH="$build/programs/oxrctl:$build/programs/ostrel-simhost:$PATH"
rules=$PWD/packaging/prometheus/ostrel-alerts.yml
folder=$(mktemp -d)
trap 'kill ${HOST_PID:-} $(jobs -p) 2>/dev/null; wait; rm -rf "$folder"' EXIT
fail() {
    echo "FAILED $*"
    exit 1
}

# --- by promtool alone ------------------------------------------------------------------------------------------
promtool check rules "$rules" || fail "the rules"
sed "s#OSTREL_ALERTS#$rules#" tests/e2e/ostrel-alerts-test.yml >"$folder/rules-test.yml"
promtool test rules "$folder/rules-test.yml" || fail "what the rules say"
for reason in $(grep -oE 'oxrctl explain [a-z_]+' "$rules" | awk '{ print $3 }' | sort -u); do
    oxrctl explain "$reason" | grep -q '^  Health' || fail "a rule points to $reason, which nobody explains"
done
for scenario in demo full hazards/two-volumes-on-a-target hazards/stuck-logins; do
    ostrel-simhost "$scenario" --root "$folder/${scenario//\//-}" >"$folder/out" 2>&1
    mkdir -p "$folder/logs/${scenario//\//-}"
    cp "$folder/${scenario//\//-}"/var/log/ostrel/oxr.log* "$folder/logs/${scenario//\//-}"
done
oxrctl status --metrics "$folder/fleet.prom" --per-volume "$folder/logs" || fail "the metrics of a fleet"
promtool check metrics <"$folder/fleet.prom" || fail "the format of the metrics"

# --- with the servers -------------------------------------------------------------------------------------------
cat >"$folder/host.toml" <<'END'
run_for = "24h"
config_file = "# ours\ninterval=60\nuse_ostrel_timeouts=1\n"
[[adapter]]
name = "vmhba64"
nics = ["10.0.1.1", "10.0.1.2"]
[[group]]
name = "g"
discovery_ip = "10.0.9.1"
arrays = [{ name = "a1", data_ips = ["10.0.9.101"] }]
[[volumes]]
name = "db-#"
count = 2
group = "g"
END
port=$((20000 + $$ % 10000))
mkdir "$folder/textfile"
cat >"$folder/prometheus.yml" <<END
global: { scrape_interval: 1s, evaluation_interval: 1s }
rule_files: ["$rules"]
scrape_configs: [{ job_name: node, static_configs: [{ targets: ["127.0.0.1:$port"] }] }]
END
prometheus-node-exporter --web.listen-address="127.0.0.1:$port" --collector.disable-defaults --collector.textfile \
    --collector.textfile.directory="$folder/textfile" >"$folder/exporter.log" 2>&1 &
prometheus --web.listen-address="127.0.0.1:$((port + 1))" --config.file="$folder/prometheus.yml" \
    --storage.tsdb.path="$folder/data" >"$folder/prometheus.log" 2>&1 &
coproc HOST { ostrel-simhost "$folder/host.toml" --events --speed 60 --root "$folder/host" >"$folder/out" 2>&1; }
exec {events}>&"${HOST[1]}"
log=$folder/host/var/log/ostrel/oxr.log

# Waits, at most two minutes, until the alert is firing ("1") or not ("").
wait_for_alert() {
    local found
    for _ in $(seq 120); do
        [ ! -e "$log" ] || oxrctl status --metrics "$folder/textfile/ostrel.prom" "esx-1=$log"
        found=$(curl -s "http://127.0.0.1:$((port + 1))/api/v1/query" --data-urlencode \
            'query=count(ALERTS{alertname="OstrelVolumeWithoutPath",alertstate="firing",host="esx-1"})
                   or on() vector(0) and on() ostrel_passes_total{host="esx-1"} > 1' |
            grep -oE '"[01]"\]' | tr -d '"]')
        [ "$found" = "$1" ] && return
        sleep 1
    done
    tail -n 5 "$folder/out" "$folder/exporter.log" "$folder/prometheus.log" "$folder/textfile/ostrel.prom"
    fail "$2"
}
wait_for_alert 0 "no metrics of a host that is well"
printf 'nic_down = "10.0.1.1"\nnic_down = "10.0.1.2"\n' >&"$events"
wait_for_alert 1 "no alert for a host that has lost its paths"
printf 'nic_up = "10.0.1.1"\nnic_up = "10.0.1.2"\n' >&"$events"
wait_for_alert 0 "the alert goes on though the paths are back"
echo "prometheus: fine"
