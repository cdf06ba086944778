// Depth table, ranged disparity and the depth-range search.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "support/test_image.h"
#include "weight/weight_internal.h"

namespace {

// A DepthData header placed `misalign` bytes into a buffer, to prove that the
// fields are read from their byte offsets.
std::vector<uint8_t> MakeHeader(int32_t a, int32_t b, uint16_t m, uint16_t n, size_t misalign) {
  std::vector<uint8_t> buf(misalign + DOFRA_DEPTH_HEADER_SIZE, 0xEE);
  uint8_t* h = buf.data() + misalign;
  memcpy(h + 16, &a, 4);
  memcpy(h + 20, &b, 4);
  memcpy(h + 60, &m, 2);
  memcpy(h + 64, &n, 2);
  return buf;
}

std::vector<uint8_t> Table(int32_t a, int32_t b, uint16_t m, uint16_t n, size_t misalign = 0) {
  std::vector<uint8_t> buf = MakeHeader(a, b, m, n, misalign);
  std::vector<uint8_t> table(256, 0xCD);
  const auto* depth = reinterpret_cast<const DepthData*>(buf.data() + misalign);
  EXPECT_EQ(InitDisparityToDepth(depth, table.data()), 0);
  return table;
}

struct SignCase {
  int32_t a;
  int32_t b;
  size_t misalign;
};
class DepthTableSigns : public ::testing::TestWithParam<SignCase> {};

// K = 300, floorDisparity = 1, offset = 4, extra = 1.
TEST_P(DepthTableSigns, WorkedExampleWhateverTheSigns) {
  const SignCase c = GetParam();
  const std::vector<uint8_t> t = Table(c.a, c.b, 1280, 320, c.misalign);
  for (int i = 0; i <= 5; ++i) EXPECT_EQ(t[i], 150) << i;
  const int expected[] = {100, 75, 60, 50, 43, 38};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(t[6 + i], expected[i]) << 6 + i;
  for (int i = 253; i <= 255; ++i) EXPECT_EQ(t[i], 1) << i;
  for (int i = 1; i < 256; ++i) EXPECT_LE(t[i], t[i - 1]) << "depth falls with disparity";
}
INSTANTIATE_TEST_SUITE_P(Signs, DepthTableSigns,
                         ::testing::Values(SignCase{1572864000, 524288, 0},
                                           SignCase{-1572864000, 524288, 1},
                                           SignCase{1572864000, -524288, 3},
                                           SignCase{-1572864000, -524288, 2}));

TEST(DepthTable, ZeroNumeratorGivesZeroTable) {
  const std::vector<uint8_t> t = Table(0, 524288, 1280, 320);
  for (int i = 0; i < 256; ++i) EXPECT_EQ(t[i], 0) << i;
}

struct CalibCase {
  int32_t a;
  int32_t b;
  uint16_t m;
  uint16_t n;
  bool ok;
};
class Calibration : public ::testing::TestWithParam<CalibCase> {};
TEST_P(Calibration, ConvertibleOnlyInsideInt32) {
  const CalibCase c = GetParam();
  EXPECT_EQ(DepthCalibrationConvertible({c.a, c.b, c.m, c.n}), c.ok);
}
INSTANTIATE_TEST_SUITE_P(
    Ranges, Calibration,
    ::testing::Values(CalibCase{1572864000, 524288, 1280, 320, true},
                      CalibCase{0, 1, 1, 65535, true},
                      CalibCase{1572864000, 524288, 0, 320, false},    // M = 0
                      CalibCase{1572864000, 0, 1280, 320, false},      // B = 0
                      CalibCase{INT32_MIN, 1, 1, 65535, false},        // K ~ 5.6e13
                      CalibCase{INT32_MAX, 1000, 1, 65535, false},     // K ~ 5.6e10
                      CalibCase{INT32_MAX, 100000, 1, 65535, true}));  // K ~ 5.6e8

// --- ranged disparity ---

TEST(Ranged, MapsThroughTableAndIgnoresEmptyCounts) {
  uint8_t table[256];
  for (int i = 0; i < 256; ++i) table[i] = static_cast<uint8_t>(255 - i);
  std::mt19937 rng(7);
  GuardedBytes src(37, 0, 1), dst(37, 0x11, 3);
  FillRandom(src.data(), src.size(), rng);
  __getRanged(src.data(), dst.data(), 37, 0, 0, table);
  for (int i = 0; i < 37; ++i) EXPECT_EQ(dst.data()[i], 255 - src.data()[i]);
  GuardedBytes untouched(8, 0x42);
  __getRanged(src.data(), untouched.data(), 0, 0, 0, table);
  __getRanged(src.data(), untouched.data(), -5, 0, 0, table);
  EXPECT_EQ(untouched.Bytes(), std::vector<uint8_t>(8, 0x42));
  EXPECT_TRUE(dst.GuardsIntact());
}

// --- min / max ---

// The rule written out once more, independently of the library.
void ReferenceMinMax(const uint8_t* p, int n, uint8_t* mn, uint8_t* mx) {
  int lo = 255, hi = 0;
  const int body = n / 16 * 16;
  for (int i = 0; i < body; ++i) {
    lo = std::min<int>(lo, p[i]);
    hi = std::max<int>(hi, p[i]);
  }
  for (int i = body; i < n; ++i) {
    if (p[i] < lo)
      lo = p[i];
    else if (p[i] > hi)
      hi = p[i];
  }
  *mn = static_cast<uint8_t>(lo);
  *mx = static_cast<uint8_t>(hi);
}

struct MinMaxCase {
  std::vector<uint8_t> bytes;
  int min;
  int max;
};
class MinMaxRule : public ::testing::TestWithParam<MinMaxCase> {};
TEST_P(MinMaxRule, TailRuleKept) {
  const MinMaxCase& c = GetParam();
  uint8_t mn = 7, mx = 7, cmn = 7, cmx = 7;
  __getMinMax_neon(c.bytes.data(), static_cast<int>(c.bytes.size()), &mn, &mx);
  __getMinMax_c(c.bytes.data(), static_cast<int>(c.bytes.size()), &cmn, &cmx);
  EXPECT_EQ(mn, c.min);
  EXPECT_EQ(mx, c.max);
  EXPECT_EQ(cmn, c.min);
  EXPECT_EQ(cmx, c.max);
}
INSTANTIATE_TEST_SUITE_P(
    Cases, MinMaxRule,
    ::testing::Values(
        MinMaxCase{{100}, 100, 0}, MinMaxCase{{}, 255, 0},
        MinMaxCase{{50, 40, 30}, 30, 0},   // each byte lowers the minimum
        MinMaxCase{{30, 40, 50}, 30, 50},  // then the maximum rises
        // 16 bytes of 9, then a tail byte 3: body gives 9..9.
        MinMaxCase{std::vector<uint8_t>{9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 3}, 3, 9}));

TEST(MinMax, VectorMatchesScalarOnRandomSizesAndAlignments) {
  std::mt19937 rng(1234);
  for (int iter = 0; iter < 400; ++iter) {
    const int n = iter < 101 ? iter : static_cast<int>(rng() % 101);
    const size_t misalign = rng() % 16;
    GuardedBytes buf(static_cast<size_t>(n), 0, misalign);
    const int mode = iter % 4;  // random, narrow range, all 0, all 255
    for (int i = 0; i < n; ++i) {
      buf.data()[i] = mode == 0   ? static_cast<uint8_t>(rng())
                      : mode == 1 ? static_cast<uint8_t>(100 + rng() % 20)
                      : mode == 2 ? 0
                                  : 255;
    }
    uint8_t mn, mx, cmn, cmx, rmn, rmx;
    __getMinMax_neon(buf.data(), n, &mn, &mx);
    __getMinMax_c(buf.data(), n, &cmn, &cmx);
    ReferenceMinMax(buf.data(), n, &rmn, &rmx);
    ASSERT_EQ(mn, rmn) << "n=" << n;
    ASSERT_EQ(mx, rmx) << "n=" << n;
    ASSERT_EQ(cmn, rmn) << "n=" << n;
    ASSERT_EQ(cmx, rmx) << "n=" << n;
  }
}

// --- range search ---

struct RangeCase {
  const char* name;
  std::vector<uint8_t> image;
  int min_after_minmax;
  int max_after_minmax;
  int min;
  int max;
};

std::vector<uint8_t> Filled(std::initializer_list<std::pair<int, int>> runs) {
  std::vector<uint8_t> v;
  for (const auto& run : runs) v.insert(v.end(), static_cast<size_t>(run.first), run.second);
  return v;
}

std::vector<uint8_t> Spread() {
  std::vector<uint8_t> v(25600);
  for (size_t i = 0; i < v.size(); ++i) v[i] = static_cast<uint8_t>(i % 256);
  return v;
}

class RangeSearch : public ::testing::TestWithParam<RangeCase> {};
TEST_P(RangeSearch, NarrowsToPopulatedBins) {
  const RangeCase& c = GetParam();
  const int n = static_cast<int>(c.image.size());
  uint8_t mn = 0, mx = 0;
  __getMinMax_neon(c.image.data(), n, &mn, &mx);
  EXPECT_EQ(mn, c.min_after_minmax);
  EXPECT_EQ(mx, c.max_after_minmax);
  uint16_t hist[256];
  memset(hist, 0xAB, sizeof(hist));
  __updateMinMax(c.image.data(), hist, n, 3, 4, &mn, &mx);
  EXPECT_EQ(mn, c.min);
  EXPECT_EQ(mx, c.max);
  uint32_t total = 0;
  for (uint16_t count : hist) total += count;
  EXPECT_EQ(total, static_cast<uint32_t>(n)) << "the histogram stays filled";
}
INSTANTIATE_TEST_SUITE_P(
    Images, RangeSearch,
    ::testing::Values(
        // threshold 300: 255 (one pixel) skipped downward, range 10..200.
        RangeCase{"two_levels_and_outlier", Filled({{12800, 10}, {12799, 200}, {1, 255}}), 10, 255,
                  10, 200},
        // 12 - 10 < 4: the min/max range stays.
        RangeCase{"too_narrow", Filled({{12800, 10}, {12800, 12}}), 10, 12, 10, 12},
        // every bin 100 < 300: nothing changes.
        RangeCase{"even_spread", Spread(), 0, 255, 0, 255},
        // n < 86: threshold 0, every bin qualifies: 0..M.
        RangeCase{"tiny", Filled({{32, 50}, {1, 60}}), 50, 60, 0, 60}),
    [](const ::testing::TestParamInfo<RangeCase>& info) { return std::string(info.param.name); });

TEST(RangeSearch, CountersWrapAt65536) {
  // 65536 + 300 pixels of 7: the counter reads 300, below the threshold
  // (3 * 67836) / 256 = 794, so 7 does not qualify but 20 (1000) does.
  std::vector<uint8_t> image = Filled({{65836, 7}, {1000, 20}, {1000, 90}});
  uint8_t mn = 7, mx = 90;
  uint16_t hist[256];
  __updateMinMax(image.data(), hist, static_cast<int>(image.size()), 3, 4, &mn, &mx);
  EXPECT_EQ(hist[7], 300);
  EXPECT_EQ(mn, 20);
  EXPECT_EQ(mx, 90);
}

}  // namespace
