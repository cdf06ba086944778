// SSE4.1 steps of the no-glow blur under the row loops of
// kernels/no_bleed_loops.h (the driver and the scalar formulas are in
// blur/no_bleed.cpp and blur/no_bleed_rows.cpp).
#include <smmintrin.h>

#include <cstdint>

#include "kernels/no_bleed_loops.h"

namespace dofra {

namespace {

inline __m128i Load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline void Store(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

// Unsigned word minimum: exact, like std::min.
int MinRowsSteps(const uint16_t* rows, size_t stride, int count, uint16_t* out, int n) {
  int x = 0;
  for (; x + 32 <= n; x += 32) {  // a cache line of every row per step
    __m128i m[4];
    for (int v = 0; v < 4; ++v) m[v] = Load(rows + x + 8 * v);
    for (int k = 1; k < count; ++k) {
      const uint16_t* row = rows + k * stride + x;
      for (int v = 0; v < 4; ++v) m[v] = _mm_min_epu16(m[v], Load(row + 8 * v));
    }
    for (int v = 0; v < 4; ++v) Store(out + x + 8 * v, m[v]);
  }
  for (; x + 8 <= n; x += 8) {
    __m128i m = Load(rows + x);
    for (int k = 1; k < count; ++k) m = _mm_min_epu16(m, Load(rows + k * stride + x));
    Store(out + x, m);
  }
  return x;
}

int MinShiftSteps(uint16_t* a, int n, int d) {
  int x = 0;
  for (; x + 8 <= n; x += 8) Store(a + x, _mm_min_epu16(Load(a + x), Load(a + x + d)));
  return x;
}

// Lanes at or above threshold (max(x, threshold) == x) count in word lanes, each at
// most n / 8 <= 2^15; summed at the end.
int CountPassingSteps(const uint16_t* row, int n, uint16_t threshold, int* passing) {
  const __m128i f = _mm_set1_epi16(static_cast<int16_t>(threshold));
  __m128i lanes = _mm_setzero_si128();
  int x = 0;
  for (; x + 8 <= n; x += 8) {
    const __m128i v = Load(row + x);
    lanes = _mm_sub_epi16(lanes, _mm_cmpeq_epi16(_mm_max_epu16(v, f), v));
  }
  const __m128i pairs = _mm_madd_epi16(lanes, _mm_set1_epi16(1));
  const __m128i quads = _mm_add_epi32(pairs, _mm_srli_si128(pairs, 8));
  *passing += _mm_cvtsi128_si32(_mm_add_epi32(quads, _mm_srli_si128(quads, 4)));
  return x;
}

// v * m as v AND (0 - m) for m in {0, 1}; the word sums wrap like the
// formula's uint16_t.
template <bool kSub>
int MaskedSlideSteps(const uint8_t* v, const uint8_t* m, const uint8_t* v_sub, const uint8_t* m_sub,
                     uint16_t* v_sums, uint16_t* m_sums, int q, int n) {
  const __m128i zero = _mm_setzero_si128();
  for (; q + 16 <= n; q += 16) {
    const __m128i ma = Load(m + q);
    const __m128i va = _mm_and_si128(Load(v + q), _mm_sub_epi8(zero, ma));
    __m128i vlo = _mm_add_epi16(Load(v_sums + q), _mm_unpacklo_epi8(va, zero));
    __m128i vhi = _mm_add_epi16(Load(v_sums + q + 8), _mm_unpackhi_epi8(va, zero));
    __m128i mlo = _mm_add_epi16(Load(m_sums + q), _mm_unpacklo_epi8(ma, zero));
    __m128i mhi = _mm_add_epi16(Load(m_sums + q + 8), _mm_unpackhi_epi8(ma, zero));
    if (kSub) {
      const __m128i ms = Load(m_sub + q);
      const __m128i vs = _mm_and_si128(Load(v_sub + q), _mm_sub_epi8(zero, ms));
      vlo = _mm_sub_epi16(vlo, _mm_unpacklo_epi8(vs, zero));
      vhi = _mm_sub_epi16(vhi, _mm_unpackhi_epi8(vs, zero));
      mlo = _mm_sub_epi16(mlo, _mm_unpacklo_epi8(ms, zero));
      mhi = _mm_sub_epi16(mhi, _mm_unpackhi_epi8(ms, zero));
    }
    Store(v_sums + q, vlo);
    Store(v_sums + q + 8, vhi);
    Store(m_sums + q, mlo);
    Store(m_sums + q + 8, mhi);
  }
  return q;
}

// Entry c of a 32-entry byte table for eight counts (bytes 0..7 of c): the
// first half answers c < 16 (c + 0x70 keeps its low bits and leaves bit 7
// clear), the second c >= 16 (c - 16 has bit 7 set below 16, so pshufb gives
// 0 there).
inline __m128i Lookup(const uint8_t* table, __m128i c_bytes) {
  const __m128i lo = _mm_shuffle_epi8(Load(table), _mm_adds_epu8(c_bytes, _mm_set1_epi8(0x70)));
  const __m128i hi = _mm_shuffle_epi8(Load(table + 16), _mm_sub_epi8(c_bytes, _mm_set1_epi8(16)));
  return _mm_or_si128(lo, hi);
}

// Eight masked means (N * R) >> 17 in words: R's low word and its high part
// come from the byte planes, and ((N * Rlow >> 16) + N * Rhigh) >> 1 is the
// same floor (N * Rhigh <= 510, every sum below 2^15).
inline __m128i MaskedMean8(__m128i s, __m128i c) {
  const __m128i n = _mm_add_epi16(s, _mm_srli_epi16(c, 1));
  const __m128i c_bytes = _mm_packus_epi16(c, c);
  const __m128i r_low = _mm_unpacklo_epi8(Lookup(kRecipLow, c_bytes), Lookup(kRecipMid, c_bytes));
  const __m128i r_high = _mm_unpacklo_epi8(Lookup(kRecipHigh, c_bytes), _mm_setzero_si128());
  return _mm_srli_epi16(_mm_add_epi16(_mm_mulhi_epu16(n, r_low), _mm_mullo_epi16(n, r_high)), 1);
}

// Vectors of 8 outputs; a vector whose counts are all 0 or 25 stores nothing,
// the others keep dst where the count is 0 or 25.
template <int kLead>
int MaskedBoxSteps(const uint16_t* v_sums, const uint16_t* m_sums, uint8_t* dst, int x, int n) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i area = _mm_set1_epi16(kNoBleedArea);
  for (; x + 8 <= n; x += 8) {
    __m128i c = Load(m_sums + x), s = Load(v_sums + x);
    for (int j = 1; j < kNoBleedTaps; ++j) {
      c = _mm_add_epi16(c, Load(m_sums + x + j * kLead));
      s = _mm_add_epi16(s, Load(v_sums + x + j * kLead));
    }
    const __m128i keep = _mm_or_si128(_mm_cmpeq_epi16(c, zero), _mm_cmpeq_epi16(c, area));
    if (_mm_movemask_epi8(keep) == 0xFFFF) continue;
    const __m128i old =
        _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(dst + x)));
    const __m128i out = _mm_blendv_epi8(MaskedMean8(s, c), old, keep);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + x), _mm_packus_epi16(out, out));
  }
  return x;
}

}  // namespace

void FillNoBleed_SSE41(RowKernels* k) { FillNoBleedLoops(k); }

}  // namespace dofra
