#!/usr/bin/env bash
# demo.sh [FILE]: runs the key-value service and the command line tool on real data. Installs and builds what is missing,
# starts quilletd on a free port, loads FILE (KEY<TAB>VALUE or KEY=VALUE a line; the character names of
# examples/data when none is given), reads every entry back and compares it, fetches pages of a
# local web server and stores their headers, carries FILE through an XML document, digests and
# scrambles, then measures a short load with one worker and with one a core.
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

# The lines of the file as attributes of an XML document, found again by a path.
tr -d '\0' <"$file" | LC_ALL=C sed 's/&/\&amp;/g; s/</\&lt;/g; s/"/\&quot;/g; s/.*/<line text="&"\/>/' |
    (echo '<?xml version="1.0"?><lines>' && cat && echo '</lines>') >"$work/lines.xml"
$vorn xml --text "$work/lines.xml" lines/line/@text >"$work/lines" || fail "the XML document"
tr -d '\0' <"$file" | sed '$a\' | cmp -s - "$work/lines" || fail "the XML document gives other lines"
echo "xml:     $(wc -l <"$work/lines") lines of the file as a document of $(wc -c <"$work/lines.xml") bytes, found equal by path"

$vorn md5 docs/*.md "$work/lines.xml" >"$work/digests"
md5sum --quiet -c "$work/digests" && $vorn md5 -c "$work/digests" >/dev/null || fail "the digests"
echo "md5:     $(wc -l <"$work/digests") files digested, checked by vorn and by md5sum"

echo "a pass phrase" >"$work/phrase"
$vorn scramble --pass-file "$work/phrase" "$work/lines.xml" >"$work/scrambled"
$vorn scramble -d --pass-file "$work/phrase" "$work/scrambled" | cmp -s - "$work/lines.xml" || fail "scrambling and back"
! cmp -s "$work/lines.xml" "$work/scrambled" || fail "nothing is scrambled"
echo "scramble: $(wc -c <"$work/scrambled") bytes scrambled under a pass phrase, and back"

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
