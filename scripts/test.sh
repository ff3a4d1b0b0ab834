#!/usr/bin/env bash
# Builds and runs the whole test suite twice: an optimised build, then a build
# under AddressSanitizer + UndefinedBehaviorSanitizer with leak checking.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
ej_install_deps

jobs=$(nproc 2>/dev/null || echo 2)

run_suite() {
    local dir=$1
    shift
    echo "== $dir: configure and build"
    cmake -S . -B "$dir" -DEJ_WERROR=ON -DEJ_BUILD_TESTS=ON "$@" >/dev/null
    cmake --build "$dir" -j"$jobs"
    echo "== $dir: tests"
    ctest --test-dir "$dir" -j"$jobs" --output-on-failure
}

run_suite build -DCMAKE_BUILD_TYPE=RelWithDebInfo

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1:detect_stack_use_after_return=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
run_suite build-asan -DCMAKE_BUILD_TYPE=Debug -DEJ_SANITIZE=address,undefined -DEJ_BUILD_BENCH=OFF
