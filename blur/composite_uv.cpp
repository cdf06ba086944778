// Chroma compositing: enlarge the smoothed small chroma plane on the fly and
// blend it with the sharp chroma plane under the luma weight map, one band of
// chroma rows per call. Positions count pairs; every formula runs on the
// first bytes of the pairs and, separately, on the second bytes. A pair's
// weight is the luma entry of the upper-left pixel of its block: row 2r,
// column 2p, with the frame width W as stride.
//
// Bilinear steps are 8-bit fractions: a + b weights sum to 256, so
// 255 * 256 + 128 = 65408 fits in an unsigned 16-bit lane.
#include <cstdint>
#include <cstring>

#include "blur/blend.h"
#include "blur/kernels.h"

#if defined(__SSE4_1__)
#include <smmintrin.h>
#endif

namespace {

constexpr int kPair = 2;       // bytes per pair
constexpr int kFracOne = 256;  // 8-bit fraction scale
constexpr int kRound8 = 128;

// The source, weight and output rows of one chroma row.
struct RowPtrs {
  const uint8_t* src;
  const uint16_t* wt;  // luma row 2r; pair p reads wt[2p]
  uint8_t* out;
};

inline RowPtrs RowAt(const uint8_t* src, const uint16_t* weights, uint8_t* out, int W, int r) {
  return {src + r * W, weights + 2 * r * W, out + r * W};
}

// Pair positions in 16.16: pair index, fraction of the next pair (8 bits).
struct Pos {
  int x0;
  int fx;
};
inline Pos PosAt(int p, int step) {
  const int pos = p * step;
  return {pos >> 16, (pos >> 8) & 255};
}

inline int Lerp(int a, int b, int wa, int wb) { return (a * wa + b * wb + kRound8) >> 8; }

// Blends both bytes of pair p with blurred bytes b[0], b[1].
template <bool kClamp>
inline void PutPair(const RowPtrs& row, int p, const int* b) {
  const int wt = row.wt[kPair * p];
  for (int c = 0; c < kPair; ++c) {
    const int i = kPair * p + c;
    row.out[i] = kClamp ? BlendClamp(row.src[i], b[c], wt) : BlendWrap(row.src[i], b[c], wt);
  }
}

// Consecutive output rows that read the same two small rows. Their
// horizontal steps are equal, so a vector bulk computes them once per column
// group and runs the rows inside; only fy, source, weights and output differ.
// Capped so the run lives on the stack; a split run only recomputes.
constexpr int kMaxRun = 16;
struct Run {
  const uint8_t* s0;
  const uint8_t* s1;
  int n;
  int fy[kMaxRun];
  RowPtrs row[kMaxRun];
};

// Small rows and vertical fraction of one output row.
struct RowSource {
  const uint8_t* s0;
  const uint8_t* s1;
  int fy;
};

// Rows [r_begin, r_end] in order, cut into runs sharing (s0, s1); `source`
// maps a row to its RowSource, `emit` handles one run.
template <typename SourceFn, typename EmitFn>
void ForEachRun(const uint8_t* src, const uint16_t* weights, uint8_t* out, int W, int r_begin,
                int r_end, SourceFn source, EmitFn emit) {
  Run run{};
  for (int r = r_begin; r <= r_end; ++r) {
    const RowSource rs = source(r);
    if (run.n == kMaxRun || (run.n > 0 && (rs.s0 != run.s0 || rs.s1 != run.s1))) {
      emit(run);
      run.n = 0;
    }
    run.s0 = rs.s0;
    run.s1 = rs.s1;
    run.fy[run.n] = rs.fy;
    run.row[run.n] = RowAt(src, weights, out, W, r);
    ++run.n;
  }
  if (run.n > 0) emit(run);
}

// ---------------------------------------------------------------------------
// x2: the four pairs of a 2x2 block of pairs share the mean of the 2x2 block
// of small pairs at halved coordinates (a half-pair shift, not interpolation).

// Pairs [p_begin, p_end): (P[r0][k] + P[r0][k+1] + P[r1][k] + P[r1][k+1] + 2) >> 2.
void X2Pairs_C(const RowPtrs& row, const uint8_t* s0, const uint8_t* s1, int p_begin, int p_end) {
  for (int p = p_begin; p < p_end; ++p) {
    const int k = kPair * (p >> 1);
    int b[kPair];
    for (int c = 0; c < kPair; ++c) {
      b[c] = (s0[k + c] + s0[k + kPair + c] + s1[k + c] + s1[k + kPair + c] + 2) >> 2;
    }
    PutPair<false>(row, p, b);
  }
}

// The last two pairs: k + 1 would lie past a half-width row, so only the
// vertical pair counts, (2 * P[r0][k] + 2 * P[r1][k] + 2) >> 2.
void X2EdgePairs(const RowPtrs& row, const uint8_t* s0, const uint8_t* s1, int pairs) {
  for (int p = pairs - 2; p < pairs; ++p) {
    const int k = kPair * (p >> 1);
    int b[kPair];
    for (int c = 0; c < kPair; ++c) b[c] = (2 * s0[k + c] + 2 * s1[k + c] + 2) >> 2;
    PutPair<false>(row, p, b);
  }
}

using X2BulkFn = void (*)(const Run& run, int pairs);

void X2Bulk_C(const Run& run, int pairs) {
  for (int i = 0; i < run.n; ++i) X2Pairs_C(run.row[i], run.s0, run.s1, 0, pairs);
}

void CompositeX2(X2BulkFn bulk, const uint8_t* src, int W, int sw, int sh, const uint16_t* weights,
                 const uint8_t* small, uint8_t* out, int first, int last) {
  const int pairs = W / kPair;
  // The band's last two rows clamp r1; a one-row band thus also rewrites the
  // row above it (same values), except at row 0, which the frame check never
  // hands it (its row above would lie outside the plane). The rows written
  // are one consecutive range.
  const int r_begin = first < last - 1 ? first : (last - 1 < 0 ? 0 : last - 1);
  auto source = [&](int r) {
    const int r0 = r >> 1;
    const int r1 = r >= last - 1 && r0 + 1 > sh - 1 ? sh - 1 : r0 + 1;
    return RowSource{small + r0 * sw, small + r1 * sw, 0};
  };
  ForEachRun(src, weights, out, W, r_begin, last, source, [&](const Run& run) {
    bulk(run, pairs - 2);
    for (int i = 0; i < run.n; ++i) X2EdgePairs(run.row[i], run.s0, run.s1, pairs);
  });
}

// ---------------------------------------------------------------------------
// x4 and x8: bilinear with 8-bit fractions, clamped blend. The bulk takes its
// phase from the pair number (x0 = p / F, fx = (p mod F) * 256 / F).

template <int F>
int BulkPairsX48(int W) {
  constexpr int kGroupBytes = F == 4 ? 8 : 16;
  return (W - kPair * F) / kGroupBytes * kGroupBytes / kPair;
}

// Main-row pairs [p_begin, p_end) with the phase of the pair number.
template <int F>
void X48PhasePairs_C(const RowPtrs& row, const uint8_t* s0, const uint8_t* s1, int fy, int p_begin,
                     int p_end) {
  for (int p = p_begin; p < p_end; ++p) {
    const int x = kPair * (p / F);
    const int fx = (p % F) * kFracOne / F;
    int b[kPair];
    for (int c = 0; c < kPair; ++c) {
      const int h0 = Lerp(s0[x + c], s0[x + kPair + c], kFracOne - fx, fx);
      const int h1 = Lerp(s1[x + c], s1[x + kPair + c], kFracOne - fx, fx);
      const int v = Lerp(h0, h1, kFracOne - fy, fy);
      b[c] = v > 255 ? 255 : v;
    }
    PutPair<true>(row, p, b);
  }
}

using X48BulkFn = void (*)(const Run& run, int pairs);

template <int F>
void X48Bulk_C(const Run& run, int pairs) {
  for (int i = 0; i < run.n; ++i)
    X48PhasePairs_C<F>(run.row[i], run.s0, run.s1, run.fy[i], 0, pairs);
}

// Main row beyond the bulk: pairs up to W/2 - F - 1 from p * dx, then the
// last F pairs vertical only.
template <int F>
void X48MainTail(const RowPtrs& row, const uint8_t* s0, const uint8_t* s1, int fy, int p_begin,
                 int pairs, int dx) {
  for (int p = p_begin; p < pairs; ++p) {
    const Pos q = PosAt(p, dx);
    const int x = kPair * q.x0;
    const bool edge = p >= pairs - F;
    int b[kPair];
    for (int c = 0; c < kPair; ++c) {
      int v;
      if (edge) {
        v = Lerp(s0[x + c], s1[x + c], kFracOne - fy, fy);
      } else {
        const int h0 = Lerp(s0[x + c], s0[x + kPair + c], kFracOne - q.fx, q.fx);
        const int h1 = Lerp(s1[x + c], s1[x + kPair + c], kFracOne - q.fx, q.fx);
        v = Lerp(h0, h1, kFracOne - fy, fy);
      }
      b[c] = v > 255 ? 255 : v;
    }
    PutPair<true>(row, p, b);
  }
}

// Bottom rows from pair p_begin: horizontal only on r0; nearest pair for the
// last F pairs.
template <int F>
void X48BottomRow(const RowPtrs& row, const uint8_t* s0, int p_begin, int pairs, int dx) {
  for (int p = p_begin; p < pairs; ++p) {
    const Pos q = PosAt(p, dx);
    const int x = kPair * q.x0;
    int b[kPair];
    for (int c = 0; c < kPair; ++c) {
      const int v =
          p >= pairs - F ? s0[x + c] : Lerp(s0[x + c], s0[x + kPair + c], kFracOne - q.fx, q.fx);
      b[c] = v > 255 ? 255 : v;
    }
    PutPair<true>(row, p, b);
  }
}

// A vector member may also run its bulk on the bottom rows: with fy = 0 and
// r1 = r0 the vertical step returns h0 exactly, and when dx is 65536 / F the
// positions p * dx equal the phase table. The _c members pass false.
template <int F>
void CompositeX48(X48BulkFn bulk, bool bulk_bottom, const uint8_t* src, int W, int H, int sw,
                  int sh, const uint16_t* weights, const uint8_t* small, uint8_t* out, int first,
                  int last) {
  const int dx = sw * 65536 / W;
  const int dy = sh * 65536 / H;
  const int pairs = W / kPair;
  const int bulk_pairs = BulkPairsX48<F>(W);
  const bool bottom = last == H - 1;
  const int main_last = bottom ? H - 1 - F : last;
  auto main_source = [&](int r) {
    const Pos q = PosAt(r, dy);  // r1 = r0 + 1 unclamped: bottom rows are excluded
    const uint8_t* s0 = small + q.x0 * sw;
    return RowSource{s0, s0 + sw, q.fx};
  };
  ForEachRun(src, weights, out, W, first, main_last, main_source, [&](const Run& run) {
    bulk(run, bulk_pairs);
    for (int i = 0; i < run.n; ++i) {
      X48MainTail<F>(run.row[i], run.s0, run.s1, run.fy[i], bulk_pairs, pairs, dx);
    }
  });
  if (!bottom) return;
  const int bottom_bulk = bulk_bottom && dx == 65536 / F ? bulk_pairs : 0;
  auto bottom_source = [&](int r) {
    const uint8_t* s0 = small + PosAt(r, dy).x0 * sw;
    return RowSource{s0, s0, 0};
  };
  ForEachRun(src, weights, out, W, H - F, H - 1, bottom_source, [&](const Run& run) {
    if (bottom_bulk > 0) bulk(run, bottom_bulk);
    for (int i = 0; i < run.n; ++i) X48BottomRow<F>(run.row[i], run.s0, bottom_bulk, pairs, dx);
  });
}

// ---------------------------------------------------------------------------
// x6: 8-bit weights; the upper weight u = (256 - fy) mod 256 wraps, so a row
// whose fy is 0 blurs towards 0 (kept). Row 0 and pair 0 have their own rules.

constexpr int kX6Edge = 5;
constexpr int kX6Cycle = 6;
constexpr int kX6GroupPairs = 12;  // 24 bytes
// Fractions of c * 10922 for c = 1..6; the cycle does not drift.
constexpr int kX6Right[kX6Cycle] = {42, 85, 127, 170, 213, 255};
constexpr int kX6Left[kX6Cycle] = {214, 171, 129, 86, 43, 1};

int BulkPairsX6(int W) { return kX6GroupPairs * ((W - 12) / 24); }

inline int X6Vertical(int a, int b, int u, int fy) { return Lerp(a, b, u, fy); }

inline int X6Upper(int fy) { return (kFracOne - fy) & 255; }

using X6BulkFn = void (*)(const Run& run, int bulk_pairs);

// Pairs 1..bulk_pairs: x0 = (p - 1) / 6, weights by (p - 1) mod 6.
void X6Pairs_C(const RowPtrs& row, const uint8_t* s0, const uint8_t* s1, int fy, int bulk_pairs) {
  const int u = X6Upper(fy);
  for (int p = 1; p <= bulk_pairs; ++p) {
    const int x = kPair * ((p - 1) / kX6Cycle);
    const int i = (p - 1) % kX6Cycle;
    int b[kPair];
    for (int c = 0; c < kPair; ++c) {
      const int h0 = Lerp(s0[x + c], s0[x + kPair + c], kX6Left[i], kX6Right[i]);
      const int h1 = Lerp(s1[x + c], s1[x + kPair + c], kX6Left[i], kX6Right[i]);
      b[c] = X6Vertical(h0, h1, u, fy);
    }
    PutPair<false>(row, p, b);
  }
}

void X6Bulk_C(const Run& run, int bulk_pairs) {
  for (int i = 0; i < run.n; ++i) X6Pairs_C(run.row[i], run.s0, run.s1, run.fy[i], bulk_pairs);
}

// Horizontal-only row (row 0 and the bottom rows): pair 0 and the last 5
// pairs nearest, the rest from p * dx with left weight 256 - fx.
void X6HorizontalRow(const RowPtrs& row, const uint8_t* s0, int pairs, int dx) {
  for (int p = 0; p < pairs; ++p) {
    const Pos q = PosAt(p, dx);
    const int x = kPair * q.x0;
    const bool nearest = p == 0 || p >= pairs - kX6Edge;
    int b[kPair];
    for (int c = 0; c < kPair; ++c) {
      b[c] = nearest ? s0[x + c] : Lerp(s0[x + c], s0[x + kPair + c], kFracOne - q.fx, q.fx);
    }
    PutPair<false>(row, p, b);
  }
}

// Main row outside the bulk: pair 0, then pairs bulk_pairs + 1 on.
void X6MainEdges(const RowPtrs& row, const uint8_t* s0, const uint8_t* s1, int fy, int pairs,
                 int bulk_pairs, int dx) {
  const int u = X6Upper(fy);
  {
    int b[kPair];
    for (int c = 0; c < kPair; ++c) b[c] = X6Vertical(s0[c], s1[c], u, fy);
    PutPair<false>(row, 0, b);
  }
  for (int p = bulk_pairs + 1; p < pairs; ++p) {
    const Pos q = PosAt(p, dx);
    const int x = kPair * q.x0;
    const bool edge = p >= pairs - kX6Edge;
    int b[kPair];
    for (int c = 0; c < kPair; ++c) {
      if (edge) {
        b[c] = X6Vertical(s0[x + c], s1[x + c], u, fy);
      } else {
        const int h0 = Lerp(s0[x + c], s0[x + kPair + c], kFracOne - q.fx, q.fx);
        const int h1 = Lerp(s1[x + c], s1[x + kPair + c], kFracOne - q.fx, q.fx);
        b[c] = X6Vertical(h0, h1, u, fy);
      }
    }
    PutPair<false>(row, p, b);
  }
}

void CompositeX6(X6BulkFn bulk, const uint8_t* src, int W, int H, int sw, int sh,
                 const uint16_t* weights, const uint8_t* small, uint8_t* out, int first, int last) {
  const int dx = sw * 65536 / W;
  const int dy = sh * 65536 / H;
  const int pairs = W / kPair;
  const int bulk_pairs = BulkPairsX6(W);
  const bool bottom = last == H - 1;
  if (first == 0) X6HorizontalRow(RowAt(src, weights, out, W, 0), small, pairs, dx);
  const int main_first = first == 0 ? 1 : first;
  const int main_last = bottom ? H - 1 - kX6Edge : last;
  auto source = [&](int r) {
    const Pos q = PosAt(r, dy);
    const uint8_t* s0 = small + q.x0 * sw;
    return RowSource{s0, s0 + sw, q.fx};
  };
  ForEachRun(src, weights, out, W, main_first, main_last, source, [&](const Run& run) {
    bulk(run, bulk_pairs);
    for (int i = 0; i < run.n; ++i) {
      X6MainEdges(run.row[i], run.s0, run.s1, run.fy[i], pairs, bulk_pairs, dx);
    }
  });
  if (!bottom) return;
  for (int r = H - kX6Edge; r <= H - 1; ++r) {
    X6HorizontalRow(RowAt(src, weights, out, W, r), small + PosAt(r, dy).x0 * sw, pairs, dx);
  }
}

// ---------------------------------------------------------------------------
#if defined(__SSE4_1__)
// Vector bulk, 8 pairs (16 bytes) per vector pair: the U bytes and the V
// bytes of the pairs sit in two vectors of u16 lanes, lane j for pair j, so
// that one vector of pair weights serves both channels and the channels never
// meet until the final interleave.

inline __m128i Load16(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline __m128i Load8(const void* p) { return _mm_loadl_epi64(static_cast<const __m128i*>(p)); }

struct Table16 {
  int8_t b[16];
};
struct UTable16 {
  uint8_t b[16];
};
inline __m128i LoadTable(const Table16& t) { return Load16(t.b); }
inline __m128i LoadTable(const UTable16& t) { return Load16(t.b); }

// 16 small-row bytes at p of which `avail` (> 0) are named: a full load only
// while all 16 lie inside what the row names, else a zero-padded copy.
inline __m128i LoadWindow(const uint8_t* p, int avail) {
  if (avail >= 16) return Load16(p);
  uint8_t buf[16] = {0};
  std::memcpy(buf, p, static_cast<size_t>(avail));
  return Load16(buf);
}

// Weights of pairs p..p+7 (wt = luma row 2r + 2p) as u16 lanes: the even
// entries of 16 loaded ones, masked and packed. The odd entries read in
// between lie in the same luma row.
inline __m128i PairWeights8(const uint16_t* wt) {
  const __m128i even = _mm_set1_epi32(0xFFFF);
  return _mm_packus_epi32(_mm_and_si128(Load16(wt), even), _mm_and_si128(Load16(wt + 8), even));
}

// Pairs p..p+3 in lanes 0..3 from 8 entries.
inline __m128i PairWeights4(const uint16_t* wt) {
  return _mm_packus_epi32(_mm_and_si128(Load16(wt), _mm_set1_epi32(0xFFFF)), _mm_setzero_si128());
}

// (s*(1024-w) + b*w + 512) >> 10 == s + ((b-s)*w + 512) >> 10, s*1024 being
// a multiple of 1024; mulhrs(d << 5, w) = (d*32*w + 2^14) >> 15 is exactly
// that shift. |d << 5| <= 8160 and w <= 1024 both fit int16.
inline __m128i Blend(__m128i s, __m128i b, __m128i w) {
  return _mm_add_epi16(s, _mm_mulhrs_epi16(_mm_slli_epi16(_mm_sub_epi16(b, s), 5), w));
}

// (h0*(256-fy) + h1*fy + 128) >> 8 == h0 + ((h1-h0)*fy + 128) >> 8
// == h0 + mulhrs(h1 - h0, fy << 7); fy << 7 <= 32640 fits int16.
inline __m128i Vertical(__m128i h0, __m128i h1, __m128i fy7) {
  return _mm_add_epi16(h0, _mm_mulhrs_epi16(_mm_sub_epi16(h1, h0), fy7));
}

// U lanes and V lanes back to pairs; packus saturates (only weights above
// 1024 can leave 0..255).
inline __m128i Interleave(__m128i u, __m128i v) {
  const __m128i zip = _mm_setr_epi8(0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15);
  return _mm_shuffle_epi8(_mm_packus_epi16(u, v), zip);
}

// Blends pairs p..p+7 with blurred U lanes u and V lanes v and stores them.
inline void BlendStore16(const RowPtrs& row, int p, __m128i u, __m128i v) {
  const __m128i s = Load16(row.src + kPair * p);
  const __m128i w = PairWeights8(row.wt + kPair * p);
  const __m128i su = _mm_and_si128(s, _mm_set1_epi16(0xFF));
  const __m128i sv = _mm_srli_epi16(s, 8);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(row.out + kPair * p),
                   Interleave(Blend(su, u, w), Blend(sv, v, w)));
}

// Pairs p..p+3 from lanes 0..3.
inline void BlendStore8(const RowPtrs& row, int p, __m128i u, __m128i v) {
  const __m128i s = Load8(row.src + kPair * p);
  const __m128i w = PairWeights4(row.wt + kPair * p);
  const __m128i su = _mm_and_si128(s, _mm_set1_epi16(0xFF));
  const __m128i sv = _mm_srli_epi16(s, 8);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(row.out + kPair * p),
                   Interleave(Blend(su, u, w), Blend(sv, v, w)));
}

