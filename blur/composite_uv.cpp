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

using X2BulkFn = void (*)(const RowPtrs& row, const uint8_t* s0, const uint8_t* s1, int pairs);

void X2Bulk_C(const RowPtrs& row, const uint8_t* s0, const uint8_t* s1, int pairs) {
  X2Pairs_C(row, s0, s1, 0, pairs);
}

void CompositeX2(X2BulkFn bulk, const uint8_t* src, int W, int sw, int sh, const uint16_t* weights,
                 const uint8_t* small, uint8_t* out, int first, int last) {
  const int pairs = W / kPair;
  auto do_row = [&](int r, bool clamp) {
    const int r0 = r >> 1;
    const int r1 = clamp && r0 + 1 > sh - 1 ? sh - 1 : r0 + 1;
    const RowPtrs row = RowAt(src, weights, out, W, r);
    const uint8_t* s0 = small + r0 * sw;
    const uint8_t* s1 = small + r1 * sw;
    bulk(row, s0, s1, pairs - 2);
    X2EdgePairs(row, s0, s1, pairs);
  };
  for (int r = first; r <= last - 2; ++r) do_row(r, false);
  // The band's last two rows clamp r1; a one-row band thus also rewrites the
  // row above it (same values), except at row 0.
  for (int r = last - 1 < 0 ? 0 : last - 1; r <= last; ++r) do_row(r, true);
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

using X48BulkFn = void (*)(const RowPtrs& row, const uint8_t* s0, const uint8_t* s1, int fy,
                           int pairs);

template <int F>
void X48Bulk_C(const RowPtrs& row, const uint8_t* s0, const uint8_t* s1, int fy, int pairs) {
  X48PhasePairs_C<F>(row, s0, s1, fy, 0, pairs);
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

// Bottom rows: horizontal only on r0; nearest pair for the last F pairs.
template <int F>
void X48BottomRow(const RowPtrs& row, const uint8_t* s0, int pairs, int dx) {
  for (int p = 0; p < pairs; ++p) {
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

template <int F>
void CompositeX48(X48BulkFn bulk, const uint8_t* src, int W, int H, int sw, int sh,
                  const uint16_t* weights, const uint8_t* small, uint8_t* out, int first,
                  int last) {
  const int dx = sw * 65536 / W;
  const int dy = sh * 65536 / H;
  const int pairs = W / kPair;
  const int bulk_pairs = BulkPairsX48<F>(W);
  const bool bottom = last == H - 1;
  const int main_last = bottom ? H - 1 - F : last;
  for (int r = first; r <= main_last; ++r) {
    const Pos q = PosAt(r, dy);  // r1 = r0 + 1 unclamped: bottom rows are excluded
    const RowPtrs row = RowAt(src, weights, out, W, r);
    const uint8_t* s0 = small + q.x0 * sw;
    const uint8_t* s1 = s0 + sw;
    bulk(row, s0, s1, q.fx, bulk_pairs);
    X48MainTail<F>(row, s0, s1, q.fx, bulk_pairs, pairs, dx);
  }
  if (!bottom) return;
  for (int r = H - F; r <= H - 1; ++r) {
    X48BottomRow<F>(RowAt(src, weights, out, W, r), small + PosAt(r, dy).x0 * sw, pairs, dx);
  }
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

using X6BulkFn = void (*)(const RowPtrs& row, const uint8_t* s0, const uint8_t* s1, int u, int fy,
                          int bulk_pairs);

// Pairs 1..bulk_pairs: x0 = (p - 1) / 6, weights by (p - 1) mod 6.
void X6Bulk_C(const RowPtrs& row, const uint8_t* s0, const uint8_t* s1, int u, int fy,
              int bulk_pairs) {
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

void X6MainRow(X6BulkFn bulk, const RowPtrs& row, const uint8_t* s0, const uint8_t* s1, int fy,
               int pairs, int bulk_pairs, int dx) {
  const int u = (kFracOne - fy) & 255;
  {
    int b[kPair];
    for (int c = 0; c < kPair; ++c) b[c] = X6Vertical(s0[c], s1[c], u, fy);
    PutPair<false>(row, 0, b);
  }
  bulk(row, s0, s1, u, fy, bulk_pairs);
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
  for (int r = main_first; r <= main_last; ++r) {
    const Pos q = PosAt(r, dy);
    const uint8_t* s0 = small + q.x0 * sw;
    X6MainRow(bulk, RowAt(src, weights, out, W, r), s0, s0 + sw, q.fx, pairs, bulk_pairs, dx);
  }
  if (!bottom) return;
  for (int r = H - kX6Edge; r <= H - 1; ++r) {
    X6HorizontalRow(RowAt(src, weights, out, W, r), small + PosAt(r, dy).x0 * sw, pairs, dx);
  }
}

// ---------------------------------------------------------------------------
#if defined(__SSE4_1__)
// Vector bulk: the interleaved plane is processed as is, 16-bit lanes holding
// U, V, U, V...; every phase constant appears twice, once per byte of a pair.

inline __m128i Load32(const uint8_t* p) {
  int32_t v;
  std::memcpy(&v, p, sizeof(v));
  return _mm_cvtsi32_si128(v);
}

// Two small pairs at p as u16 lanes: 32-bit lane 0 = pair 0, lane 1 = pair 1.
inline __m128i LoadTwoPairs(const uint8_t* p) { return _mm_cvtepu8_epi16(Load32(p)); }

// (a * wa + b * wb + 128) >> 8 per u16 lane; wa + wb <= 256 keeps it in 16 bits.
inline __m128i Lerp_SSE41(__m128i a, __m128i b, __m128i wa, __m128i wb) {
  const __m128i sum = _mm_add_epi16(_mm_add_epi16(_mm_mullo_epi16(a, wa), _mm_mullo_epi16(b, wb)),
                                    _mm_set1_epi16(kRound8));
  return _mm_srli_epi16(sum, 8);
}

// Weights of pairs p..p+3, each repeated for both bytes. Loads the odd
// (unused) entries in between, all inside luma row 2r.
inline __m128i PairWeights4(const uint16_t* wt) {
  const __m128i dup = _mm_setr_epi8(0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13);
  return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(wt)), dup);
}

// Blend of 8 bytes as u16 lanes: (s * (1024 - w) + b * w + 512) >> 10 via
// pmaddwd on (s, b) x (1024 - w, w); at most 255 * 1024 + 512, fits in i32.
inline __m128i Blend8_SSE41(__m128i s, __m128i b, __m128i w) {
  const __m128i inv = _mm_sub_epi16(_mm_set1_epi16(kWeightOne), w);
  const __m128i round = _mm_set1_epi32(kRound10);
  const __m128i lo = _mm_madd_epi16(_mm_unpacklo_epi16(s, b), _mm_unpacklo_epi16(inv, w));
  const __m128i hi = _mm_madd_epi16(_mm_unpackhi_epi16(s, b), _mm_unpackhi_epi16(inv, w));
  return _mm_packus_epi32(_mm_srai_epi32(_mm_add_epi32(lo, round), 10),
                          _mm_srai_epi32(_mm_add_epi32(hi, round), 10));
}

// Blends and stores 8 output bytes (4 pairs) starting at pair p.
inline void Store8(const RowPtrs& row, int p, __m128i blurred) {
  const __m128i s =
      _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(row.src + kPair * p)));
  const __m128i v = Blend8_SSE41(s, blurred, PairWeights4(row.wt + kPair * p));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(row.out + kPair * p), _mm_packus_epi16(v, v));
}

// Blends and stores 16 output bytes (8 pairs) starting at pair p.
inline void Store16(const RowPtrs& row, int p, __m128i blurred_lo, __m128i blurred_hi) {
  const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row.src + kPair * p));
  const __m128i zero = _mm_setzero_si128();
  const __m128i lo =
      Blend8_SSE41(_mm_unpacklo_epi8(s, zero), blurred_lo, PairWeights4(row.wt + kPair * p));
  const __m128i hi =
      Blend8_SSE41(_mm_unpackhi_epi8(s, zero), blurred_hi, PairWeights4(row.wt + kPair * (p + 4)));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(row.out + kPair * p), _mm_packus_epi16(lo, hi));
}

