// Whole frames through DofraBlurImage (two workers) beside two baselines on
// the same data: the same kernels single-threaded in one band per plane, and
// the memory floor (two workers reading every source byte and weight once and
// writing every destination byte once). "hot" reuses one frame set; "cold"
// rotates through enough sets (frames and weight maps) to overflow a 32 MB
// last-level cache several times over.
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <ui/GraphicBuffer.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "blur/dispatch.h"
#include "dofra_depth.h"
#include "pool/thread_pool.h"

namespace {

using android::GraphicBuffer;

constexpr int64_t kColdBytes = int64_t{96} << 20;  // rotation footprint: 3x a 32 MB LLC
constexpr int kKernel = 5;
constexpr int kRadius = kKernel / 2;

void DropLog(int, const char*, const char*, void*) {}

struct FrameSet {
  std::unique_ptr<GraphicBuffer> src, dst;
  std::vector<uint16_t> weights;
};

// Frame sets for one size; the hot case keeps one.
struct Frames {
  Frames(int w, int h, bool cold) : width(w), height(h) {
    const int64_t per_set = int64_t{w} * h * (3 + 2);  // two NV21 frames + weights
    const int count = cold ? static_cast<int>(kColdBytes / per_set + 1) : 1;
    std::mt19937 rng(9);
    for (int i = 0; i < count; ++i) {
      FrameSet set;
      set.src = std::make_unique<GraphicBuffer>(w, h, android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33);
      set.dst = std::make_unique<GraphicBuffer>(w, h, android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33);
      for (size_t k = 0; k < set.src->hostSize(); ++k) set.src->hostData()[k] = uint8_t(rng());
      set.weights.resize(size_t(w) * h);
      for (uint16_t& v : set.weights) v = uint16_t(rng() % 1025);
      sets.push_back(std::move(set));
    }
  }
  int width, height;
  std::vector<FrameSet> sets;
};

void Report(benchmark::State& state, const Frames& f) {
  state.SetItemsProcessed(state.iterations());  // frames
  state.counters["sets"] = static_cast<double>(f.sets.size());
}

void Pipeline_DofraBlurImage(benchmark::State& state, int w, int h, int scale, bool cold,
                             bool in_place) {
  host_log_set_sink(DropLog, nullptr);
  Frames f(w, h, cold);
  DofraParams params{w, h, w / 8, h / 8, kKernel, 0, scale, kKernel};
  DofraHandle* handle = nullptr;
  if (DofraInit(&handle, &params) != 0) {
    state.SkipWithError("DofraInit refused the frame");
    return;
  }
  size_t i = 0;
  for (auto _ : state) {
    FrameSet& set = f.sets[i++ % f.sets.size()];
    DofraWeightMapInfo info{{0, 0, 0}, set.weights.data()};
    DofraCreateWeightMap(handle, &info);
    DofraBlurImage(handle, set.src.get(), in_place ? set.src.get() : set.dst.get());
  }
  Report(state, f);
  DofraDeinit(handle);
  host_log_set_sink(nullptr, nullptr);
}

// The same kernels on the caller's thread, one band per plane.
struct SingleBand {
  SingleBand(int w, int h, int scale)
      : W(w),
        H(h),
        sw(w / scale),
        sh(h / scale),
        i(scale - kMinScaleFactor),
        kernel(kKernel, 1024 / kKernel),
        tmp(size_t(h) * sw * 3 / 2),
        small(size_t(sw) * sh * 3 / 2),
        smooth(small.size()),
        pad_y(size_t(sw + 2 * kRadius) * (sh + 2 * kRadius)),
        pad_uv(size_t(sw + 4 * kRadius) * (sh / 2 + 2 * kRadius)),
        integral(size_t(sw + 4 * kRadius) * (sh + 2 * kRadius + 1) * 4) {}

