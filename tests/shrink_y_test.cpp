// Luma shrink: each vectorised member against its scalar formula on the
// intermediate and the small plane, the formula against a direct two-pass
// mean for the pipeline's sizes, and hand-checked rounding.
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "blur/kernels.h"
#include "support/test_image.h"

namespace {

struct Member {
  int factor;
  ShrinkFn vector;
  ShrinkFn scalar;
};

const Member kMembers[] = {
    {2, __BiLinearInterp_Y_x2_neon, __BiLinearInterp_Y_x2_c},
    {4, __BiLinearInterp_Y_x4_neon, __BiLinearInterp_Y_x4_c},
    {6, __BiLinearInterp_Y_x6, __BiLinearInterp_Y_x6_c},
    {8, __BiLinearInterp_Y_x8, __BiLinearInterp_Y_x8_c},
};

void PrintTo(const Member& m, std::ostream* os) { *os << "x" << m.factor; }

struct Case {
  int W, H, w, h, y0, y1;
};

struct Output {
  std::vector<uint8_t> small, tmp;
};

Output RunShrink(ShrinkFn fn, const Case& c, const std::vector<uint8_t>& src, uint8_t fill,
                 size_t offset) {
  GuardedBytes in(src.size(), 0, offset);
  std::copy(src.begin(), src.end(), in.data());
  GuardedBytes small(static_cast<size_t>(c.w) * c.h, fill, offset + 1);
  GuardedBytes tmp(static_cast<size_t>(c.w) * c.H, fill, offset + 2);
  fn(in.data(), small.data(), tmp.data(), c.W, c.H, c.w, c.h, c.y0, c.y1);
  EXPECT_TRUE(in.GuardsIntact() && small.GuardsIntact() && tmp.GuardsIntact());
  return {small.Bytes(), tmp.Bytes()};
}

int Taps(int factor, int i) { return factor == 6 && (i == 2 || i == 3) ? 2 : 1; }

uint8_t Mean(int factor, const uint8_t* p, size_t step) {
  int sum = 0;
  for (int i = 0; i < factor; ++i) sum += Taps(factor, i) * p[i * step];
  const int total = factor == 6 ? 8 : factor;
  return static_cast<uint8_t>((sum + total / 2) / total);
}

// Compares the two members written rows (equal) and unwritten rows (still
// holding their own fill); with cx = s also against a direct two-pass mean.
void Check(const Member& m, const Case& c, const std::vector<uint8_t>& src, size_t offset) {
  const auto vec = RunShrink(m.vector, c, src, 1, offset);
  const auto ref = RunShrink(m.scalar, c, src, 101, offset);
  const int ry = c.H / c.h;
  const bool step_is_factor = c.W / c.w == m.factor;
  std::vector<uint8_t> direct_tmp(static_cast<size_t>(c.w) * c.H);
  for (int row = 0; row < c.H; ++row) {
    const bool written = row >= ry * c.y0 && row <= ry * c.y1 + m.factor - 1;
    for (int x = 0; x < c.w; ++x) {
      const size_t i = static_cast<size_t>(row) * c.w + x;
      ASSERT_EQ(vec.tmp[i], written ? ref.tmp[i] : 1) << "T row " << row << " x " << x;
      ASSERT_EQ(ref.tmp[i], written ? ref.tmp[i] : 101) << "T row " << row << " x " << x;
      direct_tmp[i] = Mean(m.factor, &src[static_cast<size_t>(row) * c.W + x * m.factor], 1);
      if (written && step_is_factor) {
        ASSERT_EQ(ref.tmp[i], direct_tmp[i]) << "T row " << row;
      }
    }
  }
  for (int y = 0; y < c.h; ++y) {
    const bool written = y >= c.y0 && y <= c.y1;
    for (int x = 0; x < c.w; ++x) {
      const size_t i = static_cast<size_t>(y) * c.w + x;
      ASSERT_EQ(vec.small[i], written ? ref.small[i] : 1) << "D row " << y << " x " << x;
      ASSERT_EQ(ref.small[i], written ? ref.small[i] : 101);
      if (written && step_is_factor) {
        ASSERT_EQ(ref.small[i],
                  Mean(m.factor, &direct_tmp[static_cast<size_t>(ry) * y * c.w + x], c.w));
      }
    }
  }
}

class ShrinkY : public ::testing::TestWithParam<Member> {};

// Every small width from 1 to a few vector groups, then random sizes and
// bands; widths W not a multiple of s; a wider step cx than s; all-0 /
// all-255 images.
TEST_P(ShrinkY, VectorMatchesFormula) {
  const Member m = GetParam();
  const int s = m.factor;
  std::mt19937 rng(s);
  auto image = [&](const Case& c, int kind) {
    std::vector<uint8_t> src(static_cast<size_t>(c.W) * c.H, kind == 1 ? 0 : 255);
    if (kind == 0) FillRandom(src.data(), src.size(), rng);
    return src;
  };
  for (int w = 1; w <= 40; ++w) {
    const Case c{w * s + w % s, 3 * s, w, 3, 0, 2};
    Check(m, c, image(c, 0), w % 4);
  }
  for (int i = 0; i < 100; ++i) {
    const int w = std::uniform_int_distribution<int>(1, 60)(rng);
    const int h = std::uniform_int_distribution<int>(1, 12)(rng);
    const int cx = i % 5 == 0 ? s + 1 + i % 3 : s;  // the vector mapping differs from x*cx here
    const int W = w * cx + std::uniform_int_distribution<int>(0, cx - 1)(rng);
    const int H = h * s + std::uniform_int_distribution<int>(0, s - 1)(rng);
    const int y0 = std::uniform_int_distribution<int>(0, h - 1)(rng);
    const int y1 = i % 3 == 0 ? h - 1 : std::uniform_int_distribution<int>(y0, h - 1)(rng);
    const Case c{W, H, w, h, y0, i % 11 == 0 ? y0 - 1 : y1};  // now and then an empty band
    Check(m, c, image(c, i % 10 == 1 ? 1 : i % 10 == 2 ? 2 : 0), i % 4);
  }
}

INSTANTIATE_TEST_SUITE_P(Factors, ShrinkY, ::testing::ValuesIn(kMembers),
                         [](const ::testing::TestParamInfo<Member>& info) {
                           return "x" + std::to_string(info.param.factor);
                         });

// One small pixel from one source block, through every member of a factor.
uint8_t ShrinkBlock(int factor, const std::vector<uint8_t>& block) {
  std::vector<uint8_t> results;
  for (const Member& m : kMembers) {
    if (m.factor != factor) continue;
    for (ShrinkFn fn : {m.vector, m.scalar}) {
      uint8_t small = 0;
      std::vector<uint8_t> tmp(factor);
      fn(block.data(), &small, tmp.data(), factor, factor, 1, 1, 0, 0);
      results.push_back(small);
    }
  }
  EXPECT_EQ(results.size(), 2u);
  EXPECT_EQ(results[0], results[1]);
  return results[0];
}

// A block whose every row is `row`.
std::vector<uint8_t> Rows(const std::vector<uint8_t>& row) {
  std::vector<uint8_t> block;
  for (size_t i = 0; i < row.size(); ++i) block.insert(block.end(), row.begin(), row.end());
  return block;
}

TEST(ShrinkYRounding, EachPassRoundsOnItsOwn) {
  EXPECT_EQ(ShrinkBlock(2, {0, 1, 0, 0}), 1);  // 1 and 0, then (1 + 0 + 1) >> 1
  EXPECT_EQ(ShrinkBlock(2, {1, 0, 0, 0}), 1);
  EXPECT_EQ(ShrinkBlock(6, Rows({0, 0, 255, 255, 0, 0})), 128);
  EXPECT_EQ(ShrinkBlock(6, Rows({255, 255, 0, 0, 255, 255})), 128);
  EXPECT_EQ(ShrinkBlock(8, Rows({0, 0, 0, 0, 0, 0, 0, 4})), 1);
  EXPECT_EQ(ShrinkBlock(8, Rows({0, 0, 0, 3, 0, 0, 0, 0})), 0);
}

}  // namespace
