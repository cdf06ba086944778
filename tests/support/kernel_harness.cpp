#include "support/kernel_harness.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>

#include "blur/kernels.h"
#include "kernels/no_bleed_rows.h"
#include "kernels/row_kernels.h"
#include "support/test_image.h"
#include "weight/refine_rows.h"
#include "weight/weight_internal.h"

using namespace dofra;  // the library's internal names

FencedBytes::FencedBytes(size_t size) : size_(size) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t body = (size + page - 1) / page * page;
  map_len_ = body + page;
  void* m = mmap(nullptr, map_len_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (m == MAP_FAILED) throw std::bad_alloc();
  base_ = static_cast<uint8_t*>(m);
  end_ = base_ + body;
  mprotect(end_, page, PROT_NONE);
}

FencedBytes::~FencedBytes() { munmap(base_, map_len_); }

namespace {

void Fill(uint8_t* p, size_t n, int pattern, std::mt19937& rng) {
  if (pattern == 0) return FillRandom(p, n, rng);
  for (size_t i = 0; i < n; ++i) p[i] = pattern == 1 ? 0 : pattern == 2 ? 255 : (i & 1) * 255;
}

// An input of n bytes ending at a fence, filled from the case's seed.
struct Input {
  Input(size_t n, int pattern, std::mt19937& rng) : bytes(std::max<size_t>(n, 1)) {
    Fill(bytes.data(), n, pattern, rng);
  }
  uint8_t* data() { return bytes.data(); }
  FencedBytes bytes;
};

// Guarded outputs whose bytes are concatenated into the result.
struct Outputs {
  std::vector<std::unique_ptr<GuardedBytes>> all;
  uint8_t* Add(size_t n, uint8_t fill, int offset) {
    all.push_back(std::make_unique<GuardedBytes>(n, fill, offset));
    return all.back()->data();
  }
  std::vector<uint8_t> Bytes() const {
    std::vector<uint8_t> out;
    for (const auto& g : all) {
      EXPECT_TRUE(g->GuardsIntact()) << "a write outside the output";
      const std::vector<uint8_t> b = g->Bytes();
      out.insert(out.end(), b.begin(), b.end());
    }
    return out;
  }
};

size_t Area(int a, int b) { return static_cast<size_t>(a) * static_cast<size_t>(b); }

// Members by index: factor / 2 - 1, plus 4 for chroma; vectorised first.
const ShrinkFn kShrink[8][2] = {{__BiLinearInterp_Y_x2_neon, __BiLinearInterp_Y_x2_c},
                                {__BiLinearInterp_Y_x4_neon, __BiLinearInterp_Y_x4_c},
                                {__BiLinearInterp_Y_x6, __BiLinearInterp_Y_x6_c},
                                {__BiLinearInterp_Y_x8, __BiLinearInterp_Y_x8_c},
                                {__BiLinearInterp_UV_x2_neon, __BiLinearInterp_UV_x2_c},
                                {__BiLinearInterp_UV_x4, __BiLinearInterp_UV_x4_c},
                                {__BiLinearInterp_UV_x6, __BiLinearInterp_UV_x6_c},
                                {__BiLinearInterp_UV_x8, __BiLinearInterp_UV_x8_c}};
const BlendFn kBlend[8][2] = {{__CreateOutputImage_Y_x2_neon, __CreateOutputImage_Y_x2_c},
                              {__CreateOutputImage_Y_x4_neon, __CreateOutputImage_Y_x4_c},
                              {__CreateOutputImage_Y_x6_neon, __CreateOutputImage_Y_x6_c},
                              {__CreateOutputImage_Y_x8_neon, __CreateOutputImage_Y_x8_c},
                              {__CreateOutputImage_UV_x2_neon, __CreateOutputImage_UV_x2_c},
                              {__CreateOutputImage_UV_x4_neon, __CreateOutputImage_UV_x4_c},
                              {__CreateOutputImage_UV_x6_neon, __CreateOutputImage_UV_x6_c},
                              {__CreateOutputImage_UV_x8_neon, __CreateOutputImage_UV_x8_c}};
const SmoothFn kSmooth[2][2] = {
    {__GaussianSmoothImage_Y_integral_image_neon, __GaussianSmoothImage_Y_integral_image_c},
    {__GaussianSmoothImage_UV_integral_image_neon, __GaussianSmoothImage_UV_integral_image_c}};

int Member(int s, bool chroma) { return s / 2 - 1 + (chroma ? 4 : 0); }

// Outputs: intermediate, small plane.
std::vector<uint8_t> RunShrink(int member, bool fast, const KernelCase& c, uint8_t fill) {
  std::mt19937 rng(c.seed);
  Input src(Area(c.W, c.H), c.pattern, rng);
  Outputs out;
  uint8_t* tmp = out.Add(Area(c.sw, c.H), fill, c.offset);
  uint8_t* small = out.Add(Area(c.sw, c.sh), fill, c.offset + 1);
  kShrink[member][fast ? 0 : 1](src.data(), small, tmp, c.W, c.H, c.sw, c.sh, c.first, c.last);
  return out.Bytes();
}

// Every small width from 1 to a few vector groups, then random ones; source
// columns per small column s (as the pipeline passes) or wider.
std::vector<KernelCase> ShrinkCases(int s, bool chroma) {
  std::vector<KernelCase> cases;
  std::mt19937 rng(s * 7 + chroma);
  auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  for (int i = 0; i < 150; ++i) {
    const int w = i < 50 ? i + 1 : pick(1, 300);
    const int step = pick(0, 3) == 0 ? s + pick(1, 3) : s;
    const int W = chroma ? 2 * ((step * w + 1) / 2) + 2 * pick(0, 2) : step * w + pick(0, s - 1);
    const int h = pick(1, 6), y0 = pick(0, h - 1);
    const int y1 = pick(0, 3) == 0 ? y0 : pick(y0, h - 1);
    cases.push_back({W, s * h + pick(0, s - 1), w, h, y0, y1, 0, i % 4, i % 16, uint32_t(i)});
  }
  return cases;
}

// ------------------------------------------------------------ smooth -------
// member: 1 luma, 2 chroma (bytes between same-channel samples). Outputs:
// the padded plane and the destination (the integral scratch is private).
std::vector<uint8_t> RunSmooth(int lead, bool fast, const KernelCase& c, uint8_t fill) {
  std::mt19937 rng(c.seed);
  Input src(Area(c.W, c.H), c.pattern, rng);
  const int stride = c.W + 2 * c.r * lead;
  const uint16_t weights[1] = {static_cast<uint16_t>(c.sw)};  // sw carries the Q10 weight
  GuardedBytes integral(Area(stride, c.H + 2 * c.r + 1) * 4, fill);
  Outputs out;
  uint8_t* padded = out.Add(Area(stride, c.H + 2 * c.r), fill, c.offset);
  uint8_t* dst = out.Add(Area(c.W, c.H), fill, c.offset + 3);
  kSmooth[lead - 1][fast ? 0 : 1](src.data(), padded, dst, c.W, c.H, weights, 2 * c.r + 1, c.r,
                                  integral.data(), c.first, c.last);
  EXPECT_TRUE(integral.GuardsIntact());
  return out.Bytes();
}

// Widths across vector groups and 1024-column strips, radii around the
// limits of the 16-bit paths (5, 7, 8) with their largest weights, bands as
// the pipeline passes them (first 0 or >= r, last h - 1 or <= h - 1 - r).
std::vector<KernelCase> SmoothCases(int lead) {
  std::vector<KernelCase> cases;
  std::mt19937 rng(40 + lead);
  auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  const int strips[] = {1020, 1023, 1024, 1025, 1031, 2100, 3073};
  for (int i = 0; i < 130; ++i) {
    int w = i < 40 ? i + 1 : i < 47 ? strips[i - 40] : pick(1, 300);
    if (lead == 2) w = 2 * ((w + 1) / 2);
    const int r = i % 3 ? 2 : pick(0, 8);
    const int weights[] = {1024 / (2 * r + 1), 1024 / (2 * r + 2), 1023, 1024, 1024 / (2 * r + 1)};
    const int h = pick(1, 14);
    int first = pick(0, 2) == 0 || h <= r ? 0 : pick(std::min(r, h - 1), h - 1);
    int last = pick(0, 2) == 0 || h - 1 - r < first ? h - 1 : pick(first, h - 1 - r);
    if (i % 11 == 5) last = first - 1;  // an empty band still builds its anchor row
    cases.push_back({w, h, weights[i % 5], 0, first, last, r, i % 4, i % 8, uint32_t(i)});
  }
  return cases;
}

// --------------------------------------------------------- composite -------
// The small plane holds exactly the rows the case names (c.r, for x2 and x6
// that do not clamp every row), so a read below it faults.
std::vector<uint8_t> RunComposite(int member, bool fast, const KernelCase& c, uint8_t fill) {
  std::mt19937 rng(c.seed);
  const bool chroma = member >= 4;
  Input src(Area(c.W, c.H), c.pattern, rng);
  Input small(Area(c.sw, c.r), c.pattern, rng);
  const size_t weight_count = Area(c.W, chroma ? 2 * c.H : c.H);
  FencedBytes weight_bytes(2 * weight_count);
  auto* weights = reinterpret_cast<uint16_t*>(weight_bytes.data());
  FillRandomWeights(weights, weight_count, rng);
  Outputs out;
  uint8_t* dst = out.Add(Area(c.W, c.H), fill, c.offset);
  kBlend[member][fast ? 0 : 1](src.data(), c.W, c.H, c.sw, c.sh, weights, small.data(), dst,
                               c.first, c.last);
  return out.Bytes();
}

// Rows of the small plane a call names: x2 halves rows, and every main row
// reads r0 + 1 unclamped except on luma x4 and x8.
int RowsNamed(int s, bool clamped, int H, int sh, int first, int last) {
  if (s == 2) return std::max(sh, (std::max(last, 0) >> 1) + 1);
  if (clamped) return sh;
  const int dy = sh * 65536 / H, main_last = last == H - 1 ? H - 1 - (s == 6 ? 5 : s) : last;
  int rows = sh;
  for (int r = std::max(first, 1); r <= main_last; ++r) rows = std::max(rows, ((r * dy) >> 16) + 2);
  return rows;
}

KernelCase LumaBlendCase(int s, int W, int H, int sh, int first, int last, bool wider, int i) {
  int sw = W % s ? W / s + 1 : W / s;  // every x0 + 1 the formulas name lies inside
  if (wider) sw += 1 + W / 7;          // bulk phases then differ from c * dx
  return {W,     H,      sw,         sh, first, last, RowsNamed(s, s != 6, H, sh, first, last),
          i % 4, i % 16, uint32_t(i)};
}

// Every width up to a few bulk groups with whole, top, bottom, inner and
// one-row bands; random sizes; rows wider than one cached strip; flat small
// planes (long row runs, x6 with several fy = 0 rows).
std::vector<KernelCase> LumaBlendCases(int s) {
  std::vector<KernelCase> cases;
  std::mt19937 rng(100 + s);
  auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  const int H = 4 * s + 3, sh = s == 2 ? (H + 1) / 2 : H / s;
  int i = 0;
  for (int W = std::max(s == 6 ? 6 : s, s) + (s != 2); W <= 80; ++W) {
    const int bands[][2] = {{0, H - 1}, {0, H / 2 - 1}, {H / 2, H - 1},
                            {0, 0},     {H - 1, H - 1}, {5, 5}};
    for (const auto& b : bands) cases.push_back(LumaBlendCase(s, W, H, sh, b[0], b[1], false, i++));
  }
  for (int k = 0; k < 100; ++k) {
    const int W = pick(s + 1, 400), h = pick(2 * s + 1, 90), first = pick(0, h - 1);
    const int last = k % 3 == 0 ? h - 1 : pick(first, h - 1);
    const int small_h = (s == 2 ? (h + 1) / 2 : h / s) + (k % 4 == 3 ? 2 : 0);
    cases.push_back(LumaBlendCase(s, W, h, small_h, first, last, k % 2 == 1, i++));
  }
  for (int W : {2046, 4100})
    for (const auto& b : {std::pair<int, int>{0, 3 * s + 4}, {s + 1, 2 * s + 2}})
      cases.push_back(
          LumaBlendCase(s, W, 3 * s + 5, (3 * s + 5) / s, b.first, b.second, false, i++));
  for (int flat : {1, 2, 3})
    cases.push_back(LumaBlendCase(s, 101, 600, flat, flat == 2 ? 7 : 0, 599, true, i++));
  cases.push_back(LumaBlendCase(s, 1920, 1080, 1080 / s, 0, 539, false, i++));
  cases.push_back(LumaBlendCase(s, 1920, 1080, 1080 / s, 540, 1079, false, i++));
  return cases;
}

// Chroma planes as the pipeline derives them from a W x 2H frame; W may
// exceed s * sw by an even amount (not for x6, whose edge covers only 6 sw).
std::vector<KernelCase> ChromaBlendCases(int s) {
  std::vector<KernelCase> cases;
  std::mt19937 rng(200 + s);
  auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  const int edge = s == 2 ? 1 : s == 6 ? 6 : s + 1;
  for (int i = 0; i < 80; ++i) {
    const int sw = 2 * pick(2, 40);
    const int W = s * sw + (s == 6 ? 0 : 2 * pick(0, (s - 1) / 2));
    const int H = s == 6 ? 6 * pick(2, 12) : 2 * pick(s, 6 * s);
    const int sh = (2 * H / s) / 2;
    int first = pick(0, H - 1), last = H - 1;
    if (i % 4 == 0) first = last = H - 1;
    if (i % 4 == 1) first = 0, last = pick(0, H - 1 - edge);
    if (i % 4 == 2) first = last = pick(0, H - 1 - edge);
    cases.push_back({W, H, sw, sh, first, last, RowsNamed(s, false, H, sh, first, last), i % 4,
                     i % 8, uint32_t(i)});
  }
  cases.push_back({1920, 270, 1920 / s, 540 / s / 2, 0, 134, 540 / s / 2, 0, 0, 1});
  cases.push_back({1920, 270, 1920 / s, 540 / s / 2, 135, 269, 540 / s / 2, 0, 3, 2});
  return cases;
}

// ------------------------------------------------------- weight path -------
// Min / max and the depth lookup over W bytes; the weight interpolation of a
// dW = sw by dH = sh depth map up to W x H, focus, falloff and strength drawn
// from the seed.
std::vector<uint8_t> RunMinMax(int, bool fast, const KernelCase& c, uint8_t fill) {
  std::mt19937 rng(c.seed);
  Input src(static_cast<size_t>(c.W), c.pattern, rng);
  uint8_t mm[2] = {fill, fill};
  (fast ? __getMinMax_neon : __getMinMax_c)(src.data(), c.W, &mm[0], &mm[1]);
  return {mm[0], mm[1]};
}

// A random 256-byte table per seed.
std::vector<uint8_t> RunLookup(int, bool fast, const KernelCase& c, uint8_t fill) {
  std::mt19937 rng(c.seed);
  Input src(static_cast<size_t>(c.W), c.pattern, rng);
  uint8_t table[256];
  FillRandom(table, sizeof table, rng);
  Outputs out;
  uint8_t* dst = out.Add(static_cast<size_t>(c.W), fill, c.offset);
  if (fast)
    __getRanged(src.data(), dst, c.W, 0, 0, table);
  else
    __getRanged_c(src.data(), dst, c.W, table);
  return out.Bytes();
}

std::vector<KernelCase> ByteRowCases() {
  std::vector<KernelCase> cases;
  std::mt19937 rng(300);
  for (int i = 0; i < 120; ++i) {
    const int n = i < 70 ? i : std::uniform_int_distribution<int>(70, 5000)(rng);
    cases.push_back({n, 0, 0, 0, 0, 0, 0, i % 4, i % 8, uint32_t(i)});
  }
  return cases;
}

// Depth maps steering 16-column groups into every path: noise, gradients,
// tiles of one depth, tiles with a little noise (pattern 0..3).
void FillDepths(int kind, int dW, int dH, std::mt19937& rng, uint8_t* d) {
  const size_t n = Area(dW, dH);
  if (kind == 0) return FillRandom(d, n, rng);
  if (kind == 1) {
    for (size_t i = 0; i < n; ++i) d[i] = static_cast<uint8_t>(i * 3 / 2);
    return;
  }
  const int tile = 1 + static_cast<int>(rng() % 7);
  const int noise = kind == 2 ? 1 : 1 + static_cast<int>(rng() % 12);
  uint8_t levels[64];
  FillRandom(levels, 64, rng);
  for (int y = 0; y < dH; ++y)
    for (int x = 0; x < dW; ++x)
      d[y * dW + x] = static_cast<uint8_t>(
          std::min(255, levels[(y / tile * 7 + x / tile) % 64] + static_cast<int>(rng() % noise)));
}

std::vector<uint8_t> RunWeightUp(int, bool fast, const KernelCase& c, uint8_t fill) {
  std::mt19937 rng(c.seed);
  FencedBytes depth(Area(c.sw, c.sh));
  FillDepths(c.pattern, c.sw, c.sh, rng, depth.data());
  const int fx = static_cast<int>(rng() % c.W), fy = static_cast<int>(rng() % c.H);
  // Falloff 25 (the library's) and 31 (the largest whose distances past 31 all
  // weigh alike) take the distance tables; others the plain lookup.
  const int table_falloff = c.seed % 3 ? 25 : 31;
  const uint8_t falloff = static_cast<uint8_t>(c.seed % 4 == 3 ? 1 + rng() % 255 : table_falloff);
  const uint8_t strength = static_cast<uint8_t>(rng() % 256);
  Outputs out;
  auto* map = reinterpret_cast<uint16_t*>(out.Add(Area(c.W, c.H) * 2, fill, 2 * c.offset));
  (fast ? __WeightInterpolateUp : __WeightInterpolateUp_c)(
      c.W, c.H, fx, fy, c.first, c.last, map, c.sw, c.sh, falloff, strength, depth.data());
  return out.Bytes();
}

// Upscaling by 8 as in preview and other factors (the last three with groups
// 1, 3 and 4 disparity columns apart), downscaling (one past the sliding
// window's buffers), maps narrower than one load, more than one strip, and
// maps large enough to be streamed, with rows aligned and not.
std::vector<KernelCase> WeightUpCases() {
  const int shapes[][4] = {
      {1, 1, 1, 1},      {7, 5, 3, 2},     {17, 9, 17, 9},       {33, 21, 40, 30},
      {64, 48, 8, 6},    {121, 67, 15, 9}, {240, 135, 30, 17},   {1031, 3, 129, 2},
      {2500, 4, 313, 3}, {9, 300, 2, 301}, {1920, 24, 240, 3},   {2049, 5, 2049, 5},
      {4111, 3, 600, 2}, {47, 33, 16, 11}, {300, 4, 2500, 3},    {256, 8, 16, 2},
      {96, 6, 18, 2},    {128, 8, 32, 2},  {1920, 600, 240, 75}, {1366, 800, 171, 100}};
  std::vector<KernelCase> cases;
  std::mt19937 rng(400);
  uint32_t seed = 0;
  for (const auto& s : shapes)
    for (int k = 0; k < 8; ++k) {
      const int first = k == 0 ? 0 : static_cast<int>(rng() % s[1]);
      const int last = k == 0 ? s[1] - 1 : first + static_cast<int>(rng() % (s[1] - first));
      cases.push_back({s[0], s[1], s[2], s[3], first, last, 0, k % 4, k % 4, seed++});
    }
  return cases;
}

// ------------------------------------------------------- refined map -------
// One row of the refined map: W columns over dW = sw samples, columns
// [first, last) written, fy = H. r picks the columns (bit 0: random steps of
// 0..3 samples, else the driver's geometry for these sizes) and the weight
// rule (bit 1: the plain map's, with its distance tables; else random
// weights without them).
struct RefineRowInputs {
  std::vector<std::unique_ptr<FencedBytes>> bytes;  // guide rows and sample planes
  std::vector<int32_t> ix, ix1;
  std::vector<uint8_t> fx;
  RefineTables tables{};
  RefineRow row{};

