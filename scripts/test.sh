#!/usr/bin/env bash
# Builds and runs every test: optimised, under AddressSanitizer +
# UndefinedBehaviorSanitizer, and under ThreadSanitizer with the portable
# (non-SIMD) kernels; then the arm64 cross build under qemu-aarch64.
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

echo "== arm64 under qemu-aarch64"
scripts/build.sh build-arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake \
  -DDOFRA_BUILD_BENCH=OFF
ctest --test-dir build-arm64 --output-on-failure -j"$jobs"
