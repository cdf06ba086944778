// dofra blur: a photograph (PNG or JPEG) or a raw NV21 frame, blurred under
// the weight map computed from its disparity map.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "convert.h"
#include "engine.h"

namespace dofra_tool {

namespace {

constexpr int kDefaultScale = 4;
constexpr int kDefaultLevel = 1;
// Depth = 2400 / (disparity + 6): suits 8-bit maps where 255 is nearest.
constexpr char kDefaultCalibration[] = "1572864000,65536,1280,320";

struct Request {
  int scale;
  int level;
  Calibration calib;
  std::string disparity_path;
  std::string out_path;
  std::string weights_path;
  bool has_focus;
  Point focus;
  bool has_map_size;
  Size map_size;
};

Request ParseRequest(const Options& options) {
  Request r;
  r.scale = options.ScaleOr("--scale", kDefaultScale);
  r.level = options.LevelOr("--level", kDefaultLevel);
  r.calib = ParseCalibration(options.GetOr("--calib", kDefaultCalibration));
  r.disparity_path = options.Get("--disparity");
  r.out_path = options.Get("--output");
  r.weights_path = options.GetOr("--weights", "");
  r.has_focus = options.Has("--focus");
  if (r.has_focus) r.focus = ParsePoint("--focus", options.Get("--focus"));
  r.has_map_size = options.Has("--disparity-size");
  if (r.has_map_size) r.map_size = ParseSize("--disparity-size", options.Get("--disparity-size"));
  if (!r.weights_path.empty() && !EndsWith(r.weights_path, ".png")) {
    throw InputError("--weights must name a .png file, not '" + r.weights_path + "'");
  }
  CheckOutputPath(r.out_path);
  if (!r.weights_path.empty()) CheckOutputPath(r.weights_path);
  return r;
}

std::string SizeText(Size s) { return std::to_string(s.width) + "x" + std::to_string(s.height); }

Point FocusFor(const Request& r, Size picture) {
  const Point focus = r.has_focus ? r.focus : Point{picture.width / 2, picture.height / 2};
  if (focus.x < 0 || focus.y < 0 || focus.x >= picture.width || focus.y >= picture.height) {
    throw InputError("focus point " + std::to_string(focus.x) + "," + std::to_string(focus.y) +
                     " lies outside the " + SizeText(picture) + " image");
  }
  return focus;
}

// Weight map for a frame of session's size from a disparity picture that
// covers `covered` of it (the rest is padding, filled by replication).
std::unique_ptr<WeightMapper> MapWeights(const Request& r, const Image& disparity_picture,
                                         Size covered, Size frame, Point focus) {
  Image disparity = ResizeGray(disparity_picture, covered.width, covered.height);
  if (covered.width != frame.width || covered.height != frame.height) {
    disparity = PadByReplication(disparity, frame.width, frame.height);
  }
  const Size map_size = r.has_map_size ? r.map_size : DefaultDisparitySize(frame);
  std::unique_ptr<WeightMapper> mapper(new WeightMapper(frame, map_size));
  mapper->SetDepth(r.calib, ResizeGray(disparity, map_size.width, map_size.height));
  if (!mapper->Compute(r.level, focus)) {
    throw InputError("the library refused the weight-map request (run with --verbose to see why)");
  }
  return mapper;
}

void Blur(BlurSession* session, WeightMapper* mapper) {
  session->PrimeDestination();
  session->SetWeights(mapper->weights());
  if (!session->Blur()) throw std::runtime_error("DofraBlurImage failed (see --verbose)");
}

int BlurPicture(const Options& options, const Request& r) {
  if (!EndsWith(r.out_path, ".png")) {
    throw InputError("-o must name a .png file for a picture, not '" + r.out_path + "'");
  }
  bool has_alpha = false;
  const Image picture = ReadPicture(options.Get("--image"), &has_alpha);
  const Image disparity = ReadGrayMap(r.disparity_path);
  const Size size{picture.width, picture.height};
  const Point focus = FocusFor(r, size);

  std::unique_ptr<BlurSession> session = BlurSession::OpenNearest(size, r.scale);
  if (!session) {
    throw InputError("the library accepts no frame size near " + SizeText(size) + " at scale " +
                     std::to_string(r.scale));
  }
  const Size frame = session->frame();
  const bool padded = frame.width != size.width || frame.height != size.height;
  if (padded) {
    printf(
        "padding %s to %s (a size the library accepts at scale %d); the result is cropped back\n",
        SizeText(size).c_str(), SizeText(frame).c_str(), r.scale);
  }
  std::unique_ptr<WeightMapper> mapper = MapWeights(r, disparity, size, frame, focus);
  RgbaToNv21(padded ? PadByReplication(picture, frame.width, frame.height) : picture,
             session->source());
  Blur(session.get(), mapper.get());

  Image out = Nv21ToRgba(session->destination(), frame.width, frame.height);
  if (padded) out = Crop(out, size.width, size.height);
  if (has_alpha) {
    for (size_t i = 3; i < out.pixels.size(); i += 4) out.pixels[i] = picture.pixels[i];
  } else {
    Image rgb(size.width, size.height, 3);
    for (size_t i = 0, j = 0; i < out.pixels.size(); i += 4, j += 3) {
      rgb.pixels[j] = out.pixels[i];
      rgb.pixels[j + 1] = out.pixels[i + 1];
      rgb.pixels[j + 2] = out.pixels[i + 2];
    }
    out = std::move(rgb);
  }
  if (!r.weights_path.empty()) {
    const Image weights = mapper->WeightPicture();
    WritePng(r.weights_path, padded ? Crop(weights, size.width, size.height) : weights);
  }
  WritePng(r.out_path, out);
  printf("wrote %s (%s, scale %d, level %d, focus %d,%d)\n", r.out_path.c_str(),
         SizeText(size).c_str(), r.scale, r.level, focus.x, focus.y);
  return 0;
}

int BlurRaw(const Options& options, const Request& r) {
  if (!EndsWith(r.out_path, ".yuv")) {
    throw InputError("-o must name a .yuv file for a raw frame, not '" + r.out_path + "'");
  }
  const Size size = ParseSize("--size", options.Get("--size"));
  const std::vector<uint8_t> frame_bytes = ReadBytes(options.Get("--nv21"));
  const size_t expected = Nv21Bytes(size.width, size.height);
  if (frame_bytes.size() != expected) {
    throw InputError(options.Get("--nv21") + " holds " + std::to_string(frame_bytes.size()) +
                     " bytes, but a " + SizeText(size) + " NV21 frame has " +
                     std::to_string(expected));
  }
  const Image disparity = ReadGrayMap(r.disparity_path);
  const Point focus = FocusFor(r, size);
  std::unique_ptr<BlurSession> session = BlurSession::Open(size, r.scale, false);
  if (!session) {
    throw InputError("the library does not accept a " + SizeText(size) + " frame at scale " +
                     std::to_string(r.scale));
  }
  std::unique_ptr<WeightMapper> mapper = MapWeights(r, disparity, size, size, focus);
  std::copy(frame_bytes.begin(), frame_bytes.end(), session->source());
  Blur(session.get(), mapper.get());
  if (!r.weights_path.empty()) WritePng(r.weights_path, mapper->WeightPicture());
  const uint8_t* out = session->destination();
  WriteBytes(r.out_path, std::vector<uint8_t>(out, out + expected));
  printf("wrote %s (%s NV21, scale %d, level %d, focus %d,%d)\n", r.out_path.c_str(),
         SizeText(size).c_str(), r.scale, r.level, focus.x, focus.y);
  return 0;
}

}  // namespace

int RunBlur(const std::vector<std::string>& args) {
  const Options options("blur", args,
                        {"--image", "--nv21", "--size", "--disparity", "--focus", "--level",
                         "--scale", "--calib", "--disparity-size", "--output", "--weights"},
                        {"--verbose"}, {{"-o", "--output"}});
  const bool raw = options.Has("--nv21");
  if (raw == options.Has("--image")) {
    throw InputError("'dofra blur' needs exactly one of --image and --nv21");
  }
  if (raw != options.Has("--size")) {
    throw InputError(raw ? "--nv21 needs --size WxH" : "--size is for --nv21 frames only");
  }
  const Request request = ParseRequest(options);
  return raw ? BlurRaw(options, request) : BlurPicture(options, request);
}

}  // namespace dofra_tool