  RefineRowInputs(const KernelCase& c, std::mt19937& rng) : ix(c.W), ix1(c.W), fx(c.W) {
    row.luma = Add(c.W, c.pattern, rng);
    row.chroma = Add(c.W, c.pattern, rng);
    for (SampleRow* s : {&row.top, &row.bottom}) {
      const uint8_t** planes[5] = {&s->depth, &s->y, &s->v, &s->u, &s->purity};
      for (const uint8_t** plane : planes) *plane = Add(c.sw + kRefinePlanePad, c.pattern, rng);
    }
    row.fy = c.H;
    Columns(c, rng);
    Tables(c, rng);
  }
  const uint8_t* Add(int n, int pattern, std::mt19937& rng) {
    bytes.push_back(std::make_unique<FencedBytes>(static_cast<size_t>(n)));
    Fill(bytes.back()->data(), static_cast<size_t>(n), pattern, rng);
    return bytes.back()->data();
  }
  void Columns(const KernelCase& c, std::mt19937& rng) {
    const int sx = (c.sw << 16) / c.W;
    int i = 0;
    for (int x = 0; x < c.W; ++x) {
      if (c.r & 1) {
        i = std::min(i + static_cast<int>(rng() % 4), c.sw - 1);
        fx[x] = static_cast<uint8_t>(rng());
      } else {
        const int q = std::max(x * sx + (sx >> 1) - 32768, 0);
        i = q >> 16;
        fx[x] = static_cast<uint8_t>(q >> 8);
      }
      ix[x] = i;
      ix1[x] = std::min(i + 1, c.sw - 1);
    }
  }
  // Range kernels that end anywhere from entry 0 to past the last, weights
  // of either rule.
  void Tables(const KernelCase& c, std::mt19937& rng) {
    const int reach = static_cast<int>(rng() % 260);
    for (int d = 0; d < kRefineDepths; ++d)
      tables.range[d] = static_cast<uint8_t>(d < reach ? 255 - d * 255 / (reach + 1) : 0);
    if (c.pattern == 2) std::fill(tables.range, tables.range + kRefineDepths, 255);
    SetRangeChunks(&tables);
    tables.chroma_weight = static_cast<int>(rng() % 9);
    if (c.r & 2) {
      DepthWeightLut(static_cast<int>(rng() % 256), kWeightFalloff,
                     static_cast<uint8_t>(rng() % 129), &tables.weights);
    } else {
      for (uint16_t& w : tables.weights.by_depth) w = static_cast<uint16_t>(rng() % 1025);
      tables.weights.short_table = false;
    }
  }
};

// member 0: joint rows, 1: bilinear rows.
std::vector<uint8_t> RunRefineRow(int member, bool fast, const KernelCase& c, uint8_t fill) {
  std::mt19937 rng(c.seed);
  RefineRowInputs in(c, rng);
  Outputs out;
  in.row.out = reinterpret_cast<uint16_t*>(out.Add(Area(c.W, 2), fill, 2 * c.offset));
  const RowKernels& k = fast ? ActiveRowKernels() : ScalarRowKernels();
  const RefineColumns cols = {in.ix.data(), in.ix1.data(), in.fx.data()};
  (member == 0 ? k.refine_joint_row : k.refine_bilinear_row)(in.row, cols, in.tables, c.first,
                                                             c.last);
  return out.Bytes();
}

// Every even width up to a few steps, random ones, preview rows; samples
// from one to one per column; whole rows, runs and tiny runs; fy 0 (the
// upper weights 256) and others.
std::vector<KernelCase> RefineRowCases() {
  std::vector<KernelCase> cases;
  std::mt19937 rng(500);
  auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  for (int i = 0; i < 240; ++i) {
    const int W = i < 60 ? 2 + 2 * (i / 2) : i < 230 ? 2 * pick(1, 400) : i < 236 ? 1920 : 4100;
    const int divisors[] = {8, 4, 2, 1, 16};
    const int dW = i % 7 == 6 ? pick(1, W) : std::max(1, W / divisors[i % 5]);
    int from = 0, to = W;
    if (i % 3 == 1) from = pick(0, W - 1), to = pick(from, W);
    if (i % 3 == 2) from = pick(0, W - 1), to = std::min(W, from + pick(0, 20));
    const int fy = i % 5 == 0 ? 0 : i % 5 == 1 ? 255 : pick(1, 254);
    cases.push_back(
        {W, fy, dW, 0, from, to, i % 4, i % 4 == 0 ? pick(0, 3) : (i / 4) % 4, i % 8, uint32_t(i)});
  }
  return cases;
}

// The vertical colour sums of sh rows (H distinct ones, repeated in turn as
// chroma rows are) of W bytes, columns [first, last).
std::vector<uint8_t> RunColumnSums(int, bool fast, const KernelCase& c, uint8_t fill) {
  std::mt19937 rng(c.seed);
  std::vector<std::unique_ptr<Input>> distinct;
  std::vector<const uint8_t*> rows;
  for (int r = 0; r < c.H; ++r)
    distinct.push_back(std::make_unique<Input>(static_cast<size_t>(c.W), c.pattern, rng));
  for (int r = 0; r < c.sh; ++r) rows.push_back(distinct[static_cast<size_t>(r % c.H)]->data());
  Outputs out;
  auto* sums = reinterpret_cast<uint16_t*>(out.Add(Area(c.W, 2), fill, 2 * c.offset));
  (fast ? ActiveRowKernels() : ScalarRowKernels())
      .refine_column_sums(rows.data(), c.sh, sums, c.first, c.last);
  return out.Bytes();
}

// Widths across steps; 1 to kMaxSumRows rows (all 255 at the most: 65535).
std::vector<KernelCase> ColumnSumsCases() {
  std::vector<KernelCase> cases = ByteRowCases();
  std::mt19937 rng(600);
  for (KernelCase& c : cases) {
    c.first = c.W == 0 ? 0 : static_cast<int>(rng() % c.W);
    c.last = c.W == 0 || c.seed % 3 ? c.W : c.first + static_cast<int>(rng() % (c.W - c.first + 1));
    c.sh = c.seed % 5 == 0 ? kMaxSumRows : 1 + static_cast<int>(rng() % 12);
    c.H = 1 + static_cast<int>(rng() % std::min(c.sh, 4));
  }
  return cases;
}


// ------------------------------------------------------ no-glow rows -------
const RowKernels& Rows(bool fast) { return fast ? ActiveRowKernels() : ScalarRowKernels(); }

// Weights around a full weight drawn from the seed, often at or above it;
// pattern 1 all below, pattern 2 all at it.
void FillMap(uint16_t* w, size_t n, int pattern, uint16_t full, std::mt19937& rng) {
  for (size_t i = 0; i < n; ++i) {
    const int pick = static_cast<int>(rng() % 8);
    const uint16_t low = static_cast<uint16_t>(rng() % (full + 1u));
    w[i] = pattern == 1 ? static_cast<uint16_t>(full ? full - 1 : 0)
           : pattern == 2 ? full
           : pick < 5 ? full : pick == 5 ? static_cast<uint16_t>(rng()) : low;
  }
}

uint16_t FullOf(const KernelCase& c) {
  const uint16_t fulls[] = {1024, 960, 480, 0, 1};
  return fulls[c.seed % 5];
}

// W columns of H rows (stride W + 5) to their minima.
std::vector<uint8_t> RunMinRows(int, bool fast, const KernelCase& c, uint8_t fill) {
  std::mt19937 rng(c.seed);
  const size_t stride = static_cast<size_t>(c.W) + 5, n = stride * c.H;
  FencedBytes rows(2 * n);
  FillMap(reinterpret_cast<uint16_t*>(rows.data()), n, c.pattern, FullOf(c), rng);
  Outputs out;
  auto* dst = reinterpret_cast<uint16_t*>(out.Add(2 * static_cast<size_t>(c.W), fill, 2 * c.offset));
  Rows(fast).map_min_rows(reinterpret_cast<const uint16_t*>(rows.data()), stride, c.H, dst, c.W);
  return out.Bytes();
}

// One row of W minima (sw: block, r: pullback, sh: samples) to its mask and
// the count of ones; the row and the pullback around it are scratch.
std::vector<uint8_t> RunMaskRow(int lead, bool fast, const KernelCase& c, uint8_t fill) {
  std::mt19937 rng(c.seed);
  const uint16_t full = FullOf(c);
  GuardedBytes row_bytes(2 * (static_cast<size_t>(c.W) + 2 * c.r), 0);
  auto* row = reinterpret_cast<uint16_t*>(row_bytes.data()) + c.r;
  FillMap(row, static_cast<size_t>(c.W), c.pattern, full, rng);
  Outputs out;
  uint8_t* mask = out.Add(static_cast<size_t>(lead) * c.sh, fill, c.offset);
  const int ones = Rows(fast).mask_row[lead - 1](row, c.W, c.sw, c.r, full, mask, c.sh);
  EXPECT_TRUE(row_bytes.GuardsIntact()) << "a write beyond the pullback";
  std::vector<uint8_t> bytes = out.Bytes();
  bytes.push_back(static_cast<uint8_t>(ones));
  bytes.push_back(static_cast<uint8_t>(ones >> 8));
  return bytes;
}

std::vector<KernelCase> MaskRowCases(int lead) {
  std::vector<KernelCase> cases;
  std::mt19937 rng(500 + lead);
  const int blocks[] = {2, 4, 6, 8, 12, 16};
  for (int i = 0; i < 160; ++i) {
    const int block = blocks[i % 6];
    const int samples = i < 40 ? 1 + i % 20 : 1 + static_cast<int>(rng() % 300);
    const int W = block * samples + static_cast<int>(rng() % block);
    const int pullback = static_cast<int>(rng() % (kNoBleedMaxPullback + 1));
    cases.push_back({W, 0, block, samples, 0, 0, pullback, i % 4, i % 8, uint32_t(i)});
  }
  return cases;
}

// Random values and 0 / 1 masks (pattern 1 none counted, 2 all, 3 alternate).
void FillMask(uint8_t* m, size_t n, int pattern, std::mt19937& rng) {
  for (size_t i = 0; i < n; ++i)
    m[i] = static_cast<uint8_t>(pattern == 1 ? 0 : pattern == 2 ? 1 : pattern == 3 ? i & 1 : rng() % 3 != 0);
}

// Sums of W columns from random start values: a row added, then H rows
// added while as many leave.
std::vector<uint8_t> RunMaskedSlide(int, bool fast, const KernelCase& c, uint8_t fill) {
  std::mt19937 rng(c.seed);
  const size_t n = static_cast<size_t>(c.W) * (c.H + 1);
  Input v(n, 0, rng);
  FencedBytes m(std::max<size_t>(n, 1));
  FillMask(m.data(), n, c.pattern, rng);
  Outputs out;
  auto* vs = reinterpret_cast<uint16_t*>(out.Add(2 * static_cast<size_t>(c.W), fill, 2 * c.offset));
  auto* ms = reinterpret_cast<uint16_t*>(out.Add(2 * static_cast<size_t>(c.W), fill, 2 * c.offset + 2));
  const RowKernels& k = Rows(fast);
  k.masked_slide_add(v.data(), m.data(), vs, ms, 0, c.W);
  for (int y = 1; y <= c.H; ++y) {
    const size_t in = static_cast<size_t>(y) * c.W, gone = in - c.W;
    k.masked_slide_add_sub(v.data() + in, m.data() + in, v.data() + gone, m.data() + gone, vs, ms,
                           c.first % (c.W + 1), c.W);
  }
  return out.Bytes();
}

// One output row of W values from the column sums of 5 rows of W + 4 * lead
// values and masks, over a destination of defaults.
std::vector<uint8_t> RunMaskedBox(int lead, bool fast, const KernelCase& c, uint8_t fill) {
  std::mt19937 rng(c.seed);
  const size_t m = static_cast<size_t>(c.W) + 2 * kNoBleedRadius * lead;
  std::vector<uint8_t> v(m * kNoBleedTaps), mask(v.size());
  FillRandom(v.data(), v.size(), rng);
  if (c.pattern == 2) std::fill(v.begin(), v.end(), 255);
  FillMask(mask.data(), mask.size(), c.pattern == 2 ? static_cast<int>(c.seed % 4) : c.pattern, rng);
  FencedBytes sums(4 * m);
  auto* vs = reinterpret_cast<uint16_t*>(sums.data());
  uint16_t* ms = vs + m;
  std::fill(vs, vs + 2 * m, 0);
  for (int p = 0; p < kNoBleedTaps; ++p)
    ScalarRowKernels().masked_slide_add(v.data() + p * m, mask.data() + p * m, vs, ms, 0,
                                        static_cast<int>(m));
  Outputs out;
  uint8_t* dst = out.Add(static_cast<size_t>(c.W), fill, c.offset);
  FillRandom(dst, static_cast<size_t>(c.W), rng);
  Rows(fast).masked_box_row[lead - 1](vs, ms, dst, c.first % (c.W + 1), c.W);
  return out.Bytes();
}

std::vector<KernelCase> NoBleedRowCases(int seed) {
  std::vector<KernelCase> cases;
  std::mt19937 rng(seed);
  for (int i = 0; i < 150; ++i) {
    const int W = i < 70 ? i : static_cast<int>(70 + rng() % 2100);
    const int first = i % 5 == 4 ? static_cast<int>(rng() % (W + 1)) : 0;
    cases.push_back({W, 1 + i % 9, 0, 0, first, 0, 0, i % 4, i % 8, uint32_t(i)});
  }
  return cases;
}

}  // namespace

