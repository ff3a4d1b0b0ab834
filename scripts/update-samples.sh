#!/usr/bin/env bash
# Rebuilds the sample module's packed files from its JSON descriptions and
# refreshes the tools' golden outputs from them. Run after changing
# samples/*.json (or samples/make_descriptions.py, then run that first), or
# after a deliberate change of cmc-inspect's output; review the diff before
# committing.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j2 --target cmc-pack cmc-inspect >/dev/null
./build/tools/cmc-pack samples/module.json -o samples/module.kelb
./build/tools/cmc-pack --nvm samples/module_nvm.json -o samples/module.nvm
golden=tests/tools/golden
./build/tools/cmc-inspect samples/module.kelb --nvm samples/module.nvm >"$golden/module.txt"
./build/tools/cmc-inspect samples/module.kelb --nvm samples/module.nvm --json >"$golden/module.json"
echo "packed samples/module.kelb, samples/module.nvm; refreshed $golden"