constexpr int kX2VecPairs = 8;  // 16 bytes

// Remainder: 8 pairs per step while all fit before the edge pairs, then the
// scalar formula. Small reads: pairs k0..k0+4 of rows r0 and r1, as the formula.
void X2Bulk_SSE41(const RowPtrs& row, const uint8_t* s0, const uint8_t* s1, int pairs) {
  const __m128i two = _mm_set1_epi16(2);
  int p = 0;
  for (; p + kX2VecPairs <= pairs; p += kX2VecPairs) {
    const int k = p;  // byte of small pair p / 2
    auto load8 = [](const uint8_t* q) {
      return _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(q)));
    };
    // Four small pairs, each the sum of its 2x2 block: at most 4 * 255 + 2.
    __m128i sum = _mm_add_epi16(_mm_add_epi16(load8(s0 + k), load8(s0 + k + kPair)),
                                _mm_add_epi16(load8(s1 + k), load8(s1 + k + kPair)));
    sum = _mm_srli_epi16(_mm_add_epi16(sum, two), 2);
    // Each small pair covers two output pairs.
    Store16(row, p, _mm_unpacklo_epi32(sum, sum), _mm_unpackhi_epi32(sum, sum));
  }
  X2Pairs_C(row, s0, s1, p, pairs);
}

