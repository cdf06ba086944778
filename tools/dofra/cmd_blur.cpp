// dofra blur: a photograph (PNG or JPEG) or a raw NV21 frame, blurred under
// the weight map computed from its disparity map.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "convert.h"
#include "engine.h"
#include "fill.h"
#include "fitted.h"
#include "paths.h"

namespace dofra_tool {

const CommandSpec kBlurCommand = {
    "blur",
    "--image IN.png|IN.jpg --disparity DISP.png|DISP.jpg -o OUT.png [options]\n"
    "--nv21 IN.yuv --size WxH --disparity DISP.png|DISP.jpg -o OUT.yuv [options]",
    "Blurs a photograph, or a raw NV21 frame, under the weight map computed from its\n"
    "8-bit disparity map (larger = nearer, any resolution up to the picture's).",
    {
        {"--image", "FILE", nullptr, "PNG or JPEG photograph, padded to a size the library takes"},
        {"--nv21", "FILE", nullptr, "raw NV21 frame instead (W x H luma, W x H/2 chroma)"},
        {"--size", "WxH", nullptr, "size of the --nv21 frame"},
        {"--disparity", "FILE", nullptr, "8-bit gray PNG or JPEG disparity map"},
        {"--output", "FILE", nullptr, ".png for a photograph, .yuv for a raw frame", "-o"},
        {"--weights", "FILE", nullptr, "also write the weight map as a gray .png"},
        {"--refine", nullptr, "off", "refine the weight map with the picture (DofraRefineWeightMap)"},
        {"--focus", "X,Y", nullptr, "point in focus, in picture pixels (default: the centre)"},
        {"--scale", "S", "4", "blur factor: 2, 4, 6 or 8"},
        {"--level", "L", "1", "blur level: 1 (strongest) .. 20 (none)"},
        // Depth = 2400 / (disparity + 6): suits 8-bit maps where 255 is nearest.
        {"--calib", "A,B,M,N", "1572864000,65536,1280,320", "disparity-to-depth calibration"},
        {"--disparity-size", "WxH", nullptr,
         "map size given to the library, at most the picture's (default: W/8 x H/8)"},
        {"--unknown", "V", "0", "disparity value that marks unknown pixels, filled from around"},
        {"--keep-unknown", nullptr, nullptr, "pass unknown pixels on as they are"},
        {"--verbose", nullptr, nullptr, "show the library's log lines"},
    }};

namespace {

constexpr int kMaxDisparityValue = 255;

struct Request {
  int scale;
  int level;
  Calibration calib;
  std::string disparity_path;
  std::string out_path;
  std::string weights_path;
  bool has_focus;
  Point focus;
  bool fill_unknown;
  uint8_t unknown;
  bool refine;
};

Request ParseRequest(const Options& options) {
  Request r;
  r.scale = options.GetScale("--scale");
  r.level = options.GetLevel("--level");
  r.calib = ParseCalibration(options.Get("--calib"));
  r.disparity_path = options.Get("--disparity");
  r.out_path = options.Get("--output");
  r.weights_path = options.Has("--weights") ? options.Get("--weights") : "";
  r.has_focus = options.Has("--focus");
  if (r.has_focus) r.focus = ParsePoint("--focus", options.Get("--focus"));
  r.fill_unknown = !options.Has("--keep-unknown");
  if (!r.fill_unknown && options.Has("--unknown")) {
    throw InputError("--unknown and --keep-unknown exclude each other");
  }
  r.unknown = static_cast<uint8_t>(options.GetInt("--unknown", 0, kMaxDisparityValue));
  r.refine = options.Has("--refine");
  if (!r.weights_path.empty() && !EndsWith(r.weights_path, ".png")) {
    throw InputError("--weights must name a .png file, not '" + r.weights_path + "'");
  }
  CheckOutputPath(r.out_path);
  if (!r.weights_path.empty()) CheckOutputPath(r.weights_path);
  const std::string input = options.Has("--image") ? "--image" : "--nv21";
  CheckNoOverwrite({{input, options.Get(input)}, {"--disparity", r.disparity_path}},
                   {{"-o", r.out_path}, {"--weights", r.weights_path}});
  return r;
}

Point FocusFor(const Request& r, Size picture) {
  const Point focus = r.has_focus ? r.focus : Point{picture.width / 2, picture.height / 2};
  if (focus.x < 0 || focus.y < 0 || focus.x >= picture.width || focus.y >= picture.height) {
    throw InputError("focus point " + std::to_string(focus.x) + "," + std::to_string(focus.y) +
                     " lies outside the " + SizeText(picture) + " image");
  }
  return focus;
}

// The map size handed to the library: at most the picture's, so a claimed
// size cannot cost more memory than the picture itself.
Size MapSizeFor(const Options& options, Size picture) {
  if (!options.Has("--disparity-size")) return DefaultDisparitySize(picture);
  const Size size = options.GetSize("--disparity-size");
  if (size.width > picture.width || size.height > picture.height) {
    throw InputError("--disparity-size " + SizeText(size) + " is larger than the " +
                     SizeText(picture) + " picture");
  }
  return size;
}

// Unknown disparity filled from around it; the count for the summary line.
int64_t FillDisparity(const Request& r, Image* disparity) {
  if (!r.fill_unknown) return 0;
  const auto& px = disparity->pixels;
  if (std::all_of(px.begin(), px.end(), [&](uint8_t v) { return v == r.unknown; })) {
    throw InputError(r.disparity_path + ": every pixel holds the unknown value " +
                     std::to_string(r.unknown));
  }
  return FillUnknown(disparity, r.unknown);
}

// The weight map of a frame from its (filled) disparity map; the refined
// one is guided by the frame's NV21 bytes (nv21).
std::unique_ptr<WeightMapper> MapWeights(const Request& r, const Image& disparity, Size frame,
                                         Size map_size, Point focus, const uint8_t* nv21) {
  std::unique_ptr<WeightMapper> mapper(
      new WeightMapper(frame, map_size, r.refine ? MapMethod::kRefined : MapMethod::kPlain));
  mapper->SetDepth(r.calib, ResizeGray(disparity, map_size.width, map_size.height));
  mapper->SetGuide(nv21);
  if (!mapper->Compute(r.level, focus)) {
    throw InputError("the library refused the weight-map request (run with --verbose to see why)");
  }
  return mapper;
}

// A picture's weights and their picture: the plain map at the picture's
// size, or the refined one through the fitted frame.
struct PictureWeights {
  std::vector<uint16_t> weights;
  Image picture;
};

PictureWeights WeightsFor(const Request& r, const Options& options, const Image& disparity,
                          const FittedFrame& fitted, Size size, Point focus) {
  PictureWeights out;
  if (r.refine) {
    const Size map_size = options.Has("--disparity-size") ? MapSizeFor(options, size)
                                                          : DefaultDisparitySize(fitted.frame());
    out.weights = RefinedPictureWeights(fitted, size, disparity, map_size, r.calib, r.level, focus,
                                        &out.picture);
    return out;
  }
  std::unique_ptr<WeightMapper> mapper =
      MapWeights(r, disparity, size, MapSizeFor(options, size), focus, nullptr);
  const size_t pixels = static_cast<size_t>(size.width) * size.height;
  out.weights.assign(mapper->weights(), mapper->weights() + pixels);
  out.picture = mapper->WeightPicture();
  return out;
}

std::string Summary(const Request& r, Size size, const char* kind, Point focus, int64_t filled) {
  return "wrote " + r.out_path + " (" + SizeText(size) + kind + ", scale " +
         std::to_string(r.scale) + ", level " + std::to_string(r.level) + ", focus " +
         std::to_string(focus.x) + "," + std::to_string(focus.y) + ", " + std::to_string(filled) +
         " unknown disparity pixels filled)";
}

// The RGBA result as it goes to the file: the input's alpha, or plain RGB.
Image WithInputAlpha(Image out, const Image& picture, bool has_alpha) {
  if (has_alpha) {
    for (size_t i = 3; i < out.pixels.size(); i += 4) out.pixels[i] = picture.pixels[i];
    return out;
  }
  Image rgb(out.width, out.height, 3);
  for (size_t i = 0, j = 0; i < out.pixels.size(); i += 4, j += 3) {
    std::copy(&out.pixels[i], &out.pixels[i] + 3, &rgb.pixels[j]);
  }
  return rgb;
}

int BlurPicture(const Options& options, const Request& r) {
  if (!EndsWith(r.out_path, ".png")) {
    throw InputError("-o must name a .png file for a picture, not '" + r.out_path + "'");
  }
  bool has_alpha = false;
  const Image picture = ReadPicture(options.Get("--image"), &has_alpha);
  const Size size{picture.width, picture.height};
  Image disparity = ReadGrayMap(r.disparity_path, size);
  const Point focus = FocusFor(r, size);

  FittedFrame fitted(size, r.scale);
  if (fitted.padded()) printf("%s\n", fitted.PaddingNote().c_str());
  const int64_t filled = FillDisparity(r, &disparity);
  fitted.Load(picture);
  const PictureWeights weights = WeightsFor(r, options, disparity, fitted, size, focus);
  fitted.SetWeights(weights.weights.data());
  if (!fitted.Blur()) throw std::runtime_error("DofraBlurImage failed (see --verbose)");

  const Image out = WithInputAlpha(fitted.Result(), picture, has_alpha);
  if (!r.weights_path.empty()) WritePng(r.weights_path, weights.picture);
  WritePng(r.out_path, out);
  printf("%s\n", Summary(r, size, "", focus, filled).c_str());
  return 0;
}

// Names the accepted sizes on either side of a refused raw frame size.
std::string RawRefusal(Size size, int scale) {
  std::string text = "the library does not accept a " + SizeText(size) + " NV21 frame at scale " +
                     std::to_string(scale);
  const Size smaller = NearestAccepted(size, scale, Direction::kSmaller);
  const Size larger = NearestAccepted(size, scale, Direction::kLarger);
  if (smaller.width == 0 && larger.width == 0) return text;
  text += "; nearest accepted sizes:";
  if (smaller.width != 0) text += " " + SizeText(smaller) + " (smaller)";
  if (smaller.width != 0 && larger.width != 0) text += ",";
  if (larger.width != 0) text += " " + SizeText(larger) + " (larger)";
  return text;
}

int BlurRaw(const Options& options, const Request& r) {
  if (!EndsWith(r.out_path, ".yuv")) {
    throw InputError("-o must name a .yuv file for a raw frame, not '" + r.out_path + "'");
  }
  const Size size = options.GetSize("--size");
  const std::string& path = options.Get("--nv21");
  const size_t expected = Nv21Bytes(size.width, size.height);
  struct stat info;
  if (stat(path.c_str(), &info) == 0 && static_cast<uint64_t>(info.st_size) != expected) {
    throw InputError(path + " holds " + std::to_string(info.st_size) + " bytes, but a " +
                     SizeText(size) + " NV21 frame has " + std::to_string(expected));
  }
  const std::vector<uint8_t> frame_bytes = ReadBytes(path);
  Image disparity = ReadGrayMap(r.disparity_path, size);
  const Point focus = FocusFor(r, size);
  const Size map_size = MapSizeFor(options, size);
  std::unique_ptr<BlurSession> session = BlurSession::Open(size, r.scale);
  if (!session) throw InputError(RawRefusal(size, r.scale));
  const int64_t filled = FillDisparity(r, &disparity);
  std::copy(frame_bytes.begin(), frame_bytes.end(), session->source());
  session->PrimeDestination();
  std::unique_ptr<WeightMapper> mapper =
      MapWeights(r, disparity, size, map_size, focus, session->source());
  session->SetWeights(mapper->weights());
  if (!session->Blur()) throw std::runtime_error("DofraBlurImage failed (see --verbose)");
  if (!r.weights_path.empty()) WritePng(r.weights_path, mapper->WeightPicture());
  const uint8_t* out = session->destination();
  WriteBytes(r.out_path, std::vector<uint8_t>(out, out + expected));
  printf("%s\n", Summary(r, size, " NV21", focus, filled).c_str());
  return 0;
}

}  // namespace

int RunBlur(const std::vector<std::string>& args) {
  const Options options(kBlurCommand, args);
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
