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

constexpr Size kDefaultSize{1920, 1080};
constexpr int kDefaultScale = 4;
constexpr int kDefaultFrames = 100;
constexpr int kMaxFrames = 100000;
constexpr int kBenchLevel = 1;
constexpr int kBarWidth = 40;

// Nearest-rank percentile of sorted values.
double Percentile(const std::vector<double>& sorted, double p) {
  const size_t rank = static_cast<size_t>(std::ceil(p / 100.0 * sorted.size()));
  return sorted[std::max<size_t>(rank, 1) - 1];
}

void ShowProgress(int done, int total) {
  const int filled = done * kBarWidth / total;
  printf("\r[%s%s] %d/%d", std::string(filled, '#').c_str(),
         std::string(kBarWidth - filled, '.').c_str(), done, total);
  if (done == total) printf("\n");
  fflush(stdout);
}

void PrintRow(const char* stage, std::vector<double> ms) {
  std::sort(ms.begin(), ms.end());
  printf("%-12s %9.3f %9.3f %9.3f\n", stage, Percentile(ms, 50), Percentile(ms, 90),
         Percentile(ms, 99));
}

}  // namespace

int RunBench(const std::vector<std::string>& args) {
  const Options options("bench", args, {"--size", "--scale", "--frames"}, {"--verbose"});
  const Size size = options.SizeOr("--size", kDefaultSize);
  if (size.width % 2 != 0 || size.height % 2 != 0) {
    throw InputError("--size must have an even width and height for NV21 frames");
  }
  const int scale = options.ScaleOr("--scale", kDefaultScale);
  const int frames = options.IntOr("--frames", kDefaultFrames, 1, kMaxFrames);

  std::unique_ptr<BlurSession> session = BlurSession::Open(size, scale, false);
  if (!session) {
    throw InputError("the library does not accept a " + std::to_string(size.width) + "x" +
                     std::to_string(size.height) + " frame at scale " + std::to_string(scale));
  }
  const Scene scene = MakeScene(size);
  const Size map_size = DefaultDisparitySize(size);
  WeightMapper mapper(size, map_size);
  mapper.SetDepth(SceneCalibration(), ResizeGray(scene.disparity, map_size.width, map_size.height));
  RgbaToNv21(scene.picture, session->source());
  session->PrimeDestination();
  session->SetWeights(mapper.weights());

  const bool progress = isatty(STDOUT_FILENO) != 0;
  std::vector<double> weight_ms, blur_ms;
  for (int i = 0; i < frames; ++i) {
    double t0 = NowMs();
    if (!mapper.Compute(kBenchLevel, scene.focus)) {
      throw std::runtime_error("weight_async_process failed (see --verbose)");
    }
    weight_ms.push_back(NowMs() - t0);
    t0 = NowMs();
    if (!session->Blur()) throw std::runtime_error("DofraBlurImage failed (see --verbose)");
    blur_ms.push_back(NowMs() - t0);
    if (progress) ShowProgress(i + 1, frames);
  }
  printf("%dx%d at scale %d, %d frames\n", size.width, size.height, scale, frames);
  printf("%-12s %9s %9s %9s\n", "ms/frame", "p50", "p90", "p99");
  PrintRow("weight map", weight_ms);
  PrintRow("blur", blur_ms);
  return 0;
}

}  // namespace dofra_tool
