// NEON row helpers of the refined weight map (the driver and the scalar
// formulas are in weight/refine_map.cpp and weight/refine_rows.cpp): the
// steps of kernels/x86/refine_x86.h, 8 columns in 16-bit lanes, with table
// lookups of up to 64 entries for the gathers and the range kernel.
#include <arm_neon.h>

#include <cstdint>

#include "kernels/fixed_point.h"
#include "kernels/refine_loops.h"

namespace dofra {

namespace {

constexpr int kLanes = 8;
constexpr int kTableBytes = 64;  // one vqtbl4 lookup

// Lane k: ix[x + k] - base as a byte index (below 16 where Gathers() holds).
inline uint8x8_t PickOf8(const int32_t* ix, int x, int base) {
  const int32x4_t b = vdupq_n_s32(base);
  const int16x8_t picks = vcombine_s16(vmovn_s32(vsubq_s32(vld1q_s32(ix + x), b)),
                                       vmovn_s32(vsubq_s32(vld1q_s32(ix + x + 4), b)));
  return vmovn_u16(vreinterpretq_u16_s16(picks));
}

// 16 bytes from the sample at `base` (the plane's pad keeps them readable),
// the picked ones widened.
inline uint16x8_t Gather8(const uint8_t* plane, int base, uint8x8_t pick) {
  return vmovl_u8(vqtbl1_u8(vld1q_u8(plane + base), pick));
}

// V and U of the chroma pairs of 8 pixels from x, as Chroma8 of the x86
// steps: one load ending at the last byte needed (or starting at the row's
// start), picked by the pattern of an even or an odd first column.
inline void Chroma8(const uint8_t* chroma, int x, uint16x8_t* v, uint16x8_t* u) {
  static const uint8_t kV[2][kLanes] = {{0, 0, 2, 2, 4, 4, 6, 6}, {0, 2, 2, 4, 4, 6, 6, 8}};
  static const uint8_t kU[2][kLanes] = {{1, 1, 3, 3, 5, 5, 7, 7}, {1, 3, 3, 5, 5, 7, 7, 9}};
  const int last = (x + kLanes - 1) | 1;
  const int start = last >= 15 ? last - 15 : 0;
  const uint8x8_t at = vdup_n_u8(static_cast<uint8_t>((x & ~1) - start));
  const uint8x16_t src = vld1q_u8(chroma + start);
  const int odd = x & 1;
  *v = vmovl_u8(vqtbl1_u8(src, vadd_u8(vld1_u8(kV[odd]), at)));
  *u = vmovl_u8(vqtbl1_u8(src, vadd_u8(vld1_u8(kU[odd]), at)));
}

// min(|y - sy| + ((cw * (|v - sv| + |u - su|)) >> 2), 255), at most 1275
// before the clamp.
inline uint16x8_t Distance8(uint16x8_t y, uint16x8_t v, uint16x8_t u, uint16x8_t sy, uint16x8_t sv,
                            uint16x8_t su, uint16x8_t cw) {
  const uint16x8_t chroma = vaddq_u16(vabdq_u16(v, sv), vabdq_u16(u, su));
  const uint16x8_t d = vaddq_u16(vabdq_u16(y, sy), vshrq_n_u16(vmulq_u16(chroma, cw), 2));
  return vminq_u16(d, vdupq_n_u16(255));
}

// range[d] for 16 distances: 64 entries per lookup; an index past a lookup's
// 64 leaves the lane as it was (vqtbx), and the first lookup zeroes it, so
// lanes past the last nonzero chunk read 0.
inline uint8x16_t RangeOf16(uint8x16_t d, const RefineTables& t) {
  uint8x16_t r = vqtbl4q_u8(vld1q_u8_x4(t.range), d);
  for (int b = 1; b * kTableBytes < t.range_chunks * kRefineGroup; ++b) {
    const uint8x16_t index = vsubq_u8(d, vdupq_n_u8(static_cast<uint8_t>(b * kTableBytes)));
    r = vqtbx4q_u8(r, vld1q_u8_x4(t.range + b * kTableBytes), index);
  }
  return r;
}

// (a * (256 - f) + b * f + 128) >> 8 == a + (((b - a) * f + 128) >> 8), and
// vqrdmulh(x, f << 7) == (2 * x * f * 128 + 2^15) >> 16 == (x * f + 128) >> 8
// (floored) for |x| <= 255, f <= 255: no lane saturates.
inline int16x8_t Lerp8(int16x8_t a, int16x8_t b, int16x8_t frac7) {
  return vaddq_s16(a, vqrdmulhq_s16(vsubq_s16(b, a), frac7));
}

inline uint16x8_t BilinearOf8(const uint16x8_t depth[4], int16x8_t fx7, int16x8_t fy7) {
  const int16x8_t top =
      Lerp8(vreinterpretq_s16_u16(depth[0]), vreinterpretq_s16_u16(depth[1]), fx7);
  const int16x8_t bottom =
      Lerp8(vreinterpretq_s16_u16(depth[2]), vreinterpretq_s16_u16(depth[3]), fx7);
  return vreinterpretq_u16_s16(Lerp8(top, bottom, fy7));
}

// floor(n / s) for n < 2^24, 1 <= s < 2^16 (the argument of Divide4 in the
// x86 steps): the truncated float quotient, one less where n - q * s < 0.
inline uint32x4_t Divide4(uint32x4_t n, uint32x4_t s) {
  const uint32x4_t q = vcvtq_u32_f32(vdivq_f32(vcvtq_f32_u32(n), vcvtq_f32_u32(s)));
  const int32x4_t r = vreinterpretq_s32_u32(vmlsq_u32(n, q, s));
  return vreinterpretq_u32_s32(vaddq_s32(vreinterpretq_s32_u32(q), vshrq_n_s32(r, 31)));
}

// The weights of 8 depths stored at out, through the distance tables or the
// table itself lane by lane (as StoreWeights8 of the x86 steps).
inline void StoreWeights8(uint16_t* out, uint16x8_t depth, const WeightLut& lut) {
  if (!lut.short_table) {
    uint16_t d[kLanes];
    vst1q_u16(d, depth);
    for (int k = 0; k < kLanes; ++k) out[k] = lut.by_depth[d[k]];
    return;
  }
  const int16x8_t v = vreinterpretq_s16_u16(depth);
  const int16x8_t below = vsubq_s16(vdupq_n_s16(static_cast<int16_t>(lut.low)), v);
  const int16x8_t above = vsubq_s16(v, vdupq_n_s16(static_cast<int16_t>(lut.high)));
  const int16x8_t dist =
      vminq_s16(vmaxq_s16(vmaxq_s16(below, above), vdupq_n_s16(0)), vdupq_n_s16(kShortDiffs - 1));
  const uint8x8_t index = vmovn_u16(vreinterpretq_u16_s16(dist));
  // Entries 16..31 hold w(d) ^ w(d - 16): xored with 0..15, w(d) itself.
  const uint8x16_t lo0 = vld1q_u8(lut.diff_lo), hi0 = vld1q_u8(lut.diff_hi);
  const uint8x16x2_t lo = {{lo0, veorq_u8(lo0, vld1q_u8(lut.diff_lo + 16))}};
  const uint8x16x2_t hi = {{hi0, veorq_u8(hi0, vld1q_u8(lut.diff_hi + 16))}};
  vst2_u8(reinterpret_cast<uint8_t*>(out),
          (uint8x8x2_t{{vqtbl2_u8(lo, index), vqtbl2_u8(hi, index)}}));
}

struct RowWeights {
  bool flat;  // fy == 0: the upper weights are bx (by = 256 does not fit)
  int16x8_t by0_7, by1_7, fy7;
  uint16x8_t chroma_weight;
};

// The joint depth of 8 columns from x, as JointDepth8 of the x86 steps.
inline uint16x8_t JointDepth8(const RefineRow& row, const RefineColumns& cols,
                              const RefineTables& t, const RowWeights& rw, int x) {
  const int base = cols.ix[x];
  const uint8x8_t picks[2] = {PickOf8(cols.ix, x, base), PickOf8(cols.ix1, x, base)};
  const uint16x8_t y = vmovl_u8(vld1_u8(row.luma + x));
  uint16x8_t v, u;
  Chroma8(row.chroma, x, &v, &u);
  const uint16x8_t fx = vmovl_u8(vld1_u8(cols.fx + x));
  const int16x8_t bx[2] = {vreinterpretq_s16_u16(vsubq_u16(vdupq_n_u16(kFracOne), fx)),
                           vreinterpretq_s16_u16(fx)};
  uint16x8_t depth[4], distance[4], purity[4];
  for (int k = 0; k < 4; ++k) {
    const SampleRow& s = k < 2 ? row.top : row.bottom;
    const uint8x8_t pick = picks[k & 1];
    depth[k] = Gather8(s.depth, base, pick);
    purity[k] = Gather8(s.purity, base, pick);
    distance[k] = Distance8(y, v, u, Gather8(s.y, base, pick), Gather8(s.v, base, pick),
                            Gather8(s.u, base, pick), rw.chroma_weight);
  }
  const uint8x16_t r01 = RangeOf16(vcombine_u8(vmovn_u16(distance[0]), vmovn_u16(distance[1])), t);
  const uint8x16_t r23 = RangeOf16(vcombine_u8(vmovn_u16(distance[2]), vmovn_u16(distance[3])), t);
  const uint16x8_t range[4] = {vmovl_u8(vget_low_u8(r01)), vmovl_high_u8(r01),
                               vmovl_u8(vget_low_u8(r23)), vmovl_high_u8(r23)};
  uint16x8_t sum = vdupq_n_u16(0);
  uint32x4_t weighted_lo = vdupq_n_u32(0), weighted_hi = vdupq_n_u32(0);
  for (int k = 0; k < 4; ++k) {
    // (range * purity + 128) >> 8 as a rounding shift; the product < 65281.
    const uint16x8_t rp = vrshrq_n_u16(vmulq_u16(range[k], purity[k]), kFracBits);
    const int16x8_t b = k >= 2    ? vqrdmulhq_s16(bx[k & 1], rw.by1_7)
                        : rw.flat ? bx[k]
                                  : vqrdmulhq_s16(bx[k & 1], rw.by0_7);
    // b <= 256, rp <= 254, the four b at most 258: a 16-bit sum.
    const uint16x8_t w = vmulq_u16(vreinterpretq_u16_s16(b), rp);
    sum = vaddq_u16(sum, w);
    weighted_lo = vmlal_u16(weighted_lo, vget_low_u16(w), vget_low_u16(depth[k]));
    weighted_hi = vmlal_high_u16(weighted_hi, w, depth[k]);
  }
  const uint16x8_t half = vshrq_n_u16(sum, 1);
  const uint32x4_t one = vdupq_n_u32(1);
  const uint32x4_t q_lo = Divide4(vaddw_u16(weighted_lo, vget_low_u16(half)),
                                  vmaxq_u32(vmovl_u16(vget_low_u16(sum)), one));
  const uint32x4_t q_hi =
      Divide4(vaddw_high_u16(weighted_hi, half), vmaxq_u32(vmovl_high_u16(sum), one));
  const uint16x8_t joint = vcombine_u16(vmovn_u32(q_lo), vmovn_u32(q_hi));
  const int16x8_t fx7 = vreinterpretq_s16_u16(vshlq_n_u16(fx, 7));
  return vbslq_u16(vceqq_u16(sum, vdupq_n_u16(0)), BilinearOf8(depth, fx7, rw.fy7), joint);
}

// The bilinear depth of 8 columns from x whose samples load at `base`.
inline uint16x8_t BilinearDepth8(const RefineRow& row, const RefineColumns& cols, int16x8_t fy7,
                                 int x, int base) {
  const uint8x8_t left = PickOf8(cols.ix, x, base), right = PickOf8(cols.ix1, x, base);
  const uint16x8_t depth[4] = {
      Gather8(row.top.depth, base, left), Gather8(row.top.depth, base, right),
      Gather8(row.bottom.depth, base, left), Gather8(row.bottom.depth, base, right)};
  const int16x8_t fx7 = vreinterpretq_s16_u16(vshlq_n_u16(vmovl_u8(vld1_u8(cols.fx + x)), 7));
  return BilinearOf8(depth, fx7, fy7);
}

// 8 columns per step; remainder: the last step moved back (RefineWalk), the
// formula on runs shorter than one step.
void JointRow_NEON(const RefineRow& row, const RefineColumns& cols, const RefineTables& t, int from,
                   int to) {
  const RowWeights rw = {row.fy == 0, vdupq_n_s16(static_cast<int16_t>((kFracOne - row.fy) << 7)),
                         vdupq_n_s16(static_cast<int16_t>(row.fy << 7)),
                         vdupq_n_s16(static_cast<int16_t>(row.fy << 7)),
                         vdupq_n_u16(static_cast<uint16_t>(t.chroma_weight))};
  RefineWalk<kLanes>(
      cols, from, to, [&](int a, int b) { JointFormula(row, cols, t, a, b); },
      [&](int x) { StoreWeights8(row.out + x, JointDepth8(row, cols, t, rw, x), t.weights); });
}

// Steps of 8 columns, as BilinearWalk8 lays them out.
void BilinearRow_NEON(const RefineRow& row, const RefineColumns& cols, const RefineTables& t,
                      int from, int to) {
  const int16x8_t fy7 = vdupq_n_s16(static_cast<int16_t>(row.fy << 7));
  BilinearWalk8(row, cols, t, from, to, [&](int x, int base) {
    StoreWeights8(row.out + x, BilinearDepth8(row, cols, fy7, x, base), t.weights);
  });
}

// 16 columns per step, then one of 8; remainder: the formula on the last
// columns. At most 257 rows of bytes: no 16-bit sum overflows.
void ColumnSums_NEON(const uint8_t* const* rows, int n, uint16_t* sums, int from, int to) {
  int x = from;
  for (; x + kRefineGroup <= to; x += kRefineGroup) {
    uint16x8_t lo = vdupq_n_u16(0), hi = vdupq_n_u16(0);
    for (int r = 0; r < n; ++r) {
      const uint8x16_t v = vld1q_u8(rows[r] + x);
      lo = vaddw_u8(lo, vget_low_u8(v));
      hi = vaddw_high_u8(hi, v);
    }
    vst1q_u16(sums + x, lo);
    vst1q_u16(sums + x + kLanes, hi);
  }
  if (x + kLanes <= to) {
    uint16x8_t lo = vdupq_n_u16(0);
    for (int r = 0; r < n; ++r) lo = vaddw_u8(lo, vld1_u8(rows[r] + x));
    vst1q_u16(sums + x, lo);
    x += kLanes;
  }
  static const ColumnSumsFn formula = ScalarRowKernels().refine_column_sums;
  if (x < to) formula(rows, n, sums, x, to);
}

}  // namespace

void FillRefine_NEON(RowKernels* k) {
  k->refine_joint_row = JointRow_NEON;
  k->refine_bilinear_row = BilinearRow_NEON;
  k->refine_column_sums = ColumnSums_NEON;
}

}  // namespace dofra
