// Luma compositing: enlarges the smoothed small plane on the fly (no enlarged
// plane is ever stored) and blends it with the sharp source under the weight
// map, one band of rows per call.
//
// Each factor has one plane driver that walks the row and column ranges and a
// bulk helper for a run of rows sharing their small rows: the _c members pass
// the scalar helper, the _neon members the SSE4.1 one, which interpolates the
// shared rows horizontally once per run. Both bulk helpers cover the same
// columns and produce the same bytes; everything outside the bulk (edges,
// bottom rows) is shared scalar code.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE4_1__)
#include <smmintrin.h>
#endif

#include "blur/blend.h"
#include "blur/kernels.h"

namespace {

constexpr int kFracBits = 8;   // 8-bit fractions of 16.16 positions
constexpr int kFracOne = 256;  // weights of a 2-tap interpolation sum to this
constexpr int kRound8 = 128;
constexpr int kPosShift = 16;  // integer part of a 16.16 position
constexpr int kPosOne = 65536;

// The x6 bulk: 24 columns per group, a six-step phase cycle that never drifts.
constexpr int kX6Group = 24;
constexpr int kX6Edge = 5;                                       // last columns / bottom rows of x6
constexpr int kX6RightWeight[6] = {42, 85, 127, 170, 213, 255};  // fractions of c * 10922
constexpr int kX6LeftWeight[6] = {214, 171, 129, 86, 43, 1};     // 256 - right
constexpr int kBulkGroup = 8;                                    // x4 / x8 bulk columns per group
constexpr int kX2Group = 16;                                     // x2 bulk columns per group
// Longest run of output rows handed to a bulk helper at once: main rows with
// the same r0 also share r1, so a run shares one horizontal interpolation.
constexpr int kMaxRun = 16;

struct Planes {
  const uint8_t* src;
  const uint16_t* weights;
  const uint8_t* small;
  uint8_t* out;
  int W, H, sw, sh;
};

// One output row and the two small rows it interpolates between.
struct RowCtx {
  const uint8_t* src;
  const uint16_t* w;
  uint8_t* out;
  const uint8_t* s0;  // small row r0
  const uint8_t* s1;  // small row r1
  int fy;             // vertical fraction, 0..255
  int dx;             // 16.16 horizontal step
};

RowCtx MakeRow(const Planes& p, int r, int r0, int r1, int fy, int dx) {
  const ptrdiff_t o = static_cast<ptrdiff_t>(r) * p.W;
  return {p.src + o,
          p.weights + o,
          p.out + o,
          p.small + static_cast<ptrdiff_t>(r0) * p.sw,
          p.small + static_cast<ptrdiff_t>(r1) * p.sw,
          fy,
          dx};
}

// Position of column / row i: integer sample and 8-bit fraction.
inline int PosInt(int i, int step) { return (i * step) >> kPosShift; }
inline int PosFrac(int i, int step) { return ((i * step) >> kFracBits) & (kFracOne - 1); }

// (a * wa + b * wb + 128) >> 8; products <= 255 * 256 + 128, fit in 16 bits.
inline int Lerp8(int a, int b, int wa, int wb) { return (a * wa + b * wb + kRound8) >> kFracBits; }

// Rows from r up to `last` (at most kMaxRun) with the same r0 as row r.
inline int RunLength(int r, int last, int dy) {
  const int r0 = PosInt(r, dy);
  int n = 1;
  while (n < kMaxRun && r + n <= last && PosInt(r + n, dy) == r0) ++n;
  return n;
}

// ---------------------------------------------------------------- x2 ------

// Bulk helper: blends columns [0, n) and returns n, a multiple of 16 with
// every column in it using the full 2x2 mean (n <= W - 2).
using X2Bulk = int (*)(const RowCtx& q, int W);

inline int Mean2x2(const RowCtx& q, int k) {
  return (q.s0[k] + q.s0[k + 1] + q.s1[k] + q.s1[k + 1] + 2) >> 2;  // sum <= 1022
}

int X2Bulk_C(const RowCtx& q, int W) {
  const int n = std::max(W - 2, 0) / kX2Group * kX2Group;
  for (int c = 0; c < n; ++c) q.out[c] = BlendWrap(q.src[c], Mean2x2(q, c >> 1), q.w[c]);
  return n;
}

// Scalar formula for columns [from, W); also the remainder of the bulk.
void X2Tail_C(const RowCtx& q, int W, int from) {
  int c = from;
  for (; c < W - 2; ++c) q.out[c] = BlendWrap(q.src[c], Mean2x2(q, c >> 1), q.w[c]);
  // Last two columns: k + 1 would lie past a plane of width W / 2.
  for (; c < W; ++c) {
    const int k = c >> 1;
    q.out[c] = BlendWrap(q.src[c], (2 * q.s0[k] + 2 * q.s1[k] + 2) >> 2, q.w[c]);
  }
}

void CompositeX2(const Planes& p, int first, int last, X2Bulk bulk) {
  auto row = [&](int r, int r1) {
    const RowCtx q = MakeRow(p, r, r >> 1, r1, 0, 0);
    X2Tail_C(q, p.W, bulk(q, p.W));
  };
  for (int r = first; r <= last - 2; ++r) row(r, (r >> 1) + 1);
  // The band's last two rows clamp r1; a one-row band thus rewrites the row
  // above it (never row -1).
  for (int r = std::max(last - 1, 0); r <= last; ++r) row(r, std::min((r >> 1) + 1, p.sh - 1));
}

// ----------------------------------------------------------- x4, x8 -------

// Bulk helper: blends main-row columns [0, end) of `count` rows that share
// s0 and s1 with the fixed phase table of factor F; end is a multiple of 8.
using XFBulk = void (*)(const RowCtx* rows, int count, int end);

template <int F>
inline int BilinearXF(const RowCtx& q, int x0, int fx) {
  const int h0 = Lerp8(q.s0[x0], q.s0[x0 + 1], kFracOne - fx, fx);
  const int h1 = Lerp8(q.s1[x0], q.s1[x0 + 1], kFracOne - fx, fx);
  return std::min(255, Lerp8(h0, h1, kFracOne - q.fy, q.fy));
}

template <int F>
void XFBulk_C(const RowCtx* rows, int count, int end) {
  for (int i = 0; i < count; ++i) {
    const RowCtx& q = rows[i];
    for (int c = 0; c < end; ++c) {
      const int fx = (c % F) * (kFracOne / F);
      q.out[c] = BlendClamp(q.src[c], BilinearXF<F>(q, c / F, fx), q.w[c]);
    }
  }
}

// Main-row columns [from, W): positions from c * dx, last F vertical only.
template <int F>
void XFMainTail_C(const RowCtx& q, int W, int from) {
  int c = from;
  for (; c < W - F; ++c) {
    const int b = BilinearXF<F>(q, PosInt(c, q.dx), PosFrac(c, q.dx));
    q.out[c] = BlendClamp(q.src[c], b, q.w[c]);
  }
  for (; c < W; ++c) {
    const int x0 = PosInt(c, q.dx);
    const int b = std::min(255, Lerp8(q.s0[x0], q.s1[x0], kFracOne - q.fy, q.fy));
    q.out[c] = BlendClamp(q.src[c], b, q.w[c]);
  }
}

// Bottom rows: horizontal only on row r0, nearest sample in the last F columns.
template <int F>
void XFBottomRow_C(const RowCtx& q, int W) {
  int c = 0;
  for (; c < W - F; ++c) {
    const int x0 = PosInt(c, q.dx);
    const int fx = PosFrac(c, q.dx);
    const int b = std::min(255, Lerp8(q.s0[x0], q.s0[x0 + 1], kFracOne - fx, fx));
    q.out[c] = BlendClamp(q.src[c], b, q.w[c]);
  }
  for (; c < W; ++c) q.out[c] = BlendClamp(q.src[c], q.s0[PosInt(c, q.dx)], q.w[c]);
}

template <int F>
void CompositeXF(const Planes& p, int first, int last, XFBulk bulk) {
  const int dx = p.sw * kPosOne / p.W;
  const int dy = p.sh * kPosOne / p.H;
  const bool at_bottom = last == p.H - 1;
  const int main_last = at_bottom ? p.H - 1 - F : last;
  const int bulk_end = std::max(p.W - F, 0) / kBulkGroup * kBulkGroup;
  RowCtx rows[kMaxRun];
  for (int r = first; r <= main_last;) {
    const int r0 = PosInt(r, dy);
    const int n = RunLength(r, main_last, dy);
    for (int i = 0; i < n; ++i)
      rows[i] = MakeRow(p, r + i, r0, std::min(r0 + 1, p.sh - 1), PosFrac(r + i, dy), dx);
    bulk(rows, n, bulk_end);
    for (int i = 0; i < n; ++i) XFMainTail_C<F>(rows[i], p.W, bulk_end);
    r += n;
  }
  if (!at_bottom) return;
  for (int r = p.H - F; r <= p.H - 1; ++r) {
    const int r0 = PosInt(r, dy);
    XFBottomRow_C<F>(MakeRow(p, r, r0, r0, PosFrac(r, dy), dx), p.W);
  }
}

// ---------------------------------------------------------------- x6 ------

// Bulk helper: blends main-row columns [1, 1 + n) of `count` rows that share
// s0 and s1 with the six-step cycle, n a multiple of 24. The upper weight is
// q.fy ? 256 - q.fy : 0.
using X6Bulk = void (*)(const RowCtx* rows, int count, int n);

// Vertical step with the 8-bit upper weight u = (256 - fy) mod 256: a row
// with fy = 0 gets weights 0 and 0, hence the blurred sample 0.
inline int VerticalX6(int top, int bottom, int fy) {
  return Lerp8(top, bottom, (kFracOne - fy) & (kFracOne - 1), fy);
}

inline int BilinearX6(const RowCtx& q, int x0, int left, int right) {
  const int h0 = Lerp8(q.s0[x0], q.s0[x0 + 1], left, right);
  const int h1 = Lerp8(q.s1[x0], q.s1[x0 + 1], left, right);
  return VerticalX6(h0, h1, q.fy);
}

void X6Bulk_C(const RowCtx* rows, int count, int n) {
  for (int i = 0; i < count; ++i) {
    const RowCtx& q = rows[i];
    for (int c = 1; c <= n; ++c) {
      const int j = (c - 1) % 6;
      const int b = BilinearX6(q, (c - 1) / 6, kX6LeftWeight[j], kX6RightWeight[j]);
      q.out[c] = BlendWrap(q.src[c], b, q.w[c]);
    }
  }
}

// Main row outside the bulk: column 0, then [from, W - 6] from c * dx, then
// the last 5 columns vertical only.
void X6MainEdges_C(const RowCtx& q, int W, int from) {
  q.out[0] = BlendWrap(q.src[0], VerticalX6(q.s0[0], q.s1[0], q.fy), q.w[0]);
  int c = from;
  for (; c <= W - 1 - kX6Edge; ++c) {
    const int fx = PosFrac(c, q.dx);
    q.out[c] = BlendWrap(q.src[c], BilinearX6(q, PosInt(c, q.dx), kFracOne - fx, fx), q.w[c]);
  }
  for (; c < W; ++c) {
    const int x0 = PosInt(c, q.dx);
    q.out[c] = BlendWrap(q.src[c], VerticalX6(q.s0[x0], q.s1[x0], q.fy), q.w[c]);
  }
}

// Row 0 and the bottom rows: horizontal only on row r0, nearest sample in
// column 0 and in the last 5 columns.
void X6HorizontalRow_C(const RowCtx& q, int W) {
  q.out[0] = BlendWrap(q.src[0], q.s0[0], q.w[0]);
  int c = 1;
  for (; c <= W - 1 - kX6Edge; ++c) {
    const int x0 = PosInt(c, q.dx);
    const int fx = PosFrac(c, q.dx);
    q.out[c] = BlendWrap(q.src[c], Lerp8(q.s0[x0], q.s0[x0 + 1], kFracOne - fx, fx), q.w[c]);
  }
  for (; c < W; ++c) q.out[c] = BlendWrap(q.src[c], q.s0[PosInt(c, q.dx)], q.w[c]);
}

void CompositeX6(const Planes& p, int first, int last, X6Bulk bulk) {
  const int dx = p.sw * kPosOne / p.W;
  const int dy = p.sh * kPosOne / p.H;
  const bool at_bottom = last == p.H - 1;
  const int bulk_n = std::max(p.W - 6, 0) / kX6Group * kX6Group;
  if (first == 0) X6HorizontalRow_C(MakeRow(p, 0, 0, 0, 0, dx), p.W);
  const int main_first = first == 0 ? 1 : first;
  const int main_last = at_bottom ? p.H - 1 - kX6Edge : last;
  RowCtx rows[kMaxRun];
  for (int r = main_first; r <= main_last;) {
    const int r0 = PosInt(r, dy);
    const int n = RunLength(r, main_last, dy);
    for (int i = 0; i < n; ++i) rows[i] = MakeRow(p, r + i, r0, r0 + 1, PosFrac(r + i, dy), dx);
    bulk(rows, n, bulk_n);
    for (int i = 0; i < n; ++i) X6MainEdges_C(rows[i], p.W, 1 + bulk_n);
    r += n;
  }
  if (!at_bottom) return;
  for (int r = p.H - kX6Edge; r <= p.H - 1; ++r) {
    const int r0 = PosInt(r, dy);
    X6HorizontalRow_C(MakeRow(p, r, r0, r0, PosFrac(r, dy), dx), p.W);
  }
}

// ------------------------------------------------------------ SSE4.1 ------
#if defined(__SSE4_1__)

inline __m128i Load8(const void* p) { return _mm_loadl_epi64(static_cast<const __m128i*>(p)); }
inline __m128i Load16(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }

// Small-row window of 8 bytes at p, of which only the first `need` are used.
// Past the row's last named sample (avail < 8) only `need` bytes are read.
inline __m128i LoadSamples(const uint8_t* p, int avail, int need) {
  if (avail >= 8) return Load8(p);
  uint8_t buf[8] = {0};
  std::memcpy(buf, p, static_cast<size_t>(need));
  return Load8(buf);
}

// Blend of 8 pixels in 16-bit lanes, exact for w in 0..1024:
// (s*(1024-w) + b*w + 512) >> 10 == s + ((d*w + 512) >> 10) with d = b - s,
// since s*1024 is a multiple of 1024; and mulhrs(d << 5, w) computes
// (d*32*w + 2^14) >> 15 == (d*w + 512) >> 10. |d << 5| <= 8160 and w <= 1024
// both fit int16. Heavier weights may leave 0..255; the caller's packus
// saturates them.
inline __m128i Blend8(__m128i s16, __m128i b16, __m128i w16) {
  const __m128i d = _mm_slli_epi16(_mm_sub_epi16(b16, s16), 5);
  return _mm_add_epi16(s16, _mm_mulhrs_epi16(d, w16));
}

// Blends 8 columns at c with the blurred values b16 and stores them.
inline void BlendStore8(const RowCtx& q, int c, __m128i b16) {
  const __m128i s16 = _mm_cvtepu8_epi16(Load8(q.src + c));
  const __m128i o = Blend8(s16, b16, Load16(q.w + c));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(q.out + c), _mm_packus_epi16(o, o));
}

