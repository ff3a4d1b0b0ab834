#!/usr/bin/env bash
# Valgrind memcheck of the test programs of the optimised build: the unit
# tests, the shared-library tests and the corpus replay of every fuzz
# target. Any memory error or leak fails the run. Too slow for every CI run
# (the allocation sweeps parse a container hundreds of times); run it by hand
# after changes to memory handling:
#
#   bash scripts/memcheck.sh [BUILD_DIR]        (default: build)
#   GTEST_FILTER='Alloc*' bash scripts/memcheck.sh   (a subset of the unit tests)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DEJ_BUILD_TESTS=ON >/dev/null
cmake --build "$build" -j2

log_dir=$build/memcheck
mkdir -p "$log_dir"
status=0
run() {
    local name=$1
    shift
    echo "== memcheck: $name"
    local start=$SECONDS
    if valgrind --tool=memcheck --error-exitcode=99 --leak-check=full \
        --errors-for-leak-kinds=definite,indirect,possible --show-leak-kinds=definite,indirect,possible \
        --log-file="$log_dir/$name.log" "$@" >"$log_dir/$name.out" 2>&1; then
        echo "   clean ($((SECONDS - start)) s): $(grep -m1 'ERROR SUMMARY' "$log_dir/$name.log")"
    else
        echo "   FAILED ($((SECONDS - start)) s): see $log_dir/$name.log"
        status=1
    fi
}

run unit_tests "$build/tests/ej_unit_tests"
run abi_tests "$build/tests/ej_abi_tests"
for replay in "$build"/fuzz/ej_replay_*; do
    target=${replay##*/ej_replay_}
    run "corpus_$target" "$replay" "fuzz/corpus/$target"
done
exit $status
