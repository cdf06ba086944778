// The tool's use of the library, exactly as a camera host drives it: a blur
// handle per frame size and factor, a weight context on a record of the
// tool's own, NV21 frames in graphics buffers.
#ifndef DOFRA_TOOLS_ENGINE_H
#define DOFRA_TOOLS_ENGINE_H

#include <dofra_depth.h>
#include <dofra_quality.h>

#include <memory>
#include <vector>

#include "cli.h"
#include "image_io.h"

namespace android {
class GraphicBuffer;
}

namespace dofra_tool {

// Shows the library's log lines on stderr (verbose) or drops them.
void SetLibraryLogVisible(bool visible);

// Drops the library's log lines for its lifetime (used while probing sizes).
class LogSilence {
 public:
  LogSilence();
  ~LogSilence();
  LogSilence(const LogSilence&) = delete;
  LogSilence& operator=(const LogSilence&) = delete;
};

// The kernel set the library picks on this CPU ("avx2", "sse4.1", "neon",
// "scalar"), found by the same detection.
const char* DetectedKernels();

// The disparity map size the tool gives a frame: one sample per 8 x 8 pixels.
Size DefaultDisparitySize(Size frame);

// Whether DofraInit accepts this frame size at this factor (its log dropped).
bool Accepts(Size frame, int scale);

enum class Direction { kSmaller, kLarger };
// The accepted size (both sides even) closest in area to `frame` that is no
// larger, or no smaller, on either side; {0, 0} if none is within 64 pixels.
Size NearestAccepted(Size frame, int scale, Direction direction);

// A W x H weight map as an 8-bit picture: 0 black (sharp) .. 1024 white
// (blurred).
Image WeightPictureOf(const uint16_t* weights, Size size);

// How a WeightMapper computes its map.
enum class MapMethod {
  kPlain,       // weight_async_process, as a host calls it
  kUnsmoothed,  // the same with a smoothing kernel of 1 (no smoothing)
  kRefined,     // DofraRefineWeightMap with the frame as the guide
};

// A weight context hung on a zero-filled handle record of the tool's own,
// so it never touches (or leaks) the blank context of a blur handle; for the
// refined map, on a DofraInit handle of its own (the refinement runs on its
// workers), whose blank record it releases first.
class WeightMapper {
 public:
  // Throws InputError when the library refuses the sizes.
  WeightMapper(Size frame, Size disparity, MapMethod method = MapMethod::kPlain);
  ~WeightMapper();
  WeightMapper(const WeightMapper&) = delete;
  WeightMapper& operator=(const WeightMapper&) = delete;

  // The depth block: calibration header followed by dW x dH disparity bytes.
  void SetDepth(const Calibration& calib, const Image& disparity);
  // The guide of the refined map: an NV21 frame of the map's size, borrowed.
  void SetGuide(const uint8_t* nv21) { guide_ = nv21; }
  // Null for the library's defaults.
  void SetTuning(const DofraRefineTuning* tuning) { tuning_ = tuning; }
  // Computes the W x H map into weights(); false when the library refuses.
  bool Compute(int level, Point focus);

  Size frame() const { return frame_; }
  Size disparity() const { return disparity_; }
  uint16_t* weights() { return weights_.data(); }
  // The weights as an 8-bit picture: 0 black (sharp) .. 1024 white (blurred).
  Image WeightPicture() const { return WeightPictureOf(weights_.data(), frame_); }

 private:
  Size frame_;
  Size disparity_;
  MapMethod method_;
  DofraHandle record_{};
  DofraHandle* handle_ = &record_;
  const uint8_t* guide_ = nullptr;
  const DofraRefineTuning* tuning_ = nullptr;
  std::vector<uint8_t> depth_block_;
  std::vector<uint16_t> weights_;
};

// A blur handle with its source and destination frames.
class BlurSession {
 public:
  // nullptr when DofraInit refuses the size or factor.
  static std::unique_ptr<BlurSession> Open(Size frame, int scale);
  ~BlurSession();
  BlurSession(const BlurSession&) = delete;
  BlurSession& operator=(const BlurSession&) = delete;

  Size frame() const { return frame_; }
  uint8_t* source();
  uint8_t* destination();
  // Copies the source frame into the destination, so rows the blur leaves
  // alone read as sharp.
  void PrimeDestination();

  void SetWeights(uint16_t* weights);
  // The no-glow blur on (with its level and pullback) or off, for the next
  // frames; needs the weights set. Throws when the library refuses.
  void SetNoBleed(const DofraNoBleed& mode);
  // One frame through DofraBlurImage; false when the library refuses.
  bool Blur();

 private:
  BlurSession(Size frame, DofraHandle* handle);

  Size frame_;
  DofraHandle* handle_;
  DofraWeightMapInfo info_{};
  std::unique_ptr<android::GraphicBuffer> src_;
  std::unique_ptr<android::GraphicBuffer> dst_;
};

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_ENGINE_H
