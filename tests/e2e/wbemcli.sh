#!/usr/bin/env bash
# What an administrator does with a WBEM client, on a simulated host. Arguments: ostrel-simhost, the library.
# Each command and its answer are printed; the exit code is 77 where there is no client.
set -uo pipefail
command -v wbemcli >/dev/null && command -v curl >/dev/null || { echo "no wbemcli or no curl"; exit 77; }

work=$(mktemp -d)
root=$work/root
said=$work/said
mkdir "$root"
coproc HOST {
    exec "$1" cim --library "$2" --root "$root" --speed 200 --cim 127.0.0.1:0 --events --json >"$said"
}
host_pid=$HOST_PID
trap 'kill "$host_pid" 2>/dev/null; rm -rf "$work"' EXIT

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
told 1 '"type":"serving"'
port=$(sed -nE '/"type":"serving"/s/.*"url":"[^"]*:([0-9]+)".*/\1/p' "$said")
space="http://localhost:$port/ostrel/cimv2"
service="$space:OSTREL_ConnectionService"
setting="$space:OSTREL_ConnectionServiceSetting"
association="$space:OSTREL_ConnectionServiceAssocSetting"
the_service="$service.name=\"OSTREL Connection Service\""
interval="$setting.name=\"interval\",InstanceId=\"interval\""
conf=$root/etc/ostrel/oxr.conf
iqn=iqn.2012-07.com.ostrel
log=$root/var/log/ostrel/oxr.log
checks=0
failures=0
events=0

# make EVENT: it happens on the host.
make() {
    echo "$1" >&"${HOST[1]}"
    events=$((events + 1))
    told "$events" '"kind":"action"'
}

# expect NAME PATTERN TEXT: the text holds the extended regular expression.
expect() {
    checks=$((checks + 1))
    if ! grep -qE -- "$2" <<<"$3"; then
        failures=$((failures + 1))
        printf 'FAILED %s: expected %s in\n%s\n' "$1" "$2" "$3"
    fi
}

# cli NAME PATTERN ARGUMENTS: a wbemcli command and what it must print.
cli() {
    local name=$1 pattern=$2 answer
    shift 2
    answer=$(timeout 120 wbemcli "$@" 2>&1)
    printf '$ wbemcli%s\n%s\n' "$(printf " '%s'" "$@")" "$answer"
    expect "$name" "$pattern" "$answer"
}

# lines NAME NUMBER ARGUMENTS: a wbemcli command and how many lines it must print.
lines() {
    local name=$1 number=$2
    shift 2
    expect "$name" "^$number\$" "$(timeout 60 wbemcli "$@" 2>&1 | grep -c .)"
}

# renew STATUS NAME VALUE TARGETS...: a renewal and its OXD status.
renew() {
    local status=$1 paramname=$2 paramvalue=$3
    shift 3
    local targets
    targets=$(printf ',"%s"' "$@")
    cli "renewal with status $status" "oxd_status\"[^>]*><VALUE>$status</VALUE>" cmx "$setting" \
        "renewiscsiconnections.targets=${targets:1},paramname=\"$paramname\",paramvalue=\"$paramvalue\""
}

# call NAME PATTERN METHOD PARAMETERS: a method call as XML, for what the client can't say.
call() {
    local answer
    answer=$(curl -sS --max-time 60 -H 'Content-Type: application/xml' -H 'CIMOperation: MethodCall' --data-binary @- \
        "http://localhost:$port/cimom" <<EOF
<?xml version="1.0" encoding="utf-8"?>
<CIM CIMVERSION="2.0" DTDVERSION="2.0"><MESSAGE ID="1" PROTOCOLVERSION="1.0"><SIMPLEREQ><METHODCALL NAME="$3">
<LOCALCLASSPATH><LOCALNAMESPACEPATH><NAMESPACE NAME="ostrel"/><NAMESPACE NAME="cimv2"/></LOCALNAMESPACEPATH>
<CLASSNAME NAME="OSTREL_ConnectionServiceSetting"/></LOCALCLASSPATH>$4</METHODCALL></SIMPLEREQ></MESSAGE></CIM>
EOF
    )
    expect "$1" "$2" "$answer"
}

