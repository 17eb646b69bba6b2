#!/usr/bin/env bash
# bench.sh [--short] [FAMILY...]: builds the benchmarks, runs those of the families named (all of them when none is) and
# prints each workload beside its baselines. --short runs each for a moment only: it shows that they work.
set -euo pipefail
cd "$(dirname "$0")/.."

options=(--benchmark_min_time=0.2 --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true)
if [ "${1:-}" = --short ]; then
    options=(--benchmark_min_time=0.001)
    shift
fi
scripts/setup.sh build bench
cmake --preset bench >/dev/null
cmake --build --preset bench -- --quiet

results=build/bench/results
mkdir -p "$results"
programs=()
for family in "$@"; do programs+=("build/bench/bench/${family}_bench"); done
[ ${#programs[@]} -gt 0 ] || programs=(build/bench/bench/*_bench)
for program in "${programs[@]}"; do
    file=$results/$(basename "$program").json
    "$program" "${options[@]}" --benchmark_out="$file" --benchmark_out_format=json >/dev/null
    python3 scripts/bench_table.py "$file"
done
