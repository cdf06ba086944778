// Whole frames through DofraBlurImage (two workers and the caller) beside the
// same kernels single-threaded in one band per plane, every factor, hot and
// cold; and a 64x64 frame, where the hand-off to the workers is all the cost.
#include <android/log.h>
#include <benchmark/benchmark.h>

#include <vector>

#include "bench/frame_sets.h"
#include "blur/dispatch.h"
#include "dofra_depth.h"

using namespace dofra;  // the library's internal names

namespace {

using bench::Frames;
using bench::FrameSet;
using bench::kKernel;

constexpr int kRadius = kKernel / 2;
constexpr int kTinyRepetitions = 15;  // the 64x64 frame reports their median

void DropLog(int, const char*, const char*, void*) {}

void Pipeline_DofraBlurImage(benchmark::State& state, int w, int h, int scale, bool cold,
                             bool in_place) {
  host_log_set_sink(DropLog, nullptr);
  Frames f(w, h, cold);
  DofraParams params{w, h, w / 8, h / 8, kKernel, 0, scale, kKernel};
  DofraHandle* handle = nullptr;
  if (DofraInit(&handle, &params) != 0) {
    host_log_set_sink(nullptr, nullptr);
    state.SkipWithError("DofraInit refused the frame");
    return;
  }
  for (auto _ : state) {
    FrameSet& set = f.Next();
    DofraWeightMapInfo info{{0, 0, 0}, set.weights.data()};
    DofraCreateWeightMap(handle, &info);
    DofraBlurImage(handle, set.src.get(), in_place ? set.src.get() : set.dst.get());
  }
  bench::Report(state, f);
  state.SetLabel(SimdLevelName(ActiveSimdLevel()));
  DofraDeinit(handle);
  host_log_set_sink(nullptr, nullptr);
}

// The pipeline's kernels on the caller's thread, one band per plane.
struct SingleBand {
  SingleBand(int w, int h, int scale)
      : W(w),
        H(h),
        sw(w / scale),
        sh(h / scale),
        i(FactorSlot(scale)),
        kernel(kKernel, 1024 / kKernel),
        tmp(size_t(h) * sw * 3 / 2),
        small(size_t(sw) * sh * 3 / 2),
        smooth(small.size()),
        pad_y(size_t(sw + 2 * kRadius) * (sh + 2 * kRadius)),
        pad_uv(size_t(sw + 4 * kRadius) * (sh / 2 + 2 * kRadius)),
        integral(size_t(sw + 4 * kRadius) * (sh + 2 * kRadius + 1) * 4) {}

  void Run(const uint8_t* src, const uint16_t* weights, uint8_t* dst) {
    const BlurKernelTable& t = ActiveBlurKernels();
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
  for (auto _ : state) {
    FrameSet& set = f.Next();
    band.Run(set.src->hostData(), set.weights.data(), set.dst->hostData());
    benchmark::ClobberMemory();
  }
  bench::Report(state, f);
  state.SetLabel(SimdLevelName(ActiveSimdLevel()));
}

void RegisterFrames() {
  for (bool cold : {false, true}) {
    for (const bench::Size& size : bench::kFrameSizes) {
      for (int s : bench::kFactors) {
        const std::string tag = bench::Tag(size.w, size.h, s, cold);
        benchmark::RegisterBenchmark(("Pipeline_DofraBlurImage/" + tag + "/out_of_place").c_str(),
                                     Pipeline_DofraBlurImage, size.w, size.h, s, cold, false)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
        benchmark::RegisterBenchmark(("Pipeline_DofraBlurImage/" + tag + "/in_place").c_str(),
                                     Pipeline_DofraBlurImage, size.w, size.h, s, cold, true)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
        benchmark::RegisterBenchmark(("Pipeline_SingleThread/" + tag).c_str(),
                                     Pipeline_SingleThread, size.w, size.h, s, cold)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
      }
    }
  }
}

// A frame of almost no work: its time is the hand-off between threads.
void RegisterTinyFrame() {
  for (int s : {2, 4, 8}) {
    benchmark::RegisterBenchmark(("Pipeline_SmallFrame/" + bench::Tag(64, 64, s, false)).c_str(),
                                 Pipeline_DofraBlurImage, 64, 64, s, false, false)
        ->Unit(benchmark::kMicrosecond)
        ->UseRealTime()
        ->Repetitions(kTinyRepetitions)
        ->ReportAggregatesOnly(true);
  }
}

[[maybe_unused]] const int kRegistered = (RegisterFrames(), RegisterTinyFrame(), 0);

}  // namespace
