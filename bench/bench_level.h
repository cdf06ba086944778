// A vectorised member measured at one instruction-set level: the level is
// forced for the benchmark's duration, and the benchmark is skipped on a CPU
// without it.
#ifndef DOFRA_BENCH_BENCH_LEVEL_H
#define DOFRA_BENCH_BENCH_LEVEL_H

#include <benchmark/benchmark.h>

#include "kernels/simd_level.h"

class ScopedSimdLevel {
 public:
  ScopedSimdLevel(benchmark::State& state, dofra::SimdLevel level)
      : previous_(dofra::ActiveSimdLevel()) {
    if (!dofra::ForceSimdLevel(level)) state.SkipWithError("the CPU lacks this level");
  }
  ~ScopedSimdLevel() { dofra::ForceSimdLevel(previous_); }
  ScopedSimdLevel(const ScopedSimdLevel&) = delete;
  ScopedSimdLevel& operator=(const ScopedSimdLevel&) = delete;

 private:
  dofra::SimdLevel previous_;
};

// Registers benchmark `fn` as name_sse41 and name_avx2 with the arguments
// given and the level last.
#define DOFRA_BENCH_X86_LEVELS(fn, name, ...)                                 \
  BENCHMARK_CAPTURE(fn, name##_sse41, __VA_ARGS__, dofra::SimdLevel::kSse41); \
  BENCHMARK_CAPTURE(fn, name##_avx2, __VA_ARGS__, dofra::SimdLevel::kAvx2)

#endif  // DOFRA_BENCH_BENCH_LEVEL_H
