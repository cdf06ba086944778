// 128-bit steps of the luma shrink, shared by its SSE4.1 and AVX2 units under
// the row loops of kernels/shrink_y_loops.h. Include only from those units:
// everything here has internal linkage, so each unit keeps its own copy
// built with its own flags.
#ifndef DOFRA_KERNELS_X86_SHRINK_Y_X86_H
#define DOFRA_KERNELS_X86_SHRINK_Y_X86_H

#include <smmintrin.h>

#include <cstdint>

#include "kernels/shrink_y_loops.h"

namespace dofra {

namespace {

inline __m128i Load16(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
inline void Store8(uint8_t* p, __m128i v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v); }

// Eight 16-bit sums (< 2048) to eight rounded bytes.
template <int kFactor>
inline __m128i RoundPack8(__m128i sums) {
  const __m128i round = _mm_set1_epi16(TapRound(kFactor));
  const __m128i v = _mm_srli_epi16(_mm_add_epi16(sums, round), TapShift(kFactor));
  return _mm_packus_epi16(v, v);
}

// Factor 2, 16 samples -> 8: the even and odd bytes as words, then
// _mm_avg_epu16, which is exactly (a + b + 1) >> 1.
inline __m128i Halve16(__m128i v) {
  const __m128i even = _mm_and_si128(v, _mm_set1_epi16(0xFF));
  const __m128i odd = _mm_srli_epi16(v, 8);
  return _mm_avg_epu16(even, odd);
}

// Factor 4, 32 samples -> 8: pairwise sums twice (<= 4 * 255, no overflow
// in the signed horizontal add).
inline __m128i Quarter32(const uint8_t* p) {
  const __m128i ones = _mm_set1_epi8(1);
  const __m128i a = _mm_maddubs_epi16(Load16(p), ones);
  const __m128i b = _mm_maddubs_epi16(Load16(p + 16), ones);
  return RoundPack8<4>(_mm_hadd_epi16(a, b));
}

// Four registers each holding two sums in their 64-bit lanes to eight
// words in order: unsigned packs keep the values (< 2048) and drop the
// zero upper halves.
inline __m128i GatherSums(__m128i s0, __m128i s1, __m128i s2, __m128i s3) {
  return _mm_packus_epi32(_mm_packus_epi32(s0, s1), _mm_packus_epi32(s2, s3));
}

// Factor 6, 48 samples -> 8. Each shuffle lays two groups a, b out as
// a0..a5 a2 a3 | b0..b5 b2 b3 so that a sum of absolute differences against
// zero yields the weighted sums with taps 1,1,2,2,1,1. The fourth load
// starts at 32, not 36, so it ends on the 48th sample and never past it.
inline __m128i Sixth48(const uint8_t* p) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i pairs = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 2, 3, 6, 7, 8, 9, 10, 11, 8, 9);
  const __m128i last = _mm_setr_epi8(4, 5, 6, 7, 8, 9, 6, 7, 10, 11, 12, 13, 14, 15, 12, 13);
  const __m128i s0 = _mm_sad_epu8(_mm_shuffle_epi8(Load16(p), pairs), zero);
  const __m128i s1 = _mm_sad_epu8(_mm_shuffle_epi8(Load16(p + 12), pairs), zero);
  const __m128i s2 = _mm_sad_epu8(_mm_shuffle_epi8(Load16(p + 24), pairs), zero);
  const __m128i s3 = _mm_sad_epu8(_mm_shuffle_epi8(Load16(p + 32), last), zero);
  return RoundPack8<6>(GatherSums(s0, s1, s2, s3));
}

// Factor 8, 64 samples -> 8: each sum of absolute differences against zero
// adds two groups of eight.
inline __m128i Eighth64(const uint8_t* p) {
  const __m128i zero = _mm_setzero_si128();
  return RoundPack8<8>(GatherSums(_mm_sad_epu8(Load16(p), zero), _mm_sad_epu8(Load16(p + 16), zero),
                                  _mm_sad_epu8(Load16(p + 32), zero),
                                  _mm_sad_epu8(Load16(p + 48), zero)));
}

// Groups of 8 outputs from column x while below x8; returns the first
// column left to the scalar formula.
template <int kFactor>
inline int HorizontalGroups8(const uint8_t* src, uint8_t* out, int x, int x8, int cx) {
  for (; x < x8; x += kGroup) {
    const uint8_t* group = src + x * cx;
    if (kFactor == 2) {
      const __m128i v = Halve16(Load16(src + 2 * x));
      Store8(out + x, _mm_packus_epi16(v, v));
    } else if (kFactor == 4) {
      Store8(out + x, Quarter32(group));
    } else if (kFactor == 6) {
      Store8(out + x, Sixth48(group));
    } else {
      Store8(out + x, Eighth64(group));
    }
  }
  return x;
}

inline __m128i Widen(__m128i v, bool high) {
  const __m128i zero = _mm_setzero_si128();
  return high ? _mm_unpackhi_epi8(v, zero) : _mm_unpacklo_epi8(v, zero);
}

// 16 columns from kFactor rows, in words: at most 2040 + 4.
template <int kFactor>
inline __m128i VerticalSum8(const uint8_t* rows, int w, bool high) {
  __m128i sum = _mm_setzero_si128();
  for (int i = 0; i < kFactor; ++i) {
    __m128i v = Widen(Load16(rows + i * w), high);
    if (TapWeight(kFactor, i) == 2) v = _mm_add_epi16(v, v);
    sum = _mm_add_epi16(sum, v);
  }
  return _mm_add_epi16(sum, _mm_set1_epi16(TapRound(kFactor)));
}

// Steps of 16 columns from x (factor 2: _mm_avg_epu8, exactly
// (a + b + 1) >> 1); returns the first column left to the scalar formula.
template <int kFactor>
inline int VerticalSteps16(const uint8_t* rows, uint8_t* out, int x, int w) {
  for (; x + 16 <= w; x += 16) {
    const uint8_t* column = rows + x;
    __m128i v;
    if (kFactor == 2) {
      v = _mm_avg_epu8(Load16(column), Load16(column + w));
    } else {
      const __m128i lo = _mm_srli_epi16(VerticalSum8<kFactor>(column, w, false), TapShift(kFactor));
      const __m128i hi = _mm_srli_epi16(VerticalSum8<kFactor>(column, w, true), TapShift(kFactor));
      v = _mm_packus_epi16(lo, hi);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x), v);
  }
  return x;
}

}  // namespace

}  // namespace dofra

#endif  // DOFRA_KERNELS_X86_SHRINK_Y_X86_H
