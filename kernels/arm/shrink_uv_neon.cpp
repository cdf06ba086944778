// NEON steps of the chroma shrink under the row loops of
// kernels/shrink_uv_loops.h (the plane drivers and the scalar formulas are
// in blur/shrink_uv.cpp).
#include <arm_neon.h>

#include <cstdint>

#include "kernels/shrink_uv_loops.h"

namespace dofra {

namespace {

constexpr int kVec = 16;
constexpr int kPairsPerStep = 8;  // output pairs per horizontal step

// Whole steps of 8 pairs: vld2 on 16-bit lanes splits even pairs from odd
// ones, and vrhadd is (a + b + 1) >> 1 byte by byte.
int X2HorizontalSteps(const uint8_t* src, uint8_t* dst, int p, int p_end) {
  for (; p + kPairsPerStep <= p_end; p += kPairsPerStep) {
    const int x = kBytesPerPair * p;
    const uint16x8x2_t v = vld2q_u16(reinterpret_cast<const uint16_t*>(src + 2 * x));
    vst1q_u8(dst + x, vrhaddq_u8(vreinterpretq_u8_u16(v.val[0]), vreinterpretq_u8_u16(v.val[1])));
  }
  return p;
}

// 16 bytes at a time.
int X2VerticalSteps(const uint8_t* top, uint8_t* dst, int x, int x_end, int stride) {
  for (; x + kVec <= x_end; x += kVec) {
    vst1q_u8(dst + x, vrhaddq_u8(vld1q_u8(top + x), vld1q_u8(top + stride + x)));
  }
  return x;
}

// Sums per channel of 8 consecutive groups (8 * kFactor pairs from g), as
// 16-bit lanes: U sums in val[0], V sums in val[1]. A sum is at most
// 8 * 255 = 2040.
template <int kFactor>
uint16x8x2_t GroupSums(const uint8_t* g);

// x4: vld2 splits U from V over 16 pairs; adjacent sums twice.
template <>
inline uint16x8x2_t GroupSums<4>(const uint8_t* g) {
  const uint8x16x2_t a = vld2q_u8(g);
  const uint8x16x2_t b = vld2q_u8(g + 32);
  return {{vpaddq_u16(vpaddlq_u8(a.val[0]), vpaddlq_u8(b.val[0])),
           vpaddq_u16(vpaddlq_u8(a.val[1]), vpaddlq_u8(b.val[1]))}};
}

// x8: as x4 over 64 pairs, with a third round of adjacent sums.
template <>
inline uint16x8x2_t GroupSums<8>(const uint8_t* g) {
  uint16x8_t quad[4][2];
  for (int i = 0; i < 2; ++i) {
    const uint8x16x2_t a = vld2q_u8(g + 64 * i);
    const uint8x16x2_t b = vld2q_u8(g + 64 * i + 32);
    for (int c = 0; c < 2; ++c) quad[i][c] = vpaddq_u16(vpaddlq_u8(a.val[c]), vpaddlq_u8(b.val[c]));
  }
  return {{vpaddq_u16(quad[0][0], quad[1][0]), vpaddq_u16(quad[0][1], quad[1][1])}};
}

// x6, 4 groups of 6 pairs: vld3 on 16-bit lanes puts pair 3i + k in lane i
// of ck, so group j is lanes 2j and 2j + 1 of all three, its doubled taps
// c2[2j] and c0[2j + 1]. Lanes hold U in the low byte, V in the high one.
// Returns per-lane partial sums, U in val[0] and V in val[1], lanes 2j and
// 2j + 1 for group j; the caller adds them pairwise.
inline uint16x8x2_t SixthPartials(const uint8_t* g) {
  const uint16x8x3_t c = vld3q_u16(reinterpret_cast<const uint16_t*>(g));
  const uint16x8_t odd_lanes = vreinterpretq_u16_u32(vdupq_n_u32(0xFFFF0000u));
  const uint16x8_t doubled = vbslq_u16(odd_lanes, c.val[0], c.val[2]);
  const uint16x8_t low_byte = vdupq_n_u16(0xFF);
  uint16x8_t u = vandq_u16(doubled, low_byte);
  uint16x8_t v = vshrq_n_u16(doubled, 8);
  for (int k = 0; k < 3; ++k) {
    u = vaddq_u16(u, vandq_u16(c.val[k], low_byte));
    v = vsraq_n_u16(v, c.val[k], 8);
  }
  return {{u, v}};
}

template <>
inline uint16x8x2_t GroupSums<6>(const uint8_t* g) {
  const uint16x8x2_t a = SixthPartials(g);
  const uint16x8x2_t b = SixthPartials(g + 48);
  return {{vpaddq_u16(a.val[0], b.val[0]), vpaddq_u16(a.val[1], b.val[1])}};
}

// Horizontal pass, 8 output pairs per step, each step reading exactly its 8
// groups.
template <int kFactor>
int PairHorizontalSteps(const uint8_t* src, uint8_t* dst, int p, int p_end) {
  constexpr int kGroup = kBytesPerPair * kFactor;
  constexpr int kShift = Taps<kFactor>::kShift;
  for (; p + kPairsPerStep <= p_end; p += kPairsPerStep) {
    const uint16x8x2_t sums = GroupSums<kFactor>(src + kGroup * p);
    // vrshrn adds half the divisor before the shift; vst2 interleaves U, V.
    vst2_u8(dst + kBytesPerPair * p,
            (uint8x8x2_t{{vrshrn_n_u16(sums.val[0], kShift), vrshrn_n_u16(sums.val[1], kShift)}}));
  }
  return p;
}

// Vertical pass, 16 bytes per step as u16 lanes.
template <int kFactor>
int PairVerticalSteps(const uint8_t* top, uint8_t* dst, int x, int x_end, int stride) {
  constexpr int kShift = Taps<kFactor>::kShift;
  for (; x + kVec <= x_end; x += kVec) {
    uint16x8_t lo = vdupq_n_u16(0);
    uint16x8_t hi = lo;
    for (int i = 0; i < kFactor; ++i) {
      const uint8x16_t v = vld1q_u8(top + i * stride + x);
      for (int k = 0; k < Taps<kFactor>::kWeight[i]; ++k) {  // tap weights are 1 or 2
        lo = vaddw_u8(lo, vget_low_u8(v));
        hi = vaddw_high_u8(hi, v);
      }
    }
    vst1q_u8(dst + x, vcombine_u8(vrshrn_n_u16(lo, kShift), vrshrn_n_u16(hi, kShift)));
  }
  return x;
}

}  // namespace

void FillShrinkUV_NEON(RowKernels* k) { FillShrinkUVLoops(k); }

}  // namespace dofra
