// SSE4.1 row helpers of the weight-map interpolation and the depth range
// (the drivers and the scalar formulas are in weight/weight_map.cpp and
// weight/depth_table.cpp).
#include <smmintrin.h>

#include <cstdint>

#include "kernels/weight_loops.h"

namespace dofra {

namespace {

constexpr int kVec = 16;

// (a * (256 - f) + b * f + 128) >> 8 == a + (((b - a) * f + 128) >> 8), as
// a * 256 is a whole multiple of 256; and mulhrs(x, f << 7) ==
// (x * f * 128 + 2^14) >> 15 == (x * f + 128) >> 8 for |x| <= 255, f <= 255:
// both operands fit in i16 (f << 7 <= 32640), the result is floored.
inline __m128i Lerp16_SSE41(__m128i a, __m128i delta, __m128i frac7) {
  return _mm_add_epi16(a, _mm_mulhrs_epi16(delta, frac7));
}

// Depths of 16 pixels as bytes, from the pixels' top rows t0, t1 and
// differences d0, d1 (8 pixels each).
inline __m128i Depths16(__m128i t0, __m128i t1, __m128i d0, __m128i d1, __m128i frac7) {
  return _mm_packus_epi16(Lerp16_SSE41(t0, d0, frac7), Lerp16_SSE41(t1, d1, frac7));
}

inline __m128i Load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }

// Streaming stores need 16-byte alignment, which a row may lack.
template <bool kStream>
inline void Put(uint16_t* out, __m128i v) {
  if (kStream && (reinterpret_cast<uintptr_t>(out) & 15) == 0)
    _mm_stream_si128(reinterpret_cast<__m128i*>(out), v);
  else
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), v);
}

template <bool kStream>
inline void Store16Weights(uint16_t* out, __m128i lo, __m128i hi) {
  Put<kStream>(out, _mm_unpacklo_epi8(lo, hi));
  Put<kStream>(out + 8, _mm_unpackhi_epi8(lo, hi));
}

// Table lookup by byte shuffles: 16 pixels per step, the distance clamped to
// 31 and looked up in two 16-entry tables per byte of the weight: the first
// by d (its low 4 bits), the second by d - 16, which wraps to a set top bit
// (a zero lookup) for d < 16. Remainder: the scalar formula on the last
// columns.
template <bool kStream>
void WeightRowTable(const uint16_t* top, const int16_t* delta, int from, int to,
                    const WeightRow& row, const WeightLut& lut) {
  const __m128i lo0 = Load(lut.diff_lo), lo1 = Load(lut.diff_lo + 16);
  const __m128i hi0 = Load(lut.diff_hi), hi1 = Load(lut.diff_hi + 16);
  const __m128i low = _mm_set1_epi8(static_cast<char>(lut.low));
  const __m128i high = _mm_set1_epi8(static_cast<char>(lut.high));
  const __m128i last = _mm_set1_epi8(kShortDiffs - 1);
  const __m128i sixteen = _mm_set1_epi8(kShortDiffs / 2);
  const __m128i frac7 = _mm_set1_epi16(static_cast<int16_t>(row.fy << 7));
  int j = from;
  for (; j + kGroup <= to; j += kGroup) {
    const __m128i v =
        Depths16(Load(top + j), Load(top + j + 8), Load(delta + j), Load(delta + j + 8), frac7);
    // low <= high, so at most one saturating difference is nonzero.
    const __m128i d =
        _mm_min_epu8(_mm_or_si128(_mm_subs_epu8(low, v), _mm_subs_epu8(v, high)), last);
    const __m128i upper = _mm_sub_epi8(d, sixteen);
    const __m128i lo = _mm_xor_si128(_mm_shuffle_epi8(lo0, d), _mm_shuffle_epi8(lo1, upper));
    const __m128i hi = _mm_xor_si128(_mm_shuffle_epi8(hi0, d), _mm_shuffle_epi8(hi1, upper));
    Store16Weights<kStream>(row.out + j, lo, hi);
  }
  if (j < to) ScalarRowKernels().weight_row(top, delta, j, to, row, lut);
}

void WeightRowTable_SSE41(const uint16_t* top, const int16_t* delta, int from, int to,
                          const WeightRow& row, const WeightLut& lut) {
  (row.stream ? WeightRowTable<true> : WeightRowTable<false>)(top, delta, from, to, row, lut);
}

// Per group, the weights of its 16 depths from group_min on are loaded as
// shuffle tables and indexed by v - group_min (0..15). Whole groups only.
void NarrowRow_SSE41(const uint16_t* top, const int16_t* delta, const uint8_t* group_min, int from,
                     int to, const WeightRow& row, const WeightLut& lut) {
  const __m128i frac7 = _mm_set1_epi16(static_cast<int16_t>(row.fy << 7));
  for (int j = from; j < to; j += kGroup) {
    const uint8_t base = group_min[j / kGroup];
    const __m128i lo_table = Load(lut.depth_lo + base), hi_table = Load(lut.depth_hi + base);
    const __m128i at = _mm_set1_epi8(static_cast<char>(base));
    const __m128i index = _mm_sub_epi8(
        Depths16(Load(top + j), Load(top + j + 8), Load(delta + j), Load(delta + j + 8), frac7),
        at);
    Store16Weights<false>(row.out + j, _mm_shuffle_epi8(lo_table, index),
                          _mm_shuffle_epi8(hi_table, index));
  }
}