// Horizontal lerp of 4 output pairs whose left/right small pairs are picked
// from the 32-bit lanes of v by the shuffle immediates.
template <int kLeft, int kRight>
inline __m128i Horizontal4(__m128i v, __m128i wl, __m128i wr) {
  return Lerp_SSE41(_mm_shuffle_epi32(v, kLeft), _mm_shuffle_epi32(v, kRight), wl, wr);
}

constexpr int kAll0 = 0x00;  // lanes 0,0,0,0
constexpr int kAll1 = 0x55;  // lanes 1,1,1,1
constexpr int kAll2 = 0xAA;  // lanes 2,2,2,2
constexpr int k0011 = 0x50;  // lanes 0,0,1,1
constexpr int k1122 = 0xA5;  // lanes 1,1,2,2

// 8 output bytes (4 pairs) of group g for x4: phases 0, 64, 128, 192.
inline __m128i X4Half(const uint8_t* s0, const uint8_t* s1, int g, __m128i wl, __m128i wr,
                      __m128i wu, __m128i wf) {
  const __m128i h0 = Horizontal4<kAll0, kAll1>(LoadTwoPairs(s0 + kPair * g), wl, wr);
  const __m128i h1 = Horizontal4<kAll0, kAll1>(LoadTwoPairs(s1 + kPair * g), wl, wr);
  return Lerp_SSE41(h0, h1, wu, wf);
}

// Remainder: 16 bytes per step, one 8-byte group if left; bulk_pairs is a
// multiple of 4. Small reads: pairs g and g + 1 of each group, as the formula.
void X4Bulk_SSE41(const RowPtrs& row, const uint8_t* s0, const uint8_t* s1, int fy,
                  int bulk_pairs) {
  const __m128i wr = _mm_setr_epi16(0, 0, 64, 64, 128, 128, 192, 192);
  const __m128i wl = _mm_sub_epi16(_mm_set1_epi16(kFracOne), wr);
  const __m128i wf = _mm_set1_epi16(static_cast<int16_t>(fy));
  const __m128i wu = _mm_set1_epi16(static_cast<int16_t>(kFracOne - fy));
  int p = 0;
  for (; p + 8 <= bulk_pairs; p += 8) {
    const int g = p / 4;
    Store16(row, p, X4Half(s0, s1, g, wl, wr, wu, wf), X4Half(s0, s1, g + 1, wl, wr, wu, wf));
  }
  if (p < bulk_pairs) Store8(row, p, X4Half(s0, s1, p / 4, wl, wr, wu, wf));
}

// Remainder: none; bulk_pairs is a multiple of 8, one group of 8 pairs per
// step with phases 0, 32, ..., 224. Small reads: pairs g and g + 1.
void X8Bulk_SSE41(const RowPtrs& row, const uint8_t* s0, const uint8_t* s1, int fy,
                  int bulk_pairs) {
  const __m128i wr_lo = _mm_setr_epi16(0, 0, 32, 32, 64, 64, 96, 96);
  const __m128i wr_hi = _mm_setr_epi16(128, 128, 160, 160, 192, 192, 224, 224);
  const __m128i one = _mm_set1_epi16(kFracOne);
  const __m128i wl_lo = _mm_sub_epi16(one, wr_lo);
  const __m128i wl_hi = _mm_sub_epi16(one, wr_hi);
  const __m128i wf = _mm_set1_epi16(static_cast<int16_t>(fy));
  const __m128i wu = _mm_set1_epi16(static_cast<int16_t>(kFracOne - fy));
  for (int p = 0; p < bulk_pairs; p += 8) {
    const int g = p / 8;
    const __m128i v0 = LoadTwoPairs(s0 + kPair * g);
    const __m128i v1 = LoadTwoPairs(s1 + kPair * g);
    const __m128i lo = Lerp_SSE41(Horizontal4<kAll0, kAll1>(v0, wl_lo, wr_lo),
                                  Horizontal4<kAll0, kAll1>(v1, wl_lo, wr_lo), wu, wf);
    const __m128i hi = Lerp_SSE41(Horizontal4<kAll0, kAll1>(v0, wl_hi, wr_hi),
                                  Horizontal4<kAll0, kAll1>(v1, wl_hi, wr_hi), wu, wf);
    Store16(row, p, lo, hi);
  }
}

