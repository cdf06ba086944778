// Weight map at preview size beside a plain write of the same output bytes.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "dofra_depth.h"
#include "weight/weight_internal.h"

namespace {

constexpr int kW = 1920, kH = 1080, kDW = 240, kDH = 135;

struct WeightSetup {
  DofraHandle handle{};
  std::vector<uint8_t> block;
  WeightParams request{};
  std::vector<uint16_t> out;

  WeightSetup() : block(DOFRA_DEPTH_HEADER_SIZE + kDW * kDH), out(kW * kH) {
    DofraParams params = {kW, kH, kDW, kDH, 5, 0, 4, 5};
    weight_init(&params, &handle);
    const int32_t a = 1572864000, b = 524288;
    const uint16_t m = 1280, n = 320;
    memcpy(&block[16], &a, 4);
    memcpy(&block[20], &b, 4);
    memcpy(&block[60], &m, 2);
    memcpy(&block[64], &n, 2);
    std::mt19937 rng(3);
    // Smooth depth layers with noise: most pixels on the ramp or saturated.
    for (int y = 0; y < kDH; ++y)
      for (int x = 0; x < kDW; ++x)
        block[DOFRA_DEPTH_HEADER_SIZE + y * kDW + x] =
            static_cast<uint8_t>(4 + (x / 30 + y / 20) % 8 + rng() % 2);
    request = {3, kW / 2, kH / 2, reinterpret_cast<DepthData*>(block.data())};
  }
  ~WeightSetup() { weight_deinit(&handle); }
};

void Weight_AsyncProcess(benchmark::State& state) {
  WeightSetup s;
  for (auto _ : state) {
    weight_async_process(&s.request, &s.handle, s.out.data());
    benchmark::DoNotOptimize(s.out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kW * kH * 2);
}
BENCHMARK(Weight_AsyncProcess)->Unit(benchmark::kMicrosecond);

// The frame-size step alone, vectorised and plain.
template <bool kPlain>
void Weight_InterpolateUp(benchmark::State& state) {
  std::vector<uint8_t> smooth(kDW * kDH);
  std::mt19937 rng(4);
  for (auto& v : smooth) v = static_cast<uint8_t>(30 + rng() % 60);
  std::vector<uint16_t> out(kW * kH);
  for (auto _ : state) {
    if (kPlain)
      __WeightInterpolateUp_c(kW, kH, kW / 2, kH / 2, 0, kH - 1, out.data(), kDW, kDH, 25, 124,
                              smooth.data());
    else
      __WeightInterpolateUp(kW, kH, kW / 2, kH / 2, 0, kH - 1, out.data(), kDW, kDH, 25, 124,
                            smooth.data());
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kW * kH * 2);
}
BENCHMARK_TEMPLATE(Weight_InterpolateUp, false)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(Weight_InterpolateUp, true)->Unit(benchmark::kMicrosecond);

// Memory-speed reference: write the same W x H x 2 bytes.
void Weight_PlainWrite(benchmark::State& state) {
  std::vector<uint16_t> out(kW * kH);
  uint8_t value = 0;
  for (auto _ : state) {
    memset(out.data(), ++value, out.size() * sizeof(uint16_t));
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kW * kH * 2);
}
BENCHMARK(Weight_PlainWrite)->Unit(benchmark::kMicrosecond);

}  // namespace
