// Integral-image smoothing: the vectorised members against the scalar
// formula and against a direct box sum over clamped pixels, byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "blur/kernels.h"
#include "support/test_image.h"

namespace {

struct Case {
  bool pairs;
  int W, H, r, y0, y1;
  uint16_t w;  // kernel weight entry 0
};

int Lead(const Case& c) { return c.pairs ? 2 : 1; }

// The box of (y, x) summed directly: rows and columns (pairs) clamped.
uint8_t DirectBox(const Case& c, const std::vector<uint8_t>& src, int y, int x) {
  const int lead = Lead(c);
  const int channel = x % lead;
  const int samples = c.W / lead;
  uint32_t sum = 0;
  for (int dy = -c.r; dy <= c.r; ++dy) {
    const int row = std::clamp(y + dy, 0, c.H - 1);
    for (int dx = -c.r; dx <= c.r; ++dx) {
      const int col = std::clamp(x / lead + dx, 0, samples - 1) * lead + channel;
      sum += src[static_cast<size_t>(row) * c.W + col];
    }
  }
  const uint32_t t = (sum * c.w + 512) >> 10;
  return static_cast<uint8_t>((t * c.w + 512) >> 10);
}

// Runs one member with its scratch and destination prefilled with `fill`;
// checks the guards and returns the destination.
std::vector<uint8_t> RunSmooth(SmoothFn fn, const Case& c, const std::vector<uint8_t>& src,
                               uint8_t fill, size_t offset) {
  const int P = c.W + 2 * c.r * Lead(c);
  GuardedBytes in(src.size(), 0, offset);
  std::copy(src.begin(), src.end(), in.data());
  GuardedBytes expanded(static_cast<size_t>(P) * (c.H + 2 * c.r), fill, offset + 1);
  GuardedBytes integral(static_cast<size_t>(P) * (c.H + 2 * c.r + 1) * 4, fill);
  GuardedBytes dst(src.size(), fill, offset + 3);
  const uint16_t weights[] = {c.w, c.w, c.w};
  fn(in.data(), expanded.data(), dst.data(), c.W, c.H, weights, c.r, c.r, integral.data(), c.y0,
     c.y1);
  EXPECT_TRUE(in.GuardsIntact() && expanded.GuardsIntact() && integral.GuardsIntact() &&
              dst.GuardsIntact());
  return dst.Bytes();
}

SmoothFn Vector(const Case& c) {
  return c.pairs ? __GaussianSmoothImage_UV_integral_image_neon
                 : __GaussianSmoothImage_Y_integral_image_neon;
}
SmoothFn Scalar(const Case& c) {
  return c.pairs ? __GaussianSmoothImage_UV_integral_image_c
                 : __GaussianSmoothImage_Y_integral_image_c;
}

// Both members write exactly rows y0..y1, equal to the direct box.
void Check(const Case& c, const std::vector<uint8_t>& src, size_t offset) {
  const auto vec = RunSmooth(Vector(c), c, src, 1, offset);
  const auto ref = RunSmooth(Scalar(c), c, src, 101, offset);
  for (int y = 0; y < c.H; ++y) {
    for (int x = 0; x < c.W; ++x) {
      const size_t i = static_cast<size_t>(y) * c.W + x;
      const bool inside = y >= c.y0 && y <= c.y1;
      ASSERT_EQ(ref[i], inside ? DirectBox(c, src, y, x) : 101)
          << "scalar y " << y << " x " << x << " W " << c.W << " H " << c.H << " r " << c.r;
      ASSERT_EQ(vec[i], inside ? ref[i] : 1)
          << "vector y " << y << " x " << x << " W " << c.W << " H " << c.H << " r " << c.r;
    }
  }
}

std::vector<uint8_t> Image(const Case& c, std::mt19937& rng, int kind) {
  std::vector<uint8_t> src(static_cast<size_t>(c.W) * c.H, kind == 1 ? 0 : 255);
  if (kind == 0) FillRandom(src.data(), src.size(), rng);
  return src;
}

class SmoothRandom : public ::testing::TestWithParam<bool> {};

// Every width across a few vector groups, then random sizes and bands
// (first row 0 or >= r, last row h - 1 or <= h - 1 - r, as the pipeline
// passes), odd and even kernel counts, random / all-0 / all-255 images.
TEST_P(SmoothRandom, MatchesScalarAndDirectBox) {
  const bool pairs = GetParam();
  const int lead = pairs ? 2 : 1;
  std::mt19937 rng(pairs ? 5 : 3);
  for (int n = 1; n <= 40; ++n) {
    const Case c{pairs, n * lead, 7, 2, 0, 6, 204};
    Check(c, Image(c, rng, 0), n % 4);
  }
  for (int i = 0; i < 100; ++i) {
    const int r = i % 9;  // up to 5 the 16-bit path, above it (and r = 0, w = 1024) 32-bit
    const int count = 2 * r + 1 - (i % 7 == 0 ? 1 : 0);  // now and then an even count
    const uint16_t w = static_cast<uint16_t>(1024 / std::max(count, 1));
    const int W = lead * std::uniform_int_distribution<int>(1, 70)(rng);
    const int H = std::uniform_int_distribution<int>(2 * r + 1, 30)(rng);
    const int y0 =
        i % 3 == 0 ? 0 : std::uniform_int_distribution<int>(std::min(r, H - 1), H - 1)(rng);
    const int y1 =
        i % 4 == 0 ? H - 1 : std::uniform_int_distribution<int>(y0, std::max(y0, H - 1 - r))(rng);
    const Case c{pairs, W, H, r, y0, std::min(y1, H - 1), w};
    Check(c, Image(c, rng, i % 10 == 1 ? 1 : i % 10 == 2 ? 2 : 0), i % 5);
  }
}

INSTANTIATE_TEST_SUITE_P(LumaAndChroma, SmoothRandom, ::testing::Bool());

class SmoothEdges : public ::testing::TestWithParam<bool> {};

// The vector path works in strips of 1024 byte columns: rows just short of,
// at and past one strip, a last strip narrower than a vector, and three
// strips; every band kind over them.
TEST_P(SmoothEdges, RowsAcrossStrips) {
  const bool pairs = GetParam();
  std::mt19937 rng(pairs ? 17 : 13);
  int i = 0;
  for (int W : {1022, 1024, 1026, 1030, 1032, 1034, 2048 + 6}) {
    const int r = i % 2 ? 2 : 3;
    const int H = 2 * r + 4;
    const Case c{pairs, W, H, r, i % 3 == 0 ? 0 : r, i % 3 == 1 ? H - 1 : H - 1 - r, 146};
    Check(c, Image(c, rng, 0), i % 4);
    ++i;
  }
}

// Radii around the limits of the 16-bit paths (5 for the rounded word
// multiply, 7 for word sums, 8 back on the table) with the matching weight,
// the largest weights of each path and a weight whose second step wraps,
// over random and all-255 images.
TEST_P(SmoothEdges, RadiusAndWeightLimits) {
  const bool pairs = GetParam();
  const int lead = pairs ? 2 : 1;
  std::mt19937 rng(pairs ? 23 : 19);
  for (int r = 5; r <= 8; ++r) {
    for (uint16_t w : {static_cast<uint16_t>(1024 / (2 * r + 1)), uint16_t{1023}, uint16_t{1024},
                       uint16_t{65535}}) {
      for (int kind : {0, 2}) {
        const int W = lead * std::uniform_int_distribution<int>(1, 60)(rng);
        const Case c{pairs, W, 2 * r + 5, r, 0, 2 * r + 4, w};
        Check(c, Image(c, rng, kind), static_cast<size_t>(r % 4));
      }
    }
  }
  const Case wide{pairs, 1040, 16, 7, 0, 15, 68};  // the last radius of word sums, two strips
  Check(wide, Image(wide, rng, 2), 1);
}

INSTANTIATE_TEST_SUITE_P(LumaAndChroma, SmoothEdges, ::testing::Bool());

// A band's rows equal the same rows of one call over the whole image.
TEST(Smooth, BandEqualsWholeImage) {
  std::mt19937 rng(9);
  for (bool pairs : {false, true}) {
    const Case whole{pairs, 96, 40, 2, 0, 39, 204};
    const auto src = Image(whole, rng, 0);
    const auto all = RunSmooth(Vector(whole), whole, src, 0, 0);
    for (auto band : {std::pair<int, int>{0, 19}, {18, 39}, {2, 2}, {10, 30}}) {
      Case c = whole;
      c.y0 = band.first;
      c.y1 = band.second;
      const auto part = RunSmooth(Vector(c), c, src, 0, 0);
      for (int y = c.y0; y <= c.y1; ++y)
        for (int x = 0; x < c.W; ++x)
          ASSERT_EQ(part[static_cast<size_t>(y) * c.W + x], all[static_cast<size_t>(y) * c.W + x]);
    }
  }
}

// Uniform 255: the truncated reciprocal gives 251 for count 9 (w = 113) and
// the even count 8 (w = 128) wraps 323 to 67; r = 4 in both.
TEST(Smooth, UniformWhiteRounding) {
  for (auto expected : {std::pair<uint16_t, uint8_t>{113, 251}, {128, 67}}) {
    for (bool pairs : {false, true}) {
      const Case c{pairs, 24, 12, 4, 0, 11, expected.first};
      const std::vector<uint8_t> src(24 * 12, 255);
      for (SmoothFn fn : {Vector(c), Scalar(c)}) {
        const auto out = RunSmooth(fn, c, src, 0, 0);
        EXPECT_TRUE(
            std::all_of(out.begin(), out.end(), [&](uint8_t v) { return v == expected.second; }));
      }
    }
  }
}

// Channels of a pair never mix: 0 stays 0 and 200 becomes 198 everywhere
// (25 * 200 through two rounded steps of w = 204).
TEST(Smooth, PairChannelsStaySeparate) {
  const Case c{true, 40, 9, 2, 0, 8, 204};
  std::vector<uint8_t> src(40 * 9);
  for (size_t i = 0; i < src.size(); ++i) src[i] = i % 2 ? 200 : 0;
  const auto out = RunSmooth(Vector(c), c, src, 7, 0);
  for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i], i % 2 ? 198 : 0) << i;
}

}  // namespace
