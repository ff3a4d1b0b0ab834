#!/usr/bin/env bash
# Builds the benchmark programs, runs them with repetitions in random
# interleaved order (so that slow phases of a shared machine spread over all
# cases) and prints a table of medians and ratios against the counterparts.
#
#   bench/run.sh [build-dir] [repetitions] [min-time-seconds] [filter]
#
# Defaults: build, 7 repetitions, 0.2 s per repetition, every case. The JSON
# results are kept in <build-dir>/bench/results.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
reps=${2:-7}
min_time=${3:-0.2}
filter=${4:-.}

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DEJ_BUILD_BENCH=ON >/dev/null
cmake --build "$build" -j2 --target bench_resample bench_lsc bench_parse >/dev/null

# The raw results stay in the build directory for a later look.
out="$build/bench/results"
rm -rf "$out"
mkdir -p "$out"
for program in bench_resample bench_lsc bench_parse; do
    "$build/bench/$program" \
        --benchmark_filter="$filter" \
        --benchmark_repetitions="$reps" \
        --benchmark_min_time="$min_time" \
        --benchmark_enable_random_interleaving=true \
        --benchmark_report_aggregates_only=true \
        --benchmark_out="$out/$program.json" --benchmark_out_format=json >/dev/null
done
python3 bench/summarise.py "$out"/*.json
