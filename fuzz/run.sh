#!/usr/bin/env bash
# Builds one fuzz target with clang (libFuzzer + AddressSanitizer +
# UndefinedBehaviorSanitizer) and fuzzes it, seeded with the committed corpus.
#
#   fuzz/run.sh TARGET SECONDS [extra libFuzzer flags...]
#
# TARGET is one of the names in fuzz/CMakeLists.txt (init, record, ...). New
# inputs go to a scratch directory (build-fuzz/work/TARGET/new), never into
# the committed corpus; crashes are written to build-fuzz/work/TARGET/. The
# libFuzzer log is kept in build-fuzz/work/TARGET/fuzz.log. To keep a small,
# interesting new input, merge it into the corpus by hand:
#   build-fuzz/fuzz/ej_fuzz_TARGET -merge=1 fuzz/corpus/TARGET build-fuzz/work/TARGET/new
set -euo pipefail
cd "$(dirname "$0")/.."

if [ $# -lt 2 ]; then
    echo "usage: $0 TARGET SECONDS [libFuzzer flags...]" >&2
    exit 2
fi
target=$1
seconds=$2
shift 2

build=build-fuzz
work=$build/work/$target
corpus=fuzz/corpus/$target

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DEJ_SANITIZE=address,undefined -DEJ_BUILD_FUZZERS=ON \
    -DEJ_BUILD_TESTS=OFF -DEJ_BUILD_TOOLS=OFF -DEJ_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j2 --target "ej_fuzz_$target"

mkdir -p "$work/new"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
"$build/fuzz/ej_fuzz_$target" -max_total_time="$seconds" -print_final_stats=1 \
    -artifact_prefix="$work/" -max_len=65536 -rss_limit_mb=1024 "$@" \
    "$work/new" "$corpus" 2>&1 | tee "$work/fuzz.log"
