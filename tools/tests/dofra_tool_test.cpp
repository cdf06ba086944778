// End-to-end tests of the dofra tool: runs the built program on small
// generated inputs and inspects its files, exit status and messages.
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <sys/wait.h>
#include <zlib.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "cli.h"
#include "convert.h"
#include "image_io.h"

namespace dofra_tool {
namespace {

constexpr int kW = 200;
constexpr int kH = 120;
constexpr int kNearDisparity = 200;
constexpr int kFarDisparity = 5;
constexpr int kMargin = 40;   // smoothing and interpolation reach across the edge
constexpr int kHoleLeft = 0;  // in the corner: only the backward sweep reaches it
constexpr int kHoleTop = 0;
constexpr int kHoleW = 24;
constexpr int kHoleH = 48;

struct ToolRun {
  int status;
  std::string out, err;
};

std::string Slurp(const std::string& path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

uint32_t Hash(uint32_t x, uint32_t y) {
  uint32_t h = x * 0x8da6b343u ^ y * 0xd8163841u;
  h ^= h >> 13;
  h *= 0x5bd1e995u;
  return h ^ (h >> 15);
}

// Fine noise everywhere, so any blur changes it.
Image Texture(int w, int h) {
  Image image(w, h, 4);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const uint32_t v = Hash(x, y);
      uint8_t* p = image.Row(y) + 4 * x;
      p[0] = v & 255;
      p[1] = (v >> 8) & 255;
      p[2] = (v >> 16) & 255;
      p[3] = 255;
    }
  }
  return image;
}

// Near on the left, far on the right, with a hole of unknown (0) disparity
// inside the near side, which must read as near.
Image Disparity(int w, int h) {
  Image map(w, h, 1);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) map.Row(y)[x] = x < w / 2 ? kNearDisparity : kFarDisparity;
    if (y >= kHoleTop && y < kHoleTop + kHoleH) std::fill_n(map.Row(y) + kHoleLeft, kHoleW, 0);
  }
  return map;
}

// A JPEG from libjpeg-turbo's own encoder.
std::vector<uint8_t> Jpeg(const Image& image) {
  jpeg_compress_struct info;
  jpeg_error_mgr error;
  info.err = jpeg_std_error(&error);
  jpeg_create_compress(&info);
  unsigned char* data = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&info, &data, &size);
  info.image_width = image.width;
  info.image_height = image.height;
  info.input_components = image.channels;
  info.in_color_space = image.channels == 1 ? JCS_GRAYSCALE : JCS_EXT_RGBA;
  jpeg_set_defaults(&info);
  jpeg_start_compress(&info, TRUE);
  for (int y = 0; y < image.height; ++y) {
    JSAMPROW row = const_cast<uint8_t*>(image.Row(y));
    jpeg_write_scanlines(&info, &row, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  std::vector<uint8_t> bytes(data, data + size);
  free(data);
  return bytes;
}

void PutBigEndian(std::vector<uint8_t>* bytes, size_t at, uint32_t value, int count) {
  for (int i = 0; i < count; ++i) (*bytes)[at + i] = value >> (8 * (count - 1 - i));
}

// A JPEG of a few pixels whose frame header claims w x h.
std::vector<uint8_t> ClaimingJpeg(uint32_t w, uint32_t h) {
  std::vector<uint8_t> bytes = Jpeg(Image(16, 16, 1));
  const uint8_t frame_marker[] = {0xff, 0xc0};
  const size_t at =
      std::search(bytes.begin(), bytes.end(), frame_marker, frame_marker + 2) - bytes.begin();
  PutBigEndian(&bytes, at + 5, h, 2);
  PutBigEndian(&bytes, at + 7, w, 2);
  return bytes;
}

// A PNG of one pixel whose header (with a valid checksum) claims w x h at
// this bit depth.
std::vector<uint8_t> ClaimingPng(const std::string& path, uint32_t w, uint32_t h, int depth = 8) {
  WritePng(path, Image(1, 1, 1));
  std::vector<uint8_t> bytes = ReadBytes(path);
  PutBigEndian(&bytes, 16, w, 4);
  PutBigEndian(&bytes, 20, h, 4);
  bytes[24] = depth;
  PutBigEndian(&bytes, 29, crc32(0, &bytes[12], 17), 4);  // over the type and the fields
  return bytes;
}

class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/dofra_tool_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
    WritePng(Path("disp.png"), Disparity(kW, kH));
  }
  void TearDown() override { std::system(("rm -rf '" + dir_ + "'").c_str()); }

  std::string Path(const std::string& name) const { return dir_ + "/" + name; }

  ToolRun Tool(const std::vector<std::string>& args) const {
    std::string command = DOFRA_TOOL_PATH;
    for (const std::string& arg : args) command += " '" + arg + "'";
    command += " >'" + Path("stdout.txt") + "' 2>'" + Path("stderr.txt") + "'";
    const int status = std::system(command.c_str());
    ToolRun run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, Slurp(Path("stdout.txt")),
                Slurp(Path("stderr.txt"))};
    std::remove(Path("stdout.txt").c_str());
    std::remove(Path("stderr.txt").c_str());
    return run;
  }

  std::set<std::string> Files() const {  // hidden temporaries included
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir_)) {
      names.insert(entry.path().filename());
    }
    return names;
  }

  std::string dir_;
};

