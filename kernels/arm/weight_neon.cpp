// NEON row helpers of the weight-map interpolation, the depth lookup and the
// depth range (the drivers and the scalar formulas are in weight/weight_map.cpp and
// weight/depth_table.cpp).
#include <arm_neon.h>

#include <cstdint>

#include "kernels/weight_loops.h"

namespace dofra {

namespace {

constexpr int kVec = 16;

// (a * (256 - f) + b * f + 128) >> 8 == a + (((b - a) * f + 128) >> 8), as
// a * 256 is a whole multiple of 256; and vqrdmulh(x, f << 7) ==
// (x * f * 128 + 2^14) >> 15 == (x * f + 128) >> 8 for |x| <= 255, f <= 255:
// both operands fit in i16 (f << 7 <= 32640), the result is floored.
inline int16x8_t Lerp16_NEON(int16x8_t a, int16x8_t delta, int16x8_t frac7) {
  return vaddq_s16(a, vqrdmulhq_s16(delta, frac7));
}

// Depths of 16 pixels as bytes, from the pixels' top rows t0, t1 and
// differences d0, d1 (8 pixels each); vqmovun saturates like the formula.
inline uint8x16_t Depths16(uint16x8_t t0, uint16x8_t t1, int16x8_t d0, int16x8_t d1,
                           int16x8_t frac7) {
  return vcombine_u8(vqmovun_s16(Lerp16_NEON(vreinterpretq_s16_u16(t0), d0, frac7)),
                     vqmovun_s16(Lerp16_NEON(vreinterpretq_s16_u16(t1), d1, frac7)));
}

// 16 weights from their low and high bytes; vst2 interleaves them into
// little-endian words.
inline void Store16Weights(uint16_t* out, uint8x16_t lo, uint8x16_t hi) {
  vst2q_u8(reinterpret_cast<uint8_t*>(out), (uint8x16x2_t{{lo, hi}}));
}

// Depths of the group of 16 pixels at column j.
inline uint8x16_t GroupDepths(const uint16_t* top, const int16_t* delta, int j, int16x8_t frac7) {
  return Depths16(vld1q_u16(top + j), vld1q_u16(top + j + 8), vld1q_s16(delta + j),
                  vld1q_s16(delta + j + 8), frac7);
}

// Table lookup: 16 pixels per step, the distance clamped to 31 and looked up
// in one 32-entry table per byte of the weight. The stored entries 16..31
// hold w(d) ^ w(d - 16); xoring them with entries 0..15 once per call gives
// w(d) itself. Remainder: the scalar formula on the last columns.
void WeightRowTable_NEON(const uint16_t* top, const int16_t* delta, int from, int to,
                         const WeightRow& row, const WeightLut& lut) {
  const uint8x16_t lo0 = vld1q_u8(lut.diff_lo), hi0 = vld1q_u8(lut.diff_hi);
  const uint8x16x2_t lo_table = {{lo0, veorq_u8(lo0, vld1q_u8(lut.diff_lo + 16))}};
  const uint8x16x2_t hi_table = {{hi0, veorq_u8(hi0, vld1q_u8(lut.diff_hi + 16))}};
  const uint8x16_t low = vdupq_n_u8(static_cast<uint8_t>(lut.low));
  const uint8x16_t high = vdupq_n_u8(static_cast<uint8_t>(lut.high));
  const uint8x16_t last = vdupq_n_u8(kShortDiffs - 1);
  const int16x8_t frac7 = vdupq_n_s16(static_cast<int16_t>(row.fy << 7));
  int j = from;
  for (; j + kGroup <= to; j += kGroup) {
    const uint8x16_t v = GroupDepths(top, delta, j, frac7);
    // low <= high, so at most one saturating difference is nonzero.
    const uint8x16_t d = vminq_u8(vorrq_u8(vqsubq_u8(low, v), vqsubq_u8(v, high)), last);
    Store16Weights(row.out + j, vqtbl2q_u8(lo_table, d), vqtbl2q_u8(hi_table, d));
  }
  if (j < to) ScalarRowKernels().weight_row(top, delta, j, to, row, lut);
}

// Per group, the weights of its 16 depths from group_min on are loaded as
// lookup tables and indexed by v - group_min (0..15). Whole groups only.
void NarrowRow_NEON(const uint16_t* top, const int16_t* delta, const uint8_t* group_min, int from,
                    int to, const WeightRow& row, const WeightLut& lut) {
  const int16x8_t frac7 = vdupq_n_s16(static_cast<int16_t>(row.fy << 7));
  for (int j = from; j < to; j += kGroup) {
    const uint8_t base = group_min[j / kGroup];
    const uint8x16_t lo_table = vld1q_u8(lut.depth_lo + base);
    const uint8x16_t hi_table = vld1q_u8(lut.depth_hi + base);
    const uint8x16_t index = vsubq_u8(GroupDepths(top, delta, j, frac7), vdupq_n_u8(base));
    Store16Weights(row.out + j, vqtbl1q_u8(lo_table, index), vqtbl1q_u8(hi_table, index));
  }
}

// Remainder: the scalar formula on the last n mod 8 pixels.
void FillRow_NEON(uint16_t* out, int n, uint16_t w, bool) {
  const uint16x8_t value = vdupq_n_u16(w);
  int i = 0;
  for (; i + 8 <= n; i += 8) vst1q_u16(out + i, value);
  if (i < n) ScalarRowKernels().weight_fill_row(out + i, n - i, w, false);
}

inline int16x8_t WidenLow(uint8x16_t v) { return vreinterpretq_s16_u16(vmovl_u8(vget_low_u8(v))); }
inline int16x8_t WidenHigh(uint8x16_t v) { return vreinterpretq_s16_u16(vmovl_high_u8(v)); }

// One group's depths in one row, 8 per vector: the samples from one 16-byte
// load by two lookups (picks are 0..15).
void LerpGroup_NEON(const uint8_t* row, const ColumnTable& c, int g, int16x8_t* lo, int16x8_t* hi) {
  const uint8x16_t src = vld1q_u8(row + c.load_at[g]);
  const uint8x16_t a = vqtbl1q_u8(src, vld1q_u8(c.pick0[g]));
  const uint8x16_t b = vqtbl1q_u8(src, vld1q_u8(c.pick1[g]));
  const int16x8_t a_lo = WidenLow(a), a_hi = WidenHigh(a);
  const int16x8_t b_lo = WidenLow(b), b_hi = WidenHigh(b);
  *lo = Lerp16_NEON(a_lo, vsubq_s16(b_lo, a_lo), vld1q_s16(c.frac7[g]));
  *hi = Lerp16_NEON(a_hi, vsubq_s16(b_hi, a_hi), vld1q_s16(c.frac7[g] + 8));
}

// Remainder: the scalar formula on the last columns and on groups whose
// samples do not fit one load.
void LerpPair_NEON(const uint8_t* row0, const uint8_t* row1, const ColumnTable& c, int from, int to,
                   uint16_t* top, int16_t* delta) {
  LerpPairWalk(row0, row1, c, from, to, top, delta, ScalarRowKernels().weight_lerp_pair,
               [&](int g, int j) {
                 int16x8_t t0, t1, b0, b1;
                 LerpGroup_NEON(row0, c, g, &t0, &t1);
                 LerpGroup_NEON(row1, c, g, &b0, &b1);
                 vst1q_u16(top + j, vreinterpretq_u16_s16(t0));
                 vst1q_u16(top + j + 8, vreinterpretq_u16_s16(t1));
                 vst1q_s16(delta + j, vsubq_s16(b0, t0));
                 vst1q_s16(delta + j + 8, vsubq_s16(b1, t1));
               });
}

void MinMaxBody_NEON(const uint8_t* src, int body, uint8_t* min_out, uint8_t* max_out) {
  uint8x16_t vmin = vdupq_n_u8(0xFF);
  uint8x16_t vmax = vdupq_n_u8(0);
  for (int i = 0; i < body; i += kVec) {
    const uint8x16_t v = vld1q_u8(src + i);
    vmin = vminq_u8(vmin, v);
    vmax = vmaxq_u8(vmax, v);
  }
  *min_out = vminvq_u8(vmin);
  *max_out = vmaxvq_u8(vmax);
}

// A 256-entry byte table as four 64-entry ones: an index past a table's 64
// entries (wrapped below it, or above it) leaves the byte from the one before.
// Remainder: the scalar formula on the last n mod 16 bytes.
void Lookup_NEON(const uint8_t* src, uint8_t* dst, int n, const uint8_t* table) {
  constexpr int kQuarter = 64;
  const uint8x16x4_t q0 = vld1q_u8_x4(table), q1 = vld1q_u8_x4(table + kQuarter);
  const uint8x16x4_t q2 = vld1q_u8_x4(table + 2 * kQuarter);
  const uint8x16x4_t q3 = vld1q_u8_x4(table + 3 * kQuarter);
  const uint8x16_t step = vdupq_n_u8(kQuarter);
  int i = 0;
  for (; i + kVec <= n; i += kVec) {
    const uint8x16_t x = vld1q_u8(src + i);
    const uint8x16_t x1 = vsubq_u8(x, step), x2 = vsubq_u8(x1, step), x3 = vsubq_u8(x2, step);
    uint8x16_t v = vqtbl4q_u8(q0, x);
    v = vqtbx4q_u8(v, q1, x1);
    v = vqtbx4q_u8(v, q2, x2);
    vst1q_u8(dst + i, vqtbx4q_u8(v, q3, x3));
  }
  for (; i < n; ++i) dst[i] = table[src[i]];
}

}  // namespace

void FillWeight_NEON(RowKernels* k) {
  k->weight_row_short = WeightRowTable_NEON;
  k->weight_narrow_row = NarrowRow_NEON;
  k->weight_fill_row = FillRow_NEON;
  k->weight_lerp_pair = LerpPair_NEON;
  k->depth_lookup = Lookup_NEON;
  k->depth_min_max_body = MinMaxBody_NEON;
}

}  // namespace dofra
