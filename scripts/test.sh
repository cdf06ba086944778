#!/usr/bin/env bash
# Builds and runs every test: optimised (with dofra view's page in headless
# chromium), under AddressSanitizer +
# UndefinedBehaviorSanitizer, and under ThreadSanitizer with the portable
# (non-SIMD) kernels; on x86-64 the kernel tests also run on an emulated
# CPU without AVX2; then the arm64 cross build under qemu-aarch64, every
# libFuzzer target for a bounded time, and an installed tree with a consumer
# built outside it. One line per step; each step's output is in out/logs/.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh
scripts/deps.sh demo test browser

echo "== optimised build"
scripts/build.sh build
run_ctest ctest.build build

echo "== dofra view's page in headless chromium (screenshots in build/view-browser)"
step browser.npm "npm ci (playwright-core, no browser download)" \
  npm ci --prefix tools/tests/browser --no-audit --no-fund --loglevel=error
step browser.suite "browser suite" env DOFRA_TOOL=build/tools/dofra DOFRA_SHOTS=build/view-browser \
  timeout -k 10 180 node --test tools/tests/browser/

if [ "$(uname -m)" = x86_64 ]; then
  # The library picks its members by CPU: on an SSE4.1-only CPU no AVX2 code
  # may run, not even an inline helper that an AVX2 unit instantiated.
  echo "== SSE4.1-only CPU (qemu-user, Nehalem): kernel, refined-map and handle tests"
  for t in {kernels,pipeline,weight,refine,row_kernels,api_handle}_test; do
    step "nehalem.$t" "$t" qemu-x86_64 -cpu Nehalem "build/tests/$t" --gtest_brief=1
  done
fi

echo "== AddressSanitizer + UndefinedBehaviorSanitizer"
scripts/build.sh build-asan -DDOFRA_SANITIZE=address,undefined -DDOFRA_BUILD_BENCH=OFF
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 run_ctest ctest.build-asan build-asan

echo "== ThreadSanitizer, portable kernels"
scripts/build.sh build-tsan -DDOFRA_SANITIZE=thread -DDOFRA_X86_SIMD=OFF -DDOFRA_BUILD_BENCH=OFF
TSAN_OPTIONS="halt_on_error=1 suppressions=$PWD/tests/tsan.supp" \
  run_ctest ctest.build-tsan build-tsan

echo "== arm64 under qemu-aarch64"
scripts/build.sh build-arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake
run_ctest ctest.build-arm64 build-arm64

echo "== libFuzzer targets, 20 s each"
scripts/fuzz.sh 20

echo "== installed tree, with a consumer built outside it"
scripts/install_check.sh build
