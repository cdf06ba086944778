#include "fitted.h"

#include <algorithm>
#include <cstring>

#include "commands.h"
#include "convert.h"

namespace dofra_tool {

FittedFrame::FittedFrame(Size picture, int scale) : picture_(picture), scale_(scale) {
  const Size frame = NearestAccepted(picture, scale, Direction::kLarger);
  if (frame.width != 0) session_ = BlurSession::Open(frame, scale);
  if (!session_) {
    throw InputError("the library accepts no frame size near " + SizeText(picture) + " at scale " +
                     std::to_string(scale));
  }
}

bool FittedFrame::padded() const {
  return frame().width != picture_.width || frame().height != picture_.height;
}

std::string FittedFrame::PaddingNote() const {
  return "padding " + SizeText(picture_) + " to " + SizeText(frame()) +
         " (a size the library accepts at scale " + std::to_string(scale_) +
         "); the result is cropped back";
}

void FittedFrame::Load(const Image& rgba) {
  const Size f = frame();
  RgbaToNv21(padded() ? PadByReplication(rgba, f.width, f.height) : rgba, session_->source());
  session_->PrimeDestination();
}

void FittedFrame::SetWeights(const uint16_t* weights) {
  const Size f = frame();
  weights_.resize(static_cast<size_t>(f.width) * f.height);
  PadWeights(weights, picture_, weights_.data(), f);
  session_->SetWeights(weights_.data());
}

Image FittedFrame::Result() const {
  const Size f = frame();
  const Image out = Nv21ToRgba(session_->destination(), f.width, f.height);
  return padded() ? Crop(out, picture_.width, picture_.height) : out;
}

double RefinePictureWeights(const FittedFrame& fitted, const Image& disparity,
                            const Calibration& calib, int level, Point focus, WeightMapper* mapper,
                            std::vector<uint16_t>* weights) {
  const Size frame = fitted.frame(), map = mapper->disparity();
  const Size picture = {disparity.width, disparity.height};
  const bool same = frame.width == picture.width && frame.height == picture.height;
  const Image padded = same ? disparity : PadByReplication(disparity, frame.width, frame.height);
  mapper->SetDepth(calib, ResizeGray(padded, map.width, map.height));
  mapper->SetGuide(fitted.source());
  const double t0 = NowMs();
  if (!mapper->Compute(level, focus)) {
    throw InputError("the library refused the refined weight map (run with --verbose to see why)");
  }
  const double ms = NowMs() - t0;
  weights->resize(static_cast<size_t>(picture.width) * picture.height);
  for (int y = 0; y < picture.height; ++y)
    std::copy_n(mapper->weights() + static_cast<size_t>(y) * frame.width, picture.width,
                weights->data() + static_cast<size_t>(y) * picture.width);
  return ms;
}

}  // namespace dofra_tool
