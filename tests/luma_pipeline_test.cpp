// Shrink, smooth and composite of the luma plane, run in the two bands of the
// frame pipeline, must give the same frame as one band over the whole plane:
// each band widens its small rows enough that it never needs its neighbour.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "blur/kernels.h"
#include "support/test_image.h"

namespace {

constexpr int kRadius = 2;  // kernel size 5
constexpr uint16_t kKernelWeight = 1024 / 5;

struct Factor {
  int s;
  ShrinkFn shrink;
  BlendFn blend;
  BlendFn blend_c;
};

const Factor kFactors[] = {
    {2, __BiLinearInterp_Y_x2_neon, __CreateOutputImage_Y_x2_neon, __CreateOutputImage_Y_x2_c},
    {4, __BiLinearInterp_Y_x4_neon, __CreateOutputImage_Y_x4_neon, __CreateOutputImage_Y_x4_c},
    {6, __BiLinearInterp_Y_x6, __CreateOutputImage_Y_x6_neon, __CreateOutputImage_Y_x6_c},
    {8, __BiLinearInterp_Y_x8, __CreateOutputImage_Y_x8_neon, __CreateOutputImage_Y_x8_c},
};

// The luma working buffers of one frame, sized as the blur context sizes them
// (the smoothed plane is followed by its chroma part there, kept here).
struct LumaPipeline {
  int W, H, sw, sh;
  std::vector<uint8_t> tmp, small, expanded, smoothed;
  std::vector<uint32_t> integral;  // two band slices
  std::vector<uint16_t> kernel;
  size_t slice;

  LumaPipeline(int w, int h, int s)
      : W(w),
        H(h),
        sw(w / s),
        sh(h / s),
        tmp(static_cast<size_t>(h) * sw),
        small(static_cast<size_t>(sw) * sh),
        expanded(static_cast<size_t>(sw + 2 * kRadius) * (sh + 2 * kRadius)),
        smoothed(static_cast<size_t>(sw) * sh * 3 / 2),
        kernel(2 * kRadius + 1, kKernelWeight),
        slice(static_cast<size_t>(sw + 2 * kRadius) * (sh + 2 * kRadius + 1)) {
    integral.resize(2 * slice);
  }

  // One luma band task: rows first..last of the frame.
  void Band(const Factor& f, BlendFn blend, int band, int first, int last, const uint8_t* src,
            const uint16_t* weights, uint8_t* out) {
    const int q = first / f.s;
    const int small_first = q < 2 ? 0 : q - 1;
    const int small_last = std::min(last / f.s + 1, sh - 1);
    const int y0 = std::max(small_first - kRadius, 0);
    const int y1 = std::min(small_last + kRadius, sh - 1);
    f.shrink(src, small.data(), tmp.data(), W, H, sw, sh, y0, y1);
    __GaussianSmoothImage_Y_integral_image_neon(
        small.data(), expanded.data(), smoothed.data(), sw, sh, kernel.data(), kRadius, kRadius,
        reinterpret_cast<uint8_t*>(integral.data() + band * slice), small_first, small_last);
    blend(src, W, H, sw, sh, weights, smoothed.data(), out, first, last);
  }
};

struct Size {
  int W, H;
};

class LumaPipelineTest : public ::testing::TestWithParam<std::tuple<Factor, Size>> {};

TEST_P(LumaPipelineTest, TwoBandsMatchOneBand) {
  const Factor f = std::get<0>(GetParam());
  const Size size = std::get<1>(GetParam());
  const int W = size.W;
  const int H = size.H;
  const size_t n = static_cast<size_t>(W) * H;
  std::mt19937 rng(static_cast<uint32_t>(W * 31 + H + f.s));
  std::vector<uint8_t> src(n);
  FillRandom(src.data(), n, rng);
  std::vector<uint16_t> weights(n);
  FillRandomWeights(weights.data(), n, rng);

  std::vector<uint8_t> whole(n, 1), banded(n, 2), scalar(n, 3);
  LumaPipeline one(W, H, f.s);
  one.Band(f, f.blend, 0, 0, H - 1, src.data(), weights.data(), whole.data());
  // The seam bands run one after the other on shared buffers, second first,
  // as the pool may order them.
  LumaPipeline two(W, H, f.s);
  const int rows = H / 2;
  two.Band(f, f.blend, 1, rows, H - 1, src.data(), weights.data(), banded.data());
  two.Band(f, f.blend, 0, 0, rows - 1, src.data(), weights.data(), banded.data());
  LumaPipeline plain(W, H, f.s);
  plain.Band(f, f.blend_c, 0, 0, H - 1, src.data(), weights.data(), scalar.data());

  const auto at = std::mismatch(whole.begin(), whole.end(), banded.begin());
  EXPECT_EQ(at.first, whole.end()) << "first difference at row " << (at.first - whole.begin()) / W
                                   << " column " << (at.first - whole.begin()) % W;
  EXPECT_TRUE(whole == scalar);
}

INSTANTIATE_TEST_SUITE_P(Frames, LumaPipelineTest,
                         ::testing::Combine(::testing::ValuesIn(kFactors),
                                            ::testing::Values(Size{1920, 1080}, Size{480, 360},
                                                              Size{192, 120}, Size{1440, 1088})),
                         [](const ::testing::TestParamInfo<std::tuple<Factor, Size>>& info) {
                           const Size s = std::get<1>(info.param);
                           return "x" + std::to_string(std::get<0>(info.param).s) + "_" +
                                  std::to_string(s.W) + "x" + std::to_string(s.H);
                         });

}  // namespace
