// The same operation written with stock OpenCV calls, on the same NV21
// planes: area shrink, 5x5 box blur, linear enlarge, per-pixel blend under
// the weight map. Built only when OpenCV is installed; it shows what the
// library buys a user over the obvious alternative.
#include <benchmark/benchmark.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench/frame_sets.h"

namespace {

using bench::Frames;
using bench::FrameSet;

// One plane's pipeline with every intermediate allocated once.
struct PeerPlane {
  PeerPlane(int w, int h, int channels, int scale) : small_size(w / scale, h / scale) {
    type = CV_8UC(channels);
    sharp_weight.create(h, w, CV_32F);
    blur_weight.create(h, w, CV_32F);
  }
  // The blend's float weights, from the 0..1024 map sampled every `step` pixels.
  void SetWeights(const uint16_t* map, int map_width, int step) {
    for (int y = 0; y < blur_weight.rows; ++y) {
      for (int x = 0; x < blur_weight.cols; ++x) {
        const float w =
            map[size_t(y) * step * map_width + size_t(x) * step] / float(bench::kWeightOne);
        blur_weight.at<float>(y, x) = w;
        sharp_weight.at<float>(y, x) = 1.0f - w;
      }
    }
  }
  void Run(uint8_t* src, uint8_t* dst) {
    const cv::Mat in(blur_weight.size(), type, src), out(blur_weight.size(), type, dst);
    cv::resize(in, small, small_size, 0, 0, cv::INTER_AREA);
    cv::blur(small, smooth, cv::Size(bench::kKernel, bench::kKernel));
    cv::resize(smooth, large, in.size(), 0, 0, cv::INTER_LINEAR);
    cv::blendLinear(in, large, sharp_weight, blur_weight, out);
  }

  cv::Size small_size;
  int type;
  cv::Mat sharp_weight, blur_weight, small, smooth, large;
};

void Peer_OpenCV(benchmark::State& state, int w, int h, int scale, bool cold, int threads) {
  const int default_threads = cv::getNumThreads();
  cv::setNumThreads(threads);
  Frames f(w, h, cold);
  PeerPlane luma(w, h, 1, scale), chroma(w / 2, h / 2, 2, scale);
  // The peer's float weights are built once from the first set and reused:
  // a small advantage to the peer when cold.
  luma.SetWeights(f.sets[0].weights.data(), w, 1);
  chroma.SetWeights(f.sets[0].weights.data(), w, 2);
  const size_t luma_bytes = size_t(w) * h;
  for (auto _ : state) {
    FrameSet& set = f.Next();
    luma.Run(set.src->hostData(), set.dst->hostData());
    chroma.Run(set.src->hostData() + luma_bytes, set.dst->hostData() + luma_bytes);
  }
  bench::Report(state, f);
  state.counters["threads"] = cv::getNumThreads();
  cv::setNumThreads(default_threads);
}

void RegisterPeer() {
  const int default_threads = cv::getNumThreads();
  for (bool cold : {false, true}) {
    for (const bench::Size& size : bench::kFrameSizes) {
      for (int s : bench::kFactors) {
        for (int threads : {1, default_threads}) {
          const std::string name = "Peer_OpenCV/" + bench::Tag(size.w, size.h, s, cold) +
                                   (threads == 1 ? "/one_thread" : "/default_threads");
          benchmark::RegisterBenchmark(name.c_str(), Peer_OpenCV, size.w, size.h, s, cold, threads)
              ->Unit(benchmark::kMillisecond)
              ->UseRealTime();
        }
      }
    }
  }
}

[[maybe_unused]] const int kRegistered = (RegisterPeer(), 0);

}  // namespace
