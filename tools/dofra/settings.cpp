#include "settings.h"

namespace dofra_tool {

namespace {

constexpr int kMaxDisparityValue = 255;
constexpr int kMaxPullback = 8;   // DOFRA_NO_BLEED_PULLBACK_MAX: the library refuses more
constexpr int kMaxThreshold = 8;  // DOFRA_NO_BLEED_THRESHOLD_MAX

}  // namespace

std::vector<OptionSpec> TuningOptions() {
  return {
      {"--range-sigma", "S", "12", "refined map: colour distance of weight 0.70 (1..64)"},
      {"--purity-scale", "P", "4", "refined map: purity distance of weight 0.70 (1..64)"},
      {"--chroma-weight", "C", "2", "refined map: chroma distance counted in quarters (0..8)"},
      {"--flat-spread", "F", "2", "refined map: samples this close stay bilinear (0..255)"},
  };
}

std::vector<OptionSpec> SettingOptions() {
  std::vector<OptionSpec> options = {
      {"--focus", "X,Y", nullptr, "point in focus, in picture pixels (default: the centre)"},
      {"--scale", "S", "4", "blur factor: 2, 4, 6 or 8"},
      {"--level", "L", "1", "blur level: 1 (strongest) .. 20 (none)"},
      // Depth = 2400 / (disparity + 6): suits 8-bit maps where 255 is nearest.
      {"--calib", "A,B,M,N", "1572864000,65536,1280,320", "disparity-to-depth calibration"},
      {"--disparity-size", "WxH", nullptr,
       "map size given to the library, at most the picture's (default: W/8 x H/8)"},
      {"--unknown", "V", "0", "disparity value that marks unknown pixels, filled from around"},
      {"--keep-unknown", nullptr, nullptr, "pass unknown pixels on as they are"},
      {"--refine", nullptr, "off", "refine the weight map with the picture (DofraRefineWeightMap)"},
  };
  const std::vector<OptionSpec> tuning = TuningOptions();
  options.insert(options.end(), tuning.begin(), tuning.end());
  options.insert(options.end(), {
      // The no-glow blur.
      {"--no-bleed", nullptr, "off",
       "keep in-focus colours out of the blurred background (DofraSetNoBleed)"},
      {"--pullback", "N", "2", "no-glow blur: frame pixels kept clear of the subject (0..8)"},
      {"--threshold", "N", "6",
       "no-glow blur: a map pixel counts as blurred from N eighths of full weight (1..8)"},
  });
  return options;
}

DofraRefineTuning DefaultTuning() {
  return {DOFRA_REFINE_RANGE_SIGMA_DEFAULT, DOFRA_REFINE_PURITY_SCALE_DEFAULT,
          DOFRA_REFINE_CHROMA_WEIGHT_DEFAULT, DOFRA_REFINE_FLAT_SPREAD_DEFAULT};
}

DofraRefineTuning ParseTuning(const Options& options) {
  DofraRefineTuning t;
  t.range_sigma = options.GetInt("--range-sigma", 1, 64);
  t.purity_scale = options.GetInt("--purity-scale", 1, 64);
  t.chroma_weight = options.GetInt("--chroma-weight", 0, 8);
  t.flat_spread = options.GetInt("--flat-spread", 0, 255);
  return t;
}

BlurSettings ParseBlurSettings(const Options& options) {
  BlurSettings s;
  s.scale = options.GetScale("--scale");
  s.level = options.GetLevel("--level");
  s.calib = ParseCalibration(options.Get("--calib"));
  s.has_focus = options.Has("--focus");
  if (s.has_focus) s.focus = ParsePoint("--focus", options.Get("--focus"));
  s.fill_unknown = !options.Has("--keep-unknown");
  if (!s.fill_unknown && options.Has("--unknown")) {
    throw InputError("--unknown and --keep-unknown exclude each other");
  }
  s.unknown = static_cast<uint8_t>(options.GetInt("--unknown", 0, kMaxDisparityValue));
  s.has_map_size = options.Has("--disparity-size");
  if (s.has_map_size) s.map_size = options.GetSize("--disparity-size");
  s.refine = options.Has("--refine");
  s.tuning = ParseTuning(options);
  s.no_bleed = options.Has("--no-bleed");
  s.pullback = options.GetInt("--pullback", 0, kMaxPullback);
  s.threshold = options.GetInt("--threshold", 1, kMaxThreshold);
  return s;
}

Point FocusFor(const BlurSettings& settings, Size picture) {
  const Point focus =
      settings.has_focus ? settings.focus : Point{picture.width / 2, picture.height / 2};
  if (focus.x < 0 || focus.y < 0 || focus.x >= picture.width || focus.y >= picture.height) {
    throw InputError("focus point " + std::to_string(focus.x) + "," + std::to_string(focus.y) +
                     " lies outside the " + SizeText(picture) + " image");
  }
  return focus;
}

}  // namespace dofra_tool
