// SSE4.1 row helpers of the box smoothing (the plane drivers and the scalar
// formulas are in blur/smooth.cpp).
#include <smmintrin.h>

#include <cstdint>
#include <cstring>

#include "kernels/row_kernels.h"

namespace {

constexpr uint32_t kHalfQ10 = 512;  // rounding of a Q10 product
constexpr int kQ10Shift = 10;

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

// Remainder: the scalar formula over the last n % 4 entries (a prefix sum
// is not idempotent, so no overlapping vector); a row continued from
// begin > 0 takes the formula throughout.
template <int kLead>
void IntegralRow_SSE41(const uint8_t* expanded, uint32_t* column_sums, uint32_t* out, int begin,
                       int n) {
  __m128i carry = _mm_setzero_si128();
  int q = begin;
  for (; begin == 0 && q + 4 <= n; q += 4) {
    __m128i* sums = reinterpret_cast<__m128i*>(column_sums + q);
    const __m128i c = _mm_add_epi32(_mm_loadu_si128(sums), Load4Bytes(expanded + q));
    _mm_storeu_si128(sums, c);
    const __m128i row = _mm_add_epi32(PrefixSum4<kLead>(c), carry);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + q), row);
    carry = CarryOut<kLead>(row);
  }
  ScalarRowKernels().integral_row[kLead - 1](expanded, column_sums, out, q, n);
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

// For r <= 5 and w <= 1023: S <= 11 * 11 * 255 < 2^15 and t <= S, so both
// steps fit _mm_mulhrs_epi16, which is (a * b + 2^14) >> 15; with b = 32w
// that is exactly (S * w + 512) >> 10. The unsigned pack keeps S exact.
constexpr int kNarrowMaxRadius = 5;
constexpr uint32_t kNarrowMaxWeight = 1023;
constexpr int kNarrowScale = 5;  // 2^15 / 2^10

inline __m128i Normalise8Narrow(__m128i lo, __m128i hi, __m128i w_scaled) {
  const __m128i t = _mm_mulhrs_epi16(_mm_packus_epi32(lo, hi), w_scaled);
  return _mm_and_si128(_mm_mulhrs_epi16(t, w_scaled), _mm_set1_epi16(0xFF));
}

// Vectors of 8 outputs from column kLead (the first columns lack their left
// terms); remainder: the scalar formula over the columns after the last full
// group, no overlap.
template <int kLead, bool kTop, bool kNarrow>
void BoxRowWith(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, int begin, int end,
                int span, uint32_t w) {
  const auto formula =
      kTop ? ScalarRowKernels().box_row[kLead - 1] : ScalarRowKernels().box_row_anchor[kLead - 1];
  const int head = begin >= kLead ? begin : (end < kLead ? end : kLead);
  formula(top, bottom, dst, begin, head, span, w);
  const __m128i wv = kNarrow ? _mm_set1_epi16(static_cast<int16_t>(w << kNarrowScale))
                             : _mm_set1_epi32(static_cast<int>(w));
  int x = head;
  for (; x + 8 <= end; x += 8) {
    const __m128i lo = BoxSum4<kTop>(top, bottom, x + span, x - kLead);
    const __m128i hi = BoxSum4<kTop>(top, bottom, x + 4 + span, x + 4 - kLead);
    const __m128i words = kNarrow ? Normalise8Narrow(lo, hi, wv) : Normalise8Wide(lo, hi, wv);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + x), _mm_packus_epi16(words, words));
  }
  formula(top, bottom, dst, x, end, span, w);
}

// The narrow steps when r <= 5 (span = 2r * kLead) and w <= 1023.
template <int kLead, bool kTop>
void BoxRow_SSE41(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, int begin, int end,
                  int span, uint32_t w) {
  if (span <= 2 * kNarrowMaxRadius * kLead && w <= kNarrowMaxWeight)
    return BoxRowWith<kLead, kTop, true>(top, bottom, dst, begin, end, span, w);
  BoxRowWith<kLead, kTop, false>(top, bottom, dst, begin, end, span, w);
}

