#!/usr/bin/env python3
"""Pairs the benchmark cases of this library with their counterparts and
prints a Markdown table of medians and ratios.

Input: JSON files written by Google Benchmark (--benchmark_format=json or
--benchmark_out). A case is registered as "<family>/<case>/ej" and
"<family>/<case>/<counterpart>". With repetitions the median aggregate is used,
otherwise the single run. Times are CPU times of the (single) benchmark thread,
which the other load of a shared machine disturbs less than wall time.
"""
import json
import math
import sys
from collections import OrderedDict

RESAMPLING = ("nearest", "bilinear", "bicubic", "area")
ORDER = RESAMPLING + ("lsc", "linalg", "parse")


def ms(value):
    return f"{value:.4g}"


def load(paths):
    medians, singles = OrderedDict(), OrderedDict()
    context = None
    for path in paths:
        with open(path) as f:
            data = json.load(f)
        context = context or data.get("context", {})
        for b in data.get("benchmarks", []):
            name = b.get("run_name", b["name"])
            ms = b["cpu_time"] * {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}[b["time_unit"]]
            if b.get("run_type") == "aggregate":
                if b.get("aggregate_name") == "median":
                    medians[name] = ms
            else:
                singles.setdefault(name, ms)
    times = OrderedDict((n, medians.get(n, t)) for n, t in singles.items())
    for n, t in medians.items():
        times.setdefault(n, t)
    return times, context or {}


def geomean(values):
    return math.exp(sum(math.log(v) for v in values) / len(values)) if values else float("nan")


def main(paths):
    times, context = load(paths)
    cases = OrderedDict()
    # Family order, then case names (the runs come in random order).
    def rank(name):
        family = name.partition("/")[0]
        return (ORDER.index(family) if family in ORDER else len(ORDER), name)
    for name in sorted(times, key=rank):
        key, _, side = name.rpartition("/")
        cases.setdefault(key, {})[side] = times[name]
    print("| family | case | this library (ms) | counterpart | counterpart (ms) | ratio |")
    print("|---|---|---:|---|---:|---:|")
    by_family = OrderedDict()
    for key, sides in cases.items():
        family, _, case = key.partition("/")
        ours = sides.get("ej")
        others = [(s, t) for s, t in sides.items() if s != "ej"]
        if ours is None:
            continue
        if not others:
            print(f"| {family} | {case} | {ms(ours)} | - | - | - |")
            continue
        ref_name, ref = others[0]
        ratio = ours / ref
        by_family.setdefault(family, []).append(ratio)
        print(f"| {family} | {case} | {ms(ours)} | {ref_name} | {ms(ref)} | {ratio:.2f} |")
    print()
    print("| family | cases | worst ratio | geometric mean |")
    print("|---|---:|---:|---:|")
    resampling = []
    for family, ratios in by_family.items():
        print(f"| {family} | {len(ratios)} | {max(ratios):.2f} | {geomean(ratios):.2f} |")
        if family in RESAMPLING:
            resampling += ratios
    if resampling:
        print(f"| all resampling | {len(resampling)} | {max(resampling):.2f} | {geomean(resampling):.2f} |")
    parse = sorted(((int("".join(ch for ch in k.split("/")[1] if ch.isdigit()) or 0), s["ej"])
                    for k, s in cases.items() if k.startswith("parse/") and "ej" in s))
    if len(parse) > 1:
        print()
        print("Parse cost per added lens-shading set (linearity):")
        print()
        print("| from | to | ms per added set |")
        print("|---:|---:|---:|")
        for (n0, t0), (n1, t1) in zip(parse, parse[1:]):
            print(f"| {n0} | {n1} | {ms((t1 - t0) / (n1 - n0))} |")
    if context:
        print()
        print(f"Host: {context.get('host_name', '?')}, {context.get('num_cpus', '?')} CPUs at "
              f"{context.get('mhz_per_cpu', '?')} MHz, load average {context.get('load_avg', '?')}")


if __name__ == "__main__":
    main(sys.argv[1:])