  void Run(const uint8_t* src, const uint16_t* weights, uint8_t* dst) {
    const BlurKernelTable& t = kBlurKernels;
    const int r = kRadius, shc = sh / 2;
    const size_t luma = size_t(W) * H, small_luma = size_t(sw) * sh;
    t.shrink_y[i](src, small.data(), tmp.data(), W, H, sw, sh, 0, sh - 1);
    t.smooth_y(small.data(), pad_y.data(), smooth.data(), sw, sh, kernel.data(), r, r,
               integral.data(), 0, sh - 1);
    t.blend_y[i](src, W, H, sw, sh, weights, smooth.data(), dst, 0, H / 2 * 2 - 1);
    t.shrink_uv[i](src + luma, small.data() + small_luma, tmp.data() + size_t(H) * sw, W, H / 2, sw,
                   shc, 0, shc - 1);
    t.smooth_uv(small.data() + small_luma, pad_uv.data(), smooth.data() + small_luma, sw, shc,
                kernel.data(), r, r, integral.data(), 0, shc - 1);
    t.blend_uv[i](src + luma, W, H / 2, sw, shc, weights, smooth.data() + small_luma, dst + luma, 0,
                  H / 4 * 2 - 1);
  }
  int W, H, sw, sh, i;
  std::vector<uint16_t> kernel;
  std::vector<uint8_t> tmp, small, smooth, pad_y, pad_uv, integral;
};

void Pipeline_SingleThread(benchmark::State& state, int w, int h, int scale, bool cold) {
  Frames f(w, h, cold);
  SingleBand band(w, h, scale);
  size_t i = 0;
  for (auto _ : state) {
    FrameSet& set = f.sets[i++ % f.sets.size()];
    band.Run(set.src->hostData(), set.weights.data(), set.dst->hostData());
    benchmark::ClobberMemory();
  }
  Report(state, f);
}

// Memory floor: half of every plane per worker, each byte read or written once.
struct FloorTask {
  const uint8_t* src;
  const uint16_t* weights;  // luma rows only; chroma reads none
  uint8_t* dst;
  size_t count;
  CThread_pool* pool;
};

// Locals marked restrict so the loop vectorises: the floor is what the memory
// system allows, not what an aliasing-bound byte loop does.
void FloorBytes(const uint8_t* __restrict src, const uint16_t* __restrict weights,
                uint8_t* __restrict dst, size_t count) {
  for (size_t k = 0; k < count; ++k) dst[k] = static_cast<uint8_t>(src[k] ^ weights[k]);
}

void* FloorPass(void* arg) {
  auto* t = static_cast<FloorTask*>(arg);
  if (t->weights != nullptr) {
    FloorBytes(t->src, t->weights, t->dst, t->count);
  } else {
    memcpy(t->dst, t->src, t->count);
  }
  one_thread_done(t->pool);
  return nullptr;
}

void Pipeline_MemoryFloor(benchmark::State& state, int w, int h, bool cold) {
  Frames f(w, h, cold);
  CThread_pool* pool = nullptr;
  if (pool_init(&pool, 2) != 0) {
    state.SkipWithError("pool_init failed");
    return;
  }
  const size_t luma = size_t(w) * h, half = luma / 2;
  FloorTask tasks[4];
  size_t i = 0;
  for (auto _ : state) {
    FrameSet& set = f.sets[i++ % f.sets.size()];
    const uint8_t* s = set.src->hostData();
    uint8_t* d = set.dst->hostData();
    const uint16_t* wt = set.weights.data();
    tasks[0] = {s, wt, d, half, pool};
    tasks[1] = {s + half, wt + half, d + half, luma - half, pool};
    tasks[2] = {s + luma, nullptr, d + luma, luma / 4, pool};
    tasks[3] = {s + luma + luma / 4, nullptr, d + luma + luma / 4, luma / 2 - luma / 4, pool};
    reset_thread_done(pool);
    for (FloorTask& t : tasks) pool_add_worker(pool, FloorPass, &t);
    sync_thread_done(pool, 4);
  }
  Report(state, f);
  pool_destroy(pool);
}

void RegisterAll() {
  struct Case {
    int w, h, scale;
  };
  const Case cases[] = {
      {1920, 1080, 2}, {1920, 1080, 4}, {1920, 1080, 6}, {1920, 1080, 8}, {3840, 2160, 4}};
  for (bool cold : {false, true}) {
    const char* temp = cold ? "cold" : "hot";
    for (const Case& c : cases) {
      const std::string size = std::to_string(c.w) + "x" + std::to_string(c.h);
      const std::string tag = size + "/x" + std::to_string(c.scale) + "/" + temp;
      benchmark::RegisterBenchmark(("Pipeline_DofraBlurImage/" + tag + "/out_of_place").c_str(),
                                   Pipeline_DofraBlurImage, c.w, c.h, c.scale, cold, false)
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime();
      benchmark::RegisterBenchmark(("Pipeline_DofraBlurImage/" + tag + "/in_place").c_str(),
                                   Pipeline_DofraBlurImage, c.w, c.h, c.scale, cold, true)
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime();
      benchmark::RegisterBenchmark(("Pipeline_SingleThread/" + tag).c_str(), Pipeline_SingleThread,
                                   c.w, c.h, c.scale, cold)
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime();
    }
    for (const Case& c : {cases[0], cases[4]}) {
      const std::string tag = std::to_string(c.w) + "x" + std::to_string(c.h) + "/" + temp;
      benchmark::RegisterBenchmark(("Pipeline_MemoryFloor/" + tag).c_str(), Pipeline_MemoryFloor,
                                   c.w, c.h, cold)
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime();
    }
  }
}

[[maybe_unused]] const int kRegistered = (RegisterAll(), 0);

}  // namespace