// Sliding box (the driver is SlideBand in smooth.cpp): 2r + 1 shifted loads
// of the 16-bit column sums give S, exact while it fits a word (r <= 7).
constexpr int kAnyRadius = -1;  // template radius read at run time

inline __m128i LoadU16x8(const uint16_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// sums[q] += add[q] (- sub[q]) over columns [begin, m), wrapping words;
// remainder: the scalar formula over the last columns (not idempotent, no
// overlap).
template <bool kSub>
void SlideColumns(const uint8_t* add, const uint8_t* sub, uint16_t* sums, int begin, int m) {
  const __m128i zero = _mm_setzero_si128();
  int q = begin;
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
  if (kSub)
    ScalarRowKernels().slide_add_sub(add, sub, sums, q, m);
  else
    ScalarRowKernels().slide_add(add, sums, q, m);
}

void SlideAdd_SSE41(const uint8_t* add, uint16_t* sums, int begin, int m) {
  SlideColumns<false>(add, nullptr, sums, begin, m);
}

void SlideAddSub_SSE41(const uint8_t* add, const uint8_t* sub, uint16_t* sums, int begin, int m) {
  SlideColumns<true>(add, sub, sums, begin, m);
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

// One strip row of outputs [begin, n) from its column sums. Remainder: one
// last vector ending at n, overlapping outputs already written with the same
// values (idempotent); rows narrower than a vector take the scalar formula.
template <int kLead, int kR, bool kNarrow>
void SlideBoxRowWith(const uint16_t* sums, uint8_t* dst, int begin, int n, int r, uint32_t w) {
  if (n - begin < 8) return ScalarRowKernels().slide_box_row[kLead - 1](sums, dst, begin, n, r, w);
  const __m128i wv = kNarrow ? _mm_set1_epi16(static_cast<int16_t>(w << kNarrowScale))
                             : _mm_set1_epi32(static_cast<int>(w));
  for (int x = begin;; x += 8) {
    if (x > n - 8) x = n - 8;
    const __m128i sum = BoxSum8<kLead, kR>(sums + x, r);
    const __m128i words = kNarrow ? NormaliseWords8Narrow(sum, wv) : NormaliseWords8Wide(sum, wv);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + x), _mm_packus_epi16(words, words));
    if (x == n - 8) break;
  }
}

// The pipeline always runs r = 2, so that radius gets unrolled taps.
constexpr int kPipelineRadius = 2;

template <int kLead>
void SlideBoxRow_SSE41(const uint16_t* sums, uint8_t* dst, int begin, int n, int r, uint32_t w) {
  const bool narrow = r <= kNarrowMaxRadius && w <= kNarrowMaxWeight;
  if (r == kPipelineRadius) {
    if (narrow) return SlideBoxRowWith<kLead, kPipelineRadius, true>(sums, dst, begin, n, r, w);
    return SlideBoxRowWith<kLead, kPipelineRadius, false>(sums, dst, begin, n, r, w);
  }
  if (narrow) return SlideBoxRowWith<kLead, kAnyRadius, true>(sums, dst, begin, n, r, w);
  SlideBoxRowWith<kLead, kAnyRadius, false>(sums, dst, begin, n, r, w);
}

}  // namespace

void FillSmooth_SSE41(RowKernels* k) {
  k->integral_row[0] = IntegralRow_SSE41<1>;
  k->integral_row[1] = IntegralRow_SSE41<2>;
  k->box_row_anchor[0] = BoxRow_SSE41<1, false>;
  k->box_row_anchor[1] = BoxRow_SSE41<2, false>;
  k->box_row[0] = BoxRow_SSE41<1, true>;
  k->box_row[1] = BoxRow_SSE41<2, true>;
  k->slide_add = SlideAdd_SSE41;
  k->slide_add_sub = SlideAddSub_SSE41;
  k->slide_box_row[0] = SlideBoxRow_SSE41<1>;
  k->slide_box_row[1] = SlideBoxRow_SSE41<2>;
}
