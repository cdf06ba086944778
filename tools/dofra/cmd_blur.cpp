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
#include "fitted.h"
#include "image_io.h"
#include "paths.h"
#include "renderer.h"
#include "settings.h"

namespace dofra_tool {

namespace {

std::vector<OptionSpec> BlurOptions() {
  std::vector<OptionSpec> options = {
      {"--image", "FILE", nullptr, "PNG or JPEG photograph, padded to a size the library takes"},
      {"--nv21", "FILE", nullptr, "raw NV21 frame instead (W x H luma, W x H/2 chroma)"},
      {"--size", "WxH", nullptr, "size of the --nv21 frame"},
      {"--disparity", "FILE", nullptr, "8-bit gray PNG or JPEG disparity map"},
      {"--output", "FILE", nullptr, ".png for a photograph, .yuv for a raw frame", "-o"},
      {"--weights", "FILE", nullptr, "also write the weight map as a gray .png"},
  };
  for (const OptionSpec& option : SettingOptions()) options.push_back(option);
  options.push_back({"--verbose", nullptr, nullptr, "show the library's log lines"});
  return options;
}

}  // namespace

const CommandSpec kBlurCommand = {
    "blur",
    "--image IN.png|IN.jpg --disparity DISP.png|DISP.jpg -o OUT.png [options]\n"
    "--nv21 IN.yuv --size WxH --disparity DISP.png|DISP.jpg -o OUT.yuv [options]",
    "Blurs a photograph, or a raw NV21 frame, under the weight map computed from its\n"
    "8-bit disparity map (larger = nearer, any resolution up to the picture's).",
    BlurOptions()};

namespace {

// The output files and the input paths they must not name.
struct Outputs {
  std::string out_path;
  std::string weights_path;
};

// Every check that needs no picture, made before any file is opened, so that
// a bad option is reported as such whatever the files hold.
Outputs CheckWithoutFiles(const Options& options, const BlurSettings& s, bool raw) {
  Outputs o;
  o.out_path = options.Get("--output");
  o.weights_path = options.Has("--weights") ? options.Get("--weights") : "";
  const char* out_kind = raw ? ".yuv" : ".png";
  if (!EndsWith(o.out_path, out_kind)) {
    throw InputError(std::string("-o must name a ") + out_kind + " file for " +
                     (raw ? "a raw frame" : "a picture") + ", not '" + o.out_path + "'");
  }
  if (!o.weights_path.empty() && !EndsWith(o.weights_path, ".png")) {
    throw InputError("--weights must name a .png file, not '" + o.weights_path + "'");
  }
  if (raw) {
    const Size size = options.GetSize("--size");
    FocusFor(s, size);
    MapSizeFor(s, size);
  } else if (s.has_focus && (s.focus.x < 0 || s.focus.y < 0 || s.focus.x >= kMaxPictureSide ||
                             s.focus.y >= kMaxPictureSide)) {
    throw InputError("focus point " + std::to_string(s.focus.x) + "," + std::to_string(s.focus.y) +
                     " lies outside any picture (0.." + std::to_string(kMaxPictureSide - 1) +
                     " a side)");
  }
  CheckOutputPath(o.out_path);
  if (!o.weights_path.empty()) CheckOutputPath(o.weights_path);
  const std::string input = raw ? "--nv21" : "--image";
  CheckNoOverwrite({{input, options.Get(input)}, {"--disparity", options.Get("--disparity")}},
                   {{"-o", o.out_path}, {"--weights", o.weights_path}});
  return o;
}

std::string Summary(const BlurSettings& s, const std::string& out_path, Size size, const char* kind,
                    Point focus, int64_t filled) {
  return "wrote " + out_path + " (" + SizeText(size) + kind + ", scale " + std::to_string(s.scale) +
         ", level " + std::to_string(s.level) + ", focus " + std::to_string(focus.x) + "," +
         std::to_string(focus.y) + ", " + std::to_string(filled) +
         " unknown disparity pixels filled)";
}

int BlurPicture(const Options& options, const BlurSettings& s, const Outputs& o) {
  PictureRenderer renderer(LoadPictureInputs(options, s));
  const Size size = renderer.picture_size();
  const Point focus = FocusFor(s, size);
  const FittedFrame& fitted = renderer.Frame(s.scale);
  if (fitted.padded()) printf("%s\n", fitted.PaddingNote().c_str());
  renderer.Render(s, focus);
  if (!o.weights_path.empty()) WritePng(o.weights_path, renderer.WeightPicture());
  WritePng(o.out_path, renderer.Output());
  printf("%s\n", Summary(s, o.out_path, size, "", focus, renderer.inputs().filled).c_str());
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

int BlurRaw(const Options& options, const BlurSettings& s, const Outputs& o) {
  const Size size = options.GetSize("--size");
  // The library's answer needs only the size: asked before any file is read.
  std::unique_ptr<BlurSession> session = BlurSession::Open(size, s.scale);
  if (!session) throw InputError(RawRefusal(size, s.scale));
  const std::string& path = options.Get("--nv21");
  const size_t expected = Nv21Bytes(size.width, size.height);
  struct stat info;
  if (stat(path.c_str(), &info) == 0 && static_cast<uint64_t>(info.st_size) != expected) {
    throw InputError(path + " holds " + std::to_string(info.st_size) + " bytes, but a " +
                     SizeText(size) + " NV21 frame has " + std::to_string(expected));
  }
  const std::vector<uint8_t> frame_bytes = ReadBytes(path);
  int64_t filled = 0;
  const Image disparity = LoadDisparity(options, s, size, &filled);
  const Point focus = FocusFor(s, size);
  std::copy(frame_bytes.begin(), frame_bytes.end(), session->source());
  session->PrimeDestination();
  WeightMapper mapper(size, {disparity.width, disparity.height},
                      s.refine ? MapMethod::kRefined : MapMethod::kPlain);
  mapper.SetGuide(session->source());  // read by the refined map only
  mapper.SetTuning(&s.tuning);
  MapWeights(&mapper, s, disparity, focus);
  session->SetWeights(mapper.weights());
  session->SetNoBleed(NoBleedMode(s));
  if (!session->Blur()) throw std::runtime_error("DofraBlurImage failed (see --verbose)");
  if (!o.weights_path.empty()) WritePng(o.weights_path, mapper.WeightPicture());
  const uint8_t* out = session->destination();
  WriteBytes(o.out_path, std::vector<uint8_t>(out, out + expected));
  printf("%s\n", Summary(s, o.out_path, size, " NV21", focus, filled).c_str());
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
  const BlurSettings settings = ParseBlurSettings(options);
  const Outputs outputs = CheckWithoutFiles(options, settings, raw);
  return raw ? BlurRaw(options, settings, outputs) : BlurPicture(options, settings, outputs);
}

}  // namespace dofra_tool