// 320x240 is refused at factor 6: that factor runs padded and is cropped back.
TEST_F(ToolTest, DemoWritesPicturesOfTheFrameSize) {
  const ToolRun run = Tool({"demo", "--out", Path("demo"), "--size", "320x240", "--level", "2"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("DofraBlurImage x8"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("padding 320x240 to "), std::string::npos) << run.out;
  EXPECT_EQ(run.err, "");  // the library's log stays quiet without --verbose
  for (const char* name : {"input", "weights", "blur_x2", "blur_x4", "blur_x6", "blur_x8",
                           "weights_refined", "blur_x2_refined", "blur_x2_no_bleed"}) {
    bool alpha = false;
    const Image picture = ReadPicture(Path(std::string("demo/") + name + ".png"), &alpha);
    EXPECT_EQ(picture.width, 320) << name;
    EXPECT_EQ(picture.height, 240) << name;
  }
  bool alpha = false;
  const Image sheet = ReadPicture(Path("demo/side_by_side.png"), &alpha);
  EXPECT_GT(sheet.width, 320);
  const Image x6 = ReadPicture(Path("demo/blur_x6.png"), &alpha);
  const Image input = ReadPicture(Path("demo/input.png"), &alpha);
  EXPECT_NE(x6.pixels, input.pixels);
}

TEST_F(ToolTest, HelpAndVersionAnswer) {
  const ToolRun run = Tool({"blur", "--help"});
  ASSERT_EQ(run.status, 0) << run.err;
  for (const char* text :
       {"--scale S", "(default 4)", "(default 1)", "--keep-unknown", "-o, ", "(default off)"}) {
    EXPECT_NE(run.out.find(text), std::string::npos) << text;
  }
  EXPECT_NE(Tool({"--version"}).out.find("libdofra_depth built"), std::string::npos);
  EXPECT_NE(Tool({"bench", "--help"}).out.find("--refine"), std::string::npos);
  EXPECT_NE(Tool({"bench", "--help"}).out.find("--no-bleed"), std::string::npos);
  EXPECT_NE(run.out.find("--pullback N"), std::string::npos);
}

// Sizes the library takes as they are and sizes the tool must pad, from PNG,
// JPEG and raw NV21 files.
struct BlurCase {
  Size size;
  const char* input;
  bool refine = false;  // the refined weight map
  bool no_bleed = false;  // the no-glow blur
};

class BlurTest : public ToolTest, public ::testing::WithParamInterface<BlurCase> {};

TEST_P(BlurTest, KeepsTheFocusSharpAndBlursTheRest) {
  const Size size = GetParam().size;
  const std::string input = Path(GetParam().input);
  const bool raw = EndsWith(input, ".yuv");
  const int even_w = size.width + (size.width & 1);
  const int even_h = size.height + (size.height & 1);
  Image picture = Texture(size.width, size.height);
  if (EndsWith(input, ".png")) WritePng(input, picture);
  if (EndsWith(input, ".jpg")) WriteBytes(input, Jpeg(picture));
  bool alpha = false;
  if (EndsWith(input, ".jpg")) picture = ReadPicture(input, &alpha);  // what the tool decodes
  std::vector<uint8_t> nv21(Nv21Bytes(even_w, even_h));
  RgbaToNv21(PadByReplication(picture, even_w, even_h), nv21.data());
  if (raw) WriteBytes(input, nv21);
  WritePng(Path("disp.png"), Disparity(size.width, size.height));
  const std::string out = Path(raw ? "out.yuv" : "out.png");
  std::vector<std::string> args = {"blur",
                                   raw ? "--nv21" : "--image",
                                   input,
                                   "--disparity",
                                   Path("disp.png"),
                                   "--focus",
                                   "30,60",
                                   "-o",
                                   out,
                                   "--weights",
                                   Path("w.png")};
  if (raw) args.insert(args.end(), {"--size", SizeText(size), "--verbose"});
  if (GetParam().refine) args.push_back("--refine");
  if (GetParam().no_bleed) args.insert(args.end(), {"--no-bleed", "--pullback", "3"});
  const ToolRun run = Tool(args);
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err.find("DofraBlurImage") != std::string::npos, raw);  // the library's log
  EXPECT_NE(run.out.find(std::to_string(kHoleW * kHoleH) + " unknown disparity pixels filled"),
            std::string::npos)
      << run.out;

  const Image result =
      raw ? Nv21ToRgba(ReadBytes(out).data(), size.width, size.height) : ReadPicture(out, &alpha);
  ASSERT_EQ(result.width, size.width);
  ASSERT_EQ(result.height, size.height);
  // In focus, over the filled hole too, the frame is untouched: only the NV21
  // round trip remains.
  const Image round_trip = Nv21ToRgba(nv21.data(), even_w, even_h);
  int changed_far = 0;
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      const uint8_t* o = result.Row(y) + 4 * x;
      const uint8_t* r = round_trip.Row(y) + 4 * x;
      if (x < size.width / 2 - kMargin) {
        ASSERT_EQ(0, std::memcmp(o, r, 3)) << "at " << x << "," << y;
      } else if (x >= size.width / 2 + kMargin) {
        changed_far += std::memcmp(o, r, 3) != 0;
      }
    }
  }
  const int far_pixels = (size.width - size.width / 2 - kMargin) * size.height;
  EXPECT_GT(changed_far, far_pixels * 9 / 10);
  const Image weights = ReadGrayMap(Path("w.png"));
  EXPECT_EQ(weights.Row(kHoleTop + kHoleH / 2)[kHoleLeft + kHoleW / 2], 0);
  EXPECT_EQ(weights.Row(60)[size.width - 10], 255);
  const bool padded = run.out.find("padding") != std::string::npos;
  EXPECT_EQ(padded, !raw && (size.width != kW || size.height != kH)) << run.out;
}

