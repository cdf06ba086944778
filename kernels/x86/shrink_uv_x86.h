// 128-bit steps of the chroma shrink, shared by its SSE4.1 and AVX2 units
// under the row loops of kernels/shrink_uv_loops.h. Include only from those
// units: everything here has internal linkage, so each unit keeps its own
// copy built with its own flags.
#ifndef DOFRA_KERNELS_X86_SHRINK_UV_X86_H
#define DOFRA_KERNELS_X86_SHRINK_UV_X86_H

#include <smmintrin.h>

#include <cstdint>

#include "kernels/shrink_uv_loops.h"

namespace dofra {

namespace {

constexpr int kVec = 16;

inline __m128i Load16(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// Factor-2 steps of 8 pairs from p while whole; returns the first pair left.
inline int X2HorizontalSteps8(const uint8_t* src, uint8_t* dst, int p, int p_end) {
  // Per 16-byte half: even pairs to the low 8 bytes, odd pairs to the high 8.
  const __m128i split = _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15);
  for (; p + kVec / kBytesPerPair <= p_end; p += kVec / kBytesPerPair) {
    const int x = kBytesPerPair * p;
    const __m128i a = _mm_shuffle_epi8(Load16(src + 2 * x), split);
    const __m128i b = _mm_shuffle_epi8(Load16(src + 2 * x + kVec), split);
    // pavgb is (a + b + 1) >> 1, the factor-2 rounding, byte by byte.
    const __m128i avg = _mm_avg_epu8(_mm_unpacklo_epi64(a, b), _mm_unpackhi_epi64(a, b));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), avg);
  }
  return p;
}

// Factor-2 steps of 16 bytes from x; returns the first byte left.
inline int X2VerticalSteps16(const uint8_t* top, uint8_t* dst, int x, int x_end, int stride) {
  for (; x + kVec <= x_end; x += kVec) {
    const __m128i a = Load16(top + x);
    const __m128i b = Load16(top + stride + x);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), _mm_avg_epu8(a, b));
  }
  return x;
}

// Horizontal pass, 8 output pairs per step when the groups are contiguous
// (cx == factor, as the pipeline passes). Each 16-byte load is shuffled so
// that maddubs with the tap weights and madd with ones leave 32-bit partial
// sums per channel (x4: whole sums of two pairs; x6, x8: two halves of one
// pair, joined by hadd), then packed as U, V, U, V... A sum is at most
// 8 * 255 = 2040, far inside every lane.
struct Table16 {
  int8_t b[16];
};

template <int kFactor>
struct HorizontalTables;
// Pairs A, B of one load: U(A) x4, V(A) x4, U(B) x4, V(B) x4.
template <>
struct HorizontalTables<4> {
  static constexpr Table16 kShuffle = {{0, 2, 4, 6, 1, 3, 5, 7, 8, 10, 12, 14, 9, 11, 13, 15}};
  static constexpr Table16 kTaps = {{1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}};
  static constexpr int kPairsPerLoad = 2;
};
// One pair per load: U taps 0-5 padded with two zero bytes, then V.
template <>
struct HorizontalTables<6> {
  static constexpr Table16 kShuffle = {{0, 2, 4, 6, 8, 10, -1, -1, 1, 3, 5, 7, 9, 11, -1, -1}};
  static constexpr Table16 kTaps = {{1, 1, 2, 2, 1, 1, 0, 0, 1, 1, 2, 2, 1, 1, 0, 0}};
  static constexpr int kPairsPerLoad = 1;
};
template <>
struct HorizontalTables<8> {
  static constexpr Table16 kShuffle = {{0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15}};
  static constexpr Table16 kTaps = {{1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}};
  static constexpr int kPairsPerLoad = 1;
};

// Sums of the 4 output pairs whose groups start at g, g + gb, ... as 32-bit
// lanes U, V, U, V (two vectors' worth packed by the caller).
template <int kFactor>
inline __m128i FourPairSums(const uint8_t* g, int gb, __m128i shuffle, __m128i taps, __m128i ones) {
  using T = HorizontalTables<kFactor>;
  auto partial = [&](const uint8_t* q) {
    return _mm_madd_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(Load16(q), shuffle), taps), ones);
  };
  if (T::kPairsPerLoad == 2) {
    return _mm_packs_epi32(partial(g), partial(g + 2 * gb));
  }
  const __m128i ab = _mm_hadd_epi32(partial(g), partial(g + gb));
  const __m128i cd = _mm_hadd_epi32(partial(g + 2 * gb), partial(g + 3 * gb));
  return _mm_packs_epi32(ab, cd);
}

// Steps of 8 pairs from p over contiguous groups while a step's last 16-byte
// load stays inside the row's named source bytes; returns the first pair left.
template <int kFactor>
inline int PairHorizontalSteps8(const uint8_t* src, uint8_t* dst, int p, int p_end) {
  using T = HorizontalTables<kFactor>;
  constexpr int kGroup = kBytesPerPair * kFactor;
  constexpr int kShift = Taps<kFactor>::kShift;
  const __m128i shuffle = _mm_loadu_si128(reinterpret_cast<const __m128i*>(T::kShuffle.b));
  const __m128i taps = _mm_loadu_si128(reinterpret_cast<const __m128i*>(T::kTaps.b));
  const __m128i ones = _mm_set1_epi16(1);
  const __m128i round = _mm_set1_epi16(1 << (kShift - 1));
  // The last load of a step starts at the group of pair p + 8 - kPairsPerLoad.
  const int named = kGroup * p_end;
  for (; kGroup * (p + 8 - T::kPairsPerLoad) + 16 <= named; p += 8) {
    const uint8_t* g = src + kGroup * p;
    const __m128i lo = FourPairSums<kFactor>(g, kGroup, shuffle, taps, ones);
    const __m128i hi = FourPairSums<kFactor>(g + 4 * kGroup, kGroup, shuffle, taps, ones);
    const __m128i out = _mm_packus_epi16(_mm_srli_epi16(_mm_add_epi16(lo, round), kShift),
                                         _mm_srli_epi16(_mm_add_epi16(hi, round), kShift));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + kBytesPerPair * p), out);
  }
  return p;
}

// Vertical steps of 16 bytes from x as u16 lanes; returns the first byte left.
template <int kFactor>
inline int PairVerticalSteps16(const uint8_t* top, uint8_t* dst, int x, int x_end, int stride) {
  constexpr int kShift = Taps<kFactor>::kShift;
  const __m128i round = _mm_set1_epi16(1 << (kShift - 1));
  const __m128i zero = _mm_setzero_si128();
  for (; x + 16 <= x_end; x += 16) {
    __m128i lo = round, hi = round;
    for (int i = 0; i < kFactor; ++i) {
      const __m128i v = Load16(top + i * stride + x);
      const __m128i wl = _mm_unpacklo_epi8(v, zero), wh = _mm_unpackhi_epi8(v, zero);
      for (int k = 0; k < Taps<kFactor>::kWeight[i]; ++k) {  // tap weights are 1 or 2
        lo = _mm_add_epi16(lo, wl);
        hi = _mm_add_epi16(hi, wh);
      }
    }
    const __m128i out = _mm_packus_epi16(_mm_srli_epi16(lo, kShift), _mm_srli_epi16(hi, kShift));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), out);
  }
  return x;
}

}  // namespace

}  // namespace dofra

#endif  // DOFRA_KERNELS_X86_SHRINK_UV_X86_H
