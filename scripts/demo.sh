#!/usr/bin/env bash
# demo.sh [FILE]: runs the key-value service and the command line tool on real data. Installs and builds what is missing,
# starts quilletd on a free port, loads FILE (KEY<TAB>VALUE or KEY=VALUE a line; the character names of
# examples/data when none is given), reads every entry back and compares it, fetches pages of a
# local web server and stores their headers, then measures a short load with one worker and with one a core.
set -euo pipefail
file=$(realpath "${1:-$(dirname "$0")/../examples/data/characters.tsv}")
cd "$(dirname "$0")/.."

scripts/setup.sh build demo
echo "build:   quilletd and vorn in build/release"
[ -f build/release/build.ninja ] || cmake --preset release >/dev/null
cmake --build --preset release --target quilletd vorn -- --quiet

work=$(mktemp -d)
service=
web=
cleanup() {
    [ -z "$service" ] || kill "$service" 2>/dev/null || true
    [ -z "$web" ] || kill "$web" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

fail() {
    echo "demo: failed: $1" >&2
    cat "$work/log" >&2
    exit 1
}

mkfifo "$work/ready"
start() { # OPTION...
    build/release/bin/quilletd --port 0 "$@" >"$work/ready" 2>"$work/log" &
    service=$!
    read -r -t 20 ready <"$work/ready" || fail "the service does not start"
    address=${ready#listening on }
}
end() {
    kill "$service"
    wait "$service" || fail "the service ended with code $?"
    service=
}
start
echo "service: quilletd on $address"

vorn=build/release/bin/vorn
store=$($vorn kv "$address" new) || fail "no store"
kv() { $vorn kv --store "$store" "$address" "$@"; }
loaded=$(kv load "$file") || [ $? = 1 ] || fail "load" # 1: some lines are no entries, and said so
echo "load:    $loaded"
compared=$(kv check "$file") || fail "what is read back differs"
echo "check:   $compared"
entries=$(kv list | wc -l)
echo "list:    $entries entries"
[ "$entries" = "${compared%% *}" ] || fail "the listing has another number of entries"
[ "$entries" -gt 0 ] || fail "there is no entry in $file"
kv purge

# Pages of a real web server: their headers become entries of a store.
python3 -u -m http.server 0 --bind 127.0.0.1 --directory docs >"$work/web" 2>/dev/null &
web=$!
for _ in $(seq 100); do
    port=$(sed -n 's/^Serving HTTP on .* port \([0-9]*\).*/\1/p' "$work/web")
    [ -z "$port" ] || break
    sleep 0.1
done
[ -n "$port" ] || fail "the web server does not start"
store=$($vorn kv "$address" new) || fail "no store"
for page in docs/*.md; do
    name=$(basename "$page")
    $vorn fetch -v -o "$work/page" "http://127.0.0.1:$port/$name" 2>"$work/head" || fail "fetch $name"
    cmp -s "$page" "$work/page" || fail "$name came over differently"
    sed -n "s|^\([^:]*\): *\(.*\)|$name \1\t\2|p" "$work/head"
done >"$work/headers"
kv load "$work/headers" >/dev/null && kv check "$work/headers" >/dev/null || fail "the headers of the pages"
length=$(kv get "architecture.md Content-Length") || fail "no length of a page"
[ "$length" = "$(wc -c <docs/architecture.md)" ] || fail "Content-Length is $length"
echo "fetch:   $(ls docs/*.md | wc -l) pages over HTTP, $(wc -l <"$work/headers") header lines stored and read back"
kv purge
kill "$web"
web=

end

many=$(nproc)
[ "$many" -gt 1 ] || many=2
rates=
for workers in 1 "$many"; do
    start --workers "$workers"
    echo
    echo "load:    8 connections, $workers worker(s), $(nproc) core(s) for both sides"
    $vorn kv bench --connections 8 --seconds 3 "$address" | tee "$work/bench" || fail "load"
    rates="$rates, $(awk '$1 == "all" { print $3 }' "$work/bench") operations a second with $workers worker(s)"
    end
done
echo
echo "demo: passed: $entries entries of $(basename "$file") stored and read back equal$rates, clean end"