// Blends 16 columns at c with the blurred values lo (columns c..c+7) and hi.
inline void BlendStore16(const RowCtx& q, int c, __m128i lo, __m128i hi) {
  const __m128i src = Load16(q.src + c);
  const __m128i o_lo = Blend8(_mm_cvtepu8_epi16(src), lo, Load16(q.w + c));
  const __m128i o_hi = Blend8(_mm_unpackhi_epi8(src, _mm_setzero_si128()), hi, Load16(q.w + c + 8));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(q.out + c), _mm_packus_epi16(o_lo, o_hi));
}

// x2: 16 columns share 8 block means, each used twice.
int X2Bulk_SSE41(const RowCtx& q, int W) {
  const __m128i two = _mm_set1_epi16(2);
  int c = 0;
  // Scalar remainder: columns past the last full group of 16 whose 2x2
  // samples k..k+8 are all named (c + 15 <= W - 3).
  for (; c + kX2Group <= W - 2; c += kX2Group) {
    const int k = c >> 1;
    const __m128i a =
        _mm_add_epi16(_mm_cvtepu8_epi16(Load8(q.s0 + k)), _mm_cvtepu8_epi16(Load8(q.s0 + k + 1)));
    const __m128i b =
        _mm_add_epi16(_mm_cvtepu8_epi16(Load8(q.s1 + k)), _mm_cvtepu8_epi16(Load8(q.s1 + k + 1)));
    const __m128i mean = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(a, b), two), 2);
    BlendStore16(q, c, _mm_unpacklo_epi16(mean, mean), _mm_unpackhi_epi16(mean, mean));
  }
  return c;
}