// Three small pairs g, g+1, g+2 as u16 lanes (32-bit lanes 0, 1, 2); reads
// exactly their 6 bytes.
inline __m128i LoadThreePairs(const uint8_t* p) {
  uint16_t last;
  std::memcpy(&last, p + 2 * kPair, sizeof(last));
  return _mm_cvtepu8_epi16(_mm_insert_epi16(Load32(p), last, 2));
}

// Remainder: none; the bulk is whole groups of 12 pairs (24 bytes), done as
// three 8-byte parts: cycle steps 0-3 | 4,5 and 0,1 of the next x0 | 2-5.
void X6Bulk_SSE41(const RowPtrs& row, const uint8_t* s0, const uint8_t* s1, int u, int fy,
                  int bulk_pairs) {
  const __m128i wr0 = _mm_setr_epi16(42, 42, 85, 85, 127, 127, 170, 170);
  const __m128i wl0 = _mm_setr_epi16(214, 214, 171, 171, 129, 129, 86, 86);
  const __m128i wr1 = _mm_setr_epi16(213, 213, 255, 255, 42, 42, 85, 85);
  const __m128i wl1 = _mm_setr_epi16(43, 43, 1, 1, 214, 214, 171, 171);
  const __m128i wr2 = _mm_setr_epi16(127, 127, 170, 170, 213, 213, 255, 255);
  const __m128i wl2 = _mm_setr_epi16(129, 129, 86, 86, 43, 43, 1, 1);
  const __m128i wf = _mm_set1_epi16(static_cast<int16_t>(fy));
  const __m128i wu = _mm_set1_epi16(static_cast<int16_t>(u));
  for (int p = 1; p + kX6GroupPairs - 1 <= bulk_pairs; p += kX6GroupPairs) {
    const int x = kPair * ((p - 1) / kX6Cycle);
    const __m128i v0 = LoadThreePairs(s0 + x);
    const __m128i v1 = LoadThreePairs(s1 + x);
    const __m128i a = Lerp_SSE41(Horizontal4<kAll0, kAll1>(v0, wl0, wr0),
                                 Horizontal4<kAll0, kAll1>(v1, wl0, wr0), wu, wf);
    const __m128i b = Lerp_SSE41(Horizontal4<k0011, k1122>(v0, wl1, wr1),
                                 Horizontal4<k0011, k1122>(v1, wl1, wr1), wu, wf);
    const __m128i c = Lerp_SSE41(Horizontal4<kAll1, kAll2>(v0, wl2, wr2),
                                 Horizontal4<kAll1, kAll2>(v1, wl2, wr2), wu, wf);
    Store16(row, p, a, b);
    Store8(row, p + 8, c);
  }
}
#endif  // __SSE4_1__

}  // namespace

DOFRA_BLEND(__CreateOutputImage_UV_x2_c) {
  (void)H;
  CompositeX2(X2Bulk_C, src, W, sw, sh, weights, small, out, first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x4_c) {
  CompositeX48<4>(X48Bulk_C<4>, src, W, H, sw, sh, weights, small, out, first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x6_c) {
  CompositeX6(X6Bulk_C, src, W, H, sw, sh, weights, small, out, first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x8_c) {
  CompositeX48<8>(X48Bulk_C<8>, src, W, H, sw, sh, weights, small, out, first_row, last_row);
}

#if defined(__SSE4_1__)
DOFRA_BLEND(__CreateOutputImage_UV_x2_neon) {
  (void)H;
  CompositeX2(X2Bulk_SSE41, src, W, sw, sh, weights, small, out, first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x4_neon) {
  CompositeX48<4>(X4Bulk_SSE41, src, W, H, sw, sh, weights, small, out, first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x6_neon) {
  CompositeX6(X6Bulk_SSE41, src, W, H, sw, sh, weights, small, out, first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x8_neon) {
  CompositeX48<8>(X8Bulk_SSE41, src, W, H, sw, sh, weights, small, out, first_row, last_row);
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