// Shuffle picking, for lane j, the channel-c bytes of small pairs
// first[j] and first[j] + 1 of a window (pairs 2 bytes apart).
struct LaneFirst {
  int pair[8];
};
constexpr Table16 PairShuffle(LaneFirst f, int c) {
  Table16 t{};
  for (int j = 0; j < 8; ++j) {
    t.b[2 * j] = static_cast<int8_t>(kPair * f.pair[j] + c);
    t.b[2 * j + 1] = static_cast<int8_t>(kPair * f.pair[j] + kPair + c);
  }
  return t;
}

// ---- x2: lane j (pair p + j, p even) reads small pairs j/2 and j/2 + 1.
constexpr LaneFirst kX2First = {{0, 0, 1, 1, 2, 2, 3, 3}};

// Remainder: 8 pairs per step while all fit, then the scalar formula. The
// 2x2 mean has no fraction, so the run's rows share it outright.
void X2Bulk_SSE41(const Run& run, int pairs) {
  static constexpr Table16 kShufU = PairShuffle(kX2First, 0);
  static constexpr Table16 kShufV = PairShuffle(kX2First, 1);
  const __m128i shuf_u = LoadTable(kShufU), shuf_v = LoadTable(kShufV);
  const __m128i ones = _mm_set1_epi8(1), two = _mm_set1_epi16(2);
  const int named = pairs > 0 ? kPair * (((pairs - 1) >> 1) + 2) : 0;
  // Sum of a 2x2 block: at most 4 * 255 + 2, fits u16.
  auto mean = [&](__m128i top, __m128i bottom, __m128i shuf) {
    const __m128i sum = _mm_add_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(top, shuf), ones),
                                      _mm_maddubs_epi16(_mm_shuffle_epi8(bottom, shuf), ones));
    return _mm_srli_epi16(_mm_add_epi16(sum, two), 2);
  };
  int p = 0;
  for (; p + 8 <= pairs; p += 8) {
    const int a = p;  // byte of small pair p / 2
    const __m128i top = LoadWindow(run.s0 + a, named - a);
    const __m128i bottom = LoadWindow(run.s1 + a, named - a);
    const __m128i u = mean(top, bottom, shuf_u), v = mean(top, bottom, shuf_v);
    for (int i = 0; i < run.n; ++i) BlendStore16(run.row[i], p, u, v);
  }
  for (int i = 0; i < run.n; ++i) X2Pairs_C(run.row[i], run.s0, run.s1, p, pairs);
}