// Byte pairs (left, right) and their weights for one group of 8 columns of
// the phase table of factor F: column i of the group reads samples i / F and
// i / F + 1 with weights (F - i % F, i % F).
struct Table16 {
  int8_t b[16];
};

constexpr Table16 PairShuffleXF(int F) {
  Table16 t{};
  for (int i = 0; i < 8; ++i) {
    t.b[2 * i] = static_cast<int8_t>(i / F);
    t.b[2 * i + 1] = static_cast<int8_t>(i / F + 1);
  }
  return t;
}

constexpr Table16 PairWeightsXF(int F) {
  Table16 t{};
  for (int i = 0; i < 8; ++i) {
    t.b[2 * i] = static_cast<int8_t>(F - i % F);
    t.b[2 * i + 1] = static_cast<int8_t>(i % F);
  }
  return t;
}

inline __m128i LoadTable(const Table16& t) { return Load16(t.b); }

// Horizontally interpolated small rows of one strip of bulk columns, kept
// for every output row of a run: h0 (row r0) and d = h1 - h0 (row r1), both
// in 0..255 resp. -255..255 in 16-bit lanes. 8 KiB on the stack; wider rows
// take several strips.
constexpr int kStrip = 2016;  // a multiple of 16 and of 24
struct StripCache {
  alignas(16) int16_t h0[kStrip];
  alignas(16) int16_t d[kStrip];
};

