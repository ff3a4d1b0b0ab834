#!/usr/bin/env bash
# The main job: build the library and the tools, then inspect the sample
# module (samples/module.kelb with its NVM blob samples/module.nvm): every
# filled slot, the drop reasons, the lens-shading adaptation, and heatmaps
# of the grids.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
ej_install_deps

jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DEJ_BUILD_TESTS=OFF >/dev/null
cmake --build build -j"$jobs" --target cmc-inspect cmc-pack >/dev/null
pictures=build/sample-pictures
./build/tools/cmc-inspect samples/module.kelb --nvm samples/module.nvm --png "$pictures"
echo "Heatmaps of the sample's grids: $(pwd)/$pictures"
