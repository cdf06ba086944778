// Chroma compositing: each vector member against its scalar formula on random
// pipeline-shaped sizes, and the rules particular to interleaved pairs.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "blur/kernels.h"
#include "support/test_image.h"

namespace {

struct Member {
  int factor;
  BlendFn vec;
  BlendFn ref;
};
const Member kMembers[] = {
    {2, __CreateOutputImage_UV_x2_neon, __CreateOutputImage_UV_x2_c},
    {4, __CreateOutputImage_UV_x4_neon, __CreateOutputImage_UV_x4_c},
    {6, __CreateOutputImage_UV_x6_neon, __CreateOutputImage_UV_x6_c},
    {8, __CreateOutputImage_UV_x8_neon, __CreateOutputImage_UV_x8_c},
};

// Bottom rows a band ending at H - 1 writes whatever its first row is.
int BottomRows(int factor) { return factor == 2 ? 0 : factor == 6 ? 5 : factor; }

// Sizes as the pipeline derives them from a frame of W x 2H.
struct Plane {
  int W, H, sw, sh;
};
Plane FromFrame(int factor, int W, int H) { return {W, H, W / factor, (2 * H / factor) / 2}; }

// Inputs whose allocations end at their last element, so that ASan reports
// any read past them; `offset` misaligns the start.
template <typename T>
struct Exact {
  Exact(size_t n, size_t offset) : v(n + offset), p(v.data() + offset) {}
  std::vector<T> v;
  T* p;
};

struct Inputs {
  Inputs(const Plane& pl, size_t offset, std::mt19937& rng)
      : src(size_t(pl.W) * pl.H, offset),
        small(size_t(pl.sw) * pl.sh, offset + 1),
        weights(size_t(pl.W) * 2 * pl.H, offset % 2) {
    FillRandom(src.p, size_t(pl.W) * pl.H, rng);
    FillRandom(small.p, size_t(pl.sw) * pl.sh, rng);
    FillRandomWeights(weights.p, size_t(pl.W) * 2 * pl.H, rng);
  }
  Exact<uint8_t> src, small;
  Exact<uint16_t> weights;
};

std::vector<uint8_t> RunBlend(BlendFn fn, const Plane& pl, const Inputs& in, int first, int last,
                              uint8_t fill, size_t offset) {
  GuardedBytes out(size_t(pl.W) * pl.H, fill, offset);
  fn(in.src.p, pl.W, pl.H, pl.sw, pl.sh, in.weights.p, in.small.p, out.data(), first, last);
  EXPECT_TRUE(out.GuardsIntact());
  return out.Bytes();
}

struct EqualityCase {
  int member;  // index into kMembers
  int W, H, first, last, offset;
};

std::vector<EqualityCase> EqualityCases() {
  std::vector<EqualityCase> cases;
  std::mt19937 rng(11);
  auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  for (int m = 0; m < 4; ++m) {
    const int f = kMembers[m].factor;
    for (int i = 0; i < 40; ++i) {
      // Even small width of 4.. bytes; W may exceed f * sw by an even amount
      // except for x6, whose 5-pair edge only covers W = 6 sw.
      const int sw = 2 * pick(2, 40);
      const int W = f * sw + (f == 6 ? 0 : 2 * pick(0, (f - 1) / 2));
      // Even chroma height, sh >= 2; x6's unclamped r1 stays inside the plane
      // only when H is a multiple of 6.
      const int H = f == 6 ? 6 * pick(2, 12) : 2 * pick(f, 6 * f);
      const int e = BottomRows(f) + 1;
      int first = pick(0, H - 1), last = H - 1;
      switch (i % 4) {
        case 0:
          first = last = H - 1;
          break;  // one row, bottom
        case 1:
          first = 0;
          last = pick(0, H - 1 - e);
          break;  // starts at row 0
        case 2:
          first = last = pick(0, H - 1 - e);
          break;  // one row, inner
        default:
          break;  // ends at H - 1
      }
      cases.push_back({m, W, H, first, last, static_cast<int>(pick(0, 7))});
    }
    cases.push_back({m, 1920, 270, 0, 134, 0});
    cases.push_back({m, 1920, 270, 135, 269, 3});
  }
  return cases;
}

void ExpectVectorMatches(const Member& m, const Plane& pl, const Inputs& in, int first, int last,
                         int offset) {
  const auto ref = RunBlend(m.ref, pl, in, first, last, 1, offset);
  const auto vec = RunBlend(m.vec, pl, in, first, last, 101, offset + 1);
  for (int r = 0; r < pl.H; ++r) {
    const bool band = r >= first && r <= last;
    for (int x = 0; x < pl.W; ++x) {
      const size_t i = size_t(r) * pl.W + x;
      // Outside the band a byte is either written alike or left by both.
      if (band || ref[i] != 1 || vec[i] != 101) {
        ASSERT_EQ(ref[i], vec[i]) << "band " << first << ".." << last << " row " << r << " byte "
                                  << x;
      }
    }
  }
}

class CompositeEquality : public ::testing::TestWithParam<EqualityCase> {};

TEST_P(CompositeEquality, VectorMatchesFormula) {
  const EqualityCase c = GetParam();
  const Member& m = kMembers[c.member];
  const Plane pl = FromFrame(m.factor, c.W, c.H);
  std::mt19937 rng(c.W * 1009 + c.H * 7 + c.first);
  const Inputs in(pl, c.offset, rng);
  ExpectVectorMatches(m, pl, in, c.first, c.last, c.offset);
}

INSTANTIATE_TEST_SUITE_P(Random, CompositeEquality, ::testing::ValuesIn(EqualityCases()));

class CompositeMember : public ::testing::TestWithParam<Member> {};

// First bytes 0 and second bytes 255 in the small plane stay so at weight
// 1024, except on x6 main rows whose fraction is 0 (both bytes blur to 0).
TEST_P(CompositeMember, ChannelsNeverMix) {
  const Member m = GetParam();
  const Plane pl = FromFrame(m.factor, 28 * m.factor, 12 * m.factor + 18);
  std::vector<uint8_t> src(size_t(pl.W) * pl.H, 77), small(size_t(pl.sw) * pl.sh);
  for (size_t i = 0; i < small.size(); ++i) small[i] = i % 2 ? 255 : 0;
  std::vector<uint16_t> weights(size_t(pl.W) * 2 * pl.H, 1024);
  const int dy = pl.sh * 65536 / pl.H;
  for (BlendFn fn : {m.vec, m.ref}) {
    std::vector<uint8_t> out(src.size(), 1);
    fn(src.data(), pl.W, pl.H, pl.sw, pl.sh, weights.data(), small.data(), out.data(), 0, pl.H - 1);
    for (int r = 0; r < pl.H; ++r) {
      const bool zero_row = m.factor == 6 && r > 0 && r < pl.H - 5 && ((r * dy >> 8) & 255) == 0;
      for (int x = 0; x < pl.W; ++x) {
        const int want = zero_row || x % 2 == 0 ? 0 : 255;
        ASSERT_EQ(out[size_t(r) * pl.W + x], want) << "row " << r << " byte " << x;
      }
    }
  }
}

// A pair's weight is the luma entry at row 2r, column 2p: the other three of
// its block change nothing; 0 keeps the source, 1024 takes the blurred bytes.
TEST_P(CompositeMember, WeightFromUpperLeftLumaEntry) {
  const Member m = GetParam();
  const Plane pl = FromFrame(m.factor, 20 * m.factor, 8 * m.factor);
  std::mt19937 rng(3);
  std::vector<uint8_t> src(size_t(pl.W) * pl.H), small(size_t(pl.sw) * pl.sh);
  FillRandom(src.data(), src.size(), rng);
  FillRandom(small.data(), small.size(), rng);
  std::vector<uint8_t> outs[3];
  for (int run = 0; run < 3; ++run) {
    std::vector<uint16_t> weights(size_t(pl.W) * 2 * pl.H);
    FillRandomWeights(weights.data(), weights.size(), rng);
    for (int r = 0; r < pl.H; ++r)
      for (int p = 0; p < pl.W / 2; ++p)
        weights[size_t(2 * r) * pl.W + 2 * p] = run == 2 ? 1024 : (p % 2 ? 1024 : 0);
    outs[run].assign(src.size(), 0);
    m.vec(src.data(), pl.W, pl.H, pl.sw, pl.sh, weights.data(), small.data(), outs[run].data(), 0,
          pl.H - 1);
  }
  EXPECT_EQ(outs[0], outs[1]);
  for (size_t i = 0; i < src.size(); ++i) {
    const bool blurred = (i % pl.W / 2) % 2 != 0;
    ASSERT_EQ(outs[0][i], blurred ? outs[2][i] : src[i]) << i;
  }
}

// The vector bulk shares work across consecutive rows reading the same small
// rows; a band may start or end inside such a group, and the bottom rows
// start a new one. Every band start and a few lengths, from every row.
TEST_P(CompositeMember, BandsFromEveryRow) {
  const Member m = GetParam();
  const int f = m.factor;
  // sw = 22; x4 and x8 also take a W beyond F * sw.
  const Plane pl = FromFrame(f, 22 * f + (f % 4 == 0 ? 2 : 0), 6 * f);
  std::mt19937 rng(5);
  const Inputs in(pl, 3, rng);
  for (int first = 0; first < pl.H; ++first) {
    for (int len : {1, 2, 3, f + 1}) {
      // A band that would end among the bottom rows ends at H - 1, as the
      // pipeline's last band does (only then are they in the small plane).
      int last = first + len - 1;
      if (last > pl.H - 2 - BottomRows(f)) last = pl.H - 1;
      ExpectVectorMatches(m, pl, in, first, last, first % 4);
      if (HasFatalFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllMembers, CompositeMember, ::testing::ValuesIn(kMembers));

// Source 0, weight 1024: the output is the blurred byte.
std::vector<uint8_t> Blurred(BlendFn fn, const Plane& pl, const std::vector<uint8_t>& small,
                             int first, int last, uint8_t fill = 1) {
  std::vector<uint8_t> src(size_t(pl.W) * pl.H, 0), out(src.size(), fill);
  std::vector<uint16_t> weights(size_t(pl.W) * 2 * pl.H, 1024);
  fn(src.data(), pl.W, pl.H, pl.sw, pl.sh, weights.data(), small.data(), out.data(), first, last);
  return out;
}

TEST(CompositeUV, X2EdgePairsUseVerticalPairOnly) {
  const Plane pl{64, 8, 32, 4};
  std::vector<uint8_t> small(size_t(pl.sw) * pl.sh, 0);
  for (int y = 0; y < pl.sh; ++y) {
    small[y * pl.sw + 30] = 40 + y;  // pair 15 = k of the last two pairs
    small[y * pl.sw + 29] = 200;     // pair 14, V byte
  }
  for (BlendFn fn : {__CreateOutputImage_UV_x2_neon, __CreateOutputImage_UV_x2_c}) {
    const auto out = Blurred(fn, pl, small, 0, pl.H - 1);
    // Row 2: r0 = 1, r1 = 2; pairs 30 and 31 take (2*41 + 2*42 + 2) >> 2.
    EXPECT_EQ(out[2 * 64 + 60], (2 * 41 + 2 * 42 + 2) >> 2);
    EXPECT_EQ(out[2 * 64 + 62], (2 * 41 + 2 * 42 + 2) >> 2);
    // Pair 29 (k = 14) mixes pairs 14 and 15: V byte 200 + 200 + 0 + 0.
    EXPECT_EQ(out[2 * 64 + 59], (400 + 2) >> 2);
    // Last row: r1 clamps to r0 = sh - 1.
    EXPECT_EQ(out[7 * 64 + 62], 43);
  }
}

TEST(CompositeUV, X2OneRowBandRewritesRowAbove) {
  const Plane pl{32, 8, 16, 4};
  std::vector<uint8_t> small(size_t(pl.sw) * pl.sh, 60);
  for (BlendFn fn : {__CreateOutputImage_UV_x2_neon, __CreateOutputImage_UV_x2_c}) {
    auto out = Blurred(fn, pl, small, 5, 5);
    EXPECT_EQ(out[3 * 32], 1);
    EXPECT_EQ(out[4 * 32], 60);
    EXPECT_EQ(out[5 * 32 + 31], 60);
    EXPECT_EQ(out[6 * 32], 1);
    out = Blurred(fn, pl, small, 0, 0);
    EXPECT_EQ(out[0], 60);
    EXPECT_EQ(out[32], 1);
  }
}

TEST(CompositeUV, X4PhaseFromPairNumber) {
  // W = 4 sw: pair 5 of a main row mixes small pairs 1 and 2 with 192 / 64.
  const Plane pl{64, 16, 16, 4};
  std::vector<uint8_t> small(size_t(pl.sw) * pl.sh);
  for (size_t i = 0; i < small.size(); ++i) small[i] = static_cast<uint8_t>(i * 37 % 251);
  for (BlendFn fn : {__CreateOutputImage_UV_x4_neon, __CreateOutputImage_UV_x4_c}) {
    const auto out = Blurred(fn, pl, small, 0, 7);  // row 0: r0 = 0, fy = 0
    EXPECT_EQ(out[10], (small[2] * 192 + small[4] * 64 + 128) >> 8);
    EXPECT_EQ(out[11], (small[3] * 192 + small[5] * 64 + 128) >> 8);
  }
}

TEST(CompositeUV, X48BottomRows) {
  for (const Member& m : {kMembers[1], kMembers[3]}) {
    const int F = m.factor;
    const Plane pl = FromFrame(F, 16 * F, 4 * F);
    std::vector<uint8_t> small(size_t(pl.sw) * pl.sh);
    for (size_t i = 0; i < small.size(); ++i) small[i] = static_cast<uint8_t>(i * 13 % 256);
    for (BlendFn fn : {m.vec, m.ref}) {
      // A band starting below the bottom rows still writes all of them.
      const auto out = Blurred(fn, pl, small, pl.H - 2, pl.H - 1);
      const int r = pl.H - F, r0 = r * (pl.sh * 65536 / pl.H) >> 16;
      EXPECT_EQ(out[size_t(r - 1) * pl.W], 1);
      // Last pair: nearest small pair; first pair: horizontal on r0 only.
      const int x0 = (pl.W / 2 - 1) * (pl.sw * 65536 / pl.W) >> 16;
      EXPECT_EQ(out[size_t(r) * pl.W + pl.W - 1], small[size_t(r0) * pl.sw + 2 * x0 + 1]);
      EXPECT_EQ(out[size_t(r) * pl.W], small[size_t(r0) * pl.sw]);
    }
  }
}

TEST(CompositeUV, X6PhaseRestartsAtPair7) {
  const Plane pl = FromFrame(6, 144, 48);  // sw = 24, sh = 8, row 1 has fy != 0
  std::vector<uint8_t> small(size_t(pl.sw) * pl.sh);
  for (int y = 0; y < pl.sh; ++y)
    for (int x = 0; x < pl.sw; ++x) small[y * pl.sw + x] = static_cast<uint8_t>(x * 9 + 3);
  for (BlendFn fn : {__CreateOutputImage_UV_x6_neon, __CreateOutputImage_UV_x6_c}) {
    const auto out = Blurred(fn, pl, small, 0, 7);
    // Equal small rows: the vertical step returns h when u + fy = 256.
    const int row = pl.W;
    EXPECT_EQ(out[row + 14], (small[2] * 214 + small[4] * 42 + 128) >> 8);
    EXPECT_EQ(out[row + 15], (small[3] * 214 + small[5] * 42 + 128) >> 8);
    EXPECT_EQ(out[row + 0], small[0]);  // pair 0: vertical only
    EXPECT_EQ(out[row + 1], small[1]);
  }
}

TEST(CompositeUV, X6ZeroFractionRowBlursToZero) {
  // Frame height 1088: H = 544, sh = 90, dy = 10842; row 133 has fy = 0.
  const Plane pl{96, 544, 16, 90};
  std::vector<uint8_t> small(size_t(pl.sw) * pl.sh, 200);
  for (BlendFn fn : {__CreateOutputImage_UV_x6_neon, __CreateOutputImage_UV_x6_c}) {
    const auto out = Blurred(fn, pl, small, 100, 200);
    for (int x = 0; x < pl.W; ++x) ASSERT_EQ(out[133 * pl.W + x], 0) << x;
    EXPECT_EQ(out[132 * pl.W + 40], 200);
  }
}

}  // namespace