// ---- x4, x8: lane j (pair p + j, p a multiple of F or of 4) reads small
// pairs j/F and j/F + 1 with phase j mod F. fx = 256 i / F, so
// (L*(256-fx) + R*fx + 128) >> 8 == (L*(F-i) + R*i + F/2) / F: maddubs forms
// the small sum (<= 255 * 8) and mulhrs(x, 32768 / F) == (x + F/2) >> log2 F.
constexpr LaneFirst PhaseFirst(int F) {
  LaneFirst f{};
  for (int j = 0; j < 8; ++j) f.pair[j] = j / F;
  return f;
}
constexpr Table16 PhaseWeights(int F) {
  Table16 t{};
  for (int j = 0; j < 8; ++j) {
    t.b[2 * j] = static_cast<int8_t>(F - j % F);
    t.b[2 * j + 1] = static_cast<int8_t>(j % F);
  }
  return t;
}

// Remainder: 8 pairs per step, then one group of 4 (x4's bulk_pairs is a
// multiple of 4, x8's of 8). The window of small pairs p/F.. is read only as
// far as the bulk names (pair (bulk_pairs - 1) / F + 1).
// Per column group the four horizontal vectors are formed once and stay in
// registers while the run's rows take their vertical step and blend.
template <int F>
void X48Bulk_SSE41(const Run& run, int bulk_pairs) {
  static constexpr Table16 kShufU = PairShuffle(PhaseFirst(F), 0);
  static constexpr Table16 kShufV = PairShuffle(PhaseFirst(F), 1);
  static constexpr Table16 kWeights = PhaseWeights(F);
  const __m128i shuf_u = LoadTable(kShufU), shuf_v = LoadTable(kShufV);
  const __m128i weights = LoadTable(kWeights);
  const __m128i div = _mm_set1_epi16(32768 / F);
  const int named = bulk_pairs > 0 ? kPair * ((bulk_pairs - 1) / F + 2) : 0;
  __m128i fy7[kMaxRun];
  for (int i = 0; i < run.n; ++i) fy7[i] = _mm_set1_epi16(static_cast<int16_t>(run.fy[i] << 7));
  auto horizontal = [&](__m128i window, __m128i shuf) {
    return _mm_mulhrs_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(window, shuf), weights), div);
  };
  // Blends pairs p.. of every row of the run with `store` (16 or 8 bytes).
  auto group = [&](int p, auto store) {
    const int a = kPair * (p / F);
    const __m128i top = LoadWindow(run.s0 + a, named - a);
    const __m128i bottom = LoadWindow(run.s1 + a, named - a);
    const __m128i u0 = horizontal(top, shuf_u), u1 = horizontal(bottom, shuf_u);
    const __m128i v0 = horizontal(top, shuf_v), v1 = horizontal(bottom, shuf_v);
    for (int i = 0; i < run.n; ++i) {
      store(run.row[i], p, Vertical(u0, u1, fy7[i]), Vertical(v0, v1, fy7[i]));
    }
  };
  int p = 0;
  for (; p + 8 <= bulk_pairs; p += 8) group(p, BlendStore16);
  if (p < bulk_pairs) group(p, BlendStore8);
}

