// A photograph blurred under its disparity map exactly as `dofra blur` does
// it, for `dofra blur` itself and for `dofra view`, which renders the same
// picture again for every change of settings.
#ifndef DOFRA_TOOLS_RENDERER_H
#define DOFRA_TOOLS_RENDERER_H

#include <cstdint>
#include <map>
#include <memory>

#include "cli.h"
#include "engine.h"
#include "fitted.h"
#include "image_io.h"
#include "settings.h"

namespace dofra_tool {

// The picture (--image) and its disparity map (--disparity), read, checked
// and prepared for the library.
struct PictureInputs {
  Image picture;  // RGBA
  bool has_alpha = false;
  Image disparity;       // unknown pixels filled as asked, resampled to the map size
  Image full_disparity;  // the same at the picture's size, for the refined map
  int64_t filled = 0;    // unknown pixels filled
};

// Reads both files; the map size comes from --disparity-size (at most the
// picture's) or the default. Bad input throws InputError.
PictureInputs LoadPictureInputs(const Options& options, const BlurSettings& settings);
// The map size handed to the library: --disparity-size, at most the
// picture's, else the default.
Size MapSizeFor(const BlurSettings& settings, Size picture);
// The --disparity map of a picture of this size, filled (at the picture's
// size into *full when given) and resampled.
Image LoadDisparity(const Options& options, const BlurSettings& settings, Size picture,
                    int64_t* filled, Image* full = nullptr);
// The weight map into the mapper; the time the library took. InputError when
// it refuses the request.
double MapWeights(WeightMapper* mapper, const BlurSettings& settings, const Image& disparity,
                  Point focus);

// The no-glow mode record the settings ask for (enable 0 when off).
DofraNoBleed NoBleedMode(const BlurSettings& settings);

// What each library call of one render took.
struct CallTimes {
  double weight_ms = 0;
  double blur_ms = 0;
};

class PictureRenderer {
 public:
  explicit PictureRenderer(PictureInputs inputs);

  const PictureInputs& inputs() const { return inputs_; }
  Size picture_size() const { return {inputs_.picture.width, inputs_.picture.height}; }
  Size map_size() const { return {inputs_.disparity.width, inputs_.disparity.height}; }

  // The frame of a factor, opened on first use; InputError when none fits.
  FittedFrame& Frame(int scale);
  // The weight map (refined with --refine), then one frame through the blur;
  // InputError when the library refuses the weight-map request.
  CallTimes Render(const BlurSettings& settings, Point focus);

  // Of the last render: the frame, the weights (picture size), the result as
  // RGBA and as `dofra blur` writes it (with the input's alpha, else RGB).
  const FittedFrame& frame() const { return *frames_.at(scale_); }
  const uint16_t* weights() const { return weights_.data(); }
  Image WeightPicture() const { return WeightPictureOf(weights_.data(), picture_size()); }
  Image Result() const { return frame().Result(); }
  Image Output() const;

 private:
  double PlainWeights(const BlurSettings& settings, Point focus);
  double RefinedWeights(const FittedFrame& fitted, const BlurSettings& settings, Point focus);

  PictureInputs inputs_;
  std::unique_ptr<WeightMapper> mapper_;
  // The refined map runs on the padded frame: one mapper per factor.
  std::map<int, std::unique_ptr<WeightMapper>> refiners_;
  std::map<int, std::unique_ptr<FittedFrame>> frames_;
  std::vector<uint16_t> weights_;  // of the last render, picture size
  int scale_ = 0;
};

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_RENDERER_H