inline void StoreRows8(StripCache& k, int i, __m128i h0, __m128i h1) {
  _mm_store_si128(reinterpret_cast<__m128i*>(k.h0 + i), h0);
  _mm_store_si128(reinterpret_cast<__m128i*>(k.d + i), _mm_sub_epi16(h1, h0));
}

// Vertical step and blend of strip columns [0, len) at row column c0, len a
// multiple of 8; 16 columns per step, remainder one group of 8.
// (h0*(256-fy) + h1*fy + 128) >> 8 == h0 + ((d*fy + 128) >> 8)
// == h0 + mulhrs(d, fy << 7); fy << 7 <= 32640 fits int16.
inline void VerticalBlendStrip(const RowCtx& q, int c0, int len, const StripCache& k) {
  const __m128i fy7 = _mm_set1_epi16(static_cast<int16_t>(q.fy << 7));
  auto vertical = [&](int i) {
    const __m128i h0 = _mm_load_si128(reinterpret_cast<const __m128i*>(k.h0 + i));
    const __m128i d = _mm_load_si128(reinterpret_cast<const __m128i*>(k.d + i));
    return _mm_add_epi16(h0, _mm_mulhrs_epi16(d, fy7));
  };
  int i = 0;
  for (; i + 16 <= len; i += 16) BlendStore16(q, c0 + i, vertical(i), vertical(i + 8));
  if (i < len) BlendStore8(q, c0 + i, vertical(i));
}

