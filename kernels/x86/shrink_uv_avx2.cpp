// AVX2 steps of the chroma shrink (the plane drivers and the scalar formulas
// are in blur/shrink_uv.cpp): the SSE4.1 steps with 32 output bytes per
// step, their 16-byte steps kept for the remainders.
//
// Everything here, the shared header's helpers included, has internal
// linkage: a shared inline helper compiled with -mavx2 could be the copy an
// SSE4.1-only CPU runs.
#include <immintrin.h>

#include <cstdint>

#include "kernels/x86/shrink_uv_x86.h"

namespace dofra {

namespace {

inline __m256i Load32(const uint8_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}
inline void Store32(uint8_t* p, __m256i v) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}
// Two 16-byte loads as the lanes of one vector.
inline __m256i LoadLanes(const uint8_t* lo, const uint8_t* hi) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(Load16(lo)), Load16(hi), 1);
}

// The packs work per 128-bit lane; 0xD8 puts the four quarters back in order.
constexpr int kQuartersInOrder = 0xD8;

// Whole steps of 16 pairs, then 8 (reads stay inside the 4 * p_end source
// bytes).
int X2HorizontalSteps(const uint8_t* src, uint8_t* dst, int p, int p_end) {
  // Per 16-byte half: even pairs to the low 8 bytes, odd pairs to the high 8.
  const __m256i split2 = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15));
  for (; p + kVec <= p_end; p += kVec) {
    const int x = kBytesPerPair * p;
    const __m256i a = _mm256_shuffle_epi8(Load32(src + 2 * x), split2);
    const __m256i b = _mm256_shuffle_epi8(Load32(src + 2 * x + 2 * kVec), split2);
    const __m256i avg = _mm256_avg_epu8(_mm256_unpacklo_epi64(a, b), _mm256_unpackhi_epi64(a, b));
    Store32(dst + x, _mm256_permute4x64_epi64(avg, kQuartersInOrder));
  }
  return X2HorizontalSteps8(src, dst, p, p_end);
}

// 32 bytes at a time, then 16.
int X2VerticalSteps(const uint8_t* top, uint8_t* dst, int x, int x_end, int stride) {
  for (; x + 2 * kVec <= x_end; x += 2 * kVec)
    Store32(dst + x, _mm256_avg_epu8(Load32(top + x), Load32(top + stride + x)));
  return X2VerticalSteps16(top, dst, x, x_end, stride);
}

// FourPairSums in each lane: lane 0 for the pairs from g, lane 1 for those
// from g + 8 * gb.
template <int kFactor>
inline __m256i FourPairSums2(const uint8_t* g, int gb, __m256i shuffle, __m256i taps,
                             __m256i ones) {
  using T = HorizontalTables<kFactor>;
  auto partial = [&](const uint8_t* q) {
    const __m256i v = LoadLanes(q, q + 8 * gb);
    return _mm256_madd_epi16(_mm256_maddubs_epi16(_mm256_shuffle_epi8(v, shuffle), taps), ones);
  };
  if (T::kPairsPerLoad == 2) {
    return _mm256_packs_epi32(partial(g), partial(g + 2 * gb));
  }
  const __m256i ab = _mm256_hadd_epi32(partial(g), partial(g + gb));
  const __m256i cd = _mm256_hadd_epi32(partial(g + 2 * gb), partial(g + 3 * gb));
  return _mm256_packs_epi32(ab, cd);
}

// 16 pairs per step, then 8, up to the pairs whose 16-byte load would reach
// past the row's last named source byte.
template <int kFactor>
int PairHorizontalSteps(const uint8_t* src, uint8_t* dst, int p, int p_end) {
  constexpr int kGroup = kBytesPerPair * kFactor;
  constexpr int kShift = Taps<kFactor>::kShift;
  using T = HorizontalTables<kFactor>;
  const __m128i shuffle = _mm_loadu_si128(reinterpret_cast<const __m128i*>(T::kShuffle.b));
  const __m128i taps = _mm_loadu_si128(reinterpret_cast<const __m128i*>(T::kTaps.b));
  // The last load of a step starts at the group of pair p + 16 - kPairsPerLoad.
  const int named = kGroup * p_end;
  const __m256i shuffle2 = _mm256_broadcastsi128_si256(shuffle);
  const __m256i taps2 = _mm256_broadcastsi128_si256(taps);
  const __m256i ones2 = _mm256_set1_epi16(1);
  const __m256i round2 = _mm256_set1_epi16(1 << (kShift - 1));
  for (; kGroup * (p + 16 - T::kPairsPerLoad) + 16 <= named; p += 16) {
    const uint8_t* g = src + kGroup * p;
    const __m256i lo = FourPairSums2<kFactor>(g, kGroup, shuffle2, taps2, ones2);
    const __m256i hi = FourPairSums2<kFactor>(g + 4 * kGroup, kGroup, shuffle2, taps2, ones2);
    const __m256i out =
        _mm256_packus_epi16(_mm256_srli_epi16(_mm256_add_epi16(lo, round2), kShift),
                            _mm256_srli_epi16(_mm256_add_epi16(hi, round2), kShift));
    Store32(dst + kBytesPerPair * p, out);
  }
  return PairHorizontalSteps8<kFactor>(src, dst, p, p_end);
}

// Vertical pass, 32 bytes per step, then 16, as u16 lanes (the in-lane
// unpacks and packs cancel out).
template <int kFactor>
int PairVerticalSteps(const uint8_t* top, uint8_t* dst, int x, int x_end, int stride) {
  constexpr int kShift = Taps<kFactor>::kShift;
  const __m256i round2 = _mm256_set1_epi16(1 << (kShift - 1));
  const __m256i zero2 = _mm256_setzero_si256();
  for (; x + 32 <= x_end; x += 32) {
    __m256i lo = round2, hi = round2;
    for (int i = 0; i < kFactor; ++i) {
      const __m256i v = Load32(top + i * stride + x);
      const __m256i wl = _mm256_unpacklo_epi8(v, zero2), wh = _mm256_unpackhi_epi8(v, zero2);
      for (int k = 0; k < Taps<kFactor>::kWeight[i]; ++k) {  // tap weights are 1 or 2
        lo = _mm256_add_epi16(lo, wl);
        hi = _mm256_add_epi16(hi, wh);
      }
    }
    Store32(dst + x,
            _mm256_packus_epi16(_mm256_srli_epi16(lo, kShift), _mm256_srli_epi16(hi, kShift)));
  }
  return PairVerticalSteps16<kFactor>(top, dst, x, x_end, stride);
}

}  // namespace

void FillShrinkUV_AVX2(RowKernels* k) { FillShrinkUVLoops(k); }

}  // namespace dofra