// Remainder: the scalar formula on the last n mod 8 pixels.
template <bool kStream>
void Fill(uint16_t* out, int n, uint16_t w) {
  const __m128i value = _mm_set1_epi16(static_cast<int16_t>(w));
  int i = 0;
  for (; i + 8 <= n; i += 8) Put<kStream>(out + i, value);
  if (i < n) ScalarRowKernels().weight_fill_row(out + i, n - i, w, false);
}

void FillRow_SSE41(uint16_t* out, int n, uint16_t w, bool stream) {
  (stream ? Fill<true> : Fill<false>)(out, n, w);
}

void StreamFence_SSE41() { _mm_sfence(); }

// One group's depths in one row, 8 per vector: the two samples of every
// column gathered by shuffles from one 16-byte load.
void LerpGroup_SSE41(const uint8_t* row, const ColumnTable& c, int g, __m128i* lo, __m128i* hi) {
  const __m128i src = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + c.load_at[g]));
  const __m128i a =
      _mm_shuffle_epi8(src, _mm_load_si128(reinterpret_cast<const __m128i*>(c.pick0[g])));
  const __m128i b =
      _mm_shuffle_epi8(src, _mm_load_si128(reinterpret_cast<const __m128i*>(c.pick1[g])));
  const __m128i zero = _mm_setzero_si128();
  const __m128i a_lo = _mm_cvtepu8_epi16(a), a_hi = _mm_unpackhi_epi8(a, zero);
  const __m128i b_lo = _mm_cvtepu8_epi16(b), b_hi = _mm_unpackhi_epi8(b, zero);
  const __m128i* frac7 = reinterpret_cast<const __m128i*>(c.frac7[g]);
  *lo = Lerp16_SSE41(a_lo, _mm_sub_epi16(b_lo, a_lo), _mm_load_si128(frac7));
  *hi = Lerp16_SSE41(a_hi, _mm_sub_epi16(b_hi, a_hi), _mm_load_si128(frac7 + 1));
}

// Remainder: the scalar formula on the last columns and on groups whose
// samples do not fit one load.
void LerpPair_SSE41(const uint8_t* row0, const uint8_t* row1, const ColumnTable& c, int from,
                    int to, uint16_t* top, int16_t* delta) {
  LerpPairWalk(row0, row1, c, from, to, top, delta, ScalarRowKernels().weight_lerp_pair,
               [&](int g, int j) {
                 __m128i t0, t1, b0, b1;
                 LerpGroup_SSE41(row0, c, g, &t0, &t1);
                 LerpGroup_SSE41(row1, c, g, &b0, &b1);
                 _mm_storeu_si128(reinterpret_cast<__m128i*>(top + j), t0);
                 _mm_storeu_si128(reinterpret_cast<__m128i*>(top + j + 8), t1);
                 _mm_storeu_si128(reinterpret_cast<__m128i*>(delta + j), _mm_sub_epi16(b0, t0));
                 _mm_storeu_si128(reinterpret_cast<__m128i*>(delta + j + 8), _mm_sub_epi16(b1, t1));
               });
}

// Folds the 16 lanes into lane 0 by halving four times.
template <typename Op>
__m128i ReduceLanes(__m128i v, Op op) {
  v = op(v, _mm_srli_si128(v, 8));
  v = op(v, _mm_srli_si128(v, 4));
  v = op(v, _mm_srli_si128(v, 2));
  return op(v, _mm_srli_si128(v, 1));
}

void MinMaxBody_SSE41(const uint8_t* src, int body, uint8_t* min_out, uint8_t* max_out) {
  __m128i vmin = _mm_set1_epi8(static_cast<char>(0xFF));
  __m128i vmax = _mm_setzero_si128();
  for (int i = 0; i < body; i += kVec) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    vmin = _mm_min_epu8(vmin, v);
    vmax = _mm_max_epu8(vmax, v);
  }
  vmin = ReduceLanes(vmin, [](__m128i a, __m128i b) { return _mm_min_epu8(a, b); });
  vmax = ReduceLanes(vmax, [](__m128i a, __m128i b) { return _mm_max_epu8(a, b); });
  *min_out = static_cast<uint8_t>(_mm_extract_epi8(vmin, 0));
  *max_out = static_cast<uint8_t>(_mm_extract_epi8(vmax, 0));
}

}  // namespace

void FillWeight_SSE41(RowKernels* k) {
  k->weight_row_short = WeightRowTable_SSE41;
  k->weight_narrow_row = NarrowRow_SSE41;
  k->weight_fill_row = FillRow_SSE41;
  k->weight_stream_fence = StreamFence_SSE41;
  k->weight_lerp_pair = LerpPair_SSE41;
  k->depth_min_max_body = MinMaxBody_SSE41;
}

}  // namespace dofra
