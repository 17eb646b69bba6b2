#!/bin/sh
# exported_names.sh LIBRARY MAP: the library exports what the version script names, and nothing else; that is every
# function which the headers around the script declare, but those of driver modules.
set -eu
listed=$(mktemp)
trap 'rm -f "$listed"' EXIT
sed -n 's/^ *\([A-Za-z_][A-Za-z_0-9]*\);$/\1/p' "$2" | sort > "$listed"
test -s "$listed"
nm -D --defined-only "$1" | awk '$2 != "A" && $2 != "N" { sub(/@.*/, "", $3); print $3 }' |
    grep -vE '^__(asan|odr_asan|ubsan|sancov|llvm|start|stop|gcov)' | sort | diff "$listed" -
grep -rhE --include='*.h' --exclude-dir=internal --exclude=driver.h '^[A-Za-z]' "$(dirname "$2")" |
    grep -vE '^(static|typedef)' | grep -oE '\bxp[a-z0-9_]+\(' | tr -d '(' | sort -u | comm -23 - "$listed" | diff /dev/null -
