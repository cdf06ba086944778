// Chroma shrink: vector members against their scalar formulas, and the rules that
// differ from luma (fixed x2 group start, pair counts, channel separation).
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "blur/kernels.h"
#include "support/test_image.h"

namespace {

struct ShrinkCase {
  int W, H, w, h, y0, y1, offset;
};

// A source whose allocation ends exactly at its last byte, so that ASan
// reports any read past it.
struct ExactSource {
  ExactSource(size_t n, size_t offset) : bytes(n + offset) {}
  uint8_t* data(size_t offset) { return bytes.data() + offset; }
  std::vector<uint8_t> bytes;
};

struct ShrinkPair {
  int factor;
  ShrinkFn vec;
  ShrinkFn ref;
};
const ShrinkPair kPairs[] = {{2, __BiLinearInterp_UV_x2_neon, __BiLinearInterp_UV_x2_c},
                             {4, __BiLinearInterp_UV_x4, __BiLinearInterp_UV_x4_c},
                             {6, __BiLinearInterp_UV_x6, __BiLinearInterp_UV_x6_c},
                             {8, __BiLinearInterp_UV_x8, __BiLinearInterp_UV_x8_c}};

struct EqualityCase {
  int pair;  // index into kPairs
  ShrinkCase c;
};

// Every width from 1 to a few vector steps past the groups, then random
// ones; most with W = s * w (contiguous groups), some with a wider step.
std::vector<EqualityCase> EqualityCases() {
  std::vector<EqualityCase> cases;
  std::mt19937 rng(7);
  auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  for (int m = 0; m < 4; ++m) {
    const int s = kPairs[m].factor;
    for (int i = 0; i < 100; ++i) {
      const int w = i < 48 ? i + 1 : pick(1, 200);
      const int step = pick(0, 3) == 0 ? s + pick(1, 3) : s;  // bytes per pair of groups / 2
      const int W = 2 * ((step * w + 1) / 2) + 2 * pick(0, 2);
      const int h = pick(1, 6);
      const int H = s * h + pick(0, s - 1);
      const int y0 = pick(0, h - 1);
      const int y1 = pick(0, 3) == 0 ? y0 : pick(y0, h - 1);
      cases.push_back({m, {W, H, w, h, y0, y1, pick(0, 15)}});
    }
    cases.push_back({m, {1920, 540, 1920 / s, 540 / s, 0, 540 / s - 1, 0}});
    cases.push_back({m, {16 * s, 2 * s, 16, 2, 1, 0, 1}});  // empty band
  }
  return cases;
}

class ShrinkEquality : public ::testing::TestWithParam<EqualityCase> {};

TEST_P(ShrinkEquality, VectorMatchesFormula) {
  const ShrinkPair& m = kPairs[GetParam().pair];
  const ShrinkCase c = GetParam().c;
  std::mt19937 rng(c.W * 131 + c.H);
  ExactSource src(size_t(c.W) * c.H, c.offset);
  FillRandom(src.data(c.offset), size_t(c.W) * c.H, rng);
  const size_t tmp_n = size_t(c.w) * c.H, small_n = size_t(c.w) * c.h;
  // An odd w leaves the last byte of every row to x2's vertical pass, which
  // reads intermediate bytes that nothing writes: they start equal there.
  const bool odd = c.w % 2 != 0;
  const bool x2 = m.factor == 2;
  const uint8_t tmp_fill = odd && x2 ? 1 : 101;
  GuardedBytes tmp_c(tmp_n, 1, c.offset), tmp_v(tmp_n, tmp_fill, c.offset + 3);
  GuardedBytes small_c(small_n, 1, c.offset), small_v(small_n, 101, c.offset + 5);
  m.ref(src.data(c.offset), small_c.data(), tmp_c.data(), c.W, c.H, c.w, c.h, c.y0, c.y1);
  m.vec(src.data(c.offset), small_v.data(), tmp_v.data(), c.W, c.H, c.w, c.h, c.y0, c.y1);
  const int ry = c.H / c.h;
  const int t_bytes = c.w < 2 && !x2 ? 0 : 2 * (c.w / 2);
  const int d_bytes = x2 ? c.w : t_bytes;
  for (int r = 0; r < c.H; ++r) {
    const bool written = r >= ry * c.y0 && r <= ry * c.y1 + m.factor - 1;
    for (int x = 0; x < c.w; ++x) {
      const size_t i = size_t(r) * c.w + x;
      if (written && x < t_bytes) {
        ASSERT_EQ(tmp_c.data()[i], tmp_v.data()[i]) << "T row " << r << " byte " << x;
      } else {
        ASSERT_EQ(tmp_c.data()[i], 1) << "T row " << r << " byte " << x;
        ASSERT_EQ(tmp_v.data()[i], tmp_fill);
      }
    }
  }
  for (int y = 0; y < c.h; ++y) {
    const bool written = y >= c.y0 && y <= c.y1;
    for (int x = 0; x < c.w; ++x) {
      const size_t i = size_t(y) * c.w + x;
      if (written && x < d_bytes) {
        ASSERT_EQ(small_c.data()[i], small_v.data()[i]) << "D row " << y << " byte " << x;
      } else {
        ASSERT_EQ(small_v.data()[i], 101) << "D row " << y << " byte " << x;
      }
    }
  }
  EXPECT_TRUE(tmp_c.GuardsIntact() && tmp_v.GuardsIntact());
  EXPECT_TRUE(small_c.GuardsIntact() && small_v.GuardsIntact());
}

INSTANTIATE_TEST_SUITE_P(Random, ShrinkEquality, ::testing::ValuesIn(EqualityCases()));

// All-0 / all-255 / alternating sources stress the sums' headroom.
TEST(ShrinkUV, ExtremeSourcesMatchFormula) {
  const int w = 64, h = 3;
  for (const ShrinkPair& m : kPairs) {
    const int W = m.factor * w, H = m.factor * h;
    for (int pattern = 0; pattern < 3; ++pattern) {
      std::vector<uint8_t> src(size_t(W) * H);
      for (size_t i = 0; i < src.size(); ++i)
        src[i] = pattern == 0 ? 0 : pattern == 1 ? 255 : (i / 2 + i) % 2 ? 255 : 0;
      std::vector<uint8_t> tmp_c(size_t(w) * H), tmp_v(tmp_c.size());
      std::vector<uint8_t> small_c(size_t(w) * h), small_v(small_c.size());
      m.ref(src.data(), small_c.data(), tmp_c.data(), W, H, w, h, 0, h - 1);
      m.vec(src.data(), small_v.data(), tmp_v.data(), W, H, w, h, 0, h - 1);
      EXPECT_EQ(tmp_c, tmp_v) << m.factor << " pattern " << pattern;
      EXPECT_EQ(small_c, small_v) << m.factor << " pattern " << pattern;
    }
  }
}

struct Member {
  int factor;
  ShrinkFn fn;
};
const Member kMembers[] = {{2, __BiLinearInterp_UV_x2_neon}, {2, __BiLinearInterp_UV_x2_c},
                           {4, __BiLinearInterp_UV_x4},      {4, __BiLinearInterp_UV_x4_c},
                           {6, __BiLinearInterp_UV_x6},      {6, __BiLinearInterp_UV_x6_c},
                           {8, __BiLinearInterp_UV_x8},      {8, __BiLinearInterp_UV_x8_c}};

class ShrinkMember : public ::testing::TestWithParam<Member> {};

// U bytes all u, V bytes all v: every written pair is (u, v) in T and D.
TEST_P(ShrinkMember, ChannelsNeverMix) {
  const Member m = GetParam();
  const int W = 48 * m.factor + 2 * m.factor, H = 4 * m.factor;  // w even, 50 bytes
  const int w = W / m.factor, h = H / m.factor;
  std::vector<uint8_t> src(size_t(W) * H);
  for (size_t i = 0; i < src.size(); ++i) src[i] = i % 2 ? 201 : 17;
  GuardedBytes tmp(size_t(w) * H, 0), small(size_t(w) * h, 0);
  m.fn(src.data(), small.data(), tmp.data(), W, H, w, h, 0, h - 1);
  for (int i = 0; i < w * h; ++i) ASSERT_EQ(small.data()[i], i % 2 ? 201 : 17) << i;
  for (int i = 0; i < w * H; ++i) ASSERT_EQ(tmp.data()[i], i % 2 ? 201 : 17) << i;
}

// y0 == y1 writes one small row and exactly `factor` intermediate rows.
TEST_P(ShrinkMember, OneRowBandWritesOnlyItsRows) {
  const Member m = GetParam();
  const int w = 34, h = 5, W = w * m.factor, H = h * m.factor, y = 2;
  std::vector<uint8_t> src(size_t(W) * H, 90);
  GuardedBytes tmp(size_t(w) * H, 0), small(size_t(w) * h, 0);
  m.fn(src.data(), small.data(), tmp.data(), W, H, w, h, y, y);
  for (int r = 0; r < H; ++r) {
    const bool in = r >= y * m.factor && r < (y + 1) * m.factor;
    EXPECT_EQ(tmp.data()[size_t(r) * w + 7], in ? 90 : 0) << "T row " << r;
  }
  for (int r = 0; r < h; ++r) EXPECT_EQ(small.data()[size_t(r) * w + 7], r == y ? 90 : 0);
  EXPECT_TRUE(tmp.GuardsIntact() && small.GuardsIntact());
}

// Odd w: x4/x6/x8 leave the last byte of every row alone; x2's vertical pass
// writes it from intermediate bytes its horizontal pass never wrote.
TEST_P(ShrinkMember, OddWidthLastByte) {
  const Member m = GetParam();
  const int w = 21, h = 3, W = 2 * ((w * m.factor + 1) / 2), H = h * m.factor;
  std::vector<uint8_t> src(size_t(W) * H, 50);
  GuardedBytes tmp(size_t(w) * H, 10), small(size_t(w) * h, 200);
  m.fn(src.data(), small.data(), tmp.data(), W, H, w, h, 0, h - 1);
  for (int r = 0; r < H; ++r) EXPECT_EQ(tmp.data()[size_t(r) * w + w - 1], 10);
  for (int y = 0; y < h; ++y) {
    EXPECT_EQ(small.data()[size_t(y) * w + w - 2], 50);
    EXPECT_EQ(small.data()[size_t(y) * w + w - 1], m.factor == 2 ? 10 : 200);
  }
}

INSTANTIATE_TEST_SUITE_P(AllMembers, ShrinkMember, ::testing::ValuesIn(kMembers));

TEST(ShrinkUV, X2PairRounding) {
  // 10, 200, 11, 100 -> ((10 + 11 + 1) >> 1, (200 + 100 + 1) >> 1).
  const int W = 64, H = 2, w = 32, h = 1;
  std::vector<uint8_t> src(size_t(W) * H, 0);
  const uint8_t head[] = {10, 200, 11, 100};
  for (int r = 0; r < H; ++r) std::copy(head, head + 4, src.begin() + r * W);
  for (ShrinkFn fn : {__BiLinearInterp_UV_x2_neon, __BiLinearInterp_UV_x2_c}) {
    std::vector<uint8_t> tmp(size_t(w) * H), small(size_t(w) * h);
    fn(src.data(), small.data(), tmp.data(), W, H, w, h, 0, 0);
    EXPECT_EQ(small[0], 11);
    EXPECT_EQ(small[1], 150);
  }
}

TEST(ShrinkUV, X2IgnoresColumnStep) {
  // W = 8w: pair p still averages source pairs 2p and 2p + 1.
  const int w = 36, W = 8 * w, H = 2, h = 1;
  std::vector<uint8_t> src(size_t(W) * H);
  for (int i = 0; i < W * H; ++i) src[i] = static_cast<uint8_t>(i % W);
  for (ShrinkFn fn : {__BiLinearInterp_UV_x2_neon, __BiLinearInterp_UV_x2_c}) {
    std::vector<uint8_t> tmp(size_t(w) * H), small(size_t(w) * h);
    fn(src.data(), small.data(), tmp.data(), W, H, w, h, 0, 0);
    for (int p = 0; p < w / 2; ++p) {
      ASSERT_EQ(small[2 * p], (4 * p + 4 * p + 2 + 1) >> 1) << p;
      ASSERT_EQ(small[2 * p + 1], (4 * p + 1 + 4 * p + 3 + 1) >> 1) << p;
    }
  }
}

struct TapCase {
  ShrinkFn fn;
  int factor;
  std::vector<uint8_t> u;  // the group's U bytes, V bytes stay 0
  int expected;
};

class ShrinkTaps : public ::testing::TestWithParam<TapCase> {};

TEST_P(ShrinkTaps, HorizontalGroup) {
  const TapCase& c = GetParam();
  const int W = 2 * c.factor, H = c.factor, w = 2, h = 1;
  std::vector<uint8_t> src(size_t(W) * H, 0), tmp(size_t(w) * H, 9), small(2, 9);
  for (int i = 0; i < c.factor; ++i) src[2 * i] = c.u[i];
  c.fn(src.data(), small.data(), tmp.data(), W, H, w, h, 0, 0);
  EXPECT_EQ(tmp[0], c.expected);
  EXPECT_EQ(tmp[1], 0);
}

INSTANTIATE_TEST_SUITE_P(
    Factors, ShrinkTaps,
    ::testing::Values(TapCase{__BiLinearInterp_UV_x8, 8, {0, 0, 0, 0, 0, 0, 0, 4}, 1},
                      TapCase{__BiLinearInterp_UV_x8, 8, {0, 0, 0, 0, 3, 0, 0, 0}, 0},
                      TapCase{__BiLinearInterp_UV_x6, 6, {0, 0, 255, 255, 0, 0}, 128},
                      TapCase{__BiLinearInterp_UV_x6, 6, {255, 255, 0, 0, 255, 255}, 128},
                      TapCase{__BiLinearInterp_UV_x6, 6, {0, 0, 0, 1, 0, 0}, 0},
                      TapCase{__BiLinearInterp_UV_x4, 4, {1, 0, 0, 1}, 1},
                      TapCase{__BiLinearInterp_UV_x4, 4, {1, 0, 0, 0}, 0}));

TEST(ShrinkUV, WidthOneWritesNothing) {
  for (ShrinkFn fn : {__BiLinearInterp_UV_x4, __BiLinearInterp_UV_x6, __BiLinearInterp_UV_x8}) {
    std::vector<uint8_t> src(64 * 16, 77);
    GuardedBytes tmp(16, 3), small(2, 3);
    fn(src.data(), small.data(), tmp.data(), 8, 16, 1, 2, 0, 1);
    EXPECT_EQ(tmp.Bytes(), std::vector<uint8_t>(16, 3));
    EXPECT_EQ(small.Bytes(), std::vector<uint8_t>(2, 3));
  }
}

}  // namespace
