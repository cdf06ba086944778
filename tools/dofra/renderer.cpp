#include "renderer.h"

#include <algorithm>
#include <utility>

#include "commands.h"
#include "convert.h"
#include "fill.h"

namespace dofra_tool {

namespace {

// Unknown disparity filled from around it; the count for the summary line.
int64_t FillDisparity(const BlurSettings& s, const std::string& path, Image* disparity) {
  if (!s.fill_unknown) return 0;
  const auto& px = disparity->pixels;
  if (std::all_of(px.begin(), px.end(), [&](uint8_t v) { return v == s.unknown; })) {
    throw InputError(path + ": every pixel holds the unknown value " + std::to_string(s.unknown));
  }
  return FillUnknown(disparity, s.unknown);
}

}  // namespace

// A claimed size cannot cost more memory than the picture itself.
Size MapSizeFor(const BlurSettings& settings, Size picture) {
  if (!settings.has_map_size) return DefaultDisparitySize(picture);
  const Size size = settings.map_size;
  if (size.width > picture.width || size.height > picture.height) {
    throw InputError("--disparity-size " + SizeText(size) + " is larger than the " +
                     SizeText(picture) + " picture");
  }
  return size;
}

Image LoadDisparity(const Options& options, const BlurSettings& settings, Size picture,
                    int64_t* filled, Image* full) {
  const std::string path = options.Get("--disparity");
  Image disparity = ReadGrayMap(path, picture);
  const Size map_size = MapSizeFor(settings, picture);
  *filled = FillDisparity(settings, path, &disparity);
  if (full != nullptr) *full = disparity;
  return ResizeGray(disparity, map_size.width, map_size.height);
}

PictureInputs LoadPictureInputs(const Options& options, const BlurSettings& settings) {
  PictureInputs in;
  in.picture = ReadPicture(options.Get("--image"), &in.has_alpha);
  in.disparity = LoadDisparity(options, settings, {in.picture.width, in.picture.height}, &in.filled,
                               &in.full_disparity);
  return in;
}

double MapWeights(WeightMapper* mapper, const BlurSettings& settings, const Image& disparity,
                  Point focus) {
  mapper->SetDepth(settings.calib, disparity);
  const double t0 = NowMs();
  if (!mapper->Compute(settings.level, focus)) {
    throw InputError("the library refused the weight-map request (run with --verbose to see why)");
  }
  return NowMs() - t0;
}

DofraNoBleed NoBleedMode(const BlurSettings& settings) {
  return {settings.no_bleed ? 1 : 0, settings.level, settings.pullback, settings.threshold};
}

PictureRenderer::PictureRenderer(PictureInputs inputs) : inputs_(std::move(inputs)) {}

FittedFrame& PictureRenderer::Frame(int scale) {
  std::unique_ptr<FittedFrame>& frame = frames_[scale];
  if (!frame) frame.reset(new FittedFrame(picture_size(), scale));
  return *frame;
}

double PictureRenderer::PlainWeights(const BlurSettings& settings, Point focus) {
  if (!mapper_) mapper_.reset(new WeightMapper(picture_size(), map_size()));
  const double ms = MapWeights(mapper_.get(), settings, inputs_.disparity, focus);
  const Size size = picture_size();
  weights_.assign(mapper_->weights(),
                  mapper_->weights() + static_cast<size_t>(size.width) * size.height);
  return ms;
}

// The map size: --disparity-size, else the default of the padded frame.
double PictureRenderer::RefinedWeights(const FittedFrame& fitted, const BlurSettings& settings,
                                       Point focus) {
  const Size frame = fitted.frame();
  const Size map = settings.has_map_size ? settings.map_size : DefaultDisparitySize(frame);
  std::unique_ptr<WeightMapper>& refiner = refiners_[settings.scale];
  if (!refiner || refiner->disparity().width != map.width ||
      refiner->disparity().height != map.height) {
    refiner.reset(new WeightMapper(frame, map, MapMethod::kRefined));
  }
  refiner->SetTuning(&settings.tuning);  // read during this call only
  return RefinePictureWeights(fitted, inputs_.full_disparity, settings.calib, settings.level, focus,
                              refiner.get(), &weights_);
}

CallTimes PictureRenderer::Render(const BlurSettings& settings, Point focus) {
  FittedFrame& fitted = Frame(settings.scale);
  // Loaded afresh each time: rows the blur leaves alone keep the input's,
  // and the refined map reads it as its guide.
  fitted.Load(inputs_.picture);
  CallTimes times;
  times.weight_ms =
      settings.refine ? RefinedWeights(fitted, settings, focus) : PlainWeights(settings, focus);
  fitted.SetWeights(weights_.data());
  fitted.SetNoBleed(NoBleedMode(settings));
  const double t0 = NowMs();
  if (!fitted.Blur()) throw std::runtime_error("DofraBlurImage failed (see --verbose)");
  times.blur_ms = NowMs() - t0;
  scale_ = settings.scale;
  return times;
}

Image PictureRenderer::Output() const {
  Image out = Result();
  if (inputs_.has_alpha) {
    for (size_t i = 3; i < out.pixels.size(); i += 4) out.pixels[i] = inputs_.picture.pixels[i];
    return out;
  }
  Image rgb(out.width, out.height, 3);
  for (size_t i = 0, j = 0; i < out.pixels.size(); i += 4, j += 3) {
    std::copy(&out.pixels[i], &out.pixels[i] + 3, &rgb.pixels[j]);
  }
  return rgb;
}

}  // namespace dofra_tool
