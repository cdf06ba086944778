#!/usr/bin/env bash
# scripts/build.sh DIR [cmake options...]: configures and builds DIR (tests
# and benchmarks on unless the options turn them off), one line per step; the
# compiler's output goes to out/logs/ and is shown only when a step fails.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh
dir=$1
shift
name=$(basename "$dir")
step "$name.configure" "configure $dir${*:+ ($*)}" \
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Release -DDOFRA_BUILD_TESTS=ON -DDOFRA_BUILD_BENCH=ON "$@"
step "$name.build" "build $dir" cmake --build "$dir" -j"$(nproc)"
