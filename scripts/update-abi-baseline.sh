#!/usr/bin/env bash
# Regenerates the committed ABI baseline from a RelWithDebInfo build. Run it
# only for an intended ABI change (see docs/abi.md) and commit the result with
# the change that caused it.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
ej_install_deps
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc 2>/dev/null || echo 2)" --target ej_cmc_parser >/dev/null
abidw --no-corpus-path --no-comp-dir-path --short-locs --drop-private-types \
    --headers-dir parser --headers-dir records --headers-dir lsc --headers-dir resample \
    --out-file tests/abi/baseline/libej_cmc_parser-vantor.so.0.abi \
    build/libej_cmc_parser-vantor.so.0
echo "Updated tests/abi/baseline/libej_cmc_parser-vantor.so.0.abi"
