// NEON steps of the luma shrink under the row loops of
// kernels/shrink_y_loops.h (the plane driver and the scalar formulas are in
// blur/shrink_y.cpp).
#include <arm_neon.h>

#include <cstdint>

#include "kernels/shrink_y_loops.h"

namespace dofra {

namespace {

// Eight 16-bit sums (<= 2040) to eight bytes; vrshrn adds half the divisor
// before the shift, the formula's rounding.
template <int kFactor>
inline uint8x8_t RoundNarrow(uint16x8_t sums) {
  return vrshrn_n_u16(sums, TapShift(kFactor));
}

// Factor 4, 32 samples -> 8: adjacent sums of bytes, then of words.
inline uint8x8_t Quarter32(const uint8_t* p) {
  return RoundNarrow<4>(vpaddq_u16(vpaddlq_u8(vld1q_u8(p)), vpaddlq_u8(vld1q_u8(p + 16))));
}

// Factor 6, 48 samples -> 8. vld3 splits them into c0, c1, c2 (sample
// 3i + k in lane i of ck); group j is lanes 2j and 2j + 1 of all three, and
// its doubled taps are c2[2j] and c0[2j + 1], gathered into one vector.
inline uint8x8_t Sixth48(const uint8_t* p) {
  const uint8x16x3_t c = vld3q_u8(p);
  const uint8x16_t odd_lanes = vreinterpretq_u8_u16(vdupq_n_u16(0xFF00));
  uint16x8_t sum = vpaddlq_u8(vbslq_u8(odd_lanes, c.val[0], c.val[2]));
  sum = vpadalq_u8(sum, c.val[0]);
  sum = vpadalq_u8(sum, c.val[1]);
  sum = vpadalq_u8(sum, c.val[2]);
  return RoundNarrow<6>(sum);
}

// Factor 8, 64 samples -> 8: three rounds of adjacent sums.
inline uint8x8_t Eighth64(const uint8_t* p) {
  const uint16x8_t a = vpaddq_u16(vpaddlq_u8(vld1q_u8(p)), vpaddlq_u8(vld1q_u8(p + 16)));
  const uint16x8_t b = vpaddq_u16(vpaddlq_u8(vld1q_u8(p + 32)), vpaddlq_u8(vld1q_u8(p + 48)));
  return RoundNarrow<8>(vpaddq_u16(a, b));
}

// Vector groups of 8 over columns below x8.
template <int kFactor>
int HorizontalSteps(const uint8_t* src, uint8_t* out, int x, int x8, int cx) {
  if (kFactor == 2) {
    // vld2 splits even and odd samples; vrhadd is (a + b + 1) >> 1.
    for (; x + 2 * kGroup <= x8; x += 2 * kGroup) {
      const uint8x16x2_t v = vld2q_u8(src + 2 * x);
      vst1q_u8(out + x, vrhaddq_u8(v.val[0], v.val[1]));
    }
  }
  for (; x < x8; x += kGroup) {
    const uint8_t* group = src + x * cx;
    if (kFactor == 2) {
      const uint8x8x2_t v = vld2_u8(src + 2 * x);
      vst1_u8(out + x, vrhadd_u8(v.val[0], v.val[1]));
    } else if (kFactor == 4) {
      vst1_u8(out + x, Quarter32(group));
    } else if (kFactor == 6) {
      vst1_u8(out + x, Sixth48(group));
    } else {
      vst1_u8(out + x, Eighth64(group));
    }
  }
  return x;
}

// 16 columns from kFactor rows `stride` apart, summed in words (at most
// 2040), rounded and narrowed.
template <int kFactor>
inline uint8x16_t VerticalMean16(const uint8_t* column, int stride) {
  uint16x8_t lo = vdupq_n_u16(0);
  uint16x8_t hi = lo;
  for (int i = 0; i < kFactor; ++i) {
    const uint8x16_t v = vld1q_u8(column + i * stride);
    for (int k = 0; k < TapWeight(kFactor, i); ++k) {
      lo = vaddw_u8(lo, vget_low_u8(v));
      hi = vaddw_high_u8(hi, v);
    }
  }
  return vcombine_u8(RoundNarrow<kFactor>(lo), RoundNarrow<kFactor>(hi));
}

// 16 columns per step (factor 2: vrhadd, exactly (a + b + 1) >> 1).
template <int kFactor>
int VerticalSteps(const uint8_t* rows, uint8_t* out, int x, int w) {
  for (; x + 16 <= w; x += 16) {
    const uint8_t* column = rows + x;
    const uint8x16_t v = kFactor == 2 ? vrhaddq_u8(vld1q_u8(column), vld1q_u8(column + w))
                                      : VerticalMean16<kFactor>(column, w);
    vst1q_u8(out + x, v);
  }
  return x;
}

}  // namespace

void FillShrinkY_NEON(RowKernels* k) { FillShrinkYLoops(k); }

}  // namespace dofra