INSTANTIATE_TEST_SUITE_P(Sizes, BlurTest,
                         ::testing::Values(BlurCase{{kW, kH}, "in.png"},
                                           BlurCase{{203, 117}, "in.png"},
                                           BlurCase{{150, 98}, "in.jpg"},
                                           BlurCase{{kW, 117}, "in.png"},
                                           BlurCase{{kW, kH}, "in.yuv"},
                                           BlurCase{{203, 117}, "in.png", true},
                                           BlurCase{{kW, kH}, "in.yuv", true},
                                           BlurCase{{203, 117}, "in.png", false, true},
                                           BlurCase{{kW, kH}, "in.yuv", true, true}));

// The refined map's tuning reaches the library: each option alone changes
// the map that --weights writes.
TEST_F(ToolTest, RefineTuningChangesTheMap) {
  WritePng(Path("in.png"), Texture(kW, kH));
  WritePng(Path("disp.png"), Disparity(kW, kH));
  auto map = [&](std::vector<std::string> tuning) {
    std::vector<std::string> args = {"blur", "--image", Path("in.png"), "--disparity",
                                     Path("disp.png"), "--refine", "-o", Path("out.png"),
                                     "--weights", Path("w.png")};
    args.insert(args.end(), tuning.begin(), tuning.end());
    const ToolRun run = Tool(args);
    EXPECT_EQ(run.status, 0) << run.err;
    return ReadBytes(Path("w.png"));
  };
  const std::vector<uint8_t> plain = map({});
  EXPECT_TRUE(map({"--range-sigma", "12", "--purity-scale", "4", "--chroma-weight", "2",
                   "--flat-spread", "2"}) == plain)
      << "the defaults";
  for (const auto& option : std::vector<std::vector<std::string>>{{"--range-sigma", "1"},
                                                                   {"--purity-scale", "64"},
                                                                   {"--chroma-weight", "8"},
                                                                   {"--flat-spread", "255"}})
    EXPECT_TRUE(map(option) != plain) << option[0];
}

struct BadInput {
  const char* name;
  std::vector<std::string> args;  // "@" stands for the test's directory
  const char* message;            // the whole first line after "dofra: ", "@" as above
};