// Horizontal step of the phase table. fx = 256 p / F is a multiple of 256 / F, so
// (L*(256-fx) + R*fx + 128) >> 8 == (L*(F-p) + R*p + F/2) / F: maddubs forms
// the small sum (<= 255 * 8) and mulhrs(x, 32768 / F) == (x + F/2) / F.
// Fills the strip cache for columns [c0, c0 + len) of rows s0 and s1; len a
// multiple of 8, 16 columns per window, remainder one group of 8.
template <int F>
void XFHorizontalStrip(const RowCtx& q, int c0, int len, int named, StripCache& k) {
  static constexpr Table16 kShuffle = PairShuffleXF(F);
  static constexpr Table16 kWeights = PairWeightsXF(F);
  constexpr int kStep = kBulkGroup / F;  // samples per 8 columns
  const __m128i shuffle_lo = LoadTable(kShuffle);
  const __m128i shuffle_hi = _mm_add_epi8(shuffle_lo, _mm_set1_epi8(kStep));
  const __m128i weights = LoadTable(kWeights);
  const __m128i div = _mm_set1_epi16(32768 / F);
  auto horizontal = [&](__m128i samples, __m128i shuffle) {
    const __m128i pairs = _mm_shuffle_epi8(samples, shuffle);
    return _mm_mulhrs_epi16(_mm_maddubs_epi16(pairs, weights), div);
  };
  int i = 0;
  for (; i + 2 * kBulkGroup <= len; i += 2 * kBulkGroup) {
    const int a = (c0 + i) / F;
    const __m128i top = LoadSamples(q.s0 + a, named - a, 2 * kStep + 1);
    const __m128i bottom = LoadSamples(q.s1 + a, named - a, 2 * kStep + 1);
    StoreRows8(k, i, horizontal(top, shuffle_lo), horizontal(bottom, shuffle_lo));
    StoreRows8(k, i + 8, horizontal(top, shuffle_hi), horizontal(bottom, shuffle_hi));
  }
  if (i < len) {
    const int a = (c0 + i) / F;
    const __m128i top = LoadSamples(q.s0 + a, named - a, kStep + 1);
    const __m128i bottom = LoadSamples(q.s1 + a, named - a, kStep + 1);
    StoreRows8(k, i, horizontal(top, shuffle_lo), horizontal(bottom, shuffle_lo));
  }
}

