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
                           "weights_refined", "blur_x2_refined"}) {
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
}

// Sizes the library takes as they are and sizes the tool must pad, from PNG,
// JPEG and raw NV21 files.
struct BlurCase {
  Size size;
  const char* input;
  bool refine = false;  // the refined weight map
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
                                           BlurCase{{kW, kH}, "in.yuv"},
                                           BlurCase{{203, 117}, "in.png", true},
                                           BlurCase{{kW, kH}, "in.yuv", true}));

struct BadInput {
  const char* name;
  std::vector<std::string> args;  // "@" stands for the test's directory
  const char* message;
};

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
};

TEST_P(BadInputTest, ExitsTwoWithOneMessageAndNoFile) {
  WriteInputs();
  const std::set<std::string> before = Files();
  std::vector<std::string> args;
  for (std::string arg : GetParam().args) {
    if (arg.find('@') != std::string::npos) arg.replace(arg.find('@'), 1, dir_);
    args.push_back(arg);
  }
  const ToolRun run = Tool(args);
  EXPECT_EQ(run.status, kExitBadInput);
  EXPECT_NE(run.err.find(GetParam().message), std::string::npos) << run.err;
  EXPECT_EQ(run.err.rfind("dofra: ", 0), 0u) << run.err;
  EXPECT_EQ(Files(), before);  // nothing written, no temporary left behind
}

std::vector<std::string> Blur(std::vector<std::string> extra, const std::string& image = "@/in.png",
                              const std::string& disparity = "@/disp.png") {
  std::vector<std::string> args = {"blur",    "--image", image,      "--disparity",
                                   disparity, "-o",      "@/out.png"};
  args.insert(args.end(), extra.begin(), extra.end());
  return args;
}

std::vector<std::string> Raw(const std::string& size, int scale) {
  return {"blur",       "--nv21",   "@/in.yuv",
          "--size",     size,       "--disparity",
          "@/disp.png", "--scale",  std::to_string(scale),
          "-o",         "@/out.yuv"};
}

INSTANTIATE_TEST_SUITE_P(
    Classes, BadInputTest,
    ::testing::Values(
        BadInput{"MissingImage", Blur({}, "@/nope.png"), "cannot read"},
        BadInput{"ImageIsADirectory", Blur({}, "@"), "not a regular file"},
        BadInput{"NotAPicture", Blur({}, "@/text.png"), "neither a PNG nor a JPEG"},
        BadInput{"SixteenBitDisparity", Blur({}, "@/in.png", "@/deep.png"), "not 16-bit"},
        BadInput{"ColourDisparity", Blur({}, "@/in.png", "@/rgb.png"), "not colour"},
        BadInput{"CutPng", Blur({}, "@/cut.png"), "truncated PNG"},
        BadInput{"CutJpeg", Blur({}, "@/cut.jpg"), "damaged JPEG"},
        BadInput{"HugeJpeg", Blur({}, "@/huge.jpg"), "beyond the limit of 100 megapixels"},
        BadInput{"HugePng", Blur({}, "@/huge.png"), "beyond the limit of 100 megapixels"},
        BadInput{"JpegClaimBeyondData", Blur({}, "@/claim.jpg"), "truncated or damaged"},
        BadInput{"PngClaimBeyondData", Blur({}, "@/claim.png"), "truncated or damaged"},
        BadInput{"DisparityWiderThanPicture", Blur({}, "@/in.png", "@/wide.png"),
                 "201x120 map is larger than the 200x120 picture"},
        BadInput{"DisparitySizeTooLarge", Blur({"--disparity-size", "16384x16384"}), "larger than"},
        BadInput{"AllUnknown", Blur({}, "@/in.png", "@/zero.png"),
                 "every pixel holds the unknown value 0"},
        BadInput{"UnknownAndKeep", Blur({"--unknown", "3", "--keep-unknown"}), "exclude"},
        BadInput{"OutputIsImage",
                 {"blur", "--image", "@/in.png", "--disparity", "@/disp.png", "-o", "@/./in.png"},
                 "in.png is the same file as --image"},
        BadInput{"OutputIsDisparity",
                 {"blur", "--nv21", "@/in.yuv", "--size", "200x120", "--disparity", "@/disp.png",
                  "-o", "@/out.yuv", "--weights", "@//disp.png"},
                 "is the same file as --disparity"},
        BadInput{"WeightsIsOutput", Blur({"--weights", "@/out.png"}), "same file as -o"},
        BadInput{"RawSizeRefused", Raw("200x120", 8),
                 "does not accept a 200x120 NV21 frame at scale 8; nearest accepted sizes: 198x120 "
                 "(smaller), 208x120 (larger)"},
        BadInput{"RawSizeMismatch", Raw("200x100", 4), "holds"},
        BadInput{"FocusOutside", Blur({"--focus", "200,10"}), "lies outside the 200x120 image"},
        BadInput{"LevelZero", Blur({"--level", "0"}), "blur level"},
        BadInput{"ScaleThree", Blur({"--scale", "3"}), "2, 4, 6 or 8"},
        BadInput{"ScaleZeroInDemo", {"demo", "--out", "@/demo", "--scale", "0"}, "2, 4, 6 or 8"},
        BadInput{"MalformedSize", {"bench", "--size", "12"}, "WIDTHxHEIGHT"},
        BadInput{"ZeroSize", {"demo", "--out", "@/demo", "--size", "0x240"}, "out of range"},
        BadInput{"MalformedFocus", Blur({"--focus", "1;2"}), "X,Y"},
        BadInput{"MalformedCalib", Blur({"--calib", "1,2,3"}), "A,B,M,N"},
        BadInput{"ZeroCalibDen", Blur({"--calib", "1,0,3,4"}), "B must not be 0"},
        BadInput{"UnknownOption", Blur({"--fast"}), "unknown option --fast"},
        BadInput{"MissingValue", {"blur", "--image", "@/in.png", "-o"}, "needs a value"},
        BadInput{"MissingOutput",
                 {"blur", "--image", "@/in.png", "--disparity", "@/disp.png"},
                 "needs --output"},
        BadInput{"OutputDirMissing",
                 {"blur", "--image", "@/in.png", "--disparity", "@/disp.png", "-o", "@/no/out.png",
                  "--weights", "@/w.png"},
                 "no directory"},
        BadInput{"RangeSigmaZero", {"quality", "--range-sigma", "0"}, "must lie in 1..64"},
        BadInput{"UnknownCommand", {"sharpen"}, "unknown command"},
        BadInput{"NoCommand", {}, "no command"}),
    [](const ::testing::TestParamInfo<BadInput>& info) { return info.param.name; });

}  // namespace
}  // namespace dofra_tool
