// 128-bit steps of the refined map's row helpers, shared by its SSE4.1 and
// AVX2 units under the walk of kernels/refine_loops.h. Include only from
// those units: everything here has internal linkage, so each unit keeps its
// own copy built with its own flags.
#ifndef DOFRA_KERNELS_X86_REFINE_X86_H
#define DOFRA_KERNELS_X86_REFINE_X86_H

#include <smmintrin.h>

#include <cstdint>

#include "kernels/fixed_point.h"
#include "kernels/refine_loops.h"

namespace dofra {

namespace {

constexpr int kLanes = 8;  // 16-bit lanes of a 128-bit step

inline __m128i Load128(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline __m128i Load64(const void* p) { return _mm_loadl_epi64(static_cast<const __m128i*>(p)); }
inline void Store128(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

// ---- Gathers. A shuffle control whose 16-bit lane holds 0x80 in its upper
// byte and an index 0..15 in its lower one reads that byte of a 16-byte load
// zero-extended into the lane.
constexpr int16_t kZeroUpper = static_cast<int16_t>(0x8000);

// Lane k: ix[x + k] - base (ix1 likewise); below 16 where Gathers() holds.
struct Picks {
  __m128i left, right;
};
inline __m128i PickOf8(const int32_t* ix, int x, int base) {
  const __m128i b = _mm_set1_epi32(base);
  const __m128i lo = _mm_sub_epi32(Load128(ix + x), b), hi = _mm_sub_epi32(Load128(ix + x + 4), b);
  return _mm_or_si128(_mm_packs_epi32(lo, hi), _mm_set1_epi16(kZeroUpper));
}
inline Picks PicksOf8(const RefineColumns& cols, int x, int base) {
  return {PickOf8(cols.ix, x, base), PickOf8(cols.ix1, x, base)};
}
// 16 bytes from the sample at `base`: the plane's pad keeps them readable.
inline __m128i Gather8(const uint8_t* plane, int base, __m128i pick) {
  return _mm_shuffle_epi8(Load128(plane + base), pick);
}

// V and U of the chroma pairs of 8 pixels from x: bytes (x + k) & ~1 and
// (x + k) | 1, from one load ending at the last byte needed (or starting at
// the row's start); rows at least 16 wide (RefineWalk) keep it inside.
inline void Chroma8(const uint8_t* chroma, int x, __m128i* v, __m128i* u) {
  const int last = (x + kLanes - 1) | 1;
  const int start = last >= 15 ? last - 15 : 0;
  const __m128i at = _mm_set1_epi16(static_cast<int16_t>(kZeroUpper | ((x & ~1) - start)));
  const __m128i src = Load128(chroma + start);
  const bool odd = x & 1;
  const __m128i pv =
      odd ? _mm_setr_epi16(0, 2, 2, 4, 4, 6, 6, 8) : _mm_setr_epi16(0, 0, 2, 2, 4, 4, 6, 6);
  const __m128i pu =
      odd ? _mm_setr_epi16(1, 3, 3, 5, 5, 7, 7, 9) : _mm_setr_epi16(1, 1, 3, 3, 5, 5, 7, 7);
  *v = _mm_shuffle_epi8(src, _mm_add_epi16(pv, at));
  *u = _mm_shuffle_epi8(src, _mm_add_epi16(pu, at));
}

// ---- Arithmetic, 16-bit lanes.

// min(|y - sy| + ((cw * (|v - sv| + |u - su|)) >> 2), 255): at most
// 255 + (8 * 510 >> 2) = 1275, no lane overflows.
inline __m128i Distance8(__m128i y, __m128i v, __m128i u, __m128i sy, __m128i sv, __m128i su,
                         __m128i cw) {
  const __m128i chroma =
      _mm_add_epi16(_mm_abs_epi16(_mm_sub_epi16(v, sv)), _mm_abs_epi16(_mm_sub_epi16(u, su)));
  const __m128i d = _mm_add_epi16(_mm_abs_epi16(_mm_sub_epi16(y, sy)),
                                  _mm_srli_epi16(_mm_mullo_epi16(chroma, cw), 2));
  return _mm_min_epi16(d, _mm_set1_epi16(255));
}

// range[d] for 16 byte distances: each chunk of 16 entries by the low
// nibble, kept where the high nibble names the chunk; chunks past the last
// nonzero entry read 0.
inline __m128i RangeOf16(__m128i d, const RefineTables& t) {
  const __m128i nibble = _mm_set1_epi8(15);
  const __m128i low = _mm_and_si128(d, nibble);
  const __m128i high = _mm_and_si128(_mm_srli_epi16(d, 4), nibble);
  __m128i r = _mm_setzero_si128();
  for (int c = 0; c < t.range_chunks; ++c) {
    const __m128i part =
        _mm_shuffle_epi8(_mm_load_si128(reinterpret_cast<const __m128i*>(t.range) + c), low);
    r = _mm_or_si128(
        r, _mm_and_si128(part, _mm_cmpeq_epi8(high, _mm_set1_epi8(static_cast<char>(c)))));
  }
  return r;
}

// (a * (256 - f) + b * f + 128) >> 8 == a + (((b - a) * f + 128) >> 8) as
// a * 256 is a whole multiple of 256, and mulhrs(x, f << 7) ==
// (x * f * 128 + 2^14) >> 15 == (x * f + 128) >> 8 (floored) for |x| <= 255;
// f << 7 <= 32640 fits int16.
inline __m128i Lerp8(__m128i a, __m128i b, __m128i frac7) {
  return _mm_add_epi16(a, _mm_mulhrs_epi16(_mm_sub_epi16(b, a), frac7));
}

// w * d summed into 32-bit lanes (lo: lanes 0..3, hi: 4..7); w < 2^16,
// d <= 255, a product < 2^24.
inline void AddProduct8(__m128i w, __m128i d, __m128i* lo, __m128i* hi) {
  const __m128i low = _mm_mullo_epi16(w, d), high = _mm_mulhi_epu16(w, d);
  *lo = _mm_add_epi32(*lo, _mm_unpacklo_epi16(low, high));
  *hi = _mm_add_epi32(*hi, _mm_unpackhi_epi16(low, high));
}

// floor(n / s) for 0 <= n < 2^24 and 1 <= s < 2^16, both exact in floats:
// the quotient (< 256) is correctly rounded, off by at most 2^-16 while a
// fraction part is at least 1 / s > 2^-16, so truncating it gives the floor
// or, where n / s lies just below an integer, one more; n - q * s < 0 then.
inline __m128i Divide4(__m128i n, __m128i s) {
  const __m128i q = _mm_cvttps_epi32(_mm_div_ps(_mm_cvtepi32_ps(n), _mm_cvtepi32_ps(s)));
  const __m128i r = _mm_sub_epi32(n, _mm_mullo_epi32(q, s));
  return _mm_add_epi32(q, _mm_srai_epi32(r, 31));
}

// (weighted + sum / 2) / sum for 8 lanes; lanes with sum 0 are left to the
// caller (divided by 1 here).
inline __m128i Quotient8(__m128i weighted_lo, __m128i weighted_hi, __m128i sum) {
  const __m128i zero = _mm_setzero_si128(), one = _mm_set1_epi32(1);
  const __m128i half = _mm_srli_epi16(sum, 1);
  const __m128i n_lo = _mm_add_epi32(weighted_lo, _mm_unpacklo_epi16(half, zero));
  const __m128i n_hi = _mm_add_epi32(weighted_hi, _mm_unpackhi_epi16(half, zero));
  const __m128i s_lo = _mm_max_epi32(_mm_unpacklo_epi16(sum, zero), one);
  const __m128i s_hi = _mm_max_epi32(_mm_unpackhi_epi16(sum, zero), one);
  return _mm_packs_epi32(Divide4(n_lo, s_lo), Divide4(n_hi, s_hi));
}

// The weights of 8 depths (16-bit lanes, 0..255) stored at out: the plain
// map's distance tables (outside [low, high], clamped to 31, looked up by
// two shuffles per byte as kernels/x86/weight_sse41.cpp does), or the table
// itself lane by lane where it has none.
inline void StoreWeights8(uint16_t* out, __m128i depth, const WeightLut& lut) {
  if (!lut.short_table) {
    alignas(16) uint16_t d[kLanes];
    _mm_store_si128(reinterpret_cast<__m128i*>(d), depth);
    for (int k = 0; k < kLanes; ++k) out[k] = lut.by_depth[d[k]];
    return;
  }
  const __m128i below = _mm_sub_epi16(_mm_set1_epi16(static_cast<int16_t>(lut.low)), depth);
  const __m128i above = _mm_sub_epi16(depth, _mm_set1_epi16(static_cast<int16_t>(lut.high)));
  const __m128i dist16 =
      _mm_min_epi16(_mm_max_epi16(_mm_max_epi16(below, above), _mm_setzero_si128()),
                    _mm_set1_epi16(kShortDiffs - 1));
  const __m128i dist = _mm_packus_epi16(dist16, dist16);
  const __m128i upper = _mm_sub_epi8(dist, _mm_set1_epi8(kShortDiffs / 2));
  const __m128i lo = _mm_xor_si128(_mm_shuffle_epi8(Load128(lut.diff_lo), dist),
                                   _mm_shuffle_epi8(Load128(lut.diff_lo + 16), upper));
  const __m128i hi = _mm_xor_si128(_mm_shuffle_epi8(Load128(lut.diff_hi), dist),
                                   _mm_shuffle_epi8(Load128(lut.diff_hi + 16), upper));
  Store128(out, _mm_unpacklo_epi8(lo, hi));
}

// The four samples' depths of 8 columns, bilinearly.
inline __m128i BilinearOf8(const __m128i depth[4], __m128i fx7, __m128i fy7) {
  return Lerp8(Lerp8(depth[0], depth[1], fx7), Lerp8(depth[2], depth[3], fx7), fy7);
}

// Per row: the vertical bilinear weights (by << 7; the upper one is 256 when
// fy is 0, which does not fit: then the upper weights are bx themselves).
struct RowWeights {
  bool flat;  // fy == 0
  __m128i by0_7, by1_7, fy7, chroma_weight;
};
inline RowWeights RowWeightsOf(const RefineRow& row, const RefineTables& t) {
  return {row.fy == 0, _mm_set1_epi16(static_cast<int16_t>((kFracOne - row.fy) << 7)),
          _mm_set1_epi16(static_cast<int16_t>(row.fy << 7)),
          _mm_set1_epi16(static_cast<int16_t>(row.fy << 7)),
          _mm_set1_epi16(static_cast<int16_t>(t.chroma_weight))};
}

// The joint depth of 8 columns from x (16-bit lanes): four gathered samples,
// their weights (bilinear x range x purity, each rounded as the formula
// does), one division; plain bilinear where every weight is 0.
inline __m128i JointDepth8(const RefineRow& row, const RefineColumns& cols, const RefineTables& t,
                           const RowWeights& rw, int x) {
  const int base = cols.ix[x];
  const Picks picks = PicksOf8(cols, x, base);
  const __m128i y = _mm_cvtepu8_epi16(Load64(row.luma + x));
  __m128i v, u;
  Chroma8(row.chroma, x, &v, &u);
  const __m128i fx = _mm_cvtepu8_epi16(Load64(cols.fx + x));
  const __m128i bx[2] = {_mm_sub_epi16(_mm_set1_epi16(kFracOne), fx), fx};
  __m128i depth[4], distance[4], purity[4];
  for (int k = 0; k < 4; ++k) {
    const SampleRow& s = k < 2 ? row.top : row.bottom;
    const __m128i pick = k & 1 ? picks.right : picks.left;
    depth[k] = Gather8(s.depth, base, pick);
    purity[k] = Gather8(s.purity, base, pick);
    distance[k] = Distance8(y, v, u, Gather8(s.y, base, pick), Gather8(s.v, base, pick),
                            Gather8(s.u, base, pick), rw.chroma_weight);
  }
  const __m128i zero = _mm_setzero_si128();
  const __m128i r01 = RangeOf16(_mm_packus_epi16(distance[0], distance[1]), t);
  const __m128i r23 = RangeOf16(_mm_packus_epi16(distance[2], distance[3]), t);
  const __m128i range[4] = {_mm_unpacklo_epi8(r01, zero), _mm_unpackhi_epi8(r01, zero),
                            _mm_unpacklo_epi8(r23, zero), _mm_unpackhi_epi8(r23, zero)};
  __m128i sum = zero, weighted_lo = zero, weighted_hi = zero;
  for (int k = 0; k < 4; ++k) {
    // (range * purity + 128) >> 8: the product < 65281 fits 16 bits.
    const __m128i rp = _mm_srli_epi16(
        _mm_add_epi16(_mm_mullo_epi16(range[k], purity[k]), _mm_set1_epi16(kRound8)), kFracBits);
    const __m128i b = k >= 2    ? _mm_mulhrs_epi16(bx[k & 1], rw.by1_7)
                      : rw.flat ? bx[k]
                                : _mm_mulhrs_epi16(bx[k & 1], rw.by0_7);
    // b <= 256, rp <= 254; the four b add up to at most 258, so the four
    // weights to at most 258 * 254 < 65536: a 16-bit sum.
    const __m128i w = _mm_mullo_epi16(b, rp);
    sum = _mm_add_epi16(sum, w);
    AddProduct8(w, depth[k], &weighted_lo, &weighted_hi);
  }
  const __m128i joint = Quotient8(weighted_lo, weighted_hi, sum);
  const __m128i bilinear = BilinearOf8(depth, _mm_slli_epi16(fx, 7), rw.fy7);
  return _mm_blendv_epi8(joint, bilinear, _mm_cmpeq_epi16(sum, zero));
}

// The bilinear depth of 8 columns from x whose samples load at `base`.
inline __m128i BilinearDepth8(const RefineRow& row, const RefineColumns& cols, __m128i fy7, int x,
                              int base) {
  const Picks picks = PicksOf8(cols, x, base);
  const __m128i depth[4] = {
      Gather8(row.top.depth, base, picks.left), Gather8(row.top.depth, base, picks.right),
      Gather8(row.bottom.depth, base, picks.left), Gather8(row.bottom.depth, base, picks.right)};
  return BilinearOf8(depth, _mm_slli_epi16(_mm_cvtepu8_epi16(Load64(cols.fx + x)), 7), fy7);
}

}  // namespace

}  // namespace dofra

#endif  // DOFRA_KERNELS_X86_REFINE_X86_H
