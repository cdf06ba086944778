// AVX2 row helpers of the sliding box smoothing (the plane drivers and the
// scalar formulas are in blur/smooth.cpp): 32 column sums and 16 outputs per
// step. The integral-table rows (radii above 7) and wide normalisation
// (r > 5 or w > 1023) stay with the SSE4.1 members, which also take the
// remainders.
//
// Everything here stays in this file's anonymous namespace: a shared inline
// helper compiled with -mavx2 could be the copy an SSE4.1-only CPU runs.
#include <immintrin.h>

#include <cstdint>

#include "kernels/row_kernels.h"

namespace dofra {

namespace {

constexpr int kNarrowMaxRadius = 5;
constexpr uint32_t kNarrowMaxWeight = 1023;
constexpr int kNarrowScale = 5;  // 2^15 / 2^10
constexpr int kPipelineRadius = 2;
constexpr int kAnyRadius = -1;  // template radius read at run time

const RowKernels& Sse41() { return RowKernelsAt(SimdLevel::kSse41); }

inline __m256i LoadU16x16(const uint16_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}
inline __m256i Widen16(const uint8_t* p) {
  return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

// sums[q] += add[q] (- sub[q]) over columns [begin, m), wrapping words, 32
// per step; remainder: the SSE4.1 member (not idempotent, no overlap).
template <bool kSub>
void SlideColumns(const uint8_t* add, const uint8_t* sub, uint16_t* sums, int begin, int m) {
  int q = begin;
  for (; q + 32 <= m; q += 32) {
    __m256i lo = _mm256_add_epi16(LoadU16x16(sums + q), Widen16(add + q));
    __m256i hi = _mm256_add_epi16(LoadU16x16(sums + q + 16), Widen16(add + q + 16));
    if (kSub) {
      lo = _mm256_sub_epi16(lo, Widen16(sub + q));
      hi = _mm256_sub_epi16(hi, Widen16(sub + q + 16));
    }
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(sums + q), lo);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(sums + q + 16), hi);
  }
  if (kSub)
    Sse41().slide_add_sub(add, sub, sums, q, m);
  else
    Sse41().slide_add(add, sums, q, m);
}

void SlideAdd_AVX2(const uint8_t* add, uint16_t* sums, int begin, int m) {
  SlideColumns<false>(add, nullptr, sums, begin, m);
}

void SlideAddSub_AVX2(const uint8_t* add, const uint8_t* sub, uint16_t* sums, int begin, int m) {
  SlideColumns<true>(add, sub, sums, begin, m);
}

// The horizontal 2r + 1 taps (kLead words apart) of sixteen outputs.
template <int kLead, int kR>
inline __m256i BoxSum16(const uint16_t* sums, int r) {
  const int taps = 2 * (kR == kAnyRadius ? r : kR) + 1;
  __m256i sum = LoadU16x16(sums);
  for (int j = 1; j < taps; ++j) sum = _mm256_add_epi16(sum, LoadU16x16(sums + j * kLead));
  return sum;
}

// For r <= 5 and w <= 1023 the box sum S < 2^15 and both Q10 steps are
// mulhrs by 32w: (S * 32w + 2^14) >> 15 == (S * w + 512) >> 10.
template <int kLead, int kR>
void SlideBoxRowNarrow(const uint16_t* sums, uint8_t* dst, int begin, int n, int r, uint32_t w) {
  const __m256i w_scaled = _mm256_set1_epi16(static_cast<int16_t>(w << kNarrowScale));
  const __m256i low_byte = _mm256_set1_epi16(0xFF);
  // Remainder: one last vector ending at n, overlapping outputs already
  // written with the same values (idempotent).
  for (int x = begin;; x += 16) {
    if (x > n - 16) x = n - 16;
    const __m256i t = _mm256_mulhrs_epi16(BoxSum16<kLead, kR>(sums + x, r), w_scaled);
    const __m256i v = _mm256_and_si256(_mm256_mulhrs_epi16(t, w_scaled), low_byte);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x),
                     _mm_packus_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1)));
    if (x == n - 16) break;
  }
}

// Rows narrower than a vector and the wide normalisation: the SSE4.1 member.
template <int kLead>
void SlideBoxRow_AVX2(const uint16_t* sums, uint8_t* dst, int begin, int n, int r, uint32_t w) {
  const bool narrow = r <= kNarrowMaxRadius && w <= kNarrowMaxWeight;
  if (!narrow || n - begin < 16) return Sse41().slide_box_row[kLead - 1](sums, dst, begin, n, r, w);
  if (r == kPipelineRadius)
    return SlideBoxRowNarrow<kLead, kPipelineRadius>(sums, dst, begin, n, r, w);
  SlideBoxRowNarrow<kLead, kAnyRadius>(sums, dst, begin, n, r, w);
}

}  // namespace

void FillSmooth_AVX2(RowKernels* k) {
  k->slide_add = SlideAdd_AVX2;
  k->slide_add_sub = SlideAddSub_AVX2;
  k->slide_box_row[0] = SlideBoxRow_AVX2<1>;
  k->slide_box_row[1] = SlideBoxRow_AVX2<2>;
}

}  // namespace dofra