// ---- x6: a block of 24 pairs (two groups of 12) from pair 1 + 24b reads
// small pairs 4b..4b+4 (10 bytes, one window); its pair 1 + 24b + q has
// x0 = 4b + q/6 and cycle step q mod 6. Part v holds q = 8v..8v+7; a lone
// last group of 12 uses part 0 and lanes 0..3 of part 1.
constexpr int kX6Parts = 3;
constexpr int kX6BlockPairs = 8 * kX6Parts;
constexpr LaneFirst X6First(int part) {
  LaneFirst f{};
  for (int j = 0; j < 8; ++j) f.pair[j] = (8 * part + j) / kX6Cycle;
  return f;
}
constexpr UTable16 X6Weights(int part) {
  UTable16 t{};
  for (int j = 0; j < 8; ++j) {
    const int i = (8 * part + j) % kX6Cycle;
    t.b[2 * j] = static_cast<uint8_t>(kX6Left[i]);
    t.b[2 * j + 1] = static_cast<uint8_t>(kX6Right[i]);
  }
  return t;
}

// Horizontal step with 8-bit weights (left + right = 256, both fit u8).
// maddubs takes the weights unsigned and the samples biased to signed
// (s - 128): the sum L*left + R*right - 32768 stays in [-32768, 32512], and
// adding 0x8080 mod 2^16 gives L*left + R*right + 128 <= 65408 for the shift.
// Remainder: the bulk is whole groups of 12 pairs; blocks of 24 (three full
// vectors), then at most one group of 12 as 16 + 8 bytes. Each part's four
// horizontal vectors serve all rows of the run before the next part.
void X6Bulk_SSE41(const Run& run, int bulk_pairs) {
  static constexpr Table16 kShuf[kX6Parts][2] = {
      {PairShuffle(X6First(0), 0), PairShuffle(X6First(0), 1)},
      {PairShuffle(X6First(1), 0), PairShuffle(X6First(1), 1)},
      {PairShuffle(X6First(2), 0), PairShuffle(X6First(2), 1)}};
  static constexpr UTable16 kWeights[kX6Parts] = {X6Weights(0), X6Weights(1), X6Weights(2)};
  const __m128i bias = _mm_set1_epi8(static_cast<char>(0x80));
  const __m128i unbias = _mm_set1_epi16(static_cast<int16_t>(0x8080));
  const int named = bulk_pairs > 0 ? kPair * ((bulk_pairs - 1) / kX6Cycle + 2) : 0;
  // u = 256 - fy except on fy = 0 rows, whose u wraps to 0: they blur to 0.
  __m128i fy7[kMaxRun];
  for (int i = 0; i < run.n; ++i) fy7[i] = _mm_set1_epi16(static_cast<int16_t>(run.fy[i] << 7));
  auto horizontal = [&](__m128i window, int part, int c) {
    const __m128i shuf = LoadTable(kShuf[part][c]);
    const __m128i sum =
        _mm_maddubs_epi16(LoadTable(kWeights[part]), _mm_shuffle_epi8(window, shuf));
    return _mm_srli_epi16(_mm_add_epi16(sum, unbias), 8);
  };
  auto part_rows = [&](__m128i top, __m128i bottom, int part, int p, auto store) {
    const __m128i u0 = horizontal(top, part, 0), u1 = horizontal(bottom, part, 0);
    const __m128i v0 = horizontal(top, part, 1), v1 = horizontal(bottom, part, 1);
    for (int i = 0; i < run.n; ++i) {
      if (run.fy[i] == 0) {
        store(run.row[i], p, _mm_setzero_si128(), _mm_setzero_si128());
      } else {
        store(run.row[i], p, Vertical(u0, u1, fy7[i]), Vertical(v0, v1, fy7[i]));
      }
    }
  };
  auto windows = [&](int p, __m128i* top, __m128i* bottom) {
    const int a = kPair * ((p - 1) / kX6Cycle);
    *top = _mm_xor_si128(LoadWindow(run.s0 + a, named - a), bias);
    *bottom = _mm_xor_si128(LoadWindow(run.s1 + a, named - a), bias);
  };
  __m128i top, bottom;
  int p = 1;
  for (; p + kX6BlockPairs - 1 <= bulk_pairs; p += kX6BlockPairs) {
    windows(p, &top, &bottom);
    for (int part = 0; part < kX6Parts; ++part)
      part_rows(top, bottom, part, p + 8 * part, BlendStore16);
  }
  if (p + kX6GroupPairs - 1 <= bulk_pairs) {
    windows(p, &top, &bottom);
    part_rows(top, bottom, 0, p, BlendStore16);
    part_rows(top, bottom, 1, p + 8, BlendStore8);
  }
}
#endif  // __SSE4_1__

}  // namespace