// One horizontal pass per strip and run, then a vertical step per row.
template <int F>
void XFBulk_SSE41(const RowCtx* rows, int count, int end) {
  StripCache k;
  const int named = end > 0 ? (end - 1) / F + 2 : 0;  // samples the rows name
  for (int c0 = 0; c0 < end; c0 += kStrip) {
    const int len = std::min(kStrip, end - c0);
    XFHorizontalStrip<F>(rows[0], c0, len, named, k);
    for (int i = 0; i < count; ++i) VerticalBlendStrip(rows[i], c0, len, k);
  }
}

// x6 groups of 24 columns as three vectors of 8. Column t (0..23) of a group
// reads samples t / 6 and t / 6 + 1 with weights (left, right)[t % 6].
constexpr Table16 PairShuffleX6(int v) {
  Table16 t{};
  for (int i = 0; i < 8; ++i) {
    const int col = 8 * v + i;
    t.b[2 * i] = static_cast<int8_t>(col / 6);
    t.b[2 * i + 1] = static_cast<int8_t>(col / 6 + 1);
  }
  return t;
}

struct UTable16 {
  uint8_t b[16];
};

constexpr UTable16 PairWeightsX6(int v) {
  UTable16 t{};
  for (int i = 0; i < 8; ++i) {
    const int j = (8 * v + i) % 6;
    t.b[2 * i] = static_cast<uint8_t>(kX6LeftWeight[j]);
    t.b[2 * i + 1] = static_cast<uint8_t>(kX6RightWeight[j]);
  }
  return t;
}

// x6 horizontal step with 8-bit weights (left + right = 256, left <= 214 fits
// u8). maddubs takes the weights as unsigned and the samples biased to signed
// (s - 128): the pair sum stays in [-32768, 32512], and adding 0x8080 mod
// 2^16 restores L*left + R*right + 128 <= 65408 for the logical shift.
// Fills the strip cache for bulk columns [1 + g0, 1 + g0 + len), g0 and len
// multiples of 24; no remainder.
void X6HorizontalStrip(const RowCtx& q, int g0, int len, int named, StripCache& k) {
  static constexpr Table16 kShuffle[3] = {PairShuffleX6(0), PairShuffleX6(1), PairShuffleX6(2)};
  static constexpr UTable16 kWeights[3] = {PairWeightsX6(0), PairWeightsX6(1), PairWeightsX6(2)};
  constexpr int kNeed = 5;  // samples per group of 24
  const __m128i bias = _mm_set1_epi8(static_cast<char>(0x80));
  const __m128i unbias = _mm_set1_epi16(static_cast<int16_t>(0x8080));
  auto horizontal = [&](__m128i samples, int v) {
    const __m128i pairs = _mm_shuffle_epi8(samples, LoadTable(kShuffle[v]));
    const __m128i sum = _mm_maddubs_epi16(Load16(kWeights[v].b), pairs);
    return _mm_srli_epi16(_mm_add_epi16(sum, unbias), kFracBits);
  };
  for (int i = 0; i < len; i += kX6Group) {
    const int a = (g0 + i) / 6;
    const __m128i top = _mm_xor_si128(LoadSamples(q.s0 + a, named - a, kNeed), bias);
    const __m128i bottom = _mm_xor_si128(LoadSamples(q.s1 + a, named - a, kNeed), bias);
    for (int v = 0; v < 3; ++v) StoreRows8(k, i + 8 * v, horizontal(top, v), horizontal(bottom, v));
  }
}

