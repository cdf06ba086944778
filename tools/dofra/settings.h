// The settings of one blur of a picture, shared by `dofra blur` and
// `dofra view`: the options that carry them, their parsing and range checks.
#ifndef DOFRA_TOOLS_SETTINGS_H
#define DOFRA_TOOLS_SETTINGS_H

#include <cstdint>
#include <vector>

#include "cli.h"
#include <dofra_quality.h>

namespace dofra_tool {

// --focus, --scale, --level, --calib, --disparity-size, --unknown,
// --keep-unknown and --refine, with their help and defaults.
std::vector<OptionSpec> SettingOptions();

// The library's defaults of the refined map's tuning.
DofraRefineTuning DefaultTuning();

struct BlurSettings {
  int scale = 0;
  int level = 0;
  Calibration calib;
  bool has_focus = false;
  Point focus;
  bool fill_unknown = true;
  uint8_t unknown = 0;
  bool has_map_size = false;
  Size map_size;        // --disparity-size
  bool refine = false;  // DofraRefineWeightMap instead of weight_async_process
  DofraRefineTuning tuning = DefaultTuning();  // the refined map's tuning
  // The no-glow blur (DofraSetNoBleed): its pullback in frame pixels and
  // its threshold in eighths of the full weight.
  bool no_bleed = false;
  int pullback = 2;
  int threshold = 6;
};


// Throws InputError naming the first option that is malformed or out of range.
BlurSettings ParseBlurSettings(const Options& options);

// The refined map's tuning options (--range-sigma, --purity-scale,
// --chroma-weight, --flat-spread), shared with dofra quality.
std::vector<OptionSpec> TuningOptions();
DofraRefineTuning ParseTuning(const Options& options);

// The point in focus: the one given, else the picture's centre; refused
// outside the picture.
Point FocusFor(const BlurSettings& settings, Size picture);

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_SETTINGS_H
