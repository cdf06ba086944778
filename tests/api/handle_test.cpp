// The exported handle functions, through libdofra_depth.so only.
#include <gtest/gtest.h>
#include <ui/GraphicBuffer.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "dofra_depth.h"
#include "support/log_capture.h"

namespace {

using android::GraphicBuffer;

DofraParams Params(int w, int h, int scale) {
  return DofraParams{w, h, w / 8, h / 8, 3, 0, scale, 9};
}

std::unique_ptr<GraphicBuffer> Frame(int w, int h, uint32_t seed) {
  auto frame = std::make_unique<GraphicBuffer>(w, h, android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33);
  std::mt19937 rng(seed);
  for (size_t i = 0; i < frame->hostSize(); ++i) frame->hostData()[i] = static_cast<uint8_t>(rng());
  return frame;
}

std::vector<uint8_t> Bytes(GraphicBuffer& b, size_t n) {
  return std::vector<uint8_t>(b.hostData(), b.hostData() + n);
}

// A handle with a weight map installed; released at scope exit.
struct Ready {
  Ready(int w, int h, int scale) : weights(size_t(w) * h) {
    std::mt19937 rng(7);
    for (uint16_t& v : weights) v = static_cast<uint16_t>(rng() % 1025);
    DofraParams params = Params(w, h, scale);
    EXPECT_EQ(DofraInit(&handle, &params), 0);
    DofraWeightMapInfo info{{0, 0, 0}, weights.data()};
    EXPECT_EQ(DofraCreateWeightMap(handle, &info), 0);
  }
  ~Ready() { EXPECT_EQ(DofraDeinit(handle), 0); }
  std::vector<uint16_t> weights;
  DofraHandle* handle = nullptr;
};

// True when `text` has the shape: '#' stands for one or more digits, '9' for
// a digit, '?' for any character, everything else for itself.
bool Shaped(const std::string& text, const std::string& shape) {
  size_t t = 0;
  for (char c : shape) {
    const bool digit = t < text.size() && isdigit(static_cast<unsigned char>(text[t]));
    if ((c == '#' || c == '9') && !digit) return false;
    if (c != '#' && c != '9' && c != '?' && (t >= text.size() || text[t] != c)) return false;
    for (++t; c == '#' && t < text.size() && isdigit(static_cast<unsigned char>(text[t]));) ++t;
  }
  return t == text.size();
}
const char kMs[] = "#.999 ms\n";

TEST(HandleTest, InitLogsRefusesAndForcesKernelSizes) {
  {
    LogCapture log;
    DofraParams params = Params(64, 64, 2);
    EXPECT_EQ(DofraInit(nullptr, &params), 1);
    ASSERT_EQ(log.Texts().size(), 1u);
    EXPECT_TRUE(Shaped(log.Texts()[0], "L 16, DofraInit: build time ??? ?9 9999 99:99:99\n"))
        << log.Texts()[0];
  }
  {
    LogCapture log;
    DofraHandle* handle = nullptr;
    EXPECT_EQ(DofraInit(&handle, nullptr), 1);
    EXPECT_EQ(handle, nullptr);
    ASSERT_EQ(log.Texts().size(), 2u);
    EXPECT_EQ(log.Texts()[1], "L 18, DofraInit: invalid params\n");
  }
  {
    LogCapture log;  // a refused frame size: its reason after the build line
    DofraParams params = Params(64, 6, 2);
    DofraHandle* handle = nullptr;
    EXPECT_EQ(DofraInit(&handle, &params), 1);
    ASSERT_EQ(log.Texts().size(), 2u);
    EXPECT_EQ(log.Texts()[1],
              "L 40, blur_init: refusing 64x6 at scale 2: chroma compositing "
              "writes outside the plane\n");
  }
  LogCapture log;
  DofraParams params = Params(1920, 1080, 4);
  DofraHandle* handle = nullptr;
  ASSERT_EQ(DofraInit(&handle, &params), 0);
  EXPECT_EQ(params.blur_kernel_size, 5);
  EXPECT_EQ(params.weight_kernel_size, 5);
  EXPECT_EQ(handle->buffer_total, 6088608);
  EXPECT_EQ(handle->band_count, 2);
  EXPECT_NE(handle->weight, nullptr);
  const std::vector<std::string> texts = log.Texts();
  ASSERT_EQ(texts.size(), 3u);
  EXPECT_EQ(texts[1], "L 48, DofraInit: DofraInit: buffer sum: 5945 KB\n");
  EXPECT_TRUE(Shaped(texts[2], std::string("L 49, DofraInit: DofraInit: ") + kMs)) << texts[2];
  EXPECT_EQ(DofraDeinit(handle), 0);
}

TEST(HandleTest, WeightMapRecordRefusals) {
  Ready ready(64, 64, 2);
  LogCapture log;
  EXPECT_EQ(DofraDeinit(nullptr), 1);
  DofraWeightMapInfo info{{0, 0, 0}, ready.weights.data()};
  EXPECT_EQ(DofraCreateWeightMap(nullptr, &info), 1);
  EXPECT_EQ(DofraCreateWeightMap(ready.handle, nullptr), 1);
  WeightContext* const weight = ready.handle->weight;
  ready.handle->weight = nullptr;
  EXPECT_EQ(DofraCreateWeightMap(ready.handle, &info), 1);
  ready.handle->weight = weight;
  EXPECT_EQ(DofraCreateWeightMap(ready.handle, &info), 0);
  const std::vector<std::string> texts = log.Texts();
  ASSERT_EQ(texts.size(), 3u);
  EXPECT_EQ(texts[0], "L 118, DofraCreateWeightMap: invalid weight map info\n");
  EXPECT_EQ(texts[1], "L 120, DofraCreateWeightMap: handle has no weight context\n");
  EXPECT_TRUE(
      Shaped(texts[2], std::string("L 124, DofraCreateWeightMap: DofraCreateWeightMap: ") + kMs));
}

// Checks in order, before any lock; a failed destination lock leaves the
// source locked (deliberately not unwound).
TEST(HandleTest, BlurRefusals) {
  const struct {
    bool handle, src, dst, map;
    int fail_src, fail_dst, src_locked;
    const char* line;
  } cases[] = {
      {false, false, false, true, 0, 0, 0, "L 139, DofraBlurImage: invalid handle\n"},
      {false, true, true, true, 0, 0, 0, "L 139, DofraBlurImage: invalid handle\n"},
      {true, false, false, true, 0, 0, 0, "L 144, DofraBlurImage: invalid Src_YUV\n"},
      {true, true, false, true, 0, 0, 0, "L 149, DofraBlurImage: invalid Output_YUV\n"},
      {true, true, true, false, 0, 0, 0,
       "L 154, DofraBlurImage: no weight map: call DofraCreateWeightMap first\n"},
      {true, true, true, true, -12, 0, 0, "L 163, DofraBlurImage: Src_YUV lock(...) failed\n"},
      {true, true, true, true, 0, -12, 1, "L 169, DofraBlurImage: Output_YUV lock(...) failed\n"},
  };
  for (const auto& c : cases) {
    Ready ready(64, 64, 2);
    DofraHandle* handle = ready.handle;
    DofraParams params = Params(64, 64, 2);
    if (!c.map) {
      ASSERT_EQ(DofraInit(&handle, &params), 0);
    }
    auto src = Frame(64, 64, 1), dst = Frame(64, 64, 2);
    src->hostFailLocks(c.fail_src);
    dst->hostFailLocks(c.fail_dst);
    LogCapture log;
    EXPECT_EQ(DofraBlurImage(c.handle ? handle : nullptr, c.src ? src.get() : nullptr,
                             c.dst ? dst.get() : nullptr),
              1);
    EXPECT_EQ(log.Texts(), std::vector<std::string>{c.line});
    EXPECT_EQ(src->hostLockDepth(), c.src_locked);
    EXPECT_EQ(dst->hostLockDepth(), 0);
    if (c.src_locked) {
      EXPECT_EQ(src->hostLastLockUsage(), 3u);
      src->unlock();
    }
    if (!c.map) {
      EXPECT_EQ(DofraDeinit(handle), 0);
    }
  }
}

// A wider buffer stride is ignored (rows W apart, bytes past the frame
// untouched); the source stays as it was; locks balance with the write usage.
TEST(HandleTest, EachFactorIgnoresAWiderStride) {
  const int w = 384, h = 216;
  const size_t n = size_t(w) * h * 3 / 2;
  for (int scale : {2, 4, 6, 8}) {
    Ready ready(w, h, scale);
    auto src = Frame(w, h, 11), dst = Frame(w, h, 12), wide = Frame(w, h, 0), out = Frame(w, h, 0);
    ASSERT_EQ(DofraBlurImage(ready.handle, src.get(), dst.get()), 0);
    EXPECT_EQ(dst->hostLastLockUsage(), 48u);
    EXPECT_EQ(src->hostLockDepth() + dst->hostLockDepth(), 0);
    wide->hostSetStride(w + 64);
    out->hostSetStride(w + 64);
    memcpy(wide->hostData(), src->hostData(), n);
    memset(out->hostData(), 101, out->hostSize());
    ASSERT_EQ(DofraBlurImage(ready.handle, wide.get(), out.get()), 0);
    EXPECT_EQ(Bytes(*out, n), Bytes(*dst, n)) << "x" << scale;
    EXPECT_EQ(Bytes(*wide, n), Bytes(*src, n)) << "the source is kept";
    for (size_t i = n; i < out->hostSize(); ++i) ASSERT_EQ(out->hostData()[i], 101) << i;
  }
}

TEST(HandleTest, TheFrameCounterIsSharedByHandles) {
  Ready a(64, 64, 2), b(128, 96, 4);
  auto fa = Frame(64, 64, 1), fb = Frame(128, 96, 1);
  LogCapture log;
  ASSERT_EQ(DofraBlurImage(a.handle, fa.get(), fa.get()), 0);
  ASSERT_EQ(DofraBlurImage(b.handle, fb.get(), fb.get()), 0);
  ASSERT_EQ(DofraBlurImage(a.handle, fa.get(), fa.get()), 0);
  const std::vector<std::string> texts = log.Texts();
  ASSERT_EQ(texts.size(), 3u);
  int first = 0;
  ASSERT_EQ(sscanf(texts[0].c_str(), "L 224, DofraBlurImage: DofraBlurImage %d: ", &first), 1);
  for (int i = 0; i < 3; ++i)
    EXPECT_TRUE(Shaped(texts[i], "L 224, DofraBlurImage: DofraBlurImage " +
                                     std::to_string(first + i) + ": " + kMs))
        << texts[i];
}

}  // namespace
