// A whole NV21 frame blurred with the kernels, plane by plane: two bands per
// plane (each shrinking and smoothing its own widened rows) must give exactly
// the frame that one band per plane gives.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "blur/dispatch.h"
#include "blur/kernels.h"
#include "support/test_image.h"

namespace {

constexpr int kRadius = 2;
const uint16_t kKernelWeights[5] = {204, 204, 204, 204, 204};

struct PlaneKernels {
  ShrinkFn shrink;
  SmoothFn smooth;
  BlendFn blend;
  int border_bytes;  // padding on each side of a padded row: r samples
};

// The pipeline's own table of vectorised members.
PlaneKernels Kernels(int factor, bool chroma) {
  const int i = factor - kMinScaleFactor;
  const BlurKernelTable& k = kBlurKernels;
  if (chroma) return {k.shrink_uv[i], k.smooth_uv, k.blend_uv[i], 2 * kRadius};
  return {k.shrink_y[i], k.smooth_y, k.blend_y[i], kRadius};
}

// One plane of W x H (chroma: H = frame height / 2) with its small plane of
// sw x sh, blurred in `bands` bands; scratch buffers start filled with `fill`
// so that a band relying on rows it did not compute shows up.
std::vector<uint8_t> BlurPlane(const PlaneKernels& k, const uint8_t* src, const uint16_t* weights,
                               int W, int H, int s, int sw, int sh, int bands, uint8_t fill) {
  const int pw = sw + 2 * k.border_bytes;
  std::vector<uint8_t> tmp(size_t(sw) * H, fill), small(size_t(sw) * sh, fill),
      smoothed(size_t(sw) * sh, fill), padded(size_t(pw) * (sh + 2 * kRadius), fill),
      out(size_t(W) * H, fill);
  const size_t slice = size_t(pw) * (sh + 2 * kRadius + 1) * 4;
  std::vector<uint8_t> integral(slice * bands, fill);
  const int rows = H / bands;
  // The second band first: neither may depend on the other's work.
  for (int b = bands - 1; b >= 0; --b) {
    const int first = b * rows, last = first + rows - 1;
    const int q = first / s;
    const int small_first = q < 2 ? 0 : q - 1;
    const int small_last = std::min(last / s + 1, sh - 1);
    const int y0 = std::max(small_first - kRadius, 0);
    const int y1 = std::min(small_last + kRadius, sh - 1);
    k.shrink(src, small.data(), tmp.data(), W, H, sw, sh, y0, y1);
    k.smooth(small.data(), padded.data(), smoothed.data(), sw, sh, kKernelWeights, kRadius, kRadius,
             integral.data() + b * slice, small_first, small_last);
    k.blend(src, W, H, sw, sh, weights, smoothed.data(), out.data(), first, last);
  }
  return out;
}

struct FrameCase {
  int factor, W, H;
};

class FramePipeline : public ::testing::TestWithParam<FrameCase> {};

TEST_P(FramePipeline, TwoBandsEqualOneBand) {
  const FrameCase c = GetParam();
  std::mt19937 rng(c.W + c.H * 3 + c.factor);
  std::vector<uint8_t> frame(size_t(c.W) * c.H * 3 / 2);
  FillRandom(frame.data(), frame.size(), rng);
  std::vector<uint16_t> weights(size_t(c.W) * c.H);
  FillRandomWeights(weights.data(), weights.size(), rng);
  const int sw = c.W / c.factor, sh = c.H / c.factor;
  const uint8_t* luma = frame.data();
  const uint8_t* chroma = luma + size_t(c.W) * c.H;

  const PlaneKernels y = Kernels(c.factor, false);
  const auto y1 = BlurPlane(y, luma, weights.data(), c.W, c.H, c.factor, sw, sh, 1, 0);
  const auto y2 = BlurPlane(y, luma, weights.data(), c.W, c.H, c.factor, sw, sh, 2, 255);
  EXPECT_EQ(y1, y2) << "luma";

  const PlaneKernels uv = Kernels(c.factor, true);
  const int H2 = c.H / 2, sh2 = sh / 2;
  const auto uv1 = BlurPlane(uv, chroma, weights.data(), c.W, H2, c.factor, sw, sh2, 1, 0);
  const auto uv2 = BlurPlane(uv, chroma, weights.data(), c.W, H2, c.factor, sw, sh2, 2, 255);
  EXPECT_EQ(uv1, uv2) << "chroma";
}

std::vector<FrameCase> FrameCases() {
  std::vector<FrameCase> cases;
  // Chroma heights even (and multiples of 6 for the factor 6).
  for (int f : {2, 4, 6, 8}) {
    for (const auto& wh : {std::pair<int, int>{1920, 1080}, {384, 240}, {192, 144}}) {
      cases.push_back({f, wh.first, wh.second});
    }
  }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Sizes, FramePipeline, ::testing::ValuesIn(FrameCases()));

}  // namespace
