// Every kernel family: the vectorised members against their scalar formulas
// at every instruction-set level offered, then hand-checked values of the
// scalar formulas for the rules that member equality cannot see.
#include "blur/kernels.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/kernel_harness.h"

using namespace dofra;  // the library's internal names

namespace {

const std::vector<KernelFamily>& Families() {
  static const std::vector<KernelFamily> all = AllKernelFamilies();
  return all;
}

class KernelHarness : public ::testing::TestWithParam<size_t> {};

TEST_P(KernelHarness, VectorisedMembersMatchTheirFormulas) {
  const KernelFamily& f = Families()[GetParam()];
  std::string skipped;
  const std::vector<SimdLevel> levels = VectorLevels(&skipped);
  if (!skipped.empty())
    printf("[ levels  ] %s: not offered here: %s\n", f.name.c_str(), skipped.c_str());
  const SimdLevel restore = ActiveSimdLevel();
  for (SimdLevel level : levels) {
    ASSERT_TRUE(ForceSimdLevel(level));
    for (const KernelCase& c : f.cases) {
      for (uint8_t fill : {1, 101}) {
        const std::vector<uint8_t> ref = f.run(f.member, false, c, fill);
        const std::vector<uint8_t> fast = f.run(f.member, true, c, fill);
        ASSERT_EQ(ref.size(), fast.size());
        const auto diff = std::mismatch(ref.begin(), ref.end(), fast.begin());
        ASSERT_TRUE(diff.first == ref.end())
            << f.name << " at " << SimdLevelName(level) << ": W=" << c.W << " H=" << c.H
            << " sw=" << c.sw << " sh=" << c.sh << " rows " << c.first << ".." << c.last
            << " r=" << c.r << " pattern " << c.pattern << " fill " << int(fill) << ": byte "
            << (diff.first - ref.begin()) << " is " << int(*diff.second) << ", formula "
            << int(*diff.first);
      }
    }
  }
  ForceSimdLevel(restore);
}

INSTANTIATE_TEST_SUITE_P(AllFamilies, KernelHarness, ::testing::Range<size_t>(0, Families().size()),
                         [](const ::testing::TestParamInfo<size_t>& info) {
                           std::string name = Families()[info.param].name;
                           for (char& ch : name)
                             if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
                           return name;
                         });

// ---------------------------------------------------------------- hand values

int Lerp(int a, int b, int wa, int wb) { return (a * wa + b * wb + 128) >> 8; }

// A compositing call with source 0 and weight 1024 (the output is the blurred
// sample), an output pre-filled with 7 and a small plane of either a fixed
// pseudo-random pattern or one value.
struct Blurred {
  int W, H, sw, sh;
  std::vector<uint8_t> small, out;
  Blurred(BlendFn fn, int w, int h, int s_w, int s_h, int first, int last, int constant,
          bool chroma)
      : W(w), H(h), sw(s_w), sh(s_h), small(size_t(s_w) * s_h), out(size_t(w) * h, 7) {
    for (size_t i = 0; i < small.size(); ++i)
      small[i] = static_cast<uint8_t>(constant >= 0 ? constant : (i * 37 + 11) % 251);
    const std::vector<uint8_t> src(out.size(), 0);
    const std::vector<uint16_t> weights(out.size() * (chroma ? 2 : 1), 1024);
    fn(src.data(), W, H, sw, sh, weights.data(), small.data(), out.data(), first, last);
  }
  int S(int y, int x) const { return small[size_t(y) * sw + x]; }
};

// Calls under test: member, W, H, sw, sh, band, small plane value (-1: pattern).
struct BlendCall {
  BlendFn fn;
  int W, H, sw, sh, first, last, constant;
  bool chroma;
};
const BlendCall kY2{__CreateOutputImage_Y_x2_c, 40, 6, 20, 3, 0, 5, -1, false},
    kY2Row{__CreateOutputImage_Y_x2_c, 40, 6, 20, 3, 3, 3, -1, false},
    kY4{__CreateOutputImage_Y_x4_c, 64, 64, 16, 16, 0, 31, -1, false},
    kY4Bottom{__CreateOutputImage_Y_x4_c, 35, 24, 9, 12, 23, 23, -1, false},
    kY4Above{__CreateOutputImage_Y_x4_c, 35, 24, 9, 12, 0, 22, -1, false},
    kY8{__CreateOutputImage_Y_x8_c, 128, 64, 16, 8, 0, 0, -1, false},
    kY8Bottom{__CreateOutputImage_Y_x8_c, 67, 48, 9, 24, 47, 47, -1, false},
    kY6Row1{__CreateOutputImage_Y_x6_c, 240, 60, 40, 10, 1, 1, -1, false},
    kY6{__CreateOutputImage_Y_x6_c, 240, 60, 40, 10, 0, 59, -1, false},
    kY6Flat{__CreateOutputImage_Y_x6_c, 96, 1088, 16, 181, 0, 1087, 200, false},
    kUV2{__CreateOutputImage_UV_x2_c, 64, 8, 32, 4, 0, 7, -1, true},
    kUV2Row{__CreateOutputImage_UV_x2_c, 32, 8, 16, 4, 5, 5, -1, true},
    kUV4{__CreateOutputImage_UV_x4_c, 64, 16, 16, 4, 0, 7, -1, true},
    kUV8Bottom{__CreateOutputImage_UV_x8_c, 128, 32, 16, 4, 30, 31, -1, true},
    kUV6{__CreateOutputImage_UV_x6_c, 144, 48, 24, 8, 0, 7, -1, true},
    kUV6Flat{__CreateOutputImage_UV_x6_c, 96, 544, 16, 90, 100, 200, 200, true};

// Expected values: a constant, a sample, a 2x2 mean, a 2-tap step, bilinear.
enum Want { kConst, kSample, kMean, kLerp, kBilinear };
struct BlendHand {
  const char* rule;
  const BlendCall& call;
  int y, x;
  Want want;
  int a[7];  // kConst v; kSample y x; kMean r0 r1 k step; kLerp y0 x0 y1 x1 wa wb;
             // kBilinear r0 x0 step left right top fy
};

int Expected(const Blurred& b, Want want, const int* a) {
  switch (want) {
    case kConst:
      return a[0];
    case kSample:
      return b.S(a[0], a[1]);
    case kMean:
      return (b.S(a[0], a[2]) + b.S(a[0], a[2] + a[3]) + b.S(a[1], a[2]) + b.S(a[1], a[2] + a[3]) +
              2) >>
             2;
    case kLerp:
      return Lerp(b.S(a[0], a[1]), b.S(a[2], a[3]), a[4], a[5]);
    default:
      return Lerp(Lerp(b.S(a[0], a[1]), b.S(a[0], a[1] + a[2]), a[3], a[4]),
                  Lerp(b.S(a[0] + 1, a[1]), b.S(a[0] + 1, a[1] + a[2]), a[3], a[4]), a[5], a[6]);
  }
}

const BlendHand kBlendHands[] = {
    {"x2 block mean", kY2, 1, 1, kMean, {0, 1, 0, 1}},
    {"x2 inner block", kY2, 2, 37, kMean, {1, 2, 18, 1}},
    {"x2 last columns", kY2, 1, 39, kMean, {0, 1, 19, 0}},
    {"x2 last row", kY2, 5, 4, kMean, {2, 2, 2, 1}},
    {"x2 row above", kY2Row, 2, 0, kMean, {1, 2, 0, 1}},
    {"x2 one row", kY2Row, 1, 0, kConst, {7}},
    {"x4 phase", kY4, 0, 5, kLerp, {0, 1, 0, 2, 192, 64}},
    {"x4 bilinear", kY4, 1, 5, kBilinear, {0, 1, 1, 192, 64, 192, 64}},
    {"x4 edge", kY4, 6, 60, kLerp, {1, 15, 2, 15, 128, 128}},
    {"x4 bottom", kY4Bottom, 20, 1, kLerp, {10, 0, 10, 1, 191, 65}},
    {"x4 bottom edge", kY4Bottom, 21, 34, kSample, {10, 8}},
    {"x4 bottom only", kY4Bottom, 19, 0, kConst, {7}},
    {"x4 main above", kY4Above, 21, 34, kLerp, {10, 8, 11, 8, 128, 128}},
    {"x8 phase", kY8, 0, 11, kLerp, {0, 1, 0, 2, 160, 96}},
    {"x8 bottom edge", kY8Bottom, 40, 66, kSample, {20, 8}},
    {"x6 column 7", kY6Row1, 1, 7, kBilinear, {0, 1, 1, 214, 42, 214, 42}},
    {"x6 column 0", kY6Row1, 1, 0, kLerp, {0, 0, 1, 0, 214, 42}},
    {"x6 row 0 column 0", kY6, 0, 0, kSample, {0, 0}},
    {"x6 row 0", kY6, 0, 7, kLerp, {0, 1, 0, 2, 214, 42}},
    {"x6 bottom", kY6, 55, 7, kLerp, {9, 1, 9, 2, 214, 42}},
    {"x6 bottom edge", kY6, 55, 236, kSample, {9, 39}},
    {"x6 fy 0", kY6Flat, 517, 95, kConst, {0}},
    {"x6 fy 0 column 0", kY6Flat, 517, 0, kConst, {0}},
    {"x6 above fy 0", kY6Flat, 516, 40, kConst, {200}},
    {"UV x2 mean", kUV2, 2, 59, kMean, {1, 2, 29, 2}},
    {"UV x2 last pairs", kUV2, 2, 60, kMean, {1, 2, 30, 0}},
    {"UV x2 last row", kUV2, 7, 63, kSample, {3, 31}},
    {"UV x2 row above", kUV2Row, 4, 0, kMean, {2, 3, 0, 2}},
    {"UV x2 one row", kUV2Row, 3, 0, kConst, {7}},
    {"UV x4 phase", kUV4, 0, 11, kLerp, {0, 3, 0, 5, 192, 64}},
    {"UV x8 bottom edge", kUV8Bottom, 24, 127, kSample, {3, 15}},
    {"UV x8 bottom only", kUV8Bottom, 23, 0, kConst, {7}},
    {"UV x6 pair 7", kUV6, 1, 15, kBilinear, {0, 3, 2, 214, 42, 214, 42}},
    {"UV x6 pair 0", kUV6, 1, 1, kLerp, {0, 1, 1, 1, 214, 42}},
    {"UV x6 row 0 pair 0", kUV6, 0, 1, kSample, {0, 1}},
    {"UV x6 fy 0", kUV6Flat, 133, 0, kConst, {0}},
};

TEST(HandValues, Compositing) {
  for (const BlendHand& h : kBlendHands) {
    const BlendCall& c = h.call;
    const Blurred b(c.fn, c.W, c.H, c.sw, c.sh, c.first, c.last, c.constant, c.chroma);
    EXPECT_EQ(b.out[size_t(h.y) * c.W + h.x], Expected(b, h.want, h.a)) << h.rule;
  }
}

struct ShrinkHand {
  ShrinkFn fn;
  int factor;
  bool chroma;
  std::vector<uint8_t> block;  // factor x factor, or one row repeated
  int want;
};

// Each pass rounds on its own; the x6 taps are 1 1 2 2 1 1; chroma channels stay apart.
TEST(HandValues, Shrink) {
  const ShrinkHand hands[] = {
      {__BiLinearInterp_Y_x2_c, 2, false, {0, 1, 0, 0}, 1},
      {__BiLinearInterp_Y_x6_c, 6, false, {0, 0, 255, 255, 0, 0}, 128},
      {__BiLinearInterp_Y_x6_c, 6, false, {255, 255, 0, 0, 255, 255}, 128},
      {__BiLinearInterp_Y_x8_c, 8, false, {0, 0, 0, 0, 0, 0, 0, 4}, 1},
      {__BiLinearInterp_Y_x8_c, 8, false, {0, 0, 0, 3, 0, 0, 0, 0}, 0},
      {__BiLinearInterp_UV_x2_c, 2, true, {10, 11}, 11},
      {__BiLinearInterp_UV_x4_c, 4, true, {1, 0, 0, 1}, 1},
      {__BiLinearInterp_UV_x6_c, 6, true, {0, 0, 255, 255, 0, 0}, 128},
      {__BiLinearInterp_UV_x6_c, 6, true, {0, 0, 0, 1, 0, 0}, 0},
      {__BiLinearInterp_UV_x8_c, 8, true, {0, 0, 0, 0, 0, 0, 0, 4}, 1},
  };
  for (const ShrinkHand& h : hands) {
    const int f = h.factor, unit = h.chroma ? 2 : 1, W = unit * f;
    std::vector<uint8_t> src(size_t(W) * f, 200), tmp(size_t(unit) * f), small(unit);
    for (int y = 0; y < f; ++y)
      for (int x = 0; x < f; ++x)
        src[size_t(y) * W + unit * x] = h.block[h.block.size() == size_t(f) ? x : y * f + x];
    h.fn(src.data(), small.data(), tmp.data(), W, f, unit, 1, 0, 0);
    EXPECT_EQ(small[0], h.want) << "factor " << f << (h.chroma ? " chroma" : " luma");
    EXPECT_EQ(small[unit - 1], h.chroma ? 200 : h.want) << "the V channel mixed in";
  }
}

// Uniform 255: the truncated reciprocal gives 251 for count 9 (w = 113); the
// even count 8 (w = 128) wraps 323 to 67. Pairs 0 / 200 stay 0 / 198.
TEST(HandValues, Smoothing) {
  const int hands[][7] = {// chroma, r, weight, source even / odd, wanted even / odd
                          {0, 4, 113, 255, 255, 251, 251},
                          {1, 4, 113, 255, 255, 251, 251},
                          {0, 4, 128, 255, 255, 67, 67},
                          {1, 4, 128, 255, 255, 67, 67},
                          {1, 2, 204, 0, 200, 0, 198}};
  const int W = 40, H = 9;
  for (const int* h : hands) {
    const int r = h[1], stride = W + 2 * r * (h[0] + 1);
    const uint16_t weight = static_cast<uint16_t>(h[2]);
    std::vector<uint8_t> src(W * H), padded(size_t(stride) * (H + 2 * r), 0), dst(W * H, 7);
    std::vector<uint8_t> integral(size_t(stride) * (H + 2 * r + 1) * 4);
    for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint8_t>(h[3 + i % 2]);
    (h[0] ? __GaussianSmoothImage_UV_integral_image_c : __GaussianSmoothImage_Y_integral_image_c)(
        src.data(), padded.data(), dst.data(), W, H, &weight, 2 * r + 1, r, integral.data(), 0,
        H - 1);
    for (size_t i = 0; i < dst.size(); ++i)
      ASSERT_EQ(dst[i], h[5 + i % 2]) << "r " << r << " " << i;
  }
}

}  // namespace