std::vector<KernelFamily> AllKernelFamilies() {
  std::vector<KernelFamily> all;
  for (int s : {2, 4, 6, 8}) {
    const std::string x = "x" + std::to_string(s);
    all.push_back({"shrink Y " + x, Member(s, false), RunShrink, ShrinkCases(s, false)});
    all.push_back({"shrink UV " + x, Member(s, true), RunShrink, ShrinkCases(s, true)});
    all.push_back({"composite Y " + x, Member(s, false), RunComposite, LumaBlendCases(s)});
    all.push_back({"composite UV " + x, Member(s, true), RunComposite, ChromaBlendCases(s)});
  }
  all.push_back({"smooth Y", 1, RunSmooth, SmoothCases(1)});
  all.push_back({"smooth UV", 2, RunSmooth, SmoothCases(2)});
  all.push_back({"min/max", 0, RunMinMax, ByteRowCases()});
  all.push_back({"depth lookup", 0, RunLookup, ByteRowCases()});
  all.push_back({"weight interpolation", 1, RunWeightUp, WeightUpCases()});
  all.push_back({"refine joint rows", 0, RunRefineRow, RefineRowCases()});
  all.push_back({"refine bilinear rows", 1, RunRefineRow, RefineRowCases()});
  all.push_back({"refine colour sums", 0, RunColumnSums, ColumnSumsCases()});
  all.push_back({"no-glow min rows", 0, RunMinRows, NoBleedRowCases(600)});
  all.push_back({"no-glow mask row Y", 1, RunMaskRow, MaskRowCases(1)});
  all.push_back({"no-glow mask row UV", 2, RunMaskRow, MaskRowCases(2)});
  all.push_back({"no-glow masked sums", 0, RunMaskedSlide, NoBleedRowCases(601)});
  all.push_back({"no-glow masked box Y", 1, RunMaskedBox, NoBleedRowCases(602)});
  all.push_back({"no-glow masked box UV", 2, RunMaskedBox, NoBleedRowCases(603)});
  return all;
}

std::vector<SimdLevel> VectorLevels(std::string* skipped) {
  std::vector<SimdLevel> levels;
  for (SimdLevel l : kSimdLevels) {
    if (l == SimdLevel::kScalar) continue;
    if (SimdLevelAvailable(l))
      levels.push_back(l);
    else
      *skipped += std::string(skipped->empty() ? "" : ", ") + SimdLevelName(l);
  }
  return levels;
}
