// Luma shrink and box smoothing at 1920x1080: each vectorised member, its
// scalar formula, and a memcpy of the same byte count, in one run.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "bench/bench_level.h"
#include "blur/kernels.h"

using namespace dofra;  // the library's internal names

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kRadius = 2;  // kernel size 5
constexpr uint16_t kWeights[5] = {204, 204, 204, 204, 204};

std::vector<uint8_t> RandomBytes(size_t n) {
  std::mt19937 rng(1);
  std::vector<uint8_t> v(n);
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

void Copy(benchmark::State& state, size_t bytes) {
  const auto src = RandomBytes(bytes);
  std::vector<uint8_t> dst(bytes);
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), bytes);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}

// The whole luma plane in one band.
void Shrink(benchmark::State& state, ShrinkFn fn, int s, SimdLevel level) {
  ScopedSimdLevel at(state, level);
  const int w = kWidth / s, h = kHeight / s;
  const auto src = RandomBytes(static_cast<size_t>(kWidth) * kHeight);
  std::vector<uint8_t> small(static_cast<size_t>(w) * h), tmp(static_cast<size_t>(w) * kHeight);
  for (auto _ : state) {
    fn(src.data(), small.data(), tmp.data(), kWidth, kHeight, w, h, 0, h - 1);
    benchmark::DoNotOptimize(small.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kWidth * kHeight);
}

// The small plane of factor s: luma (lead 1) or chroma (lead 2, half height).
void Smooth(benchmark::State& state, SmoothFn fn, int s, int lead, SimdLevel level) {
  ScopedSimdLevel at(state, level);
  const int W = kWidth / s;
  const int H = kHeight / s / lead;
  const int P = W + 2 * kRadius * lead;
  const auto src = RandomBytes(static_cast<size_t>(W) * H);
  std::vector<uint8_t> dst(src.size()), expanded(static_cast<size_t>(P) * (H + 2 * kRadius));
  std::vector<uint32_t> integral(static_cast<size_t>(P) * (H + 2 * kRadius + 1));
  for (auto _ : state) {
    fn(src.data(), expanded.data(), dst.data(), W, H, kWeights, kRadius, kRadius,
       reinterpret_cast<uint8_t*>(integral.data()), 0, H - 1);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * W * H);
}

}  // namespace

BENCHMARK_CAPTURE(Copy, ShrinkY_memcpy_1920x1080, size_t{kWidth} * kHeight);
DOFRA_BENCH_X86_LEVELS(Shrink, ShrinkY_x2_neon, __BiLinearInterp_Y_x2_neon, 2);
BENCHMARK_CAPTURE(Shrink, ShrinkY_x2_c, __BiLinearInterp_Y_x2_c, 2, SimdLevel::kScalar);
DOFRA_BENCH_X86_LEVELS(Shrink, ShrinkY_x4_neon, __BiLinearInterp_Y_x4_neon, 4);
BENCHMARK_CAPTURE(Shrink, ShrinkY_x4_c, __BiLinearInterp_Y_x4_c, 4, SimdLevel::kScalar);
DOFRA_BENCH_X86_LEVELS(Shrink, ShrinkY_x6, __BiLinearInterp_Y_x6, 6);
BENCHMARK_CAPTURE(Shrink, ShrinkY_x6_c, __BiLinearInterp_Y_x6_c, 6, SimdLevel::kScalar);
DOFRA_BENCH_X86_LEVELS(Shrink, ShrinkY_x8, __BiLinearInterp_Y_x8, 8);
BENCHMARK_CAPTURE(Shrink, ShrinkY_x8_c, __BiLinearInterp_Y_x8_c, 8, SimdLevel::kScalar);

BENCHMARK_CAPTURE(Copy, Smooth_memcpy_960x540, size_t{960} * 540);
BENCHMARK_CAPTURE(Copy, Smooth_memcpy_480x270, size_t{480} * 270);
BENCHMARK_CAPTURE(Copy, Smooth_memcpy_320x180, size_t{320} * 180);
BENCHMARK_CAPTURE(Copy, Smooth_memcpy_240x135, size_t{240} * 135);
#define DOFRA_BENCH_SMOOTH(s)                                                                     \
  DOFRA_BENCH_X86_LEVELS(Smooth, Smooth_Y_neon_x##s, __GaussianSmoothImage_Y_integral_image_neon, \
                         s, 1);                                                                   \
  BENCHMARK_CAPTURE(Smooth, Smooth_Y_c_x##s, __GaussianSmoothImage_Y_integral_image_c, s, 1,      \
                    SimdLevel::kScalar);                                                          \
  DOFRA_BENCH_X86_LEVELS(Smooth, Smooth_UV_neon_x##s,                                             \
                         __GaussianSmoothImage_UV_integral_image_neon, s, 2);                     \
  BENCHMARK_CAPTURE(Smooth, Smooth_UV_c_x##s, __GaussianSmoothImage_UV_integral_image_c, s, 2,    \
                    SimdLevel::kScalar)
DOFRA_BENCH_SMOOTH(2);
DOFRA_BENCH_SMOOTH(4);
DOFRA_BENCH_SMOOTH(6);
DOFRA_BENCH_SMOOTH(8);
