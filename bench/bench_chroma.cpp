// Chroma kernels at 1920x1080 (chroma plane 1920x540): each vectorised member
// beside its scalar formula and a memcpy of the same bytes. Shrinks count the
// source plane (1 byte per chroma byte); compositing counts what it moves per
// chroma byte: the source byte, the luma weight row 2r it reads (2 bytes per
// chroma byte: W entries of 16 bits per chroma row) and the output byte, 4 in
// all, as does the memcpy it is compared with.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "bench/bench_level.h"
#include "blur/kernels.h"

using namespace dofra;  // the library's internal names

namespace {

constexpr int kW = 1920;
constexpr int kH = 540;  // chroma rows of a 1080-row frame

struct ChromaFrame {
  explicit ChromaFrame(int factor)
      : sw(kW / factor),
        sh((2 * kH / factor) / 2),
        src(size_t(kW) * kH),
        out(src.size()),
        tmp(size_t(sw) * kH),
        small(size_t(sw) * sh),
        weights(size_t(kW) * 2 * kH) {
    std::mt19937 rng(1);
    for (auto& b : src) b = static_cast<uint8_t>(rng());
    for (auto& b : small) b = static_cast<uint8_t>(rng());
    for (auto& w : weights) w = static_cast<uint16_t>(rng() % 1025);
  }
  int sw, sh;
  std::vector<uint8_t> src, out, tmp, small;
  std::vector<uint16_t> weights;
};

constexpr int64_t kPlaneBytes = int64_t{kW} * kH;
constexpr int64_t kCompositeBytes = kPlaneBytes * (1 + 2 + 1);  // src + weights + out

void SetBytes(benchmark::State& state, int64_t per_iteration = kPlaneBytes) {
  state.SetBytesProcessed(int64_t(state.iterations()) * per_iteration);
}

void BM_Chroma_Shrink(benchmark::State& state, ShrinkFn fn, int factor, SimdLevel level) {
  ScopedSimdLevel at(state, level);
  ChromaFrame f(factor);
  for (auto _ : state) {
    fn(f.src.data(), f.small.data(), f.tmp.data(), kW, kH, f.sw, f.sh, 0, f.sh - 1);
    benchmark::DoNotOptimize(f.small.data());
  }
  SetBytes(state);
}

void BM_Chroma_Composite(benchmark::State& state, BlendFn fn, int factor, SimdLevel level) {
  ScopedSimdLevel at(state, level);
  ChromaFrame f(factor);
  for (auto _ : state) {
    fn(f.src.data(), kW, kH, f.sw, f.sh, f.weights.data(), f.small.data(), f.out.data(), 0, kH - 1);
    benchmark::DoNotOptimize(f.out.data());
  }
  SetBytes(state, kCompositeBytes);
}

void BM_Chroma_Memcpy(benchmark::State& state) {
  ChromaFrame f(2);
  for (auto _ : state) {
    std::memcpy(f.out.data(), f.src.data(), f.src.size());
    benchmark::DoNotOptimize(f.out.data());
  }
  SetBytes(state);
}

// A memcpy of the byte count a compositing call touches (source, weights,
// output), counted the same way as the luma compositing baseline.
void BM_Chroma_MemcpyCompositeBytes(benchmark::State& state) {
  std::vector<uint8_t> in(kCompositeBytes, 1), out(in.size());
  for (auto _ : state) {
    std::memcpy(out.data(), in.data(), in.size());
    benchmark::DoNotOptimize(out.data());
  }
  SetBytes(state, kCompositeBytes);
}

BENCHMARK(BM_Chroma_Memcpy);
BENCHMARK(BM_Chroma_MemcpyCompositeBytes);

DOFRA_BENCH_X86_LEVELS(BM_Chroma_Shrink, x2_neon, __BiLinearInterp_UV_x2_neon, 2);
BENCHMARK_CAPTURE(BM_Chroma_Shrink, x2_c, __BiLinearInterp_UV_x2_c, 2, SimdLevel::kScalar);
DOFRA_BENCH_X86_LEVELS(BM_Chroma_Shrink, x4, __BiLinearInterp_UV_x4, 4);
BENCHMARK_CAPTURE(BM_Chroma_Shrink, x4_c, __BiLinearInterp_UV_x4_c, 4, SimdLevel::kScalar);
DOFRA_BENCH_X86_LEVELS(BM_Chroma_Shrink, x6, __BiLinearInterp_UV_x6, 6);
BENCHMARK_CAPTURE(BM_Chroma_Shrink, x6_c, __BiLinearInterp_UV_x6_c, 6, SimdLevel::kScalar);
DOFRA_BENCH_X86_LEVELS(BM_Chroma_Shrink, x8, __BiLinearInterp_UV_x8, 8);
BENCHMARK_CAPTURE(BM_Chroma_Shrink, x8_c, __BiLinearInterp_UV_x8_c, 8, SimdLevel::kScalar);

DOFRA_BENCH_X86_LEVELS(BM_Chroma_Composite, x2_neon, __CreateOutputImage_UV_x2_neon, 2);
BENCHMARK_CAPTURE(BM_Chroma_Composite, x2_c, __CreateOutputImage_UV_x2_c, 2, SimdLevel::kScalar);
DOFRA_BENCH_X86_LEVELS(BM_Chroma_Composite, x4_neon, __CreateOutputImage_UV_x4_neon, 4);
BENCHMARK_CAPTURE(BM_Chroma_Composite, x4_c, __CreateOutputImage_UV_x4_c, 4, SimdLevel::kScalar);
DOFRA_BENCH_X86_LEVELS(BM_Chroma_Composite, x6_neon, __CreateOutputImage_UV_x6_neon, 6);
BENCHMARK_CAPTURE(BM_Chroma_Composite, x6_c, __CreateOutputImage_UV_x6_c, 6, SimdLevel::kScalar);
DOFRA_BENCH_X86_LEVELS(BM_Chroma_Composite, x8_neon, __CreateOutputImage_UV_x8_neon, 8);
BENCHMARK_CAPTURE(BM_Chroma_Composite, x8_c, __CreateOutputImage_UV_x8_c, 8, SimdLevel::kScalar);

}  // namespace