void PrintTo(const BadInput& input, std::ostream* out) { *out << input.name; }

class BadInputTest : public ToolTest, public ::testing::WithParamInterface<BadInput> {
 protected:
  void WriteInputs() {
    WritePng(Path("in.png"), Texture(kW, kH));
    std::ofstream(Path("text.png")) << "not a picture\n";
    Image rgb(kW, kH, 3);
    WritePng(Path("rgb.png"), rgb);
    WriteBytes(Path("deep.png"), ClaimingPng(Path("deep.png"), kW, kH, 16));
    WriteBytes(Path("in.yuv"), std::vector<uint8_t>(Nv21Bytes(kW, kH), 128));
    std::vector<uint8_t> bytes = ReadBytes(Path("in.png"));
    WriteBytes(Path("cut.png"), std::vector<uint8_t>(bytes.begin(), bytes.end() - 12));
    bytes = Jpeg(Texture(kW, kH));
    WriteBytes(Path("cut.jpg"), std::vector<uint8_t>(bytes.begin(), bytes.end() - 400));
    WriteBytes(Path("huge.jpg"), ClaimingJpeg(16384, 16384));
    WriteBytes(Path("claim.jpg"), ClaimingJpeg(8000, 8000));
    WriteBytes(Path("huge.png"), ClaimingPng(Path("huge.png"), 16384, 16384));
    WriteBytes(Path("claim.png"), ClaimingPng(Path("claim.png"), 8000, 8000));
    WritePng(Path("wide.png"), Disparity(kW + 1, kH));
    WritePng(Path("zero.png"), Image(kW, kH, 1));
  }
  std::string Expand(std::string text) const {
    for (size_t at; (at = text.find('@')) != std::string::npos;) text.replace(at, 1, dir_);
    return text;
  }
};

TEST_P(BadInputTest, ExitsTwoWithOneMessageAndNoFile) {
  WriteInputs();
  const std::set<std::string> before = Files();
  std::vector<std::string> args;
  for (const std::string& arg : GetParam().args) args.push_back(Expand(arg));
  const ToolRun run = Tool(args);
  EXPECT_EQ(run.status, kExitBadInput);
  EXPECT_EQ(run.err.substr(0, run.err.find('\n') + 1),
            "dofra: " + Expand(GetParam().message) + "\n");
  EXPECT_EQ(Files(), before);  // nothing written, no temporary left behind
}

std::vector<std::string> Blur(std::vector<std::string> extra, const std::string& image = "@/in.png",
                              const std::string& disparity = "@/disp.png") {
  std::vector<std::string> args = {"blur",    "--image", image,      "--disparity",
                                   disparity, "-o",      "@/out.png"};
  args.insert(args.end(), extra.begin(), extra.end());
  return args;
}

// Both inputs missing: only a check that needs no file can answer.
std::vector<std::string> NoFiles(std::vector<std::string> extra) {
  return Blur(extra, "@/none.png", "@/none.png");
}

std::vector<std::string> Raw(const std::string& size, int scale,
                             std::vector<std::string> extra = {}, bool files = true) {
  const std::string in = files ? "@/in.yuv" : "@/none.yuv";
  const std::string disparity = files ? "@/disp.png" : "@/none.png";
  std::vector<std::string> args = {"blur",    "--nv21",   in,
                                   "--size",  size,       "--disparity",
                                   disparity, "--scale",  std::to_string(scale),
                                   "-o",      "@/out.yuv"};
  args.insert(args.end(), extra.begin(), extra.end());
  return args;
}

