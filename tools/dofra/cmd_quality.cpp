// dofra quality: how close the library's weight maps come to the map of the
// full-resolution disparity around depth edges, on generated scenes.
#include <cstdio>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "quality_edges.h"
#include "quality_glow.h"
#include "settings.h"

namespace dofra_tool {

namespace {

std::vector<OptionSpec> QualityOptions() {
  std::vector<OptionSpec> options = {
      {"--size", "WxH", "640x480", "scene size, one the library accepts"},
      {"--level", "L", "1", "blur level: 1 (strongest) .. 20 (none)"},
  };
  const std::vector<OptionSpec> tuning = TuningOptions();
  options.insert(options.end(), tuning.begin(), tuning.end());
  options.insert(options.end(), {
      {"--glow-only", nullptr, nullptr, "only the glow table (the edge tables take longer)"},
      {"--glow-picture", "FILE", nullptr,
       "also write a .png of the disc's edge: default, --no-bleed, --refine --no-bleed"},
      {"--verbose", nullptr, nullptr, "show the library's log lines"},
  });
  return options;
}

}  // namespace

const CommandSpec kQualityCommand = {
    "quality",
    "[--size WxH] [--level L] [--range-sigma S] [--purity-scale P] [--chroma-weight C]\n"
    "[--flat-spread F]",
    "Measures the weight maps made from disparity at W/8 and W/4 (box-resampled, as\n"
    "dofra blur gives it) against the map made from the full-resolution disparity with\n"
    "the same point of focus, in the band around depth edges, on generated scenes: the\n"
    "plain map, the plain map without its smoothing, and the refined map. Errors are on\n"
    "the 0..255 scale of a map picture; >32 is the share of pixels off by more than 32.\n"
    "Then the glow table: a bright disc in focus before a dark wall far behind it\n"
    "(1280x720, factor 4), blurred by each mode, and how much the wall 3 to 8 and 3 to 24\n"
    "pixels outside the disc is brighter than the same wall blurred alike without the\n"
    "disc, as a signed share of the disc-to-wall contrast.",
    QualityOptions()};

constexpr int kGlowCrop = 160;  // pixels a side of each crop of --glow-picture

int RunQuality(const std::vector<std::string>& args) {
  const Options options(kQualityCommand, args);
  EdgeSettings settings;
  settings.size = options.GetSize("--size");
  settings.level = options.GetLevel("--level");
  const DofraRefineTuning tuning = ParseTuning(options);
  settings.tuning = &tuning;
  printf("scenes %s, level %d\n", SizeText(settings.size).c_str(), settings.level);
  if (!options.Has("--glow-only"))
    for (const ScoreTable& table : MeasureEdges(settings)) printf("\n%s", FormatTable(table).c_str());
  // The glow scene has its own size, the one its figures are quoted at.
  GlowSettings glow;
  glow.level = settings.level;
  glow.tuning = &tuning;
  printf("\n%s", FormatGlowTable(MeasureGlow(glow)).c_str());
  if (options.Has("--glow-picture")) {
    const std::string path = options.Get("--glow-picture");
    if (!EndsWith(path, ".png")) throw InputError("--glow-picture must name a .png file");
    WritePng(path, GlowPicture(glow, kGlowCrop));
    printf("wrote %s\n", path.c_str());
  }
  return 0;
}

}  // namespace dofra_tool
