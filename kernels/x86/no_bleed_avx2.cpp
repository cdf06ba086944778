// AVX2 steps of the no-glow blur under the row loops of
// kernels/no_bleed_loops.h: the SSE4.1 steps with 16 words or 32 bytes per
// step, the formula taking the remainders.
//
// Everything here, the loops header's helpers included, has internal
// linkage: a shared inline helper compiled with -mavx2 could be the copy an
// SSE4.1-only CPU runs.
#include <immintrin.h>

#include <cstdint>

#include "kernels/no_bleed_loops.h"

namespace dofra {

namespace {

inline __m256i Load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void Store(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }

// A cache line (32 words) of every row per step, then 16 words.
int MinRowsSteps(const uint16_t* rows, size_t stride, int count, uint16_t* out, int n) {
  int x = 0;
  for (; x + 32 <= n; x += 32) {
    __m256i a = Load(rows + x), b = Load(rows + x + 16);
    for (int k = 1; k < count; ++k) {
      const uint16_t* row = rows + k * stride + x;
      a = _mm256_min_epu16(a, Load(row));
      b = _mm256_min_epu16(b, Load(row + 16));
    }
    Store(out + x, a);
    Store(out + x + 16, b);
  }
  for (; x + 16 <= n; x += 16) {
    __m256i a = Load(rows + x);
    for (int k = 1; k < count; ++k) a = _mm256_min_epu16(a, Load(rows + k * stride + x));
    Store(out + x, a);
  }
  return x;
}

int MinShiftSteps(uint16_t* a, int n, int d) {
  int x = 0;
  for (; x + 16 <= n; x += 16) Store(a + x, _mm256_min_epu16(Load(a + x), Load(a + x + d)));
  return x;
}

// Lanes at or above threshold (max(x, threshold) == x) count in word lanes, each at
// most n / 16 <= 2^15; summed at the end.
int CountPassingSteps(const uint16_t* row, int n, uint16_t threshold, int* passing) {
  const __m256i f = _mm256_set1_epi16(static_cast<int16_t>(threshold));
  __m256i lanes = _mm256_setzero_si256();
  int x = 0;
  for (; x + 16 <= n; x += 16) {
    const __m256i v = Load(row + x);
    lanes = _mm256_sub_epi16(lanes, _mm256_cmpeq_epi16(_mm256_max_epu16(v, f), v));
  }
  const __m256i pairs = _mm256_madd_epi16(lanes, _mm256_set1_epi16(1));
  __m128i s = _mm_add_epi32(_mm256_castsi256_si128(pairs), _mm256_extracti128_si256(pairs, 1));
  s = _mm_add_epi32(s, _mm_srli_si128(s, 8));
  *passing += _mm_cvtsi128_si32(_mm_add_epi32(s, _mm_srli_si128(s, 4)));
  return x;
}

// v * m as v AND (0 - m) for m in {0, 1}, 32 columns per step.
template <bool kSub>
int MaskedSlideSteps(const uint8_t* v, const uint8_t* m, const uint8_t* v_sub, const uint8_t* m_sub,
                     uint16_t* v_sums, uint16_t* m_sums, int q, int n) {
  const __m128i zero = _mm_setzero_si128();
  for (; q + 32 <= n; q += 32) {
    for (int h = 0; h < 32; h += 16) {
      const __m128i ma = _mm_loadu_si128(reinterpret_cast<const __m128i*>(m + q + h));
      const __m128i va = _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(v + q + h)),
                                       _mm_sub_epi8(zero, ma));
      __m256i vw = _mm256_add_epi16(Load(v_sums + q + h), _mm256_cvtepu8_epi16(va));
      __m256i mw = _mm256_add_epi16(Load(m_sums + q + h), _mm256_cvtepu8_epi16(ma));
      if (kSub) {
        const __m128i ms = _mm_loadu_si128(reinterpret_cast<const __m128i*>(m_sub + q + h));
        const __m128i vs =
            _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(v_sub + q + h)),
                          _mm_sub_epi8(zero, ms));
        vw = _mm256_sub_epi16(vw, _mm256_cvtepu8_epi16(vs));
        mw = _mm256_sub_epi16(mw, _mm256_cvtepu8_epi16(ms));
      }
      Store(v_sums + q + h, vw);
      Store(m_sums + q + h, mw);
    }
  }
  return q;
}

// Entry c of a 32-entry byte table, per 128-bit lane (the table in both):
// c + 0x70 selects the first half for c < 16, c - 16 the second for c >= 16,
// each giving 0 (bit 7 set) for the other.
inline __m256i Lookup(const uint8_t* table, __m256i c_bytes) {
  const __m256i first =
      _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(table)));
  const __m256i second =
      _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(table + 16)));
  const __m256i lo = _mm256_shuffle_epi8(first, _mm256_adds_epu8(c_bytes, _mm256_set1_epi8(0x70)));
  const __m256i hi = _mm256_shuffle_epi8(second, _mm256_sub_epi8(c_bytes, _mm256_set1_epi8(16)));
  return _mm256_or_si256(lo, hi);
}

// Sixteen masked means: ((N * Rlow >> 16) + N * Rhigh) >> 1 == (N * R) >> 17.
// The pack and the unpacks work per lane, so each lane's counts meet their
// own table entries.
inline __m256i MaskedMean16(__m256i s, __m256i c) {
  const __m256i n = _mm256_add_epi16(s, _mm256_srli_epi16(c, 1));
  const __m256i c_bytes = _mm256_packus_epi16(c, c);
  const __m256i r_low =
      _mm256_unpacklo_epi8(Lookup(kRecipLow, c_bytes), Lookup(kRecipMid, c_bytes));
  const __m256i r_high = _mm256_unpacklo_epi8(Lookup(kRecipHigh, c_bytes), _mm256_setzero_si256());
  return _mm256_srli_epi16(
      _mm256_add_epi16(_mm256_mulhi_epu16(n, r_low), _mm256_mullo_epi16(n, r_high)), 1);
}

template <int kLead>
int MaskedBoxSteps(const uint16_t* v_sums, const uint16_t* m_sums, uint8_t* dst, int x, int n) {
  const __m256i zero = _mm256_setzero_si256();
  const __m256i area = _mm256_set1_epi16(kNoBleedArea);
  for (; x + 16 <= n; x += 16) {
    __m256i c = Load(m_sums + x), s = Load(v_sums + x);
    for (int j = 1; j < kNoBleedTaps; ++j) {
      c = _mm256_add_epi16(c, Load(m_sums + x + j * kLead));
      s = _mm256_add_epi16(s, Load(v_sums + x + j * kLead));
    }
    const __m256i keep = _mm256_or_si256(_mm256_cmpeq_epi16(c, zero), _mm256_cmpeq_epi16(c, area));
    if (_mm256_movemask_epi8(keep) == -1) continue;
    __m128i* out = reinterpret_cast<__m128i*>(dst + x);
    const __m256i old = _mm256_cvtepu8_epi16(_mm_loadu_si128(out));
    const __m256i v = _mm256_blendv_epi8(MaskedMean16(s, c), old, keep);
    _mm_storeu_si128(out,
                     _mm_packus_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1)));
  }
  return x;
}

}  // namespace

void FillNoBleed_AVX2(RowKernels* k) { FillNoBleedLoops(k); }

}  // namespace dofra
