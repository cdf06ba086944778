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
  bool raw;  // --nv21 rather than --image
  std::string input_path;
  Size raw_size;  // --size of a raw frame
  int scale;
  int level;
  Calibration calib;
  std::string disparity_path;
  std::string out_path;
  std::string weights_path;
  bool has_focus;
  Point focus;
  bool has_map_size;
  Size map_size;  // --disparity-size
  bool fill_unknown;
  uint8_t unknown;
};

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
Size MapSizeFor(const Request& r, Size picture) {
  if (!r.has_map_size) return DefaultDisparitySize(picture);
  if (r.map_size.width > picture.width || r.map_size.height > picture.height) {
    throw InputError("--disparity-size " + SizeText(r.map_size) + " is larger than the " +
                     SizeText(picture) + " picture");
  }
  return r.map_size;
}

Request ParseRequest(const Options& options) {
  Request r;
  r.raw = options.Has("--nv21");
  r.input_path = options.Get(r.raw ? "--nv21" : "--image");
  if (r.raw) r.raw_size = options.GetSize("--size");
  r.scale = options.GetScale("--scale");
  r.level = options.GetLevel("--level");
  r.calib = ParseCalibration(options.Get("--calib"));
  r.disparity_path = options.Get("--disparity");
  r.out_path = options.Get("--output");
  r.weights_path = options.Has("--weights") ? options.Get("--weights") : "";
  r.has_focus = options.Has("--focus");
  if (r.has_focus) r.focus = ParsePoint("--focus", options.Get("--focus"));
  r.has_map_size = options.Has("--disparity-size");
  if (r.has_map_size) r.map_size = options.GetSize("--disparity-size");
  r.fill_unknown = !options.Has("--keep-unknown");
  if (!r.fill_unknown && options.Has("--unknown")) {
    throw InputError("--unknown and --keep-unknown exclude each other");
  }
  r.unknown = static_cast<uint8_t>(options.GetInt("--unknown", 0, kMaxDisparityValue));
  return r;
}

// Every check that needs no picture, made before any file is opened, so that
// a bad option is reported as such whatever the files hold.
void CheckWithoutFiles(const Request& r) {
  const char* out_kind = r.raw ? ".yuv" : ".png";
  if (!EndsWith(r.out_path, out_kind)) {
    throw InputError(std::string("-o must name a ") + out_kind + " file for " +
                     (r.raw ? "a raw frame" : "a picture") + ", not '" + r.out_path + "'");
  }
  if (!r.weights_path.empty() && !EndsWith(r.weights_path, ".png")) {
    throw InputError("--weights must name a .png file, not '" + r.weights_path + "'");
  }
  if (r.raw) {
    FocusFor(r, r.raw_size);
    MapSizeFor(r, r.raw_size);
  } else if (r.has_focus && (r.focus.x < 0 || r.focus.y < 0 || r.focus.x >= kMaxPictureSide ||
                             r.focus.y >= kMaxPictureSide)) {
    throw InputError("focus point " + std::to_string(r.focus.x) + "," + std::to_string(r.focus.y) +
                     " lies outside any picture (0.." + std::to_string(kMaxPictureSide - 1) +
                     " a side)");
  }
  CheckOutputPath(r.out_path);
  if (!r.weights_path.empty()) CheckOutputPath(r.weights_path);
  CheckNoOverwrite(
      {{r.raw ? "--nv21" : "--image", r.input_path}, {"--disparity", r.disparity_path}},
      {{"-o", r.out_path}, {"--weights", r.weights_path}});
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

// The weight map of a picture-sized frame from its (filled) disparity map.
std::unique_ptr<WeightMapper> MapWeights(const Request& r, const Image& disparity, Size picture,
                                         Size map_size, Point focus) {
  std::unique_ptr<WeightMapper> mapper(new WeightMapper(picture, map_size));
  mapper->SetDepth(r.calib, ResizeGray(disparity, map_size.width, map_size.height));
  if (!mapper->Compute(r.level, focus)) {
    throw InputError("the library refused the weight-map request (run with --verbose to see why)");
  }
  return mapper;
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

int BlurPicture(const Request& r) {
  bool has_alpha = false;
  const Image picture = ReadPicture(r.input_path, &has_alpha);
  const Size size{picture.width, picture.height};
  Image disparity = ReadGrayMap(r.disparity_path, size);
  const Point focus = FocusFor(r, size);
  const Size map_size = MapSizeFor(r, size);

  FittedFrame fitted(size, r.scale);
  if (fitted.padded()) printf("%s\n", fitted.PaddingNote().c_str());
  const int64_t filled = FillDisparity(r, &disparity);
  std::unique_ptr<WeightMapper> mapper = MapWeights(r, disparity, size, map_size, focus);
  fitted.Load(picture);
  fitted.SetWeights(mapper->weights());
  if (!fitted.Blur()) throw std::runtime_error("DofraBlurImage failed (see --verbose)");

  const Image out = WithInputAlpha(fitted.Result(), picture, has_alpha);
  if (!r.weights_path.empty()) WritePng(r.weights_path, mapper->WeightPicture());
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

int BlurRaw(const Request& r) {
  const Size size = r.raw_size;
  // The library's answer needs only the size: asked before any file is read.
  std::unique_ptr<BlurSession> session = BlurSession::Open(size, r.scale);
  if (!session) throw InputError(RawRefusal(size, r.scale));
  const std::string& path = r.input_path;
  const size_t expected = Nv21Bytes(size.width, size.height);
  struct stat info;
  if (stat(path.c_str(), &info) == 0 && static_cast<uint64_t>(info.st_size) != expected) {
    throw InputError(path + " holds " + std::to_string(info.st_size) + " bytes, but a " +
                     SizeText(size) + " NV21 frame has " + std::to_string(expected));
  }
  const std::vector<uint8_t> frame_bytes = ReadBytes(path);
  Image disparity = ReadGrayMap(r.disparity_path, size);
  const Point focus = FocusFor(r, size);
  const Size map_size = MapSizeFor(r, size);
  const int64_t filled = FillDisparity(r, &disparity);
  std::unique_ptr<WeightMapper> mapper = MapWeights(r, disparity, size, map_size, focus);
  std::copy(frame_bytes.begin(), frame_bytes.end(), session->source());
  session->PrimeDestination();
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
  CheckWithoutFiles(request);
  return raw ? BlurRaw(request) : BlurPicture(request);
}

}  // namespace dofra_tool
