// Luma compositing at 1920x1080, every factor, vectorised member beside its
// scalar formula and a memcpy of the same byte count (source + weights +
// output), all reported in bytes per second.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "bench/bench_level.h"
#include "blur/kernels.h"

using namespace dofra;  // the library's internal names

namespace {

constexpr int kW = 1920;
constexpr int kH = 1080;
constexpr int64_t kBytesPerFrame = int64_t{kW} * kH * (1 + 2 + 1);  // src + weights + out

struct LumaFrame {
  std::vector<uint8_t> src, small, out;
  std::vector<uint16_t> weights;
  int sw, sh;
  explicit LumaFrame(int factor)
      : src(kW * kH),
        small(kW * kH),
        out(kW * kH),
        weights(kW * kH),
        sw(kW / factor),
        sh(kH / factor) {
    std::mt19937 rng(5);
    for (auto& v : src) v = static_cast<uint8_t>(rng());
    for (auto& v : small) v = static_cast<uint8_t>(rng());
    for (auto& v : weights) v = static_cast<uint16_t>(rng() % 1025);
  }
};

void BM_CompositeY(benchmark::State& state, BlendFn fn, int factor, SimdLevel level) {
  ScopedSimdLevel at(state, level);
  LumaFrame f(factor);
  for (auto _ : state) {
    fn(f.src.data(), kW, kH, f.sw, f.sh, f.weights.data(), f.small.data(), f.out.data(), 0, kH - 1);
    benchmark::DoNotOptimize(f.out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kBytesPerFrame);
}

void BM_CompositeY_Memcpy(benchmark::State& state) {
  std::vector<uint8_t> from(kBytesPerFrame, 1), to(kBytesPerFrame);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), to.size());
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kBytesPerFrame);
}

BENCHMARK(BM_CompositeY_Memcpy);
DOFRA_BENCH_X86_LEVELS(BM_CompositeY, x2_neon, __CreateOutputImage_Y_x2_neon, 2);
BENCHMARK_CAPTURE(BM_CompositeY, x2_c, __CreateOutputImage_Y_x2_c, 2, SimdLevel::kScalar);
DOFRA_BENCH_X86_LEVELS(BM_CompositeY, x4_neon, __CreateOutputImage_Y_x4_neon, 4);
BENCHMARK_CAPTURE(BM_CompositeY, x4_c, __CreateOutputImage_Y_x4_c, 4, SimdLevel::kScalar);
DOFRA_BENCH_X86_LEVELS(BM_CompositeY, x6_neon, __CreateOutputImage_Y_x6_neon, 6);
BENCHMARK_CAPTURE(BM_CompositeY, x6_c, __CreateOutputImage_Y_x6_c, 6, SimdLevel::kScalar);
DOFRA_BENCH_X86_LEVELS(BM_CompositeY, x8_neon, __CreateOutputImage_Y_x8_neon, 8);
BENCHMARK_CAPTURE(BM_CompositeY, x8_c, __CreateOutputImage_Y_x8_c, 8, SimdLevel::kScalar);

}  // namespace
