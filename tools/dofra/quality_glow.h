// The glow measurement: how much a bright subject in focus brightens the
// blurred wall around it, on the generated disc-and-wall scene, for the
// default blur and the opt-in modes.
#ifndef DOFRA_TOOLS_QUALITY_GLOW_H
#define DOFRA_TOOLS_QUALITY_GLOW_H

#include <dofra_quality.h>

#include <string>
#include <vector>

#include "cli.h"
#include "image_io.h"

namespace dofra_tool {

struct GlowSettings {
  Size size{1280, 720};
  int scale = 4;
  int level = 1;
  double radius = 150;                        // of the disc, in pixels
  std::vector<int> pullbacks = {2, 3, 4};     // --no-bleed rows beside the default
  std::vector<int> thresholds = {4, 8};       // and with the default pullback
  const DofraRefineTuning* tuning = nullptr;  // the library's defaults
};

// The rings of wall measured: pixels this far outside the disc's edge.
constexpr int kGlowNear[2] = {3, 8};
constexpr int kGlowWide[2] = {3, 24};

// One mode: the mean brightening of the wall in each ring against the same
// wall blurred by the same mode and map without the disc, as a signed share
// (percent) of the disc-to-wall contrast.
struct GlowRow {
  std::string label;  // the dofra blur options of the mode
  bool refine = false;
  bool no_bleed = false;
  int pullback = DOFRA_NO_BLEED_PULLBACK_DEFAULT;
  int threshold = DOFRA_NO_BLEED_THRESHOLD_DEFAULT;
  double near = 0, wide = 0;
};

struct GlowTable {
  std::string title;
  std::vector<GlowRow> rows;
};

// Rows default, --no-bleed (the defaults, then each of `pullbacks` and of
// `thresholds`), --refine, --refine --no-bleed (alike).
GlowTable MeasureGlow(const GlowSettings& settings);
std::string FormatGlowTable(const GlowTable& table);

// Before and after: crop x crop pixels at the disc's right edge, blurred by
// default, with --no-bleed and with --refine --no-bleed, side by side (RGBA).
Image GlowPicture(const GlowSettings& settings, int crop);

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_QUALITY_GLOW_H
