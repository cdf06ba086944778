// Memory floor of a whole frame: two threads read every source byte and
// weight once and write every destination byte once, half of each plane per
// thread. The second thread is kept running and released by a spin on an
// atomic counter, so the floor holds no hand-off cost of its own.
#include <benchmark/benchmark.h>

#include <atomic>
#include <thread>

#include "bench/floor_kernel.h"
#include "bench/frame_sets.h"

namespace {

using bench::Frames;
using bench::FrameSet;

// Spins briefly, then yields: on a loaded machine a partner that lost its CPU
// must not be held off by a spinning peer for a whole time slice.
class Backoff {
 public:
  void Pause() {
    if (++spins_ < kSpinsBeforeYield) {
#if defined(__x86_64__) || defined(__i386__)
      __builtin_ia32_pause();
#endif
    } else {
      std::this_thread::yield();
    }
  }

 private:
  static constexpr int kSpinsBeforeYield = 4096;
  int spins_ = 0;
};

// One half of each plane of one frame.
struct Half {
  const uint8_t* src = nullptr;
  const uint16_t* weights = nullptr;
  uint8_t* dst = nullptr;
  size_t luma = 0;    // bytes of this half's luma rows
  size_t chroma = 0;  // bytes of this half's chroma rows
  size_t chroma_offset = 0;

  void Run() const {
    bench::FloorLuma(src, weights, dst, luma);
    bench::FloorChroma(src + chroma_offset, dst + chroma_offset, chroma);
  }
};

// A helper thread that runs `work` each time the caller bumps `round`.
class SpinPartner {
 public:
  SpinPartner() : thread_([this] { Loop(); }) {}
  ~SpinPartner() {
    stop_.store(true, std::memory_order_release);
    round_.fetch_add(1, std::memory_order_release);
    thread_.join();
  }
  void Start(const Half& work) {
    work_ = work;
    round_.fetch_add(1, std::memory_order_release);
  }
  void Wait() const {
    Backoff backoff;
    while (done_.load(std::memory_order_acquire) != round_.load(std::memory_order_relaxed)) {
      backoff.Pause();
    }
  }

 private:
  void Loop() {
    for (uint32_t seen = 0;;) {
      uint32_t now;
      Backoff backoff;
      while ((now = round_.load(std::memory_order_acquire)) == seen) backoff.Pause();
      if (stop_.load(std::memory_order_acquire)) return;
      work_.Run();
      seen = now;
      done_.store(now, std::memory_order_release);
    }
  }

  Half work_;
  std::atomic<uint32_t> round_{0};
  std::atomic<uint32_t> done_{0};
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

void Pipeline_MemoryFloor(benchmark::State& state, int w, int h, bool cold) {
  Frames f(w, h, cold);
  SpinPartner partner;
  const size_t luma = size_t(w) * h, half = luma / 2;
  const size_t chroma = luma / 2, chroma_half = chroma / 2;
  for (auto _ : state) {
    FrameSet& set = f.Next();
    const uint8_t* s = set.src->hostData();
    uint8_t* d = set.dst->hostData();
    const uint16_t* wt = set.weights.data();
    partner.Start({s + half, wt + half, d + half, luma - half, chroma - chroma_half,
                   luma - half + chroma_half});
    Half{s, wt, d, half, chroma_half, luma}.Run();
    partner.Wait();
  }
  bench::Report(state, f);
}

void RegisterFloor() {
  for (bool cold : {false, true}) {
    for (const bench::Size& size : bench::kFrameSizes) {
      benchmark::RegisterBenchmark(
          ("Pipeline_MemoryFloor/" + bench::Tag(size.w, size.h, 0, cold)).c_str(),
          Pipeline_MemoryFloor, size.w, size.h, cold)
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime();
    }
  }
}

[[maybe_unused]] const int kRegistered = (RegisterFloor(), 0);

}  // namespace
