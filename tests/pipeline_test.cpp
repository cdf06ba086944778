// The band pipeline as a whole: which frame sizes it takes, that every taken
// size is processed exactly (bands equal one band per plane, whatever the
// scratch held, nothing written outside the planes), whole-frame digests, and
// several handles blurring at once (the ThreadSanitizer run).
#include <gtest/gtest.h>
#include <ui/GraphicBuffer.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "blur/blur_context.h"
#include "blur/dispatch.h"
#include "blur/frame_check.h"
#include "dofra_depth.h"
#include "support/kernel_harness.h"
#include "support/test_image.h"

using namespace dofra;  // the library's internal names

namespace {

constexpr int kKernel = 5;
constexpr int kRadius = kKernel / 2;

// Known sizes and the reason each refused one gives.
struct Known {
  int w, h, s, k;
  const char* reason;  // null: accepted
};

const Known kKnown[] = {
    {1920, 1080, 6, 5, nullptr},
    {1920, 1090, 2, 5, nullptr},  // H / 2 odd: only x2 reaches the last chroma row
    {1920, 1088, 6, 5, "chroma compositing reads a small row its band did not smooth"},
    {1920, 1090, 4, 5, "chroma compositing reads a small row its band did not smooth"},
    {1280, 720, 6, 5, "width / scale factor must be even"},
    {1920, 1080, 3, 5, "scale factor must be 2, 4, 6 or 8"},
    {1920, 1080, 4, 0, "kernel size must be positive"},
    {0, 1080, 4, 5, "frame size must be positive"},
    {1921, 1080, 2, 5, "frame width must be even"},
    {8, 8, 8, 5, "frame too small for the scale factor"},
    {46342, 46342, 2, 5, "buffer sizes overflow 32 bits"},
    {1000, 1000, 8, 5, "width / scale factor must be even"},
    {65536 * 4, 8, 4, 5, "frame too large for 16.16 positions"},
    {64, 6, 2, 5, "chroma compositing writes outside the plane"},  // a one-row chroma band
    {64, 8, 2, 5, "luma smoothing reads a small row its band did not shrink"},
    {64, 38, 2, 5, nullptr},
};

TEST(FrameSizes, KnownSizesAndTheirReasons) {
  for (const Known& k : kKnown) {
    const char* why = blur_frame_refusal(k.w, k.h, k.s, k.k);
    EXPECT_STREQ(why, k.reason) << k.w << "x" << k.h << " x" << k.s << " k " << k.k;
  }
}

// One band per plane through the scalar formulas, over the rows that the
// pipeline's two equal bands cover (x2 clamps on a band's last two rows, so
// the band ends where the last band ends).
void BlurOneBandPerPlane(int s, const uint8_t* src, int W, int H, const uint16_t* weights,
                         uint8_t* dst) {
  const BlurKernelTable& k = kBlurKernelsC;
  const int i = FactorSlot(s), r = kRadius;
  const std::vector<uint16_t> kernel(kKernel, 1024 / kKernel);
  for (int plane = 0; plane < 2; ++plane) {
    const int ph = plane ? H / 2 : H, sw = W / s, sh = plane ? H / s / 2 : H / s;
    const int pw = sw + (plane ? 4 : 2) * r;
    std::vector<uint8_t> tmp(size_t(ph) * sw), small(size_t(sw) * sh), smooth(small.size()),
        pad(size_t(pw) * (sh + 2 * r)), integral(size_t(pw) * (sh + 2 * r + 1) * 4);
    const uint8_t* in = src + (plane ? size_t(W) * H : 0);
    uint8_t* out = dst + (plane ? size_t(W) * H : 0);
    (plane ? k.shrink_uv : k.shrink_y)[i](in, small.data(), tmp.data(), W, ph, sw, sh, 0, sh - 1);
    (plane ? k.smooth_uv : k.smooth_y)(small.data(), pad.data(), smooth.data(), sw, sh,
                                       kernel.data(), r, r, integral.data(), 0, sh - 1);
    (plane ? k.blend_uv : k.blend_y)[i](in, W, ph, sw, sh, weights, smooth.data(), out, 0,
                                        ph / 2 * 2 - 1);
  }
}

struct Input {
  Input(int w, int h, uint32_t seed)
      : width(w), height(h), frame(size_t(w) * h * 3 / 2), weights(size_t(w) * h) {
    std::mt19937 rng(seed);
    FillRandom(frame.data(), frame.size(), rng);
    FillRandomWeights(weights.data(), weights.size(), rng);
  }
  int width, height;
  std::vector<uint8_t> frame;
  std::vector<uint16_t> weights;
};

struct Handle {
  Handle(int w, int h, int scale, uint16_t* weights) {
    DofraParams params{w, h, w / 8 + 1, h / 8 + 1, 5, 0, scale, 5};
    EXPECT_EQ(DofraInit(&handle, &params), 0);
    DofraWeightMapInfo info{{0, 0, 0}, weights};
    EXPECT_EQ(DofraCreateWeightMap(handle, &info), 0);
  }
  ~Handle() { DofraDeinit(handle); }
  DofraHandle* handle = nullptr;
};

// Every scratch buffer of the context set to `fill`, as a frame may find it.
void FillScratch(const DofraHandle* h, int s, uint8_t fill) {
  const BlurContext* c = h->blur;
  const size_t W = h->width, H = h->height, sw = W / s, sh = H / s, r = kRadius;
  const std::pair<uint8_t*, size_t> buffers[] = {
      {c->Src_copy, W * H * 3 / 2},
      {c->XInterp_image, H * sw * 3 / 2},
      {c->scale_img, sw * sh * 3 / 2},
      {c->input_tmp_y, (sw + 2 * r) * (sh + 2 * r)},
      {c->input_tmp_uv, (sw + 4 * r) * (sh / 2 + 2 * r)},
      {c->tempim_y, (sw + 2 * r) * (sh + 2 * r + 1) * 8},
      {c->tempim_uv, (sw + 4 * r) * (sh / 2 + 2 * r + 1) * 8},
      {c->smooth_img, sw * sh * 3 / 2}};
  for (const auto& b : buffers) memset(b.first, fill, b.second);
}

// The real pipeline on planes that end at an inaccessible page, the output
// surrounded by guard bytes; returns the output.
std::vector<uint8_t> RunPipeline(const Handle& h, const Input& in, uint8_t fill) {
  const size_t luma = size_t(in.width) * in.height;
  FencedBytes src_y(luma), src_uv(luma / 2);
  memcpy(src_y.data(), in.frame.data(), luma);
  memcpy(src_uv.data(), in.frame.data() + luma, luma / 2);
  GuardedBytes dst(in.frame.size(), fill, 3);
  blur_process(h.handle, src_y.data(), src_uv.data(), dst.data(), dst.data() + luma, nullptr,
               const_cast<uint16_t*>(in.weights.data()));
  EXPECT_TRUE(dst.GuardsIntact());
  return dst.Bytes();
}

// Every accepted size of a small range: two bands equal one band per plane
// with the scratch pre-filled two ways, and in place too.
class SmallFrames : public ::testing::TestWithParam<int> {};

TEST_P(SmallFrames, AcceptedSizesAreProcessedExactly) {
  const int s = GetParam();
  int accepted = 0;
  for (int w = 2; w <= 12 * s; w += 2)
    for (int h = 2; h <= 12 * s; ++h) {
      if (blur_frame_refusal(w, h, s, kKernel) != nullptr) continue;
      ++accepted;
      SCOPED_TRACE(testing::Message() << w << "x" << h << " x" << s);
      const Input in(w, h, w * 131 + h);
      const Handle handle(w, h, s, const_cast<uint16_t*>(in.weights.data()));
      for (uint8_t fill : {1, 101}) {
        std::vector<uint8_t> expected(in.frame.size(), fill);
        BlurOneBandPerPlane(s, in.frame.data(), w, h, in.weights.data(), expected.data());
        FillScratch(handle.handle, s, static_cast<uint8_t>(fill * 3));
        ASSERT_EQ(RunPipeline(handle, in, fill), expected);
      }
      std::vector<uint8_t> frame = in.frame;
      const size_t luma = size_t(w) * h;
      blur_process(handle.handle, frame.data(), frame.data() + luma, frame.data(),
                   frame.data() + luma, nullptr, const_cast<uint16_t*>(in.weights.data()));
      std::vector<uint8_t> expected = in.frame;
      BlurOneBandPerPlane(s, in.frame.data(), w, h, in.weights.data(), expected.data());
      ASSERT_EQ(frame, expected) << "in place";
    }
  EXPECT_GT(accepted, 20);
}

INSTANTIATE_TEST_SUITE_P(Factors, SmallFrames, ::testing::Values(2, 4, 6, 8));

// A seeded frame through the whole pipeline at each factor: the same bytes at
// every kernel level (this suite also runs with the scalar level forced).
TEST(WholeFrame, DigestsAtEachFactor) {
  const uint64_t expected[] = {8333035463593772674ull, 10960205889157958476ull,
                               5279329425073802067ull, 11624283177912164161ull};
  const Input in(960, 540, 2026);
  for (int i = 0; i < 4; ++i) {
    const int s = 2 + 2 * i;
    const Handle handle(960, 540, s, const_cast<uint16_t*>(in.weights.data()));
    EXPECT_EQ(FrameDigest(RunPipeline(handle, in, 0)), expected[i])
        << "x" << s << " at " << SimdLevelName(ActiveSimdLevel());
  }
}

// Three handles blurring in place at once on their own threads give the
// frames they give alone (the frame counter they share is atomic). 264 rows:
// bands of 132 luma and 66 chroma rows leave a few rows past whole strips.
TEST(WholeFrame, SeveralHandlesBlurAtOnce) {
  const Input in(384, 264, 40);
  std::vector<uint8_t> expected[3];
  std::vector<std::thread> hosts;
  for (int i = 0; i < 3; ++i) {
    expected[i] = in.frame;
    BlurOneBandPerPlane(2 << i, in.frame.data(), 384, 264, in.weights.data(), expected[i].data());
    hosts.emplace_back([&, i] {
      const Handle h(384, 264, 2 << i, const_cast<uint16_t*>(in.weights.data()));
      for (int f = 0; f < 3; ++f) {
        android::GraphicBuffer frame(384, 264, android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33);
        std::copy(in.frame.begin(), in.frame.end(), frame.hostData());
        EXPECT_EQ(DofraBlurImage(h.handle, &frame, &frame), 0);
        EXPECT_TRUE(std::equal(expected[i].begin(), expected[i].end(), frame.hostData())) << i;
      }
    });
  }
  for (std::thread& t : hosts) t.join();
}

}  // namespace
