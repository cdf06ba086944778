// Luma compositing: every vectorised member against its scalar formula, byte
// for byte, plus hand-computed values for the rules the equality can't see.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "blur/kernels.h"
#include "support/test_image.h"

namespace {

// Bytes that end exactly at a PROT_NONE page: any read past the end faults in
// every build, not only under ASan (the small plane is read by gathers).
class FencedBytes {
 public:
  explicit FencedBytes(size_t size) : size_(size) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t body = (size + page - 1) / page * page;
    map_len_ = body + page;
    void* m = mmap(nullptr, map_len_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    base_ = m == MAP_FAILED ? nullptr : static_cast<uint8_t*>(m);
    if (base_ != nullptr) mprotect(base_ + body, page, PROT_NONE);
  }
  ~FencedBytes() {
    if (base_ != nullptr) munmap(base_, map_len_);
  }
  FencedBytes(const FencedBytes&) = delete;
  FencedBytes& operator=(const FencedBytes&) = delete;
  uint8_t* data() { return base_ + (map_len_ - page_size()) - size_; }
  bool ok() const { return base_ != nullptr; }

 private:
  size_t page_size() const { return static_cast<size_t>(sysconf(_SC_PAGESIZE)); }
  uint8_t* base_ = nullptr;
  size_t map_len_ = 0;
  size_t size_;
};

struct Member {
  const char* name;
  int factor;
  BlendFn fast;
  BlendFn ref;
};

const Member kMembers[] = {
    {"x2", 2, __CreateOutputImage_Y_x2_neon, __CreateOutputImage_Y_x2_c},
    {"x4", 4, __CreateOutputImage_Y_x4_neon, __CreateOutputImage_Y_x4_c},
    {"x6", 6, __CreateOutputImage_Y_x6_neon, __CreateOutputImage_Y_x6_c},
    {"x8", 8, __CreateOutputImage_Y_x8_neon, __CreateOutputImage_Y_x8_c},
};

// Right edge width (and bottom rows) of each factor.
int EdgeOf(int factor) { return factor == 6 ? 5 : factor; }

// Rows a call may write: the band, the bottom rows when it ends at H - 1, and
// for x2 the row above a one-row band.
bool MayWrite(int factor, int H, int first, int last, int r) {
  if (r >= first && r <= last) return true;
  if (factor == 2) return first == last && r == first - 1;
  return last == H - 1 && r >= H - EdgeOf(factor);
}

// Smallest small plane (columns, rows) whose samples the member's formulas
// all name inside, for the requested sw, sh: x2 halves coordinates and x6
// doesn't clamp r1.
int RowsNeeded(int factor, int H, int sh, int first, int last) {
  if (factor == 2) return std::max(sh, (std::max(last, 0) >> 1) + 1);
  if (factor != 6) return sh;
  const int dy = sh * 65536 / H;
  const int main_last = last == H - 1 ? H - 6 : last;
  int rows = sh;
  for (int r = std::max(first, 1); r <= main_last; ++r) rows = std::max(rows, ((r * dy) >> 16) + 2);
  return rows;
}

enum class Pattern { kRandom, kZero, kFull, kAlternate };

struct Case {
  int W, H, sw, sh, first, last;
  size_t misalign;
  Pattern pattern;
};

std::string Describe(const Member& m, const Case& c) {
  return std::string(m.name) + " W=" + std::to_string(c.W) + " H=" + std::to_string(c.H) +
         " sw=" + std::to_string(c.sw) + " sh=" + std::to_string(c.sh) + " rows " +
         std::to_string(c.first) + ".." + std::to_string(c.last) + " off " +
         std::to_string(c.misalign) + " pattern " + std::to_string(static_cast<int>(c.pattern));
}

void Fill(uint8_t* p, size_t n, Pattern pattern, std::mt19937& rng) {
  for (size_t i = 0; i < n; ++i) {
    switch (pattern) {
      case Pattern::kRandom:
        break;
      case Pattern::kZero:
        p[i] = 0;
        break;
      case Pattern::kFull:
        p[i] = 255;
        break;
      case Pattern::kAlternate:
        p[i] = (i & 1) ? 255 : 0;
        break;
    }
  }
  if (pattern == Pattern::kRandom) FillRandom(p, n, rng);
}

// Runs both members on identical inputs with outputs pre-filled differently
// and checks: identical written rows, untouched other rows, intact guards.
void ExpectSameBytes(const Member& m, const Case& c, uint32_t seed) {
  SCOPED_TRACE(Describe(m, c));
  std::mt19937 rng(seed);
  const size_t n = static_cast<size_t>(c.W) * c.H;
  const int rows = RowsNeeded(m.factor, c.H, c.sh, c.first, c.last);
  FencedBytes small(static_cast<size_t>(c.sw) * rows);
  ASSERT_TRUE(small.ok());
  Fill(small.data(), static_cast<size_t>(c.sw) * rows, c.pattern, rng);
  GuardedBytes src(n, 0, c.misalign);
  Fill(src.data(), n, c.pattern == Pattern::kAlternate ? Pattern::kRandom : c.pattern, rng);
  GuardedBytes wbytes(2 * n, 0, c.misalign & ~size_t{1});
  auto* weights = reinterpret_cast<uint16_t*>(wbytes.data());
  FillRandomWeights(weights, n, rng);
  GuardedBytes out_fast(n, 1, c.misalign + 3);
  GuardedBytes out_ref(n, 101, c.misalign);

  m.fast(src.data(), c.W, c.H, c.sw, c.sh, weights, small.data(), out_fast.data(), c.first, c.last);
  m.ref(src.data(), c.W, c.H, c.sw, c.sh, weights, small.data(), out_ref.data(), c.first, c.last);

  EXPECT_TRUE(out_fast.GuardsIntact());
  EXPECT_TRUE(out_ref.GuardsIntact());
  for (int r = 0; r < c.H; ++r) {
    const uint8_t* f = out_fast.data() + static_cast<size_t>(r) * c.W;
    const uint8_t* g = out_ref.data() + static_cast<size_t>(r) * c.W;
    if (MayWrite(m.factor, c.H, c.first, c.last, r)) {
      const auto diff = std::mismatch(f, f + c.W, g);
      ASSERT_EQ(diff.first, f + c.W) << "row " << r << " column " << (diff.first - f);
    } else {
      ASSERT_TRUE(std::all_of(f, f + c.W, [](uint8_t v) { return v == 1; })) << "row " << r;
      ASSERT_TRUE(std::all_of(g, g + c.W, [](uint8_t v) { return v == 101; })) << "row " << r;
    }
  }
}

// Pipeline-shaped planes (sw = W / s, sh = H / s), widened only where the
// member's formulas would otherwise name a sample past the plane.
int SmallWidth(int factor, int W, bool wider) {
  int sw = W / factor;
  if (factor == 2 && W % 2) sw = W / 2 + 1;
  // x4, x8 and x6 name S[r][x0 + 1] up to (W - 1) / s when s doesn't divide W.
  if (factor != 2 && W % factor) sw = W / factor + 1;
  return wider ? sw + 1 + W / 7 : sw;
}

int SmallHeight(int factor, int H) { return factor == 2 ? (H + 1) / 2 : H / factor; }

class CompositeYEquality : public ::testing::TestWithParam<Member> {};

// Every width from the member's minimum to a few bulk groups past it, with
// whole-plane, top, middle, bottom and one-row bands.
TEST_P(CompositeYEquality, EveryWidthAndBand) {
  const Member m = GetParam();
  const int min_w = std::max(EdgeOf(m.factor) + 1, m.factor);
  const int H = 4 * m.factor + 3;
  uint32_t seed = 1;
  for (int W = min_w; W <= 80; ++W) {
    const int sw = SmallWidth(m.factor, W, false);
    const int sh = SmallHeight(m.factor, H);
    const int bands[][2] = {{0, H - 1}, {0, H / 2 - 1}, {H / 2, H - 1}, {3, H - 3},
                            {0, 0},     {H - 1, H - 1}, {5, 5},         {H - 2, H - 1}};
    for (const auto& b : bands) {
      const Case c{W, H, sw, sh, b[0], b[1], static_cast<size_t>(W % 5), Pattern::kRandom};
      ExpectSameBytes(m, c, seed++);
      if (HasFatalFailure()) return;
    }
  }
}

// Seeded random sizes, planes wider than W / s (the bulk phases then differ
// from c * dx), misalignments and headroom patterns.
TEST_P(CompositeYEquality, RandomSizes) {
  const Member m = GetParam();
  std::mt19937 rng(1234 + m.factor);
  const Pattern patterns[] = {Pattern::kRandom, Pattern::kZero, Pattern::kFull,
                              Pattern::kAlternate};
  for (int i = 0; i < 120; ++i) {
    std::uniform_int_distribution<int> wd(std::max(EdgeOf(m.factor) + 1, m.factor), 400);
    std::uniform_int_distribution<int> hd(2 * m.factor + 1, 90);
    const int W = wd(rng);
    const int H = hd(rng);
    const int first = std::uniform_int_distribution<int>(0, H - 1)(rng);
    const int last = (i % 3 == 0) ? H - 1 : std::uniform_int_distribution<int>(first, H - 1)(rng);
    const Case c{W,
                 H,
                 SmallWidth(m.factor, W, i % 2 == 1),
                 SmallHeight(m.factor, H) + (i % 4 == 3 ? 2 : 0),
                 first,
                 last,
                 static_cast<size_t>(i % 16),
                 patterns[i % 4]};
    ExpectSameBytes(m, c, static_cast<uint32_t>(i));
    if (HasFatalFailure()) return;
  }
}

// Frame sizes the pipeline runs, each band of the two-band split.
TEST_P(CompositeYEquality, PreviewSizes) {
  const Member m = GetParam();
  const int sizes[][2] = {{1920, 1080}, {1280, 720}, {640, 480}, {1440, 1088}, {720, 1088}};
  uint32_t seed = 77;
  for (const auto& s : sizes) {
    const int W = s[0];
    const int H = s[1];
    const int sw = SmallWidth(m.factor, W, false);
    const int sh = H / m.factor;
    for (const auto& b : {std::pair<int, int>{0, H / 2 - 1}, {H / 2, H - 1}}) {
      ExpectSameBytes(m, Case{W, H, sw, sh, b.first, b.second, 0, Pattern::kRandom}, seed++);
      if (HasFatalFailure()) return;
    }
  }
}

// The vector members share one horizontal interpolation between rows with
// the same r0 and cache it in strips of columns: rows wider than a strip,
// runs cut by band edges and the bottom rows, and very flat small planes
// (long runs, and for x6 several fy = 0 rows in one run).
TEST_P(CompositeYEquality, RowRunsAndColumnStrips) {
  const Member m = GetParam();
  const int F = m.factor;
  uint32_t seed = 900;
  for (int W : {2030, 2046, 2047, 4100}) {
    const int H = 3 * F + 5;
    for (const auto& b : {std::pair<int, int>{0, H - 1}, {F + 1, 2 * F + 2}, {H - F - 2, H - 1}}) {
      const Case c{W, H, SmallWidth(F, W, false), SmallHeight(F, H), b.first, b.second, 1,
                   Pattern::kRandom};
      ExpectSameBytes(m, c, seed++);
      if (HasFatalFailure()) return;
    }
  }
  for (int sh : {1, 2, 3}) {
    const int H = 600;
    for (const auto& b : {std::pair<int, int>{0, H - 1}, {7, 300}, {301, H - 1}}) {
      ExpectSameBytes(m, Case{101, H, SmallWidth(F, 101, true), sh, b.first, b.second, 0,
                              Pattern::kRandom},
                      seed++);
      if (HasFatalFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllFactors, CompositeYEquality, ::testing::ValuesIn(kMembers),
                         [](const ::testing::TestParamInfo<Member>& info) {
                           return std::string(info.param.name);
                         });

// ---------------------------------------------------------------------------
// Hand values. Planes are small and weights are 1024 unless the blend itself
// is under test, so that the output is the blurred sample.

struct Frame {
  int W, H, sw, sh;
  std::vector<uint8_t> src, small, out;
  std::vector<uint16_t> weights;
  Frame(int w, int h, int s_w, int s_h, uint16_t weight = 1024)
      : W(w),
        H(h),
        sw(s_w),
        sh(s_h),
        src(static_cast<size_t>(w) * h, 0),
        small(static_cast<size_t>(s_w) * s_h),
        out(static_cast<size_t>(w) * h, 7),
        weights(static_cast<size_t>(w) * h, weight) {
    for (size_t i = 0; i < small.size(); ++i) small[i] = static_cast<uint8_t>((i * 37 + 11) % 251);
  }
  int S(int y, int x) const { return small[static_cast<size_t>(y) * sw + x]; }
  int Out(int y, int x) const { return out[static_cast<size_t>(y) * W + x]; }
  void Run(BlendFn fn, int first, int last) {
    fn(src.data(), W, H, sw, sh, weights.data(), small.data(), out.data(), first, last);
  }
};

int Lerp(int a, int b, int wa, int wb) { return (a * wa + b * wb + 128) >> 8; }

class CompositeYHand : public ::testing::TestWithParam<Member> {};

// Both members of one factor give these hand values.
std::vector<BlendFn> Both(int factor) {
  for (const Member& m : kMembers)
    if (m.factor == factor) return {m.fast, m.ref};
  return {};
}

// The blend over its whole contract: every source, blurred value and weight.
// x2 with a constant small plane makes every blurred sample that constant.
TEST(CompositeYBlend, ExactForEveryWeight) {
  const int W = 256 * 1025;
  Frame f(W, 2, W / 2, 1);
  for (int w = 0; w <= 1024; ++w)
    for (int s = 0; s < 256; ++s) {
      f.src[static_cast<size_t>(w) * 256 + s] = static_cast<uint8_t>(s);
      f.weights[static_cast<size_t>(w) * 256 + s] = static_cast<uint16_t>(w);
    }
  for (BlendFn fn : Both(2)) {
    for (int b = 0; b < 256; ++b) {
      std::fill(f.small.begin(), f.small.end(), static_cast<uint8_t>(b));
      f.Run(fn, 0, 0);
      for (int i = 0; i < W; ++i) {
        const int s = i & 255;
        const int w = i >> 8;
        const int want = (s * (1024 - w) + b * w + 512) >> 10;
        ASSERT_EQ(f.out[i], want) << "s=" << s << " b=" << b << " w=" << w;
      }
    }
  }
}

TEST_P(CompositeYHand, BlendEndpointsAndMidpoint) {
  const Member m = GetParam();
  const int F = m.factor;
  const int W = 24 * F + 16;
  Frame f(W, 4 * F, W / F, 4);
  std::fill(f.small.begin(), f.small.end(), 255);
  for (size_t i = 0; i < f.src.size(); ++i) f.src[i] = static_cast<uint8_t>(i * 7);
  const int row = F + 1;  // a main row of every member, away from the edges
  for (BlendFn fn : {m.fast, m.ref}) {
    for (int w : {0, 1024}) {
      std::fill(f.weights.begin(), f.weights.end(), static_cast<uint16_t>(w));
      f.Run(fn, row, row);
      for (int x = 1; x < W; ++x)
        ASSERT_EQ(f.Out(row, x), w == 0 ? f.src[static_cast<size_t>(row) * W + x] : 255) << x;
    }
    std::fill(f.src.begin(), f.src.end(), 0);
    std::fill(f.weights.begin(), f.weights.end(), 512);
    f.Run(fn, row, row);
    for (int x = 1; x < W; ++x) ASSERT_EQ(f.Out(row, x), 128) << x;  // (255*512+512)>>10
  }
}

INSTANTIATE_TEST_SUITE_P(AllFactors, CompositeYHand, ::testing::ValuesIn(kMembers),
                         [](const ::testing::TestParamInfo<Member>& info) {
                           return std::string(info.param.name);
                         });

TEST(CompositeYX2, BlocksShareOneMeanAndLastColumnsPairVertically) {
  for (BlendFn fn : Both(2)) {
    Frame f(40, 6, 20, 3);
    f.Run(fn, 0, 5);
    const int mean00 = (f.S(0, 0) + f.S(0, 1) + f.S(1, 0) + f.S(1, 1) + 2) >> 2;
    for (int y : {0, 1})
      for (int x : {0, 1}) EXPECT_EQ(f.Out(y, x), mean00);
    const int mean_mid = (f.S(1, 9) + f.S(1, 10) + f.S(2, 9) + f.S(2, 10) + 2) >> 2;
    EXPECT_EQ(f.Out(2, 18), mean_mid);
    EXPECT_EQ(f.Out(3, 19), mean_mid);
    EXPECT_EQ(f.Out(2, 37), (f.S(1, 18) + f.S(1, 19) + f.S(2, 18) + f.S(2, 19) + 2) >> 2);
    EXPECT_EQ(f.Out(0, 38), (2 * f.S(0, 19) + 2 * f.S(1, 19) + 2) >> 2);
    EXPECT_EQ(f.Out(1, 39), (2 * f.S(0, 19) + 2 * f.S(1, 19) + 2) >> 2);
    // Last image row: r1 clamps to r0 = sh - 1.
    EXPECT_EQ(f.Out(5, 4), (2 * f.S(2, 2) + 2 * f.S(2, 3) + 2) >> 2);
    EXPECT_EQ(f.Out(5, 39), f.S(2, 19));
  }
}

TEST(CompositeYX2, OneRowBandRewritesTheRowAbove) {
  for (BlendFn fn : Both(2)) {
    Frame whole(40, 6, 20, 3);
    whole.Run(fn, 0, 5);
    Frame one(40, 6, 20, 3);
    one.Run(fn, 3, 3);
    for (int y = 0; y < 6; ++y)
      for (int x = 0; x < 40; ++x)
        ASSERT_EQ(one.Out(y, x), (y == 2 || y == 3) ? whole.Out(y, x) : 7) << y << "," << x;
    Frame top(40, 6, 20, 3);
    top.Run(fn, 0, 0);  // no row above row 0
    for (int y = 1; y < 6; ++y) ASSERT_EQ(top.Out(y, 0), 7);
    EXPECT_EQ(top.Out(0, 0), whole.Out(0, 0));
  }
}

// Rows of a small plane that change only vertically expose which rows a
// blurred sample came from.
void RowRamp(Frame& f) {
  for (int y = 0; y < f.sh; ++y)
    for (int x = 0; x < f.sw; ++x)
      f.small[static_cast<size_t>(y) * f.sw + x] =
          static_cast<uint8_t>(20 + 7 * y + ((x * 53) % 9));
}

TEST(CompositeYX4, PhaseTableColumnsAndRightEdge) {
  for (BlendFn fn : Both(4)) {
    Frame f(64, 64, 16, 16);
    f.Run(fn, 0, 31);
    // Row 0 has fy = 0: column 5 mixes samples 1 and 2 with 192 / 64.
    EXPECT_EQ(f.Out(0, 5), Lerp(f.S(0, 1), f.S(0, 2), 192, 64));
    // Row 1: fy = 64 between small rows 0 and 1.
    const int h0 = Lerp(f.S(0, 1), f.S(0, 2), 192, 64);
    const int h1 = Lerp(f.S(1, 1), f.S(1, 2), 192, 64);
    EXPECT_EQ(f.Out(1, 5), Lerp(h0, h1, 192, 64));
    // Last 4 columns: vertical only, x0 = 15, no right neighbour.
    EXPECT_EQ(f.Out(1, 63), Lerp(f.S(0, 15), f.S(1, 15), 192, 64));
    EXPECT_EQ(f.Out(6, 60), Lerp(f.S(1, 15), f.S(2, 15), 128, 128));
  }
}

template <int F>
void CheckBottomRows(BlendFn fn) {
  const int W = 8 * F + 3;
  const int H = 6 * F;
  // sh = H / 2 keeps a lower small row under the bottom rows, where the main
  // and the bottom rule differ.
  Frame f(W, H, W / F + 1, H / 2);
  RowRamp(f);
  const int dx = f.sw * 65536 / W;
  const int dy = f.sh * 65536 / H;
  // A band ending above H - 1 keeps the main rule to its last row.
  f.Run(fn, 0, H - 2);
  const int r = H - 3;
  const int r0 = (r * dy) >> 16;
  const int fy = ((r * dy) >> 8) & 255;
  ASSERT_NE(fy, 0);
  const int xe = ((W - 1) * dx) >> 16;
  EXPECT_EQ(f.Out(r, W - 1), Lerp(f.S(r0, xe), f.S(r0 + 1, xe), 256 - fy, fy));
  for (int x = 0; x < W; ++x) ASSERT_EQ(f.Out(H - 1, x), 7);
  // A band of the last row alone still writes all F bottom rows, horizontal
  // only, the last F columns nearest.
  Frame g(W, H, W / F + 1, H / 2);
  RowRamp(g);
  g.Run(fn, H - 1, H - 1);
  for (int y = H - F; y < H; ++y) {
    const int q0 = (y * dy) >> 16;
    for (int x : {0, 1, W - F - 1}) {
      const int x0 = (x * dx) >> 16;
      const int fx = ((x * dx) >> 8) & 255;
      EXPECT_EQ(g.Out(y, x), Lerp(g.S(q0, x0), g.S(q0, x0 + 1), 256 - fx, fx)) << y << "," << x;
    }
    for (int x = W - F; x < W; ++x) EXPECT_EQ(g.Out(y, x), g.S(q0, (x * dx) >> 16));
  }
  EXPECT_EQ(g.Out(H - F - 1, 0), 7);
}

TEST(CompositeYX4, BottomRowsOnlyAtTheImageBottom) {
  for (BlendFn fn : Both(4)) CheckBottomRows<4>(fn);
}

TEST(CompositeYX8, BottomRowsOnlyAtTheImageBottom) {
  for (BlendFn fn : Both(8)) CheckBottomRows<8>(fn);
}

TEST(CompositeYX8, PhaseTableColumns) {
  for (BlendFn fn : Both(8)) {
    Frame f(128, 64, 16, 8);
    f.Run(fn, 0, 0);
    EXPECT_EQ(f.Out(0, 8 + 3), Lerp(f.S(0, 1), f.S(0, 2), 160, 96));
    EXPECT_EQ(f.Out(0, 16), f.S(0, 2));
  }
}

TEST(CompositeYX6, PhaseRestartsAtColumnSeven) {
  for (BlendFn fn : Both(6)) {
    Frame f(240, 60, 40, 10);  // dy = 10922: row 1 has r0 = 0, fy = 42
    f.Run(fn, 1, 1);
    const int h0 = Lerp(f.S(0, 1), f.S(0, 2), 214, 42);
    const int h1 = Lerp(f.S(1, 1), f.S(1, 2), 214, 42);
    EXPECT_EQ(f.Out(1, 7), Lerp(h0, h1, 214, 42));
    const int g0 = Lerp(f.S(0, 0), f.S(0, 1), 1, 255);
    const int g1 = Lerp(f.S(1, 0), f.S(1, 1), 1, 255);
    EXPECT_EQ(f.Out(1, 6), Lerp(g0, g1, 214, 42));
    // Column 0: vertical only.
    EXPECT_EQ(f.Out(1, 0), Lerp(f.S(0, 0), f.S(1, 0), 214, 42));
    for (int x = 0; x < 240; ++x) ASSERT_EQ(f.Out(0, x), 7);  // band starts at 1
  }
}

TEST(CompositeYX6, RowZeroAndBottomRowsAreHorizontalOnly) {
  for (BlendFn fn : Both(6)) {
    Frame f(240, 60, 40, 10);
    f.Run(fn, 0, 59);
    EXPECT_EQ(f.Out(0, 0), f.S(0, 0));
    EXPECT_EQ(f.Out(0, 7), Lerp(f.S(0, 1), f.S(0, 2), 214, 42));
    EXPECT_EQ(f.Out(0, 239), f.S(0, (239 * 10922) >> 16));
    // Row 55 (the first bottom row): r0 = 9, horizontal only.
    EXPECT_EQ(f.Out(55, 0), f.S(9, 0));
    EXPECT_EQ(f.Out(55, 7), Lerp(f.S(9, 1), f.S(9, 2), 214, 42));
    EXPECT_EQ(f.Out(55, 236), f.S(9, 39));
  }
}

// H = 1088, sh = 181: dy = 10902 and row 517 has fy = 0, so its upper weight
// wraps to 0 and every pixel blends towards 0.
TEST(CompositeYX6, RowWithZeroFractionBlursToZero) {
  for (BlendFn fn : Both(6)) {
    Frame f(96, 1088, 16, 181);
    std::fill(f.small.begin(), f.small.end(), 200);
    f.Run(fn, 0, 1087);
    for (int x = 0; x < 96; ++x) {
      ASSERT_EQ(f.Out(517, x), 0) << x;
      ASSERT_EQ(f.Out(516, x), 200) << x;
    }
  }
}

}  // namespace
