#!/usr/bin/env bash
# scripts/build.sh DIR [cmake options...]: configures and builds into DIR.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=$1; shift
cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Release "$@" >/dev/null
cmake --build "$dir" -j"$(nproc)"
