// SSE4.1 steps of the box smoothing under the row loops of
// kernels/smooth_loops.h (the plane drivers and the scalar formulas are in
// blur/smooth.cpp).
#include <smmintrin.h>

#include <cstdint>
#include <cstring>

#include "kernels/smooth_loops.h"

namespace dofra {

namespace {

// Inclusive prefix sum of four lanes, per channel: two channels interleave
// in the lanes when kLead is 2.
template <int kLead>
inline __m128i PrefixSum4(__m128i v) {
  if (kLead == 1) v = _mm_add_epi32(v, _mm_slli_si128(v, 4));
  return _mm_add_epi32(v, _mm_slli_si128(v, 8));
}

// The last running sum of each channel, broadcast to its lanes.
template <int kLead>
inline __m128i CarryOut(__m128i v) {
  return kLead == 1 ? _mm_shuffle_epi32(v, _MM_SHUFFLE(3, 3, 3, 3))
                    : _mm_shuffle_epi32(v, _MM_SHUFFLE(3, 2, 3, 2));
}

inline __m128i Load4Bytes(const uint8_t* p) {
  int32_t bytes;
  std::memcpy(&bytes, p, sizeof(bytes));
  return _mm_cvtepu8_epi32(_mm_cvtsi32_si128(bytes));
}

template <int kLead>
int IntegralSteps(const uint8_t* expanded, uint32_t* column_sums, uint32_t* out, int n) {
  __m128i carry = _mm_setzero_si128();
  int q = 0;
  for (; q + 4 <= n; q += 4) {
    __m128i* sums = reinterpret_cast<__m128i*>(column_sums + q);
    const __m128i c = _mm_add_epi32(_mm_loadu_si128(sums), Load4Bytes(expanded + q));
    _mm_storeu_si128(sums, c);
    const __m128i row = _mm_add_epi32(PrefixSum4<kLead>(c), carry);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + q), row);
    carry = CarryOut<kLead>(row);
  }
  return q;
}

inline __m128i LoadU32x4(const uint32_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

template <bool kTop>
inline __m128i BoxSum4(const uint32_t* top, const uint32_t* bottom, int right, int left) {
  __m128i sum = _mm_sub_epi32(LoadU32x4(bottom + right), LoadU32x4(bottom + left));
  if (kTop) sum = _mm_add_epi32(sum, _mm_sub_epi32(LoadU32x4(top + left), LoadU32x4(top + right)));
  return sum;
}

// Lane-wise the scalar expression itself: mullo and add wrap like uint32_t,
// so no rounding identity is needed and every input matches the formula.
inline __m128i Normalise4(__m128i sum, __m128i w) {
  const __m128i half = _mm_set1_epi32(static_cast<int>(kHalfQ10));
  const __m128i t = _mm_srli_epi32(_mm_add_epi32(_mm_mullo_epi32(sum, w), half), kQ10Shift);
  return _mm_srli_epi32(_mm_add_epi32(_mm_mullo_epi32(t, w), half), kQ10Shift);
}

// Eight normalised sums, kept mod 256 in words.
inline __m128i Normalise8Wide(__m128i lo, __m128i hi, __m128i w) {
  const __m128i low_byte = _mm_set1_epi32(0xFF);
  return _mm_packus_epi32(_mm_and_si128(Normalise4(lo, w), low_byte),
                          _mm_and_si128(Normalise4(hi, w), low_byte));
}

// The narrow steps: _mm_mulhrs_epi16; the unsigned pack keeps S exact.
inline __m128i Normalise8Narrow(__m128i lo, __m128i hi, __m128i w_scaled) {
  const __m128i t = _mm_mulhrs_epi16(_mm_packus_epi32(lo, hi), w_scaled);
  return _mm_and_si128(_mm_mulhrs_epi16(t, w_scaled), _mm_set1_epi16(0xFF));
}

// Vectors of 8 outputs.
template <int kLead, bool kTop, bool kNarrow>
int BoxSteps(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, int x, int end, int span,
             uint32_t w) {
  const __m128i wv = kNarrow ? _mm_set1_epi16(static_cast<int16_t>(w << kNarrowScale))
                             : _mm_set1_epi32(static_cast<int>(w));
  for (; x + 8 <= end; x += 8) {
    const __m128i lo = BoxSum4<kTop>(top, bottom, x + span, x - kLead);
    const __m128i hi = BoxSum4<kTop>(top, bottom, x + 4 + span, x + 4 - kLead);
    const __m128i words = kNarrow ? Normalise8Narrow(lo, hi, wv) : Normalise8Wide(lo, hi, wv);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + x), _mm_packus_epi16(words, words));
  }
  return x;
}

inline __m128i LoadU16x8(const uint16_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// sums[q] += add[q] (- sub[q]), 16 columns per step.
template <bool kSub>
int SlideSteps(const uint8_t* add, const uint8_t* sub, uint16_t* sums, int q, int m) {
  const __m128i zero = _mm_setzero_si128();
  for (; q + 16 <= m; q += 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(add + q));
    __m128i lo = _mm_add_epi16(LoadU16x8(sums + q), _mm_unpacklo_epi8(a, zero));
    __m128i hi = _mm_add_epi16(LoadU16x8(sums + q + 8), _mm_unpackhi_epi8(a, zero));
    if (kSub) {
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(sub + q));
      lo = _mm_sub_epi16(lo, _mm_unpacklo_epi8(b, zero));
      hi = _mm_sub_epi16(hi, _mm_unpackhi_epi8(b, zero));
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(sums + q), lo);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(sums + q + 8), hi);
  }
  return q;
}

// The horizontal 2r + 1 taps (kLead bytes apart) of eight outputs.
template <int kLead, int kR>
inline __m128i BoxSum8(const uint16_t* sums, int r) {
  const int taps = 2 * (kR == kAnyRadius ? r : kR) + 1;
  __m128i sum = LoadU16x8(sums);
  for (int j = 1; j < taps; ++j) sum = _mm_add_epi16(sum, LoadU16x8(sums + j * kLead));
  return sum;
}

// Eight sums already in words: the same two mulhrs steps as Normalise8Narrow.
inline __m128i NormaliseWords8Narrow(__m128i sums, __m128i w_scaled) {
  const __m128i t = _mm_mulhrs_epi16(sums, w_scaled);
  return _mm_and_si128(_mm_mulhrs_epi16(t, w_scaled), _mm_set1_epi16(0xFF));
}

inline __m128i NormaliseWords8Wide(__m128i sums, __m128i w) {
  const __m128i zero = _mm_setzero_si128();
  return Normalise8Wide(_mm_unpacklo_epi16(sums, zero), _mm_unpackhi_epi16(sums, zero), w);
}

template <int kLead, int kR, bool kNarrow>
void SlideBoxSteps(const uint16_t* sums, uint8_t* dst, int begin, int n, int r, uint32_t w) {
  const __m128i wv = kNarrow ? _mm_set1_epi16(static_cast<int16_t>(w << kNarrowScale))
                             : _mm_set1_epi32(static_cast<int>(w));
  SlideWalk(begin, n, [&](int x) {
    const __m128i sum = BoxSum8<kLead, kR>(sums + x, r);
    const __m128i words = kNarrow ? NormaliseWords8Narrow(sum, wv) : NormaliseWords8Wide(sum, wv);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + x), _mm_packus_epi16(words, words));
  });
}

}  // namespace

void FillSmooth_SSE41(RowKernels* k) { FillSmoothLoops(k); }

}  // namespace dofra
