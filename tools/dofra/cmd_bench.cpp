// dofra bench: N frames through the library, with per-frame percentiles of
// the weight-map computation and of the blur.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "convert.h"
#include "engine.h"
#include "scene.h"

namespace dofra_tool {

namespace {

constexpr int kMaxFrames = 100000;
constexpr int kBenchLevel = 1;
constexpr int kBarWidth = 40;
constexpr size_t kFlushBytes = size_t{64} << 20;  // beyond the last-level cache of common hosts

void ShowProgress(int done, int total) {
  const int filled = done * kBarWidth / total;
  printf("\r[%s%s] %d/%d", std::string(filled, '#').c_str(),
         std::string(kBarWidth - filled, '.').c_str(), done, total);
  if (done == total) printf("\n");
  fflush(stdout);
}

void PrintRow(const std::string& stage, std::vector<double> ms) {
  std::sort(ms.begin(), ms.end());
  printf("%-26s %9.3f %9.3f %9.3f\n", stage.c_str(), Percentile(ms, 50), Percentile(ms, 90),
         Percentile(ms, 99));
}

// Pushes the frames, the weight map and the library's buffers out of every
// cache level by writing a buffer larger than the caches.
class CacheFlusher {
 public:
  CacheFlusher() : bytes_(kFlushBytes) {}
  void Flush() {
    std::fill(bytes_.begin(), bytes_.end(), ++round_);
    sink_ = bytes_[round_ % bytes_.size()];
  }

