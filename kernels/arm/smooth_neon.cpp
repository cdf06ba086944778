// NEON steps of the box smoothing under the row loops of
// kernels/smooth_loops.h (the plane drivers and the scalar formulas are in
// blur/smooth.cpp).
#include <arm_neon.h>

#include <cstdint>
#include <cstring>

#include "kernels/smooth_loops.h"

namespace dofra {

namespace {

// Inclusive prefix sum of four lanes, per channel: two channels interleave
// in the lanes when kLead is 2. vext with zero shifts lanes up.
template <int kLead>
inline uint32x4_t PrefixSum4(uint32x4_t v) {
  const uint32x4_t zero = vdupq_n_u32(0);
  if (kLead == 1) v = vaddq_u32(v, vextq_u32(zero, v, 3));
  return vaddq_u32(v, vextq_u32(zero, v, 2));
}

// The last running sum of each channel, broadcast to its lanes.
template <int kLead>
inline uint32x4_t CarryOut(uint32x4_t v) {
  return kLead == 1 ? vdupq_laneq_u32(v, 3) : vcombine_u32(vget_high_u32(v), vget_high_u32(v));
}

inline uint32x4_t Load4Bytes(const uint8_t* p) {
  uint32_t bytes;
  std::memcpy(&bytes, p, sizeof(bytes));
  return vmovl_u16(vget_low_u16(vmovl_u8(vreinterpret_u8_u32(vdup_n_u32(bytes)))));
}

template <int kLead>
int IntegralSteps(const uint8_t* expanded, uint32_t* column_sums, uint32_t* out, int n) {
  uint32x4_t carry = vdupq_n_u32(0);
  int q = 0;
  for (; q + 4 <= n; q += 4) {
    const uint32x4_t c = vaddq_u32(vld1q_u32(column_sums + q), Load4Bytes(expanded + q));
    vst1q_u32(column_sums + q, c);
    const uint32x4_t row = vaddq_u32(PrefixSum4<kLead>(c), carry);
    vst1q_u32(out + q, row);
    carry = CarryOut<kLead>(row);
  }
  return q;
}

template <bool kTop>
inline uint32x4_t BoxSum4(const uint32_t* top, const uint32_t* bottom, int right, int left) {
  uint32x4_t sum = vsubq_u32(vld1q_u32(bottom + right), vld1q_u32(bottom + left));
  if (kTop) sum = vaddq_u32(sum, vsubq_u32(vld1q_u32(top + left), vld1q_u32(top + right)));
  return sum;
}

// Lane-wise the scalar expression itself: vmul and vadd wrap like uint32_t
// (hence no rounding shift, which would not), so every input matches the
// formula.
inline uint32x4_t Normalise4(uint32x4_t sum, uint32x4_t w) {
  const uint32x4_t half = vdupq_n_u32(kHalfQ10);
  const uint32x4_t t = vshrq_n_u32(vaddq_u32(vmulq_u32(sum, w), half), kQ10Shift);
  return vshrq_n_u32(vaddq_u32(vmulq_u32(t, w), half), kQ10Shift);
}

// Eight normalised sums, kept mod 256: the truncating narrows drop the
// high bits.
inline uint8x8_t Normalise8Wide(uint32x4_t lo, uint32x4_t hi, uint32x4_t w) {
  return vmovn_u16(vcombine_u16(vmovn_u32(Normalise4(lo, w)), vmovn_u32(Normalise4(hi, w))));
}

// The narrow steps: vqrdmulh (saturating only for -32768 * -32768); the
// saturating narrow keeps S exact.
// Eight sums in words, each step as above, the result mod 256.
inline uint8x8_t NormaliseWords8Narrow(int16x8_t sums, int16x8_t w_scaled) {
  const int16x8_t t = vqrdmulhq_s16(sums, w_scaled);
  return vmovn_u16(vreinterpretq_u16_s16(vqrdmulhq_s16(t, w_scaled)));
}

inline uint8x8_t Normalise8Narrow(uint32x4_t lo, uint32x4_t hi, int16x8_t w_scaled) {
  const uint16x8_t sums =
      vcombine_u16(vqmovun_s32(vreinterpretq_s32_u32(lo)), vqmovun_s32(vreinterpretq_s32_u32(hi)));
  return NormaliseWords8Narrow(vreinterpretq_s16_u16(sums), w_scaled);
}

// Vectors of 8 outputs.
template <int kLead, bool kTop, bool kNarrow>
int BoxSteps(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, int x, int end, int span,
             uint32_t w) {
  const int16x8_t w_scaled = vdupq_n_s16(static_cast<int16_t>(w << kNarrowScale));
  const uint32x4_t w_wide = vdupq_n_u32(w);
  for (; x + 8 <= end; x += 8) {
    const uint32x4_t lo = BoxSum4<kTop>(top, bottom, x + span, x - kLead);
    const uint32x4_t hi = BoxSum4<kTop>(top, bottom, x + 4 + span, x + 4 - kLead);
    vst1_u8(dst + x, kNarrow ? Normalise8Narrow(lo, hi, w_scaled) : Normalise8Wide(lo, hi, w_wide));
  }
  return x;
}

// sums[q] += add[q] (- sub[q]), 16 columns per step.
template <bool kSub>
int SlideSteps(const uint8_t* add, const uint8_t* sub, uint16_t* sums, int q, int m) {
  for (; q + 16 <= m; q += 16) {
    const uint8x16_t a = vld1q_u8(add + q);
    uint16x8_t lo = vaddw_u8(vld1q_u16(sums + q), vget_low_u8(a));
    uint16x8_t hi = vaddw_high_u8(vld1q_u16(sums + q + 8), a);
    if (kSub) {
      const uint8x16_t b = vld1q_u8(sub + q);
      lo = vsubw_u8(lo, vget_low_u8(b));
      hi = vsubw_high_u8(hi, b);
    }
    vst1q_u16(sums + q, lo);
    vst1q_u16(sums + q + 8, hi);
  }
  return q;
}

// The horizontal 2r + 1 taps (kLead bytes apart) of eight outputs.
template <int kLead, int kR>
inline uint16x8_t BoxSum8(const uint16_t* sums, int r) {
  const int taps = 2 * (kR == kAnyRadius ? r : kR) + 1;
  uint16x8_t sum = vld1q_u16(sums);
  for (int j = 1; j < taps; ++j) sum = vaddq_u16(sum, vld1q_u16(sums + j * kLead));
  return sum;
}

inline uint8x8_t NormaliseWords8Wide(uint16x8_t sums, uint32x4_t w) {
  return Normalise8Wide(vmovl_u16(vget_low_u16(sums)), vmovl_high_u16(sums), w);
}

template <int kLead, int kR, bool kNarrow>
void SlideBoxSteps(const uint16_t* sums, uint8_t* dst, int begin, int n, int r, uint32_t w) {
  const int16x8_t w_scaled = vdupq_n_s16(static_cast<int16_t>(w << kNarrowScale));
  const uint32x4_t w_wide = vdupq_n_u32(w);
  SlideWalk(begin, n, [&](int x) {
    const uint16x8_t sum = BoxSum8<kLead, kR>(sums + x, r);
    vst1_u8(dst + x, kNarrow ? NormaliseWords8Narrow(vreinterpretq_s16_u16(sum), w_scaled)
                             : NormaliseWords8Wide(sum, w_wide));
  });
}

}  // namespace

void FillSmooth_NEON(RowKernels* k) { FillSmoothLoops(k); }

}  // namespace dofra
