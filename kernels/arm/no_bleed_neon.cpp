// NEON steps of the no-glow blur under the row loops of
// kernels/no_bleed_loops.h (the driver and the scalar formulas are in
// blur/no_bleed.cpp and blur/no_bleed_rows.cpp).
#include <arm_neon.h>

#include <cstdint>

#include "kernels/no_bleed_loops.h"

namespace dofra {

namespace {

// Unsigned word minimum: exact, like std::min.
int MinRowsSteps(const uint16_t* rows, size_t stride, int count, uint16_t* out, int n) {
  int x = 0;
  for (; x + 32 <= n; x += 32) {  // a cache line of every row per step
    uint16x8_t m[4];
    for (int v = 0; v < 4; ++v) m[v] = vld1q_u16(rows + x + 8 * v);
    for (int k = 1; k < count; ++k) {
      const uint16_t* row = rows + k * stride + x;
      for (int v = 0; v < 4; ++v) m[v] = vminq_u16(m[v], vld1q_u16(row + 8 * v));
    }
    for (int v = 0; v < 4; ++v) vst1q_u16(out + x + 8 * v, m[v]);
  }
  for (; x + 8 <= n; x += 8) {
    uint16x8_t m = vld1q_u16(rows + x);
    for (int k = 1; k < count; ++k) m = vminq_u16(m, vld1q_u16(rows + k * stride + x));
    vst1q_u16(out + x, m);
  }
  return x;
}

int MinShiftSteps(uint16_t* a, int n, int d) {
  int x = 0;
  for (; x + 8 <= n; x += 8) vst1q_u16(a + x, vminq_u16(vld1q_u16(a + x), vld1q_u16(a + x + d)));
  return x;
}

// Lanes at or above threshold, one per lane.
int CountPassingSteps(const uint16_t* row, int n, uint16_t threshold, int* passing) {
  const uint16x8_t f = vdupq_n_u16(threshold);
  int x = 0;
  for (; x + 8 <= n; x += 8)
    *passing += vaddvq_u16(vshrq_n_u16(vcgeq_u16(vld1q_u16(row + x), f), 15));
  return x;
}

inline uint8x16_t Negate(uint8x16_t m) { return vsubq_u8(vdupq_n_u8(0), m); }

// v * m for m in {0, 1} as v AND (0 - m); the word sums wrap like the
// formula's uint16_t.
template <bool kSub>
int MaskedSlideSteps(const uint8_t* v, const uint8_t* m, const uint8_t* v_sub, const uint8_t* m_sub,
                     uint16_t* v_sums, uint16_t* m_sums, int q, int n) {
  for (; q + 16 <= n; q += 16) {
    const uint8x16_t ma = vld1q_u8(m + q);
    const uint8x16_t va = vandq_u8(vld1q_u8(v + q), Negate(ma));
    uint16x8_t vlo = vaddw_u8(vld1q_u16(v_sums + q), vget_low_u8(va));
    uint16x8_t vhi = vaddw_high_u8(vld1q_u16(v_sums + q + 8), va);
    uint16x8_t mlo = vaddw_u8(vld1q_u16(m_sums + q), vget_low_u8(ma));
    uint16x8_t mhi = vaddw_high_u8(vld1q_u16(m_sums + q + 8), ma);
    if (kSub) {
      const uint8x16_t ms = vld1q_u8(m_sub + q);
      const uint8x16_t vs = vandq_u8(vld1q_u8(v_sub + q), Negate(ms));
      vlo = vsubw_u8(vlo, vget_low_u8(vs));
      vhi = vsubw_high_u8(vhi, vs);
      mlo = vsubw_u8(mlo, vget_low_u8(ms));
      mhi = vsubw_high_u8(mhi, ms);
    }
    vst1q_u16(v_sums + q, vlo);
    vst1q_u16(v_sums + q + 8, vhi);
    vst1q_u16(m_sums + q, mlo);
    vst1q_u16(m_sums + q + 8, mhi);
  }
  return q;
}

// Entry c of a 32-entry byte table; tbl gives 0 for c >= 32.
inline uint8x8_t Lookup(const uint8_t* table, uint8x8_t c_bytes) {
  const uint8x16x2_t t = {{vld1q_u8(table), vld1q_u8(table + 16)}};
  return vqtbl2_u8(t, c_bytes);
}

// Eight masked means: ((N * Rlow >> 16) + N * Rhigh) >> 1 == (N * R) >> 17.
inline uint16x8_t MaskedMean8(uint16x8_t s, uint16x8_t c) {
  const uint16x8_t n = vaddq_u16(s, vshrq_n_u16(c, 1));
  const uint8x8_t c_bytes = vmovn_u16(c);
  const uint16x8_t r_low =
      vorrq_u16(vmovl_u8(Lookup(kRecipLow, c_bytes)), vshll_n_u8(Lookup(kRecipMid, c_bytes), 8));
  const uint16x8_t r_high = vmovl_u8(Lookup(kRecipHigh, c_bytes));
  const uint16x8_t low =
      vcombine_u16(vshrn_n_u32(vmull_u16(vget_low_u16(n), vget_low_u16(r_low)), 16),
                   vshrn_n_u32(vmull_high_u16(n, r_low), 16));
  return vshrq_n_u16(vaddq_u16(low, vmulq_u16(n, r_high)), 1);
}

template <int kLead>
int MaskedBoxSteps(const uint16_t* v_sums, const uint16_t* m_sums, uint8_t* dst, int x, int n) {
  const uint16x8_t area = vdupq_n_u16(kNoBleedArea);
  for (; x + 8 <= n; x += 8) {
    uint16x8_t c = vld1q_u16(m_sums + x), s = vld1q_u16(v_sums + x);
    for (int j = 1; j < kNoBleedTaps; ++j) {
      c = vaddq_u16(c, vld1q_u16(m_sums + x + j * kLead));
      s = vaddq_u16(s, vld1q_u16(v_sums + x + j * kLead));
    }
    const uint16x8_t keep = vorrq_u16(vceqzq_u16(c), vceqq_u16(c, area));
    if (vminvq_u16(keep) == 0xFFFF) continue;
    const uint8x8_t old = vld1_u8(dst + x);
    vst1_u8(dst + x, vbsl_u8(vmovn_u16(keep), old, vmovn_u16(MaskedMean8(s, c))));
  }
  return x;
}

}  // namespace

void FillNoBleed_NEON(RowKernels* k) { FillNoBleedLoops(k); }

}  // namespace dofra
