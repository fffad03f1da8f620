#!/usr/bin/env bash
# Installs into an empty folder and unpacks the package: each registration's location names a file that loads, the
# links of the documents lead somewhere, and the request that starts the worker is answered.
# Argument: the build's folder.
set -uo pipefail
build=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"; kill $(jobs -p) 2>/dev/null' EXIT
failures=0
fail() { echo "FAILED $*"; failures=$((failures + 1)); }

cmake --install "$build" --prefix "$folder/installed" >"$folder/log" || fail "install: $(cat "$folder/log")"
# cpack works in the folder that it is called from.
(cd "$folder" && cpack --config "$build/CPackConfig.cmake" -G DEB -D CPACK_OUTPUT_FILE_PREFIX="$folder/package") \
    >"$folder/log" 2>&1 || fail "package: $(cat "$folder/log")"
dpkg-deb -x "$folder"/package/*.deb "$folder/unpacked" || fail "the package can't be unpacked"

for prefix in "$folder/installed" "$folder/unpacked/usr"; do
    locations=$(cd "$prefix/share/ostrel/cim" && { sed -n 's/^ *location: *//p' ./*.sections.reg; awk '!/^#/ && NF { print $4 }' ./*.lines.reg; })
    [ "$(wc -w <<<"$locations")" -eq 8 ] || fail "expected 8 registrations below $prefix, found: $locations"
    [ "$(grep -c 'unload: never' "$prefix"/share/ostrel/cim/*.sections.reg)" -eq 4 ] || fail "a section may be unloaded"
    for location in $(sort -u <<<"$locations"); do
        library=$(find "$prefix/lib" -name "lib$location.so")
        [ -n "$library" ] || fail "no lib$location.so below $prefix"
        "$prefix/bin/ostrel-simhost" --for 5m --library "$library" >"$folder/out" 2>&1 || fail "$library: $(cat "$folder/out")"
    done
    "$prefix/bin/ostrel-simhost" --help | grep -q "^upgrade.* $prefix/share/ostrel/scenarios/README.md" || fail "--help: $prefix"
    mv "$prefix/share/ostrel/scenarios" "$folder/elsewhere"
    "$prefix/bin/ostrel-simhost" demo --check >"$folder/out" 2>&1 && fail "scenarios that are not installed: $(cat "$folder/out")"
    mv "$folder/elsewhere" "$prefix/share/ostrel/scenarios"
    documents=$(dirname "$(find "$prefix/share/doc" -name operations.md)")
    while read -r link; do
        [ -e "$documents/$link" ] || fail "$documents has a link to $link"
    done < <(grep -hoE '\]\([^)#:]+' "$documents"/*.md | sed 's/](//' | sort -u)
    [ -n "$(find "$prefix" -name ostrel-start.8)" ] || fail "no manual of ostrel-start"
done

# --- a server that loads nothing by itself ------------------------------------------------------------------------
export OSTREL_START_PAUSE=0
start=$folder/installed/sbin/ostrel-start
"$start" http://127.0.0.1:1 >"$folder/out" 2>&1
[ $? -eq 1 ] || fail "ostrel-start without a server: $(cat "$folder/out")"
"$start" --nonsense 2>/dev/null
[ $? -eq 2 ] || fail "ostrel-start takes an option for a URL"
coproc HOST { "$folder/installed/bin/ostrel-simhost" cim --json --speed 60 --cim 127.0.0.1:0 --for 1h 2>&1; }
url=
while [ -z "$url" ] && read -r -t 20 line <&"${HOST[0]}"; do
    url=$(grep -oE 'http://127.0.0.1:[0-9]+' <<<"$line" | head -n 1)
done
answer=$("$start" "$url" 2>&1) || fail "ostrel-start at $url: $answer"
grep -q 'the service is loaded' <<<"$answer" || fail "ostrel-start: $answer"

[ "$failures" -eq 0 ] && echo "installed: fine"