DOFRA_BLEND(__CreateOutputImage_UV_x2_c) {
  (void)H;
  CompositeX2(X2Bulk_C, src, W, sw, sh, weights, small, out, first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x4_c) {
  CompositeX48<4>(X48Bulk_C<4>, false, src, W, H, sw, sh, weights, small, out, first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x6_c) {
  CompositeX6(X6Bulk_C, src, W, H, sw, sh, weights, small, out, first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x8_c) {
  CompositeX48<8>(X48Bulk_C<8>, false, src, W, H, sw, sh, weights, small, out, first_row, last_row);
}

#if defined(__SSE4_1__)
DOFRA_BLEND(__CreateOutputImage_UV_x2_neon) {
  (void)H;
  CompositeX2(X2Bulk_SSE41, src, W, sw, sh, weights, small, out, first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x4_neon) {
  CompositeX48<4>(X48Bulk_SSE41<4>, true, src, W, H, sw, sh, weights, small, out, first_row,
                  last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x6_neon) {
  CompositeX6(X6Bulk_SSE41, src, W, H, sw, sh, weights, small, out, first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x8_neon) {
  CompositeX48<8>(X48Bulk_SSE41<8>, true, src, W, H, sw, sh, weights, small, out, first_row,
                  last_row);
}
#else
DOFRA_BLEND(__CreateOutputImage_UV_x2_neon) {
  __CreateOutputImage_UV_x2_c(src, W, H, sw, sh, weights, small, out, first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x4_neon) {
  __CreateOutputImage_UV_x4_c(src, W, H, sw, sh, weights, small, out, first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x6_neon) {
  __CreateOutputImage_UV_x6_c(src, W, H, sw, sh, weights, small, out, first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x8_neon) {
  __CreateOutputImage_UV_x8_c(src, W, H, sw, sh, weights, small, out, first_row, last_row);
}
#endif