 private:
  std::vector<uint8_t> bytes_;
  uint8_t round_ = 0;
  volatile uint8_t sink_ = 0;
};

struct Timings {
  std::vector<double> weight_ms;
  std::vector<double> refined_ms;
  std::vector<double> blur_ms;
  std::vector<double> no_bleed_ms;  // the same frame with the no-glow blur
};

// The no-glow blur on the bench's handle: level 1, the default pullback.
constexpr DofraNoBleed kNoBleedOn = {1, kBenchLevel, DOFRA_NO_BLEED_PULLBACK_DEFAULT,
                                     DOFRA_NO_BLEED_THRESHOLD_DEFAULT};
constexpr DofraNoBleed kNoBleedOff = {0, 0, 0, 0};

double TimeBlur(BlurSession* session, CacheFlusher* flusher) {
  if (flusher) flusher->Flush();
  const double t0 = NowMs();
  if (!session->Blur()) throw std::runtime_error("DofraBlurImage failed (see --verbose)");
  return NowMs() - t0;
}

// One weight map, timed alone.
double TimeMap(WeightMapper* mapper, Point focus, CacheFlusher* flusher) {
  if (flusher) flusher->Flush();
  const double t0 = NowMs();
  if (!mapper->Compute(kBenchLevel, focus)) {
    throw std::runtime_error("the weight map failed (see --verbose)");
  }
  return NowMs() - t0;
}

// frames x (weight map, refined map when asked, blur, no-glow blur when
// asked), each timed alone; cold frames flush the caches first.
Timings Measure(WeightMapper* mapper, WeightMapper* refiner, BlurSession* session, Point focus,
                int frames, bool cold, bool no_bleed, int* done, int total) {
  std::unique_ptr<CacheFlusher> flusher(cold ? new CacheFlusher : nullptr);
  const bool progress = isatty(STDOUT_FILENO) != 0;
  Timings t;
  for (int i = 0; i < frames; ++i) {
    t.weight_ms.push_back(TimeMap(mapper, focus, flusher.get()));
    if (refiner) t.refined_ms.push_back(TimeMap(refiner, focus, flusher.get()));
    t.blur_ms.push_back(TimeBlur(session, flusher.get()));
    if (no_bleed) {
      session->SetNoBleed(kNoBleedOn);
      t.no_bleed_ms.push_back(TimeBlur(session, flusher.get()));
      session->SetNoBleed(kNoBleedOff);
    }
    if (progress) ShowProgress(++*done, total);
  }
  return t;
}

double Median(std::vector<double> ms) {
  std::sort(ms.begin(), ms.end());
  return Percentile(ms, 50);
}

}  // namespace

const CommandSpec kBenchCommand = {
    "bench",
    "[--size WxH] [--scale S] [--frames N] [--cache hot|cold|both] [--refine] [--no-bleed]\n"
    "[--verbose]",
    "Times the weight map and the blur of N frames of the generated scene and prints\n"
    "percentiles. Hot frames reuse one frame that stays in the caches; before each cold\n"
    "frame a 64 MiB write pushes the frames and the library's buffers out of them.\n"
    "--refine also times the refined weight map (guided by the frame), interleaved\n"
    "with the others, and its median against the plain map's. --no-bleed also times\n"
    "each frame again with the no-glow blur on (level 1, pullback 2, threshold 6),\n"
    "and its median against the default blur's.",
    {
        {"--size", "WxH", "1920x1080", "frame size, one the library accepts"},
        {"--scale", "S", "4", "blur factor: 2, 4, 6 or 8"},
        {"--frames", "N", "100", "frames per cache state"},
        {"--cache", "STATE", "both", "hot, cold or both"},
        {"--refine", nullptr, "off", "also time the refined weight map"},
        {"--no-bleed", nullptr, "off", "also time the no-glow blur (DofraSetNoBleed)"},
        {"--verbose", nullptr, nullptr, "show the library's log lines"},
    }};

int RunBench(const std::vector<std::string>& args) {
  const Options options(kBenchCommand, args);
  const Size size = options.GetSize("--size");
  if (size.width % 2 != 0 || size.height % 2 != 0) {
    throw InputError("--size must have an even width and height for NV21 frames");
  }
  const int scale = options.GetScale("--scale");
  const int frames = options.GetInt("--frames", 1, kMaxFrames);
  const std::string cache = options.Get("--cache");
  if (cache != "hot" && cache != "cold" && cache != "both") {
    throw InputError("--cache must be hot, cold or both, not '" + cache + "'");
  }

  std::unique_ptr<BlurSession> session = BlurSession::Open(size, scale);
  if (!session) {
    throw InputError("the library does not accept a " + SizeText(size) + " frame at scale " +
                     std::to_string(scale) + " (dofra demo pads to a size it accepts)");
  }
  const Scene scene = MakeScene(size);
  const Size map_size = DefaultDisparitySize(size);
  WeightMapper mapper(size, map_size);
  mapper.SetDepth(SceneCalibration(), ResizeGray(scene.disparity, map_size.width, map_size.height));
  RgbaToNv21(scene.picture, session->source());
  session->PrimeDestination();
  session->SetWeights(mapper.weights());
  std::unique_ptr<WeightMapper> refiner;
  if (options.Has("--refine")) {
    refiner.reset(new WeightMapper(size, map_size, MapMethod::kRefined));
    refiner->SetDepth(SceneCalibration(),
                      ResizeGray(scene.disparity, map_size.width, map_size.height));
    refiner->SetGuide(session->source());
  }

  std::vector<bool> states;
  if (cache != "cold") states.push_back(false);
  if (cache != "hot") states.push_back(true);
  std::vector<std::pair<const char*, Timings>> results;
  int done = 0;
  const int total = frames * static_cast<int>(states.size());
  for (bool cold : states) {
    results.emplace_back(cold ? "cold" : "hot", Measure(&mapper, refiner.get(), session.get(),
                                                        scene.focus, frames, cold,
                                                        options.Has("--no-bleed"), &done, total));
  }
  printf("%s at scale %d, %d frames per cache state, %s kernels (detected)\n",
         SizeText(size).c_str(), scale, frames, DetectedKernels());
  printf("%-26s %9s %9s %9s\n", "ms/frame", "p50", "p90", "p99");
  for (const auto& result : results) {
    PrintRow(std::string("weight map, ") + result.first, result.second.weight_ms);
    if (refiner) PrintRow(std::string("weight map --refine, ") + result.first, result.second.refined_ms);
    PrintRow(std::string("blur, ") + result.first, result.second.blur_ms);
    if (!result.second.no_bleed_ms.empty())
      PrintRow(std::string("blur --no-bleed, ") + result.first, result.second.no_bleed_ms);
  }
  for (const auto& result : results) {
    if (!refiner) break;
    printf("refined / plain weight map, %s: %.2f (medians)\n", result.first,
           Median(result.second.refined_ms) / Median(result.second.weight_ms));
  }
  for (const auto& result : results) {
    if (result.second.no_bleed_ms.empty()) break;
    printf("blur --no-bleed / blur, %s: %.2f (medians)\n", result.first,
           Median(result.second.no_bleed_ms) / Median(result.second.blur_ms));
  }
  return 0;
}

}  // namespace dofra_tool
