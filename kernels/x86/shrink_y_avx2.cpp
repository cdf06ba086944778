// AVX2 steps of the luma shrink (the plane driver and the scalar
// formulas are in blur/shrink_y.cpp): the SSE4.1 members with 16 or 32
// outputs per step, their 8- and 16-wide steps kept for the remainders.
//
// Everything here, the shared header's helpers included, has internal
// linkage: a shared inline helper compiled with -mavx2 could be the copy an
// SSE4.1-only CPU runs.
#include <immintrin.h>

#include <cstdint>

#include "kernels/x86/shrink_y_x86.h"

namespace dofra {

namespace {

// ---- 256-bit forms.

inline __m256i Load32(const uint8_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}
// Two 16-byte loads as the lanes of one vector.
inline __m256i LoadLanes(const uint8_t* lo, const uint8_t* hi) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(Load16(lo)), Load16(hi), 1);
}
inline void Store16(uint8_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

// The packs work per 128-bit lane; 0xD8 puts the four quarters back in order.
constexpr int kQuartersInOrder = 0xD8;

// Sixteen 16-bit sums in order (< 2048) to sixteen rounded bytes.
template <int kFactor>
inline __m128i RoundPack16(__m256i sums) {
  const __m256i round = _mm256_set1_epi16(TapRound(kFactor));
  const __m256i v = _mm256_srli_epi16(_mm256_add_epi16(sums, round), TapShift(kFactor));
  return _mm_packus_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
}

inline __m256i Halve32(__m256i v) {
  const __m256i even = _mm256_and_si256(v, _mm256_set1_epi16(0xFF));
  const __m256i odd = _mm256_srli_epi16(v, 8);
  return _mm256_avg_epu16(even, odd);
}

// Factor 2, 64 samples -> 32.
inline __m256i Halve64(const uint8_t* p) {
  const __m256i packed = _mm256_packus_epi16(Halve32(Load32(p)), Halve32(Load32(p + 32)));
  return _mm256_permute4x64_epi64(packed, kQuartersInOrder);
}

// Factor 4, 64 contiguous samples -> 16: the horizontal adds leave outputs
// 0..3, 8..11 | 4..7, 12..15.
inline __m128i Quarter64(const uint8_t* p) {
  const __m256i ones = _mm256_set1_epi8(1);
  const __m256i a = _mm256_maddubs_epi16(Load32(p), ones);
  const __m256i b = _mm256_maddubs_epi16(Load32(p + 32), ones);
  return RoundPack16<4>(_mm256_permute4x64_epi64(_mm256_hadd_epi16(a, b), kQuartersInOrder));
}

// Factor 6, 96 samples -> 16: Sixth48 in each lane, the upper lane 48
// samples on.
inline __m128i Sixth96(const uint8_t* p) {
  const __m256i zero = _mm256_setzero_si256();
  const __m256i pairs =
      _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 1, 2, 3, 4, 5, 2, 3, 6, 7, 8, 9, 10, 11, 8, 9));
  const __m256i last = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(4, 5, 6, 7, 8, 9, 6, 7, 10, 11, 12, 13, 14, 15, 12, 13));
  auto sums = [&](int at, __m256i shuffle) {
    return _mm256_sad_epu8(_mm256_shuffle_epi8(LoadLanes(p + at, p + 48 + at), shuffle), zero);
  };
  const __m256i s01 = _mm256_packus_epi32(sums(0, pairs), sums(12, pairs));
  const __m256i s23 = _mm256_packus_epi32(sums(24, pairs), sums(32, last));
  return RoundPack16<6>(_mm256_packus_epi32(s01, s23));
}

// Factor 8, 128 samples -> 16: each sum of absolute differences holds
// outputs (2k, 2k + 1 | 2k + 2, 2k + 3); the packs leave pairs of outputs
// 0, 2, 4, 6 | 1, 3, 5, 7, put in order by one 32-bit permutation.
inline __m128i Eighth128(const uint8_t* p) {
  const __m256i zero = _mm256_setzero_si256();
  auto sums = [&](int at) { return _mm256_sad_epu8(Load32(p + at), zero); };
  const __m256i s01 = _mm256_packus_epi32(sums(0), sums(32));
  const __m256i s23 = _mm256_packus_epi32(sums(64), sums(96));
  const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  return RoundPack16<8>(_mm256_permutevar8x32_epi32(_mm256_packus_epi32(s01, s23), order));
}

// Wide steps while whole (factor 2: 32 outputs; 4, 6, 8: 16, contiguous
// groups only, cx == factor), then groups of 8.
template <int kFactor>
int HorizontalSteps(const uint8_t* src, uint8_t* out, int x, int x8, int cx) {
  if (kFactor == 2) {
    for (; x + 4 * kGroup <= x8; x += 4 * kGroup)
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x), Halve64(src + 2 * x));
  } else if (cx == kFactor) {
    for (; x + 2 * kGroup <= x8; x += 2 * kGroup) {
      const uint8_t* group = src + x * cx;
      if (kFactor == 4) {
        Store16(out + x, Quarter64(group));
      } else if (kFactor == 6) {
        Store16(out + x, Sixth96(group));
      } else {
        Store16(out + x, Eighth128(group));
      }
    }
  }
  return HorizontalGroups8<kFactor>(src, out, x, x8, cx);
}

// 32 columns from kFactor rows, in words (columns 0..15, 16..31).
template <int kFactor>
inline __m256i VerticalSum16(const uint8_t* rows, int w, bool high) {
  __m256i sum = _mm256_set1_epi16(TapRound(kFactor));
  for (int i = 0; i < kFactor; ++i) {
    const __m128i bytes = Load16(rows + i * w + (high ? 16 : 0));
    __m256i v = _mm256_cvtepu8_epi16(bytes);
    if (TapWeight(kFactor, i) == 2) v = _mm256_add_epi16(v, v);
    sum = _mm256_add_epi16(sum, v);
  }
  return sum;
}

// 32 columns per step, then 16 (factor 2: avg_epu8, exactly
// (a + b + 1) >> 1).
template <int kFactor>
int VerticalSteps(const uint8_t* rows, uint8_t* out, int x, int w) {
  for (; x + 32 <= w; x += 32) {
    const uint8_t* column = rows + x;
    __m256i v;
    if (kFactor == 2) {
      v = _mm256_avg_epu8(Load32(column), Load32(column + w));
    } else {
      const __m256i lo =
          _mm256_srli_epi16(VerticalSum16<kFactor>(column, w, false), TapShift(kFactor));
      const __m256i hi =
          _mm256_srli_epi16(VerticalSum16<kFactor>(column, w, true), TapShift(kFactor));
      v = _mm256_permute4x64_epi64(_mm256_packus_epi16(lo, hi), kQuartersInOrder);
    }
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x), v);
  }
  return VerticalSteps16<kFactor>(rows, out, x, w);
}

}  // namespace

void FillShrinkY_AVX2(RowKernels* k) { FillShrinkYLoops(k); }

}  // namespace dofra
