// Border expansion: padded rows of the band hold clamped source rows, the
// sides repeat the first/last pixel (chroma: pair), other rows stay untouched.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "blur/kernels.h"
#include "support/test_image.h"

namespace {

constexpr uint8_t kUntouched = 0xEE;

struct Plane {
  bool pairs;
  int w, h, r;
  int Lead() const { return pairs ? 2 : 1; }
  int Stride() const { return w + 2 * r * Lead(); }
  size_t Size() const { return static_cast<size_t>(Stride()) * (h + 2 * r); }
};

// Expected byte of padded (p, q): nearest source pixel, by pairs for chroma.
uint8_t Expected(const Plane& pl, const std::vector<uint8_t>& src, int p, int q) {
  const int row = std::clamp(p - pl.r, 0, pl.h - 1);
  int col = q - pl.r * pl.Lead();
  if (pl.pairs) {
    const int channel = ((q % 2) + 2) % 2;
    const int pair = std::clamp((col - channel) / 2, 0, pl.w / 2 - 1);
    col = 2 * pair + channel;
  } else {
    col = std::clamp(col, 0, pl.w - 1);
  }
  return src[static_cast<size_t>(row) * pl.w + col];
}

// Runs the expansion of rows from..to and checks every padded byte: rows
// from..to + 2r as expected, all others untouched.
void CheckBand(const Plane& pl, int from, int to, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint8_t> src(static_cast<size_t>(pl.w) * pl.h);
  FillRandom(src.data(), src.size(), rng);
  GuardedBytes dst(pl.Size(), kUntouched, seed % 7);
  (pl.pairs ? __ExpandUV : __ExpandY)(src.data(), dst.data(), pl.w, pl.h, pl.r, from, to);
  ASSERT_TRUE(dst.GuardsIntact());
  for (int p = 0; p < pl.h + 2 * pl.r; ++p) {
    const bool written = p >= from && p <= to + 2 * pl.r;
    for (int q = 0; q < pl.Stride(); ++q) {
      const uint8_t want = written ? Expected(pl, src, p, q) : kUntouched;
      ASSERT_EQ(dst.data()[static_cast<size_t>(p) * pl.Stride() + q], want)
          << "row " << p << " col " << q << " band " << from << ".." << to;
    }
  }
}

class ExpandRandom : public ::testing::TestWithParam<bool> {};

TEST_P(ExpandRandom, BandsHoldClampedRows) {
  std::mt19937 rng(11);
  for (int i = 0; i < 120; ++i) {
    const bool pairs = GetParam();
    const int r = i % 5;
    const int h = std::uniform_int_distribution<int>(2 * r + 2, 40)(rng);
    const int w = 2 * std::uniform_int_distribution<int>(1, 20)(rng) - (pairs ? 0 : i % 2);
    const Plane pl{pairs, w, h, r};
    // Whole plane, top band, bottom band, a middle band, one-row bands.
    const int mid = std::uniform_int_distribution<int>(r, h - 1 - r)(rng);
    CheckBand(pl, 0, h - 1, i);
    CheckBand(pl, 0, std::max(0, h - 1 - r), i);
    CheckBand(pl, mid, h - 1, i);
    CheckBand(pl, r, std::max(r, h - 1 - r), i);
    CheckBand(pl, mid, mid, i);
    CheckBand(pl, 1, 1, i);  // neighbours outside the plane are clamped
  }
}

INSTANTIATE_TEST_SUITE_P(LumaAndChroma, ExpandRandom, ::testing::Bool());

TEST(ExpandY, BottomBandOfSmallPlane) {
  const int w = 5, h = 270, r = 2, stride = w + 2 * r;
  std::vector<uint8_t> src(static_cast<size_t>(w) * h);
  for (int y = 0; y < h; ++y)
    std::fill_n(&src[static_cast<size_t>(y) * w], w, static_cast<uint8_t>(y));
  std::vector<uint8_t> dst(static_cast<size_t>(stride) * (h + 2 * r), kUntouched);
  __ExpandY(src.data(), dst.data(), w, h, r, 134, 269);
  auto at = [&](int p) { return dst[static_cast<size_t>(p) * stride + r]; };
  auto row = [](int y) { return static_cast<uint8_t>(y); };
  EXPECT_EQ(at(133), kUntouched);
  EXPECT_EQ(at(134), row(132));
  EXPECT_EQ(at(135), row(133));
  EXPECT_EQ(at(136), row(134));
  EXPECT_EQ(at(271), row(269));
  EXPECT_EQ(at(272), row(269));
  EXPECT_EQ(at(273), row(269));
}

TEST(ExpandUV, PairBordersRepeatPairs) {
  const uint8_t src[] = {10, 200, 30, 40, 50, 60};
  std::vector<uint8_t> dst(14 * 5, 0);
  __ExpandUV(src, dst.data(), 6, 1, 2, 0, 0);
  // One source row, r = 2: padded rows 0..4 each hold it.
  const std::vector<uint8_t> row{10, 200, 10, 200, 10, 200, 30, 40, 50, 60, 50, 60, 50, 60};
  for (int p = 0; p < 5; ++p)
    EXPECT_TRUE(std::equal(row.begin(), row.end(), dst.begin() + 14 * p)) << "row " << p;
}

TEST(ExpandUV, RadiusZeroCopiesRows) {
  const uint8_t src[] = {1, 2, 3, 4, 5, 6, 7, 8};
  uint8_t dst[8] = {};
  __ExpandUV(src, dst, 4, 2, 0, 0, 1);
  EXPECT_TRUE(std::equal(src, src + 8, dst));
}

}  // namespace
