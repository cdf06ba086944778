#!/usr/bin/env bash
# scripts/fuzz.sh [SECONDS [TARGET...]]: builds the libFuzzer targets (clang,
# AddressSanitizer + UndefinedBehaviorSanitizer) into build-fuzz and runs
# each target (blur, weight, refine, picture, view_params, no_bleed; all by default) for
# SECONDS (default 600; 0 runs until stopped). The seed corpus in
# tests/fuzz/corpus is read, never written; new inputs collect in out/fuzz/TARGET. Fails on the first
# crash, sanitizer report, leak or timeout, leaving the input beside them.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh
seconds=${1:-600}
targets=("${@:2}")
((${#targets[@]})) || targets=(blur weight refine picture view_params no_bleed)

step build-fuzz.configure "configure build-fuzz (clang, libFuzzer)" \
  cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER=clang-14 \
  -DCMAKE_CXX_COMPILER=clang++-14 -DDOFRA_FUZZ=ON -DDOFRA_BUILD_TESTS=OFF -DDOFRA_BUILD_BENCH=OFF
step build-fuzz.build "build ${targets[*]/#/fuzz_}" \
  cmake --build build-fuzz -j"$(nproc)" --target "${targets[@]/#/fuzz_}"

for t in "${targets[@]}"; do
  mkdir -p "out/fuzz/$t"
  echo "-- fuzz_$t for ${seconds}s"
  if ! ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    "build-fuzz/tests/fuzz/fuzz_$t" -max_total_time="$seconds" -timeout=25 \
    -rss_limit_mb=2560 -print_final_stats=1 -artifact_prefix="out/fuzz/$t-" \
    "out/fuzz/$t" "tests/fuzz/corpus/$t" >"out/fuzz/$t.log" 2>&1; then
    tail -n 60 "out/fuzz/$t.log"
    echo "fuzz_$t failed: input and log in out/fuzz/" >&2
    exit 1
  fi
  grep -E "^stat::number_of_executed_units" "out/fuzz/$t.log" | tail -n 1
done