# --- looking ---------------------------------------------------------------------------------------------------
cli "class names" 'OSTREL_ConnectionServiceAssocSetting' ecn "$space"
cli "class" 'minimum=,maximum=' gc "$setting"
cli "service" 'version="oxd:2\.0\.1 psp:1\.4\.0"' ei "$service"
cli "service by its superclass" 'OSTREL_ConnectionService\.name' ein "$space:CIM_Service"
cli "one service" 'version="2\.0\.1"' gi "$the_service"
cli "settings" 'vol_sessions.*value=0,minimum=2,maximum=8' ei "$setting"
cli "one property" 'InstanceId="interval" value=120$' ei "$setting" value
cli "one setting" 'name="interval"' gi "$interval"
cli "unknown class" 'CIM_ERR_INVALID_CLASS' ei "$space:Nobody"
cli "unknown namespace" 'CIM_ERR_INVALID_NAMESPACE' ei "http://localhost:$port/other/space:CIM_Service"
cli "deletion" 'CIM_ERR_NOT_SUPPORTED' di "$interval"
lines "profile" 0 ei "$space:OSTREL_RegisteredProfile"

# --- the association, both ways --------------------------------------------------------------------------------
cli "association" 'SettingData=.*interval' ei "$association"
lines "settings of the service" 2 ai "$the_service"
lines "settings by role" 2 ain -ar ManagedElement -arr SettingData "$the_service"
lines "no settings by a class as role" 0 ai -ar OSTREL_ConnectionService "$the_service"
cli "service of a setting" 'OSTREL_ConnectionService\.name' ain "$interval"
lines "references of the service" 2 ri "$the_service"
lines "reference names by superclass" 2 rin -arc CIM_ElementSettingData "$the_service"
lines "references by superclass" 0 ri -arc CIM_ElementSettingData "$the_service"
cli "associations of a class" 'CIM_ERR_NOT_SUPPORTED' ain "$service"
cli "method without a value" 'Parse Exception: Expecting /METHODRESPONSE' cm "$service" startservice
cli "unknown result class" 'CIM_ERR_INVALID_PARAMETER' ai -arc Nobody "$the_service"

# --- the service -----------------------------------------------------------------------------------------------
cli "stop" '<METHODRESPONSE NAME="stopservice"/>' cmx "$service" stopservice
expect "log after the stop" 'do_work thread killed' "$(tail -n 20 "$log")"
cli "start" '<METHODRESPONSE NAME="StartService"/>' cmx "$service" StartService
expect "log after the start" 'Creating worker thread' "$(tail -n 20 "$log")"
# No look at the volumes comes between what follows.
cli "stop for what follows" '<METHODRESPONSE NAME="stopservice"/>' cmx "$service" stopservice
rm -f "$root/etc/ostrel/.lock"

# --- settings --------------------------------------------------------------------------------------------------
for good in interval=60 interval=604800 vol_sessions=2 vol_sessions=8 interval=300; do
    cli "set $good" '<METHODRESPONSE NAME="setvalue"/>' cmx "$setting" "setvalue.name=\"${good%=*}\",value=${good#*=}"
    expect "file after $good" "^$good\$" "$(cat "$conf")"
done
for bad in interval=59 interval=604801 vol_sessions=1 vol_sessions=9 vol_sessions=0; do
    cli "set $bad" "CODE=\"4\".*${bad%=*} is out of range" cmx "$setting" \
        "setvalue.name=\"${bad%=*}\",value=${bad#*=}"
done
cli "unknown setting" 'CIM_ERR_NOT_FOUND.*can be "interval" or "vol_sessions"' cm "$setting" 'setvalue.name="log_level",value=2'
cli "no number" 'CIM_ERR_INVALID_PARAMETER' cm "$setting" 'setvalue.name="interval",value="soon"'
cli "unknown method" 'CIM_ERR_METHOD_NOT_FOUND' cm "$setting" nothing
expect "file after refusals" '^interval=300$' "$(cat "$conf")"
cli "settings seen" 'name="interval".*value=300' ei "$setting"

