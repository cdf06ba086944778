// Weight map at preview size beside a plain write of the same output bytes,
// each hot (one output buffer, resident in the last-level cache) and cold
// (rotating through outputs larger than the last-level cache, as a camera
// host writing a fresh map sees it).
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#if defined(__SSE4_1__)
#include <smmintrin.h>
#endif

#include "bench/bench_level.h"
#include "dofra_depth.h"
#include "dofra_quality.h"
#include "kernels/row_kernels.h"
#include "weight/refine_rows.h"
#include "weight/weight_context.h"
#include "weight/weight_internal.h"

namespace {

constexpr int kW = 1920, kH = 1080, kDW = 240, kDH = 135;
constexpr size_t kMapEntries = static_cast<size_t>(kW) * kH;
constexpr int kColdMaps = 24;  // 24 x 4 MB: past a 32 MB last-level cache

// Output maps: one (hot) or kColdMaps taken in turn (cold), touched once so
// that page faults stay out of the timing.
class Outputs {
 public:
  explicit Outputs(bool cold)
      : maps_(cold ? kColdMaps : 1, std::vector<uint16_t>(kMapEntries, 1)) {}
  uint16_t* Next() {
    next_ = (next_ + 1) % maps_.size();
    return maps_[next_].data();
  }

 private:
  std::vector<std::vector<uint16_t>> maps_;
  size_t next_ = 0;
};

void Finish(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kMapEntries * 2);
}

struct WeightSetup {
  DofraHandle handle{};
  std::vector<uint8_t> block;
  WeightParams request{};

