// NEON steps of luma compositing under the run loops of
// kernels/composite_y_loops.h (the plane drivers and the scalar formulas are
// in blur/composite_y.cpp).
#include <arm_neon.h>

#include <cstring>

#include "kernels/composite_y_loops.h"
#include "kernels/fixed_point.h"

namespace dofra {

namespace {

// Small-row window of 8 bytes at p, of which only the first `need` are used.
// Past the row's last named sample (avail < 8) only `need` bytes are read.
inline uint8x8_t LoadSamples(const uint8_t* p, int avail, int need) {
  if (avail >= 8) return vld1_u8(p);
  uint8_t buf[8] = {0};
  std::memcpy(buf, p, static_cast<size_t>(need));
  return vld1_u8(buf);
}

inline int16x8_t Widen(uint8x8_t v) { return vreinterpretq_s16_u16(vmovl_u8(v)); }

// Blend of 8 pixels in 16-bit lanes, exact for w in 0..1024:
// (s*(1024-w) + b*w + 512) >> 10 == s + ((d*w + 512) >> 10) with d = b - s,
// since s*1024 is a multiple of 1024; and vqrdmulh(d << 5, w) computes
// (d*32*w + 2^14) >> 15 == (d*w + 512) >> 10 (it saturates only for
// -32768 * -32768). |d << 5| <= 8160 and w <= 1024 both fit int16. Heavier
// weights may leave 0..255; the caller's vqmovun saturates them.
inline int16x8_t Blend8(int16x8_t s16, int16x8_t b16, int16x8_t w16) {
  const int16x8_t d = vshlq_n_s16(vsubq_s16(b16, s16), 5);
  return vaddq_s16(s16, vqrdmulhq_s16(d, w16));
}

inline int16x8_t LoadWeights(const uint16_t* w) { return vreinterpretq_s16_u16(vld1q_u16(w)); }

// Blends 8 columns at c with the blurred values b16 and stores them.
inline void BlendStore8(const LumaRow& q, int c, int16x8_t b16) {
  const int16x8_t o = Blend8(Widen(vld1_u8(q.src + c)), b16, LoadWeights(q.w + c));
  vst1_u8(q.out + c, vqmovun_s16(o));
}

// Blends 16 columns at c with the blurred values lo (columns c..c+7) and hi.
inline void BlendStore16(const LumaRow& q, int c, int16x8_t lo, int16x8_t hi) {
  const uint8x16_t src = vld1q_u8(q.src + c);
  const int16x8_t o_lo = Blend8(Widen(vget_low_u8(src)), lo, LoadWeights(q.w + c));
  const int16x8_t o_hi = Blend8(Widen(vget_high_u8(src)), hi, LoadWeights(q.w + c + 8));
  vst1q_u8(q.out + c, vcombine_u8(vqmovun_s16(o_lo), vqmovun_s16(o_hi)));
}

// x2: 16 columns share 8 block means, each used twice.
int X2Groups(const LumaRow& q, int c, int W) {
  for (; c + kX2Group <= W - 2; c += kX2Group) {
    const int k = c >> 1;
    const uint16x8_t a = vaddl_u8(vld1_u8(q.s0 + k), vld1_u8(q.s0 + k + 1));
    const uint16x8_t b = vaddl_u8(vld1_u8(q.s1 + k), vld1_u8(q.s1 + k + 1));
    // vrshr adds 2 before the shift: the formula's rounded mean of four.
    const int16x8_t mean = vreinterpretq_s16_u16(vrshrq_n_u16(vaddq_u16(a, b), 2));
    BlendStore16(q, c, vzip1q_s16(mean, mean), vzip2q_s16(mean, mean));
  }
  return c;
}

// Left and right sample indices and weights of 16 columns of the phase
// table of factor F: column i reads samples i / F and i / F + 1 with weights
// (F - i % F, i % F).
struct Table16 {
  uint8_t b[16];
};

constexpr Table16 LeftIndexXF(int F) {
  Table16 t{};
  for (int i = 0; i < 16; ++i) t.b[i] = static_cast<uint8_t>(i / F);
  return t;
}

constexpr Table16 LeftWeightXF(int F) {
  Table16 t{};
  for (int i = 0; i < 16; ++i) t.b[i] = static_cast<uint8_t>(F - i % F);
  return t;
}

constexpr Table16 RightWeightXF(int F) {
  Table16 t{};
  for (int i = 0; i < 16; ++i) t.b[i] = static_cast<uint8_t>(i % F);
  return t;
}

inline void StoreRows8(StripCache& k, int i, uint16x8_t h0, uint16x8_t h1) {
  vst1q_s16(k.h0 + i, vreinterpretq_s16_u16(h0));
  vst1q_s16(k.d + i, vreinterpretq_s16_u16(vsubq_u16(h1, h0)));
}

// Vertical step and blend of strip columns [0, len) at row column c0, len a
// multiple of 8; 16 columns per step, remainder one group of 8.
// (h0*(256-fy) + h1*fy + 128) >> 8 == h0 + ((d*fy + 128) >> 8)
// == h0 + vqrdmulh(d, fy << 7); fy << 7 <= 32640 fits int16.
void VerticalBlendStrip(const LumaRow& q, int c0, int len, const StripCache& k) {
  const int16x8_t fy7 = vdupq_n_s16(static_cast<int16_t>(q.fy << 7));
  auto vertical = [&](int i) {
    return vaddq_s16(vld1q_s16(k.h0 + i), vqrdmulhq_s16(vld1q_s16(k.d + i), fy7));
  };
  int i = 0;
  for (; i + 16 <= len; i += 16) BlendStore16(q, c0 + i, vertical(i), vertical(i + 8));
  if (i < len) BlendStore8(q, c0 + i, vertical(i));
}

// Left and right samples of 16 columns (table lookups into the window) and
// their weights; L*wl + R*wr <= 255 * 8 for the phase table, <= 255 * 256
// for x6.
struct Taps16 {
  uint8x16_t left_index;
  uint8x16_t left_weight;
  uint8x16_t right_weight;
};

inline uint16x8x2_t WeightedPairs16(uint8x8_t samples, const Taps16& t) {
  const uint8x16_t window = vcombine_u8(samples, samples);
  const uint8x16_t left = vqtbl1q_u8(window, t.left_index);
  const uint8x16_t right = vqtbl1q_u8(window, vaddq_u8(t.left_index, vdupq_n_u8(1)));
  uint16x8x2_t sum;
  sum.val[0] = vmlal_u8(vmull_u8(vget_low_u8(left), vget_low_u8(t.left_weight)), vget_low_u8(right),
                        vget_low_u8(t.right_weight));
  sum.val[1] = vmlal_high_u8(vmull_high_u8(left, t.left_weight), right, t.right_weight);
  return sum;
}

// Horizontal step of the phase table. fx = 256 p / F is a multiple of 256 / F, so
// (L*(256-fx) + R*fx + 128) >> 8 == (L*(F-p) + R*p + F/2) / F, the rounding
// shift by log2 F of the small sum.
// Fills the strip cache for columns [c0, c0 + len) of rows s0 and s1; len a
// multiple of 8, 16 columns per window, remainder one group of 8.
template <int F>
void XFHorizontalStrip(const LumaRow& q, int c0, int len, int named, StripCache& k) {
  static constexpr Table16 kLeft = LeftIndexXF(F);
  static constexpr Table16 kLeftWeight = LeftWeightXF(F);
  static constexpr Table16 kRightWeight = RightWeightXF(F);
  constexpr int kShift = F == 4 ? 2 : 3;
  constexpr int kStep = kBulkGroup / F;  // samples per 8 columns
  const Taps16 taps = {vld1q_u8(kLeft.b), vld1q_u8(kLeftWeight.b), vld1q_u8(kRightWeight.b)};
  auto horizontal = [&](uint8x8_t samples) {
    const uint16x8x2_t sum = WeightedPairs16(samples, taps);
    return uint16x8x2_t{{vrshrq_n_u16(sum.val[0], kShift), vrshrq_n_u16(sum.val[1], kShift)}};
  };
  int i = 0;
  for (; i + 2 * kBulkGroup <= len; i += 2 * kBulkGroup) {
    const int a = (c0 + i) / F;
    const uint16x8x2_t top = horizontal(LoadSamples(q.s0 + a, named - a, 2 * kStep + 1));
    const uint16x8x2_t bottom = horizontal(LoadSamples(q.s1 + a, named - a, 2 * kStep + 1));
    StoreRows8(k, i, top.val[0], bottom.val[0]);
    StoreRows8(k, i + 8, top.val[1], bottom.val[1]);
  }
  if (i < len) {
    const int a = (c0 + i) / F;
    const uint16x8x2_t top = horizontal(LoadSamples(q.s0 + a, named - a, kStep + 1));
    const uint16x8x2_t bottom = horizontal(LoadSamples(q.s1 + a, named - a, kStep + 1));
    StoreRows8(k, i, top.val[0], bottom.val[0]);
  }
}

// x6 groups of 24 columns as 16 + 8. Column t (0..23) of a group reads
// samples t / 6 and t / 6 + 1 with weights (left, right)[t % 6].
constexpr Table16 LeftIndexX6(int first) {
  Table16 t{};
  for (int i = 0; i < 16; ++i) t.b[i] = static_cast<uint8_t>((first + i) / 6);
  return t;
}

constexpr Table16 WeightX6(int first, const int (&weights)[6]) {
  Table16 t{};
  for (int i = 0; i < 16; ++i) t.b[i] = static_cast<uint8_t>(weights[(first + i) % 6]);
  return t;
}

// x6 horizontal step with 8-bit weights (left + right = 256, left <= 214,
// right <= 255 fit u8): L*left + R*right + 128 <= 65408 fits u16, and vrshr
// by 8 adds the 128. Fills the strip cache for bulk columns
// [1 + g0, 1 + g0 + len), g0 and len multiples of 24; no remainder. The
// second lookup's last 8 lanes repeat the first's and are not stored.
void X6HorizontalStrip(const LumaRow& q, int g0, int len, int named, StripCache& k) {
  static constexpr Table16 kLeft[2] = {LeftIndexX6(0), LeftIndexX6(16)};
  static constexpr Table16 kLeftWeight[2] = {WeightX6(0, kX6Left), WeightX6(16, kX6Left)};
  static constexpr Table16 kRightWeight[2] = {WeightX6(0, kX6Right), WeightX6(16, kX6Right)};
  constexpr int kNeed = 5;  // samples per group of 24
  Taps16 taps[2];
  for (int v = 0; v < 2; ++v)
    taps[v] = {vld1q_u8(kLeft[v].b), vld1q_u8(kLeftWeight[v].b), vld1q_u8(kRightWeight[v].b)};
  auto horizontal = [&](uint8x8_t samples, int v) {
    const uint16x8x2_t sum = WeightedPairs16(samples, taps[v]);
    return uint16x8x2_t{{vrshrq_n_u16(sum.val[0], kFracBits), vrshrq_n_u16(sum.val[1], kFracBits)}};
  };
  for (int i = 0; i < len; i += kX6Group) {
    const int a = (g0 + i) / 6;
    const uint8x8_t top = LoadSamples(q.s0 + a, named - a, kNeed);
    const uint8x8_t bottom = LoadSamples(q.s1 + a, named - a, kNeed);
    const uint16x8x2_t top16 = horizontal(top, 0), bottom16 = horizontal(bottom, 0);
    StoreRows8(k, i, top16.val[0], bottom16.val[0]);
    StoreRows8(k, i + 8, top16.val[1], bottom16.val[1]);
    StoreRows8(k, i + 16, horizontal(top, 1).val[0], horizontal(bottom, 1).val[0]);
  }
}

// Blends bulk columns [1, 1 + n) with the blurred value 0 (a row with fy = 0).
void X6ZeroRow(const LumaRow& q, int n) {
  const int16x8_t zero = vdupq_n_s16(0);
  int c = 1;
  for (; c + 16 <= 1 + n; c += 16) BlendStore16(q, c, zero, zero);
  if (c < 1 + n) BlendStore8(q, c, zero);
}

}  // namespace

void FillCompositeY_NEON(RowKernels* k) { FillCompositeYLoops(k); }

}  // namespace dofra
