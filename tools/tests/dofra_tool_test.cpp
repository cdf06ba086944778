// End-to-end tests of the dofra tool: runs the built program on small
// generated inputs and inspects its files, exit status and messages.
#include <dirent.h>
#include <gtest/gtest.h>
#include <png.h>
#include <sys/wait.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
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
constexpr int kEdge = kW / 2;  // near on the left, far on the right
constexpr int kMargin = 40;    // smoothing and interpolation reach across the edge

struct ToolRun {
  int status;
  std::string out;
  std::string err;
};

std::string Slurp(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
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

Image Disparity(int w, int h) {
  Image map(w, h, 1);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) map.Row(y)[x] = x < w / 2 ? kNearDisparity : kFarDisparity;
  }
  return map;
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

  std::set<std::string> Files() const {
    std::set<std::string> names;
    DIR* d = opendir(dir_.c_str());
    while (dirent* entry = readdir(d)) {
      if (entry->d_name[0] != '.' || std::strlen(entry->d_name) > 2) names.insert(entry->d_name);
    }
    closedir(d);
    names.erase(".");
    names.erase("..");
    return names;
  }

  std::string dir_;
};

TEST_F(ToolTest, DemoWritesPicturesOfTheFrameSize) {
  const ToolRun run = Tool({"demo", "--out", Path("demo"), "--size", "384x216", "--level", "2"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("DofraBlurImage x8"), std::string::npos) << run.out;
  EXPECT_EQ(run.err, "");  // the library's log stays quiet without --verbose
  for (const char* name : {"input", "weights", "blur_x2", "blur_x4", "blur_x6", "blur_x8"}) {
    bool alpha = false;
    const Image picture = ReadPicture(Path(std::string("demo/") + name + ".png"), &alpha);
    EXPECT_EQ(picture.width, 384) << name;
    EXPECT_EQ(picture.height, 216) << name;
  }
  bool alpha = false;
  const Image sheet = ReadPicture(Path("demo/side_by_side.png"), &alpha);
  EXPECT_GT(sheet.width, 384);
  const Image x8 = ReadPicture(Path("demo/blur_x8.png"), &alpha);
  const Image input = ReadPicture(Path("demo/input.png"), &alpha);
  EXPECT_NE(x8.pixels, input.pixels);
}

TEST_F(ToolTest, VerboseShowsTheLibraryLog) {
  const ToolRun run =
      Tool({"demo", "--out", Path("demo"), "--size", "384x216", "--scale", "4", "--verbose"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.err.find("DofraBlurImage"), std::string::npos) << run.err;
}

// Sizes the library takes as they are and sizes the tool must pad.
class BlurPictureTest : public ToolTest, public ::testing::WithParamInterface<Size> {};

TEST_P(BlurPictureTest, KeepsTheFocusSharpAndBlursTheRest) {
  const Size size = GetParam();
  const Image input = Texture(size.width, size.height);
  WritePng(Path("in.png"), input);
  WritePng(Path("disp.png"), Disparity(size.width, size.height));
  const ToolRun run = Tool({"blur", "--image", Path("in.png"), "--disparity", Path("disp.png"),
                            "--focus", "30,60", "-o", Path("out.png"), "--weights", Path("w.png")});
  ASSERT_EQ(run.status, 0) << run.err;

  bool alpha = false;
  const Image out = ReadPicture(Path("out.png"), &alpha);
  ASSERT_EQ(out.width, size.width);
  ASSERT_EQ(out.height, size.height);
  // In focus the frame is untouched: only the NV21 round trip remains.
  const int even_w = size.width + (size.width & 1);
  const int even_h = size.height + (size.height & 1);
  std::vector<uint8_t> nv21(Nv21Bytes(even_w, even_h));
  RgbaToNv21(PadByReplication(input, even_w, even_h), nv21.data());
  const Image round_trip = Nv21ToRgba(nv21.data(), even_w, even_h);
  int changed_far = 0;
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      const uint8_t* o = out.Row(y) + 4 * x;
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
  EXPECT_EQ(weights.Row(60)[10], 0);
  EXPECT_EQ(weights.Row(60)[size.width - 10], 255);
  const bool padded = run.out.find("padding") != std::string::npos;
  EXPECT_EQ(padded, size.width != kW || size.height != kH) << run.out;
}

INSTANTIATE_TEST_SUITE_P(Sizes, BlurPictureTest,
                         ::testing::Values(Size{kW, kH}, Size{203, 117}, Size{150, 98}));

TEST_F(ToolTest, RawFrameRoundTrip) {
  std::vector<uint8_t> frame(Nv21Bytes(kW, kH));
  RgbaToNv21(Texture(kW, kH), frame.data());
  WriteBytes(Path("in.yuv"), frame);
  const std::vector<std::string> common = {"blur",           "--nv21",  Path("in.yuv"),
                                           "--size",         "200x120", "--disparity",
                                           Path("disp.png"), "--focus", "10,10"};
  std::vector<std::string> args = common;
  args.insert(args.end(), {"--level", "20", "-o", Path("none.yuv")});
  ToolRun run = Tool(args);
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(ReadBytes(Path("none.yuv")), frame);  // level 20 blurs nothing

  args = common;
  args.insert(args.end(), {"-o", Path("out.yuv")});
  run = Tool(args);
  ASSERT_EQ(run.status, 0) << run.err;
  const std::vector<uint8_t> out = ReadBytes(Path("out.yuv"));
  ASSERT_EQ(out.size(), frame.size());
  int changed_far = 0;
  for (int y = 0; y < kH; ++y) {
    for (int x = 0; x < kW; ++x) {
      const size_t at = static_cast<size_t>(y) * kW + x;
      if (x < kEdge - kMargin) {
        ASSERT_EQ(out[at], frame[at]) << "at " << x << "," << y;
      }
      if (x >= kEdge + kMargin) changed_far += out[at] != frame[at];
    }
  }
  EXPECT_GT(changed_far, (kW - kEdge - kMargin) * kH * 9 / 10);
}

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
    png_image deep;
    std::memset(&deep, 0, sizeof(deep));
    deep.version = PNG_IMAGE_VERSION;
    deep.width = kW;
    deep.height = kH;
    deep.format = PNG_FORMAT_LINEAR_Y;  // 16-bit gray
    std::vector<uint16_t> samples(kW * kH, 1000);
    ASSERT_TRUE(
        png_image_write_to_file(&deep, Path("deep.png").c_str(), 0, samples.data(), 0, nullptr));
    WriteBytes(Path("in.yuv"), std::vector<uint8_t>(Nv21Bytes(kW, kH), 128));
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

std::vector<std::string> Blur(std::vector<std::string> extra) {
  std::vector<std::string> args = {"blur",       "--image", "@/in.png", "--disparity",
                                   "@/disp.png", "-o",      "@/out.png"};
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
        BadInput{"MissingImage",
                 {"blur", "--image", "@/nope.png", "--disparity", "@/disp.png", "-o", "@/out.png"},
                 "cannot read"},
        BadInput{"ImageIsADirectory",
                 {"blur", "--image", "@", "--disparity", "@/disp.png", "-o", "@/out.png"},
                 "not a regular file"},
        BadInput{"NotAPicture",
                 {"blur", "--image", "@/text.png", "--disparity", "@/disp.png", "-o", "@/out.png"},
                 "neither a PNG nor a JPEG"},
        BadInput{"SixteenBitDisparity",
                 {"blur", "--image", "@/in.png", "--disparity", "@/deep.png", "-o", "@/out.png"},
                 "not 16-bit"},
        BadInput{"ColourDisparity",
                 {"blur", "--image", "@/in.png", "--disparity", "@/rgb.png", "-o", "@/out.png"},
                 "not colour"},
        BadInput{"RawSizeRefused", Raw("200x120", 8),
                 "does not accept a 200x120 NV21 frame at scale 8; nearest accepted sizes: 198x120 "
                 "(smaller), 208x120 (larger)"},
        BadInput{"RawSizeMismatch", Raw("200x100", 4), "holds"},
        BadInput{"FocusOutside", Blur({"--focus", "200,10"}), "lies outside the 200x120 image"},
        BadInput{"FocusNegative", Blur({"--focus", "5,-1"}), "lies outside"},
        BadInput{"LevelZero", Blur({"--level", "0"}), "blur level"},
        BadInput{"LevelTwentyOne", Blur({"--level", "21"}), "blur level"},
        BadInput{"ScaleThree", Blur({"--scale", "3"}), "2, 4, 6 or 8"},
        BadInput{"ScaleZeroInDemo", {"demo", "--out", "@/demo", "--scale", "0"}, "2, 4, 6 or 8"},
        BadInput{"MalformedSize", {"bench", "--size", "12"}, "WIDTHxHEIGHT"},
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
        BadInput{"UnknownCommand", {"sharpen"}, "unknown command"},
        BadInput{"NoCommand", {}, "no command"}),
    [](const ::testing::TestParamInfo<BadInput>& info) { return info.param.name; });

}  // namespace
}  // namespace dofra_tool