  WeightSetup() : block(DOFRA_DEPTH_HEADER_SIZE + kDW * kDH) {
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

// The refined map of the same disparity on a DofraInit handle (its workers
// run the rows), guided by a frame whose luma follows the depth layers under
// a fine texture.
struct RefineSetup : WeightSetup {
  DofraHandle* refiner = nullptr;
  std::vector<uint8_t> nv21;
  DofraGuide guide;

  RefineSetup() : nv21(kMapEntries * 3 / 2), guide{nv21.data(), kW, kH} {
    DofraParams params = {kW, kH, kDW, kDH, 5, 0, 4, 5};
    DofraInit(&refiner, &params);
    weight_deinit(refiner);  // the blank record
    weight_init(&params, refiner);
    std::mt19937 rng(5);
    const uint8_t* depth = block.data() + DOFRA_DEPTH_HEADER_SIZE;
    for (int y = 0; y < kH; ++y)
      for (int x = 0; x < kW; ++x)
        nv21[size_t(y) * kW + x] =
            static_cast<uint8_t>(depth[(y * kDH / kH) * kDW + x * kDW / kW] * 18 + rng() % 24);
    for (size_t i = kMapEntries; i < nv21.size(); ++i)
      nv21[i] = static_cast<uint8_t>(120 + rng() % 16);
  }
  ~RefineSetup() {
    weight_deinit(refiner);
    refiner->weight = nullptr;
    DofraDeinit(refiner);
  }
};

// Each iteration writes one map into the next output buffer.
template <typename MakeMap>
void TimeMaps(benchmark::State& state, bool cold, MakeMap make) {
  Outputs outputs(cold);
  for (auto _ : state) {
    uint16_t* out = outputs.Next();
    make(out);
    benchmark::DoNotOptimize(out);
    benchmark::ClobberMemory();
  }
  Finish(state);
}

template <bool kCold>
void Weight_AsyncProcess(benchmark::State& state) {
  WeightSetup s;
  TimeMaps(state, kCold, [&](uint16_t* out) { weight_async_process(&s.request, &s.handle, out); });
}
BENCHMARK_TEMPLATE(Weight_AsyncProcess, false)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(Weight_AsyncProcess, true)->Unit(benchmark::kMicrosecond);

// The refined map of the same request (wall time: the handle's workers run
// part of it).
template <bool kCold>
void Weight_RefineMap(benchmark::State& state) {
  RefineSetup s;
  TimeMaps(state, kCold, [&](uint16_t* out) {
    DofraRefineWeightMap(&s.request, s.refiner, &s.guide, nullptr, out);
  });
}
BENCHMARK_TEMPLATE(Weight_RefineMap, false)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK_TEMPLATE(Weight_RefineMap, true)->Unit(benchmark::kMicrosecond)->UseRealTime();

// One 1920-column row of the refined map's joint (member 0) or bilinear
// (1) helper at one level: 240 samples of random depths and colours, the
// default range kernel, the plain map's weight rule.
void Weight_RefineRow(benchmark::State& state, int member, dofra::SimdLevel level) {
  using namespace dofra;
  ScopedSimdLevel at(state, level);
  std::mt19937 rng(6);
  std::vector<uint8_t> bytes[12];
  for (auto& b : bytes) {
    b.resize(kW + kRefinePlanePad);
    for (auto& v : b) v = static_cast<uint8_t>(rng());
  }
  std::vector<int32_t> ix(kW), ix1(kW);
  std::vector<uint8_t> fx(kW);
  for (int x = 0; x < kW; ++x) {
    const int q = std::max(x * 8192 + 4096 - 32768, 0);
    ix[x] = q >> 16;
    ix1[x] = std::min(ix[x] + 1, kDW - 1);
    fx[x] = static_cast<uint8_t>(q >> 8);
  }
  RefineTables t{};
  for (int d = 0; d < kRefineDepths; ++d)
    t.range[d] = static_cast<uint8_t>(d < 36 ? 255 - 7 * d : 0);
  SetRangeChunks(&t);
  t.chroma_weight = 2;
  DepthWeightLut(60, kWeightFalloff, 124, &t.weights);
  auto samples = [&](int k) {
    return SampleRow{bytes[k].data(), bytes[k + 1].data(), bytes[k + 2].data(), bytes[k + 3].data(),
                     bytes[k + 4].data()};
  };
  std::vector<uint16_t> out(kW);
  const RefineRow row = {bytes[10].data(), bytes[11].data(), samples(0), samples(5), 77,
                         out.data()};
  const RefineColumns cols = {ix.data(), ix1.data(), fx.data()};
  const RowKernels& k = ActiveRowKernels();
  for (auto _ : state) {
    (member == 0 ? k.refine_joint_row : k.refine_bilinear_row)(row, cols, t, 0, kW);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kW);
}
DOFRA_BENCH_X86_LEVELS(Weight_RefineRow, joint, 0);
DOFRA_BENCH_X86_LEVELS(Weight_RefineRow, bilinear, 1);

// The frame-size step alone on a worst case: noisy depths 30..89 around a
// focus near 60, so every pixel lies on the ramp and no run is constant.
// The plain formula is the reference.
template <bool kPlain>
void Weight_InterpolateUpRamp(benchmark::State& state) {
  std::vector<uint8_t> smooth(kDW * kDH);
  std::mt19937 rng(4);
  for (auto& v : smooth) v = static_cast<uint8_t>(30 + rng() % 60);
  std::vector<uint16_t> out(kMapEntries);
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
  Finish(state);
}
BENCHMARK_TEMPLATE(Weight_InterpolateUpRamp, false)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(Weight_InterpolateUpRamp, true)->Unit(benchmark::kMicrosecond);

// The frame-size step alone on the layered map above, as smoothed by one
// weight_async_process call (level 3, strength 124).
void Weight_InterpolateUpLayers(benchmark::State& state) {
  WeightSetup s;
  std::vector<uint16_t> out(kMapEntries);
  weight_async_process(&s.request, &s.handle, out.data());
  const uint8_t* smooth = s.handle.weight->SmoothDisparity;
  for (auto _ : state) {
    __WeightInterpolateUp(kW, kH, kW / 2, kH / 2, 0, kH - 1, out.data(), kDW, kDH, 25, 124, smooth);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  Finish(state);
}
BENCHMARK(Weight_InterpolateUpLayers)->Unit(benchmark::kMicrosecond);

// Memory-speed reference: write the same W x H x 2 bytes.
template <bool kCold>
void Weight_PlainWrite(benchmark::State& state) {
  Outputs outputs(kCold);
  uint8_t value = 0;
  for (auto _ : state) {
    uint16_t* out = outputs.Next();
    memset(out, ++value, kMapEntries * sizeof(uint16_t));
    benchmark::DoNotOptimize(out);
    benchmark::ClobberMemory();
  }
  Finish(state);
}
BENCHMARK_TEMPLATE(Weight_PlainWrite, false)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(Weight_PlainWrite, true)->Unit(benchmark::kMicrosecond);

#if defined(__SSE4_1__)
// The same write with 16-byte stores only, the ceiling of an SSE4.1 kernel
// (the libc memset may use wider stores).
template <bool kCold>
void Weight_PlainWrite16(benchmark::State& state) {
  Outputs outputs(kCold);
  int16_t value = 0;
  for (auto _ : state) {
    uint16_t* out = outputs.Next();
    const __m128i v = _mm_set1_epi16(++value);
    for (size_t i = 0; i + 8 <= kMapEntries; i += 8)
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), v);
    benchmark::DoNotOptimize(out);
    benchmark::ClobberMemory();
  }
  Finish(state);
}
BENCHMARK_TEMPLATE(Weight_PlainWrite16, false)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(Weight_PlainWrite16, true)->Unit(benchmark::kMicrosecond);
#endif

}  // namespace