// Blends bulk columns [1, 1 + n) with the blurred value 0 (a row with fy = 0).
void X6ZeroRow(const RowCtx& q, int n) {
  int c = 1;
  for (; c + 16 <= 1 + n; c += 16) BlendStore16(q, c, _mm_setzero_si128(), _mm_setzero_si128());
  if (c < 1 + n) BlendStore8(q, c, _mm_setzero_si128());
}

// As XFBulk_SSE41. A row with fy = 0 (the first of its r0, or with tiny dy
// several) has its upper weight wrapped to 0 as well, so it blurs to 0.
void X6Bulk_SSE41(const RowCtx* rows, int count, int n) {
  int blurred = 0;
  for (int i = 0; i < count; ++i) {
    if (rows[i].fy == 0)
      X6ZeroRow(rows[i], n);
    else
      ++blurred;
  }
  if (blurred == 0) return;
  StripCache k;
  const int named = n / 6 + 1;  // samples the rows name
  for (int g0 = 0; g0 < n; g0 += kStrip) {
    const int len = std::min(kStrip, n - g0);
    X6HorizontalStrip(rows[0], g0, len, named, k);
    for (int i = 0; i < count; ++i)
      if (rows[i].fy != 0) VerticalBlendStrip(rows[i], 1 + g0, len, k);
  }
}

constexpr X2Bulk kX2BulkFast = X2Bulk_SSE41;
constexpr XFBulk kX4BulkFast = XFBulk_SSE41<4>;
constexpr XFBulk kX8BulkFast = XFBulk_SSE41<8>;
constexpr X6Bulk kX6BulkFast = X6Bulk_SSE41;

#else  // scalar build: the _neon members run the formula

constexpr X2Bulk kX2BulkFast = X2Bulk_C;
constexpr XFBulk kX4BulkFast = XFBulk_C<4>;
constexpr XFBulk kX8BulkFast = XFBulk_C<8>;
constexpr X6Bulk kX6BulkFast = X6Bulk_C;

#endif  // __SSE4_1__

}  // namespace

DOFRA_BLEND(__CreateOutputImage_Y_x2_neon) {
  CompositeX2(Planes{src, weights, small, out, W, H, sw, sh}, first_row, last_row, kX2BulkFast);
}
DOFRA_BLEND(__CreateOutputImage_Y_x2_c) {
  CompositeX2(Planes{src, weights, small, out, W, H, sw, sh}, first_row, last_row, X2Bulk_C);
}
DOFRA_BLEND(__CreateOutputImage_Y_x4_neon) {
  CompositeXF<4>(Planes{src, weights, small, out, W, H, sw, sh}, first_row, last_row, kX4BulkFast);
}
DOFRA_BLEND(__CreateOutputImage_Y_x4_c) {
  CompositeXF<4>(Planes{src, weights, small, out, W, H, sw, sh}, first_row, last_row, XFBulk_C<4>);
}
DOFRA_BLEND(__CreateOutputImage_Y_x6_neon) {
  CompositeX6(Planes{src, weights, small, out, W, H, sw, sh}, first_row, last_row, kX6BulkFast);
}
DOFRA_BLEND(__CreateOutputImage_Y_x6_c) {
  CompositeX6(Planes{src, weights, small, out, W, H, sw, sh}, first_row, last_row, X6Bulk_C);
}
DOFRA_BLEND(__CreateOutputImage_Y_x8_neon) {
  CompositeXF<8>(Planes{src, weights, small, out, W, H, sw, sh}, first_row, last_row, kX8BulkFast);
}
DOFRA_BLEND(__CreateOutputImage_Y_x8_c) {
  CompositeXF<8>(Planes{src, weights, small, out, W, H, sw, sh}, first_row, last_row, XFBulk_C<8>);
}
