#!/usr/bin/env bash
# Builds the dofra tool alone (no tests, no benchmarks) and runs its demo on
# the built-in scene; the pictures go to out/demo.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh demo
scripts/build.sh build -DDOFRA_BUILD_TESTS=OFF -DDOFRA_BUILD_BENCH=OFF
build/tools/dofra demo --out out/demo "$@"
