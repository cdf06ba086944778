// A picture of any size blurred on a frame the library accepts: padded by
// edge replication to the nearest accepted size, cropped back afterwards.
#ifndef DOFRA_TOOLS_FITTED_H
#define DOFRA_TOOLS_FITTED_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cli.h"
#include "engine.h"
#include "image_io.h"

namespace dofra_tool {

class FittedFrame {
 public:
  // Throws InputError when the library accepts no size near the picture's.
  FittedFrame(Size picture, int scale);

  Size frame() const { return session_->frame(); }
  bool padded() const;
  // One line telling the padding, for the command's output.
  std::string PaddingNote() const;

  // An RGBA picture of the picture's size into the source frame, and the
  // destination primed with it.
  void Load(const Image& rgba);
  // A weight map of the picture's size, grown to the frame by replication.
  void SetWeights(const uint16_t* weights);
  // The no-glow blur on or off for the next frames (after SetWeights).
  void SetNoBleed(const DofraNoBleed& mode) { session_->SetNoBleed(mode); }
  // One frame through DofraBlurImage; false when the library refuses.
  bool Blur() { return session_->Blur(); }
  // The destination frame as RGBA, cropped to the picture.
  Image Result() const;
  // The NV21 frames themselves (frame size, row stride = frame width).
  const uint8_t* source() const { return session_->source(); }
  const uint8_t* destination() const { return session_->destination(); }

 private:
  Size picture_;
  int scale_;
  std::unique_ptr<BlurSession> session_;
  std::vector<uint16_t> weights_;
};

// The refined weight map of the picture loaded into `fitted`, by `mapper` (a
// refined mapper of the fitted frame's size): computed on the padded frame
// from the picture's full-size disparity padded alike and resampled to the
// mapper's map size, then cropped back into `weights` (the picture's size).
// The time the library took; InputError when it refuses.
double RefinePictureWeights(const FittedFrame& fitted, const Image& disparity,
                            const Calibration& calib, int level, Point focus, WeightMapper* mapper,
                            std::vector<uint16_t>* weights);

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_FITTED_H
