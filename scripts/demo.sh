#!/usr/bin/env bash
# Builds the dofra tool and runs its demo on the built-in scene.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build --target dofra -j"$(nproc)"
build/tools/dofra demo --out out/demo "$@"
