// dofra demo: the built-in scene through every blur factor, as pictures and
// a table of stage timings.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "convert.h"
#include "engine.h"
#include "fitted.h"
#include "scene.h"

namespace dofra_tool {

namespace {

constexpr int kTimedFrames = 5;  // blur timing: median of these
constexpr int kSheetColumns = 3;
constexpr int kSheetDivisor = 3;  // sheet tiles are a third of the frame
constexpr int kSheetGap = 6;

struct Timing {
  std::string stage;
  double ms;
};

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// Tiles in reading order, `per_row` a row, on a white background.
Image MakeSheet(const std::vector<const Image*>& tiles, int per_row = kSheetColumns) {
  const int tile_w = std::max(2, tiles[0]->width / kSheetDivisor);
  const int tile_h = std::max(2, tiles[0]->height / kSheetDivisor);
  const int columns = std::min<int>(per_row, static_cast<int>(tiles.size()));
  const int rows = (static_cast<int>(tiles.size()) + columns - 1) / columns;
  Image sheet(columns * tile_w + (columns + 1) * kSheetGap, rows * tile_h + (rows + 1) * kSheetGap,
              4);
  std::fill(sheet.pixels.begin(), sheet.pixels.end(), 255);
  for (size_t i = 0; i < tiles.size(); ++i) {
    const Image small = ResizeRgba(*tiles[i], tile_w, tile_h);
    const int left = kSheetGap + static_cast<int>(i % columns) * (tile_w + kSheetGap);
    const int top = kSheetGap + static_cast<int>(i / columns) * (tile_h + kSheetGap);
    for (int y = 0; y < tile_h; ++y) {
      std::memcpy(sheet.Row(top + y) + 4 * left, small.Row(y), 4 * static_cast<size_t>(tile_w));
    }
  }
  return sheet;
}

Image GrayToRgba(const Image& gray) {
  Image rgba(gray.width, gray.height, 4);
  for (size_t i = 0; i < gray.pixels.size(); ++i) {
    std::memset(&rgba.pixels[4 * i], gray.pixels[i], 3);
    rgba.pixels[4 * i + 3] = 255;
  }
  return rgba;
}

void PrintTable(const std::vector<Timing>& timings) {
  printf("%-38s %10s\n", "stage", "ms");
  for (const Timing& t : timings) printf("%-38s %10.3f\n", t.stage.c_str(), t.ms);
}

}  // namespace

const CommandSpec kDemoCommand = {
    "demo",
    "[--out DIR] [--size WxH] [--scale S] [--level L] [--verbose]",
    "Blurs a generated scene (a ball in focus before pillars and a far skyline) at every\n"
    "factor, writes the pictures and prints the time of each stage. A size the library\n"
    "refuses at a factor is padded to the nearest size it accepts and cropped back.\n"
    "The first factor is also blurred under the refined weight map (guided by the frame):\n"
    "refined.png shows both maps above both blurs, plain left, refined right.\n"
    "The first factor is blurred once more with the no-glow blur (DofraSetNoBleed) under\n"
    "each map: no_bleed.png shows the blurs without it above those with it, plain left,\n"
    "refined right.",
    {
        {"--out", "DIR", "out/demo", "directory of the pictures"},
        {"--size", "WxH", "1920x1080", "frame size"},
        {"--scale", "S", nullptr, "only this factor: 2, 4, 6 or 8 (default: all four)"},
        {"--level", "L", "1", "blur level: 1 (strongest) .. 20 (none)"},
        {"--verbose", nullptr, nullptr, "show the library's log lines"},
    }};

int RunDemo(const std::vector<std::string>& args) {
  const Options options(kDemoCommand, args);
  const std::string out_dir = options.Get("--out");
  const Size size = options.GetSize("--size");
  const int level = options.GetLevel("--level");
  std::vector<int> scales = {2, 4, 6, 8};
  if (options.Has("--scale")) scales = {options.GetScale("--scale")};

  // Every factor finds its frame before anything is written.
  std::vector<std::pair<int, std::unique_ptr<FittedFrame>>> frames;
  std::vector<Timing> timings;
  for (int scale : scales) {
    const double t0 = NowMs();
    std::unique_ptr<FittedFrame> fitted(new FittedFrame(size, scale));
    timings.push_back({"DofraInit x" + std::to_string(scale), NowMs() - t0});
    if (fitted->padded()) printf("%s\n", fitted->PaddingNote().c_str());
    frames.emplace_back(scale, std::move(fitted));
  }
  MakeDirectories(out_dir);

  double t0 = NowMs();
  const Scene scene = MakeScene(size);
  timings.insert(timings.begin(), {"scene " + SizeText(size), NowMs() - t0});
  const Size map_size = DefaultDisparitySize(size);
  t0 = NowMs();
  const Image disparity = ResizeGray(scene.disparity, map_size.width, map_size.height);
  timings.push_back({"disparity map " + SizeText(map_size), NowMs() - t0});

  t0 = NowMs();
  WeightMapper mapper(size, map_size);
  timings.push_back({"weight_init", NowMs() - t0});
  mapper.SetDepth(SceneCalibration(), disparity);
  t0 = NowMs();
  if (!mapper.Compute(level, scene.focus)) {
    throw InputError("the library refused the weight-map request (see --verbose)");
  }
  timings.push_back({"weight_async_process", NowMs() - t0});

  std::vector<Image> outputs;
  for (auto& entry : frames) {
    FittedFrame& fitted = *entry.second;
    t0 = NowMs();
    fitted.Load(scene.picture);
    timings.push_back({"RGBA to NV21", NowMs() - t0});
    fitted.SetWeights(mapper.weights());
    std::vector<double> frame_ms;
    for (int i = 0; i < kTimedFrames; ++i) {
      t0 = NowMs();
      if (!fitted.Blur()) throw std::runtime_error("DofraBlurImage failed");
      frame_ms.push_back(NowMs() - t0);
    }
    timings.push_back({"DofraBlurImage x" + std::to_string(entry.first) + " (median of " +
                           std::to_string(kTimedFrames) + ")",
                       Median(frame_ms)});
    t0 = NowMs();
    outputs.push_back(fitted.Result());
    timings.push_back({"NV21 to RGBA", NowMs() - t0});
  }

  // The first factor again, under the refined map.
  FittedFrame& first = *frames.front().second;
  WeightMapper refiner(first.frame(), DefaultDisparitySize(first.frame()), MapMethod::kRefined);
  std::vector<uint16_t> refined;
  const double refine_ms = RefinePictureWeights(first, scene.disparity, SceneCalibration(), level,
                                                scene.focus, &refiner, &refined);
  timings.push_back({"refined weight map x" + std::to_string(frames[0].first), refine_ms});
  const Image refined_picture = WeightPictureOf(refined.data(), size);
  first.SetWeights(refined.data());
  if (!first.Blur()) throw std::runtime_error("DofraBlurImage failed");
  const Image refined_blur = first.Result();

  // The first factor with the no-glow blur, under each map.
  const DofraNoBleed no_bleed_on = {1, level, DOFRA_NO_BLEED_PULLBACK_DEFAULT,
                                    DOFRA_NO_BLEED_THRESHOLD_DEFAULT};
  std::vector<Image> no_bleed;
  for (uint16_t* weights : {mapper.weights(), refined.data()}) {
    first.SetWeights(weights);
    first.SetNoBleed(no_bleed_on);
    t0 = NowMs();
    if (!first.Blur()) throw std::runtime_error("DofraBlurImage failed");
    timings.push_back({std::string("DofraBlurImage --no-bleed") +
                           (no_bleed.empty() ? "" : " --refine") + " x" +
                           std::to_string(frames[0].first),
                       NowMs() - t0});
    no_bleed.push_back(first.Result());
  }

  t0 = NowMs();
  const Image weight_picture = mapper.WeightPicture();
  const Image weights = GrayToRgba(weight_picture);
  WritePng(out_dir + "/input.png", scene.picture);
  WritePng(out_dir + "/weights.png", weight_picture);
  std::vector<const Image*> tiles = {&scene.picture, &weights};
  for (size_t i = 0; i < outputs.size(); ++i) {
    WritePng(out_dir + "/blur_x" + std::to_string(frames[i].first) + ".png", outputs[i]);
    tiles.push_back(&outputs[i]);
  }
  WritePng(out_dir + "/side_by_side.png", MakeSheet(tiles));
  const Image refined_weights = GrayToRgba(refined_picture);
  const std::string refined_name = "/blur_x" + std::to_string(frames[0].first) + "_refined.png";
  WritePng(out_dir + "/weights_refined.png", refined_picture);
  WritePng(out_dir + refined_name, refined_blur);
  WritePng(out_dir + "/refined.png",
           MakeSheet({&weights, &refined_weights, &outputs[0], &refined_blur}, 2));
  const std::string no_bleed_name = "/blur_x" + std::to_string(frames[0].first) + "_no_bleed.png";
  WritePng(out_dir + no_bleed_name, no_bleed[0]);
  WritePng(out_dir + "/no_bleed.png",
           MakeSheet({&outputs[0], &refined_blur, &no_bleed[0], &no_bleed[1]}, 2));
  timings.push_back({"PNG files", NowMs() - t0});

  printf("scene %s, focus %d,%d, level %d; pictures in %s\n", SizeText(size).c_str(), scene.focus.x,
         scene.focus.y, level, out_dir.c_str());
  PrintTable(timings);
  return 0;
}

}  // namespace dofra_tool
