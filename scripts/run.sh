#!/usr/bin/env bash
# The main job: build the library, then parse a sample container (made by the
# test-support writer) without and with an NVM blob, and print the filled slots.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
ej_install_deps

jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DEJ_BUILD_TESTS=OFF >/dev/null
cmake --build build -j"$jobs" --target cmc-demo >/dev/null
./build/tools/cmc-demo
