// NV21 frames and weight maps for the whole-frame benchmarks. "hot" reuses
// one set; "cold" rotates through enough sets (frames and weight maps) to
// overflow a 32 MB last-level cache several times over.
#ifndef DOFRA_BENCH_FRAME_SETS_H
#define DOFRA_BENCH_FRAME_SETS_H

#include <benchmark/benchmark.h>
#include <ui/GraphicBuffer.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace bench {

constexpr int64_t kColdBytes = int64_t{96} << 20;  // rotation footprint: 3x a 32 MB LLC
constexpr int kKernel = 5;
constexpr uint16_t kWeightOne = 1024;

struct FrameSet {
  std::unique_ptr<android::GraphicBuffer> src, dst;
  std::vector<uint16_t> weights;  // one per luma pixel, 0..kWeightOne
};

struct Frames {
  Frames(int w, int h, bool cold) : width(w), height(h) {
    const int64_t per_set = int64_t{w} * h * (3 + 2);  // two NV21 frames + weights
    const int count = cold ? static_cast<int>(kColdBytes / per_set + 1) : 1;
    std::mt19937 rng(9);
    for (int i = 0; i < count; ++i) {
      FrameSet set;
      set.src = NewFrame();
      set.dst = NewFrame();
      for (size_t k = 0; k < set.src->hostSize(); ++k) set.src->hostData()[k] = uint8_t(rng());
      set.weights.resize(size_t(w) * h);
      for (uint16_t& v : set.weights) v = uint16_t(rng() % (kWeightOne + 1));
      sets.push_back(std::move(set));
    }
  }
  std::unique_ptr<android::GraphicBuffer> NewFrame() const {
    return std::make_unique<android::GraphicBuffer>(width, height,
                                                    android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33);
  }
  FrameSet& Next() { return sets[next++ % sets.size()]; }

  int width, height;
  size_t next = 0;
  std::vector<FrameSet> sets;
};

inline void Report(benchmark::State& state, const Frames& f) {
  state.SetItemsProcessed(state.iterations());  // frames
  state.counters["sets"] = static_cast<double>(f.sets.size());
}

// "1920x1080/x4/hot": the common part of every whole-frame benchmark name.
inline std::string Tag(int w, int h, int scale, bool cold) {
  std::string tag = std::to_string(w) + "x" + std::to_string(h);
  if (scale > 0) tag += "/x" + std::to_string(scale);
  return tag + (cold ? "/cold" : "/hot");
}

struct Size {
  int w, h;
};
constexpr Size kFrameSizes[] = {{1920, 1080}, {3840, 2160}};
constexpr int kFactors[] = {2, 4, 6, 8};

}  // namespace bench

#endif  // DOFRA_BENCH_FRAME_SETS_H
