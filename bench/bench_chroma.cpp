// Chroma kernels at 1920x1080 (chroma plane 1920x540): each vectorised member
// beside its scalar formula and a memcpy of the same plane, in bytes/second of
// the full-size chroma plane (every benchmark counts the same 1920x540 bytes).
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "blur/kernels.h"

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

void SetBytes(benchmark::State& state) {
  state.SetBytesProcessed(int64_t(state.iterations()) * kW * kH);
}

void BM_Chroma_Shrink(benchmark::State& state, ShrinkFn fn, int factor) {
  ChromaFrame f(factor);
  for (auto _ : state) {
    fn(f.src.data(), f.small.data(), f.tmp.data(), kW, kH, f.sw, f.sh, 0, f.sh - 1);
    benchmark::DoNotOptimize(f.small.data());
  }
  SetBytes(state);
}

void BM_Chroma_Composite(benchmark::State& state, BlendFn fn, int factor) {
  ChromaFrame f(factor);
  for (auto _ : state) {
    fn(f.src.data(), kW, kH, f.sw, f.sh, f.weights.data(), f.small.data(), f.out.data(), 0, kH - 1);
    benchmark::DoNotOptimize(f.out.data());
  }
  SetBytes(state);
}

void BM_Chroma_Memcpy(benchmark::State& state) {
  ChromaFrame f(2);
  for (auto _ : state) {
    std::memcpy(f.out.data(), f.src.data(), f.src.size());
    benchmark::DoNotOptimize(f.out.data());
  }
  SetBytes(state);
}

// The data a compositing call moves: source plane and the weight rows it
// reads (luma rows 2r, W entries each) in, one plane out.
void BM_Chroma_MemcpyCompositeTraffic(benchmark::State& state) {
  ChromaFrame f(2);
  const size_t weight_bytes = size_t(kW) * kH * sizeof(uint16_t);
  std::vector<uint8_t> in(f.src.size() + weight_bytes), out(in.size());
  for (auto _ : state) {
    std::memcpy(out.data(), in.data(), in.size());
    benchmark::DoNotOptimize(out.data());
  }
  SetBytes(state);
}

BENCHMARK(BM_Chroma_Memcpy);
BENCHMARK(BM_Chroma_MemcpyCompositeTraffic);

BENCHMARK_CAPTURE(BM_Chroma_Shrink, x2_neon, __BiLinearInterp_UV_x2_neon, 2);
BENCHMARK_CAPTURE(BM_Chroma_Shrink, x2_c, __BiLinearInterp_UV_x2_c, 2);
BENCHMARK_CAPTURE(BM_Chroma_Shrink, x4, __BiLinearInterp_UV_x4, 4);
BENCHMARK_CAPTURE(BM_Chroma_Shrink, x4_c, __BiLinearInterp_UV_x4_c, 4);
BENCHMARK_CAPTURE(BM_Chroma_Shrink, x6, __BiLinearInterp_UV_x6, 6);
BENCHMARK_CAPTURE(BM_Chroma_Shrink, x6_c, __BiLinearInterp_UV_x6_c, 6);
BENCHMARK_CAPTURE(BM_Chroma_Shrink, x8, __BiLinearInterp_UV_x8, 8);
BENCHMARK_CAPTURE(BM_Chroma_Shrink, x8_c, __BiLinearInterp_UV_x8_c, 8);

BENCHMARK_CAPTURE(BM_Chroma_Composite, x2_neon, __CreateOutputImage_UV_x2_neon, 2);
BENCHMARK_CAPTURE(BM_Chroma_Composite, x2_c, __CreateOutputImage_UV_x2_c, 2);
BENCHMARK_CAPTURE(BM_Chroma_Composite, x4_neon, __CreateOutputImage_UV_x4_neon, 4);
BENCHMARK_CAPTURE(BM_Chroma_Composite, x4_c, __CreateOutputImage_UV_x4_c, 4);
BENCHMARK_CAPTURE(BM_Chroma_Composite, x6_neon, __CreateOutputImage_UV_x6_neon, 6);
BENCHMARK_CAPTURE(BM_Chroma_Composite, x6_c, __CreateOutputImage_UV_x6_c, 6);
BENCHMARK_CAPTURE(BM_Chroma_Composite, x8_neon, __CreateOutputImage_UV_x8_neon, 8);
BENCHMARK_CAPTURE(BM_Chroma_Composite, x8_c, __CreateOutputImage_UV_x8_c, 8);

}  // namespace