INSTANTIATE_TEST_SUITE_P(
    Classes, BadInputTest,
    ::testing::Values(
        BadInput{"MissingImage", Blur({}, "@/nope.png"),
                 "cannot read @/nope.png: No such file or directory"},
        BadInput{"ImageIsADirectory", Blur({}, "@"), "cannot read @: not a regular file"},
        BadInput{"NotAPicture", Blur({}, "@/text.png"),
                 "@/text.png is neither a PNG nor a JPEG picture"},
        BadInput{"SixteenBitDisparity", Blur({}, "@/in.png", "@/deep.png"),
                 "@/deep.png: a disparity map must be 8-bit grayscale, not 16-bit"},
        BadInput{"ColourDisparity", Blur({}, "@/in.png", "@/rgb.png"),
                 "@/rgb.png: a disparity map must be 8-bit grayscale, not colour"},
        BadInput{"CutPng", Blur({}, "@/cut.png"), "@/cut.png: truncated PNG (no end chunk)"},
        BadInput{"CutJpeg", Blur({}, "@/cut.jpg"),
                 "@/cut.jpg: damaged JPEG (Premature end of JPEG file)"},
        BadInput{"HugeJpeg", Blur({}, "@/huge.jpg"),
                 "@/huge.jpg: a 16384x16384 picture is beyond the limit of 100 megapixels and "
                 "16384 per side"},
        BadInput{"HugePng", Blur({}, "@/huge.png"),
                 "@/huge.png: a 16384x16384 picture is beyond the limit of 100 megapixels and "
                 "16384 per side"},
        BadInput{"JpegClaimBeyondData", Blur({}, "@/claim.jpg"),
                 "@/claim.jpg: truncated or damaged (a 8000x8000 picture needs 125000 bytes or "
                 "more, the file holds 335)"},
        BadInput{"PngClaimBeyondData", Blur({}, "@/claim.png"),
                 "@/claim.png: truncated or damaged (a 8000x8000 picture needs 62023 bytes or "
                 "more, the file holds 67)"},
        BadInput{"DisparityWiderThanPicture", Blur({}, "@/in.png", "@/wide.png"),
                 "@/wide.png: a 201x120 map is larger than the 200x120 picture"},
        BadInput{"DisparitySizeTooLarge", Blur({"--disparity-size", "16384x16384"}),
                 "--disparity-size 16384x16384 is larger than the 200x120 picture"},
        BadInput{"AllUnknown", Blur({}, "@/in.png", "@/zero.png"),
                 "@/zero.png: every pixel holds the unknown value 0"},
        BadInput{"OutputIsDisparity",
                 {"blur", "--nv21", "@/in.yuv", "--size", "200x120", "--disparity", "@/disp.png",
                  "-o", "@/out.yuv", "--weights", "@//disp.png"},
                 "--weights @//disp.png is the same file as --disparity @/disp.png"},
        BadInput{"WeightsIsOutput", Blur({"--weights", "@/out.png"}),
                 "--weights @/out.png is the same file as -o @/out.png"},
        BadInput{"RawSizeMismatch", Raw("200x100", 4),
                 "@/in.yuv holds 36000 bytes, but a 200x100 NV21 frame has 30000"},
        BadInput{"FocusOutside", Blur({"--focus", "200,10"}),
                 "focus point 200,10 lies outside the 200x120 image"},
        // Checks that need no picture answer before any file is opened.
        BadInput{"LevelZero", NoFiles({"--level", "0"}),
                 "--level must be a blur level from 1 (strongest) to 20 (none), not '0'"},
        BadInput{"LevelTwentyOne", NoFiles({"--level", "21"}),
                 "--level must be a blur level from 1 (strongest) to 20 (none), not '21'"},
        BadInput{"ScaleThree", NoFiles({"--scale", "3"}),
                 "--scale must be a scale factor of 2, 4, 6 or 8, not '3'"},
        BadInput{"MalformedFocus", NoFiles({"--focus", "1;2"}),
                 "--focus must look like X,Y (e.g. 960,540), not '1;2'"},
        BadInput{"FocusNegative", NoFiles({"--focus", "-1,5"}),
                 "focus point -1,5 lies outside any picture (0..16383 a side)"},
        BadInput{"FocusBeyondAnyPicture", NoFiles({"--focus", "5,16384"}),
                 "focus point 5,16384 lies outside any picture (0..16383 a side)"},
        BadInput{"MalformedDisparitySize", NoFiles({"--disparity-size", "12"}),
                 "--disparity-size must look like WIDTHxHEIGHT (e.g. 1920x1080), not '12'"},
        BadInput{"MalformedCalib", NoFiles({"--calib", "1,2,3"}),
                 "--calib must look like A,B,M,N (four whole numbers), not '1,2,3'"},
        BadInput{"ZeroCalibDen", NoFiles({"--calib", "1,0,3,4"}), "--calib B must not be 0"},
        BadInput{"UnknownOutOfRange", NoFiles({"--unknown", "256"}),
                 "--unknown must lie in 0..255, not 256"},
        BadInput{"UnknownAndKeep", NoFiles({"--unknown", "3", "--keep-unknown"}),
                 "--unknown and --keep-unknown exclude each other"},
        BadInput{"PullbackNine", NoFiles({"--no-bleed", "--pullback", "9"}),
                 "--pullback must lie in 0..8, not 9"},
        BadInput{"BlurRangeSigmaZero", NoFiles({"--refine", "--range-sigma", "0"}),
                 "--range-sigma must lie in 1..64, not 0"},
        BadInput{"ThresholdZero", NoFiles({"--no-bleed", "--threshold", "0"}),
                 "--threshold must lie in 1..8, not 0"},
        BadInput{
            "OutputIsImage",
            {"blur", "--image", "@/none.png", "--disparity", "@/none2.png", "-o", "@/./none.png"},
            "-o @/./none.png is the same file as --image @/none.png"},
        BadInput{"OutputNotPng",
                 {"blur", "--image", "@/none.png", "--disparity", "@/none.png", "-o", "@/out.yuv"},
                 "-o must name a .png file for a picture, not '@/out.yuv'"},
        BadInput{"WeightsNotPng", NoFiles({"--weights", "@/w.jpg"}),
                 "--weights must name a .png file, not '@/w.jpg'"},
        BadInput{"RawFocusOutside", Raw("200x120", 4, {"--focus", "200,10"}, false),
                 "focus point 200,10 lies outside the 200x120 image"},
        BadInput{"RawDisparitySizeTooLarge",
                 Raw("200x120", 4, {"--disparity-size", "201x120"}, false),
                 "--disparity-size 201x120 is larger than the 200x120 picture"},
        BadInput{"RawSizeRefused", Raw("200x120", 8, {}, false),
                 "the library does not accept a 200x120 NV21 frame at scale 8; nearest accepted "
                 "sizes: 198x120 (smaller), 208x120 (larger)"},
        BadInput{"RawSizeMalformed", Raw("200x", 4, {}, false),
                 "--size must look like WIDTHxHEIGHT (e.g. 1920x1080), not '200x'"},
        BadInput{"ScaleZeroInDemo",
                 {"demo", "--out", "@/demo", "--scale", "0"},
                 "--scale must be a scale factor of 2, 4, 6 or 8, not '0'"},
        BadInput{"LevelInDemo",
                 {"demo", "--out", "@/demo", "--level", "x"},
                 "--level must be a blur level from 1 (strongest) to 20 (none), not 'x'"},
        BadInput{"MalformedSize",
                 {"bench", "--size", "12"},
                 "--size must look like WIDTHxHEIGHT (e.g. 1920x1080), not '12'"},
        BadInput{"OddBenchSize",
                 {"bench", "--size", "65x48"},
                 "--size must have an even width and height for NV21 frames"},
        BadInput{"BenchCache",
                 {"bench", "--cache", "warm"},
                 "--cache must be hot, cold or both, not 'warm'"},
        BadInput{
            "BenchFrames", {"bench", "--frames", "0"}, "--frames must lie in 1..100000, not 0"},
        BadInput{"ZeroSize",
                 {"demo", "--out", "@/demo", "--size", "0x240"},
                 "--size 0x240 is out of range (1..16384 per side)"},
        BadInput{"UnknownOption", NoFiles({"--fast"}), "unknown option --fast for 'dofra blur'"},
        BadInput{"MissingValue", {"blur", "--image", "@/in.png", "-o"}, "option -o needs a value"},
        BadInput{"RepeatedOption", NoFiles({"--level", "2", "--level", "3"}),
                 "option --level is given twice"},
        BadInput{"ImageAndNv21",
                 {"blur", "--image", "@/none.png", "--nv21", "@/none.yuv"},
                 "'dofra blur' needs exactly one of --image and --nv21"},
        BadInput{"SizeWithoutNv21", NoFiles({"--size", "200x120"}),
                 "--size is for --nv21 frames only"},
        BadInput{"MissingOutput",
                 {"blur", "--image", "@/none.png", "--disparity", "@/none.png"},
                 "'dofra blur' needs --output"},
        BadInput{"OutputDirMissing",
                 {"blur", "--image", "@/none.png", "--disparity", "@/none.png", "-o",
                  "@/no/out.png", "--weights", "@/w.png"},
                 "cannot write @/no/out.png: no directory @/no/"},
        BadInput{"RangeSigmaZero",
                 {"quality", "--range-sigma", "0"},
                 "--range-sigma must lie in 1..64, not 0"},
        BadInput{"UnknownCommand", {"sharpen"}, "unknown command 'sharpen'"},
        BadInput{"NoCommand", {}, "no command given"}),
    [](const ::testing::TestParamInfo<BadInput>& info) { return info.param.name; });

}  // namespace
}  // namespace dofra_tool