# --- renewals, every OXD status --------------------------------------------------------------------------------
renew 0 "" "" "$iqn:ok"
renew 2 "" "" "$iqn:nobody"
make 'drop_sessions = { target = "single", count = 3 }'
renew 4 "" "" "$iqn:ok" "$iqn:single" "$iqn:nobody"
renew 5 "" "" "$iqn:one-nic"
renew 1 iscsidigest enable "$iqn:ok"
make 'digests = { adapter = "vmhba64", on = true }'
renew 0 iSCSIdigest Enable "$iqn:ok"
expect "digests are on" "digest successfully enabled for target $iqn:ok" "$(tail -n 20 "$log")"
make 'digests = { adapter = "vmhba64", on = false }'
renew 0 iscsidigest disable "$iqn:ok"
expect "digests are off" "digest successfully disabled for target $iqn:ok" "$(tail -n 20 "$log")"
make 'fault = { operation = "IMA_VMW_RemoveSession", persistent = true }'
renew 6 "" "" "$iqn:ok"
make 'clear_faults = true'
make 'fault = { operation = "psp.5", persistent = true, status = 8 }'
renew 8 "" "" "$iqn:ok"
make 'clear_faults = true'
sed -i 's/^worker_stop=.*/worker_stop=1/' "$conf"
renew 9 "" "" "$iqn:ok"
sed -i 's/^worker_stop=.*/worker_stop=0/' "$conf"
: >"$root/etc/ostrel/.lock"
renew 10 "" "" "$iqn:ok"
rm -f "$root/etc/ostrel/.lock"
make 'fail_logins = true'
renew 7 "" "" "$iqn:ok"
make 'fail_logins = false'
make 'set_state = { target = "down", state = "IN_LOGIN" }'
renew 3 "" "" "$iqn:down"

# --- what only XML can say -------------------------------------------------------------------------------------
array() { echo "<PARAMVALUE NAME=\"targets\"><VALUE.ARRAY>$1</VALUE.ARRAY></PARAMVALUE>"; }
nulls='<PARAMVALUE NAME="paramname"/><PARAMVALUE NAME="paramvalue"/>'
one="<VALUE>$iqn:nobody</VALUE>"
call "null arguments" 'oxd_status"[^>]*><VALUE>2</VALUE>.*<!-- Unknown status -->' renewiscsiconnections "$(array "$one")$nulls"
call "absent argument" 'CODE="4" DESCRIPTION="[^"]*paramname' renewiscsiconnections "$(array "$one")"
call "empty list" 'CODE="4" DESCRIPTION="NULL target IQN list passed"' renewiscsiconnections "$(array "")$nulls"
call "null in the list" 'CODE="4" DESCRIPTION="Invalid target IQN passed"' renewiscsiconnections "$(array "$one<VALUE.NULL/>")$nulls"
call "a comma in a name" '<VALUE>2</VALUE>' renewiscsiconnections "$(array "<VALUE>iqn.a,b</VALUE>")$nulls"
call "another type" 'CODE="4" DESCRIPTION="SetValue parameter &quot;value&quot; not specified"' setvalue \
    '<PARAMVALUE NAME="name"><VALUE>interval</VALUE></PARAMVALUE><PARAMVALUE NAME="value" PARAMTYPE="string"><VALUE>300</VALUE></PARAMVALUE>'
call "message of a success" '<!-- Succeeded! -->' setvalue \
    '<PARAMVALUE NAME="name"><VALUE>interval</VALUE></PARAMVALUE><PARAMVALUE NAME="value"><VALUE>120</VALUE></PARAMVALUE>'

echo 'nic_down = "10.0.0.0"' >&"${HOST[1]}"
told 1 'event refused: event.nic_down: expected the address of a NIC'
kill "$host_pid"
wait "$host_pid"
expect "the host's end" '^0$' $?
expect "no invariant broken" '"violations":\[\]' "$(tail -n 1 "$said")"
echo "$checks checks, $failures failed"
[ "$failures" -eq 0 ]
