#!/usr/bin/env python3
"""bench_table.py RESULTS.json: each workload of a benchmark run beside its baselines.

Benchmarks are named WORKLOAD/WHO[/ARGUMENT...]; WHO is vorncore or a baseline. The best of the repetitions counts. The
ratio is vorncore's time divided by the baseline's: below 1, vorncore is faster."""
import json
import os
import sys

run = json.load(open(sys.argv[1]))
best = {}
for row in run["benchmarks"]:
    if row.get("run_type") == "aggregate" or row.get("error_occurred"):
        continue
    workload, who, *arguments = row.get("run_name", row["name"]).split("/")
    arguments = [a for a in arguments if not a.endswith("_time") and not a.startswith("repeats:")]
    time = row["real_time"] * {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[row["time_unit"]]
    workload = " ".join([workload.replace("_", " "), *arguments])
    best.setdefault(workload, {}).setdefault(who, time)
    best[workload][who] = min(time, best[workload][who])


def shown(ns):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if ns >= size:
            return f"{ns / size:.3g} {unit}"
    return f"{ns:.3g} ns"


family = os.path.basename(sys.argv[1]).removesuffix("_bench.json")
print(f"\n### {family}\n\n| workload | vorncore | baseline | time | ratio |\n|---|---:|---|---:|---:|")
for workload, times in best.items():
    own = times.get("vorncore")
    if own is None:
        continue
    for who, time in times.items():
        if who != "vorncore":
            print(f"| {workload} | {shown(own)} | {who} | {shown(time)} | {own / time:.2f} |")
