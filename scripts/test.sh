#!/usr/bin/env bash
# Builds and runs every test: optimised, under AddressSanitizer +
# UndefinedBehaviorSanitizer, and under ThreadSanitizer with the portable
# (non-SIMD) kernels; then every libFuzzer target for a bounded time.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
jobs=$(nproc)

echo "== optimised build"
scripts/build.sh build
ctest --test-dir build --output-on-failure -j"$jobs"

echo "== AddressSanitizer + UndefinedBehaviorSanitizer"
scripts/build.sh build-asan -DDOFRA_SANITIZE=address,undefined -DDOFRA_BUILD_BENCH=OFF
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan --output-on-failure -j"$jobs"

echo "== ThreadSanitizer, portable kernels"
scripts/build.sh build-tsan -DDOFRA_SANITIZE=thread -DDOFRA_SSE41=OFF -DDOFRA_BUILD_BENCH=OFF
TSAN_OPTIONS="halt_on_error=1 suppressions=$PWD/tests/tsan.supp" \
  ctest --test-dir build-tsan --output-on-failure -j"$jobs"

echo "== libFuzzer targets, 40 s each"
scripts/fuzz.sh 40
