// AVX2 row helpers of the weight-map interpolation (the drivers and the
// scalar formulas are in weight/weight_map.cpp): 32 pixels, or two groups of
// 16, per step; the column interpolation and the group ranges stay with the
// SSE4.1 members, which also take the remainders.
//
// Everything here stays in this file's anonymous namespace: a shared inline
// helper compiled with -mavx2 could be the copy an SSE4.1-only CPU runs.
#include <immintrin.h>

#include <cstdint>

#include "blur/row_kernels.h"

namespace {

constexpr int kGroup = kWeightGroup;

const RowKernels& Sse41() { return RowKernelsAt(SimdLevel::kSse41); }

inline __m256i Load32(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void Store32(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
inline __m256i BothLanes(__m128i lo, __m128i hi) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
}
inline __m256i Broadcast(const void* p) {
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(static_cast<const __m128i*>(p)));
}

// top + ((delta * fy + 128) >> 8) for 16 pixels, as the SSE4.1 member:
// mulhrs(delta, fy << 7) is exactly that rounded product.
inline __m256i DepthOf16(const uint16_t* top, const int16_t* delta, __m256i frac7) {
  return _mm256_add_epi16(Load32(top), _mm256_mulhrs_epi16(Load32(delta), frac7));
}

// 32 depths as bytes, lane-split: pixels 0..7, 16..23 | 8..15, 24..31. The
// in-lane unpacks of the looked-up bytes then give pixels 0..15 and 16..31.
inline __m256i Depths32(const uint16_t* top, const int16_t* delta, __m256i frac7) {
  return _mm256_packus_epi16(DepthOf16(top, delta, frac7), DepthOf16(top + 16, delta + 16, frac7));
}

inline void StoreWeights32(uint16_t* out, __m256i lo, __m256i hi) {
  Store32(out, _mm256_unpacklo_epi8(lo, hi));
  Store32(out + 16, _mm256_unpackhi_epi8(lo, hi));
}

// The SSE4.1 member's distance tables, 32 pixels per step; remainder: the
// SSE4.1 member.
void WeightRowTable_AVX2(const uint16_t* top, const int16_t* delta, int n, int fy,
                         const WeightLut& lut, uint16_t* out) {
  const __m256i lo0 = Broadcast(lut.diff_lo), lo1 = Broadcast(lut.diff_lo + 16);
  const __m256i hi0 = Broadcast(lut.diff_hi), hi1 = Broadcast(lut.diff_hi + 16);
  const __m256i frac7 = _mm256_set1_epi16(static_cast<int16_t>(fy << 7));
  const __m256i low = _mm256_set1_epi8(static_cast<char>(lut.low));
  const __m256i high = _mm256_set1_epi8(static_cast<char>(lut.high));
  const __m256i last = _mm256_set1_epi8(kShortDiffs - 1);
  const __m256i sixteen = _mm256_set1_epi8(kShortDiffs / 2);
  int i = 0;
  for (; i + 2 * kGroup <= n; i += 2 * kGroup) {
    const __m256i v = Depths32(top + i, delta + i, frac7);
    // low <= high, so at most one saturating difference is nonzero.
    const __m256i d =
        _mm256_min_epu8(_mm256_or_si256(_mm256_subs_epu8(low, v), _mm256_subs_epu8(v, high)), last);
    const __m256i upper = _mm256_sub_epi8(d, sixteen);
    const __m256i lo =
        _mm256_xor_si256(_mm256_shuffle_epi8(lo0, d), _mm256_shuffle_epi8(lo1, upper));
    const __m256i hi =
        _mm256_xor_si256(_mm256_shuffle_epi8(hi0, d), _mm256_shuffle_epi8(hi1, upper));
    StoreWeights32(out + i, lo, hi);
  }
  if (i < n) Sse41().weight_row_short(top + i, delta + i, n - i, fy, lut, out + i);
}

// Two groups per step, each lane with the tables of its own group: depths in
// pixel order (one cross-lane permutation), then looked up and interleaved
// in-lane, the two halves swapped back across lanes. Remainder: one group by
// the SSE4.1 member.
void NarrowRow_AVX2(const uint16_t* top, const int16_t* delta, const uint8_t* group_min, int groups,
                    int fy, const WeightLut& lut, uint16_t* out) {
  const __m256i frac7 = _mm256_set1_epi16(static_cast<int16_t>(fy << 7));
  constexpr int kPixelOrder = 0xD8;
  int g = 0;
  for (; g + 2 <= groups; g += 2) {
    const int i = g * kGroup;
    const uint8_t a = group_min[g], b = group_min[g + 1];
    const __m256i lo_table =
        BothLanes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(lut.depth_lo + a)),
                  _mm_loadu_si128(reinterpret_cast<const __m128i*>(lut.depth_lo + b)));
    const __m256i hi_table =
        BothLanes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(lut.depth_hi + a)),
                  _mm_loadu_si128(reinterpret_cast<const __m128i*>(lut.depth_hi + b)));
    const __m256i v = _mm256_permute4x64_epi64(Depths32(top + i, delta + i, frac7), kPixelOrder);
    const __m256i from =
        BothLanes(_mm_set1_epi8(static_cast<char>(a)), _mm_set1_epi8(static_cast<char>(b)));
    const __m256i index = _mm256_sub_epi8(v, from);
    const __m256i lo = _mm256_shuffle_epi8(lo_table, index);
    const __m256i hi = _mm256_shuffle_epi8(hi_table, index);
    const __m256i first = _mm256_unpacklo_epi8(lo, hi), second = _mm256_unpackhi_epi8(lo, hi);
    Store32(out + i, _mm256_permute2x128_si256(first, second, 0x20));
    Store32(out + i + kGroup, _mm256_permute2x128_si256(first, second, 0x31));
  }
  if (g < groups) {
    const int i = g * kGroup;
    Sse41().weight_narrow_row(top + i, delta + i, group_min + g, groups - g, fy, lut, out + i);
  }
}

// 16 entries per store; remainder: the SSE4.1 member.
void FillRow_AVX2(uint16_t* out, int n, uint16_t w) {
  const __m256i value = _mm256_set1_epi16(static_cast<int16_t>(w));
  int i = 0;
  for (; i + 16 <= n; i += 16) Store32(out + i, value);
  if (i < n) Sse41().weight_fill_row(out + i, n - i, w);
}

}  // namespace

void FillWeight_AVX2(RowKernels* k) {
  k->weight_row_short = WeightRowTable_AVX2;
  k->weight_narrow_row = NarrowRow_AVX2;
  k->weight_fill_row = FillRow_AVX2;
}
