// NEON steps of chroma compositing under the walks of
// kernels/composite_uv_loops.h (the plane drivers and the scalar formulas
// are in blur/composite_uv.cpp).
#include <arm_neon.h>

#include <cstring>

#include "kernels/composite_uv_loops.h"

namespace dofra {

namespace {

// The U lanes and the V lanes of 8 pairs.
struct Channels {
  int16x8_t u;
  int16x8_t v;
};

// 16 small-row bytes at p of which `avail` (> 0) are named: a full load only
// while all 16 lie inside what the row names, else a zero-padded copy.
inline uint8x16_t LoadWindow(const uint8_t* p, int avail) {
  if (avail >= 16) return vld1q_u8(p);
  uint8_t buf[16] = {0};
  std::memcpy(buf, p, static_cast<size_t>(avail));
  return vld1q_u8(buf);
}

// (s*(1024-w) + b*w + 512) >> 10 == s + ((b-s)*w + 512) >> 10, s*1024 being
// a multiple of 1024; vqrdmulh(d << 5, w) = (d*32*w + 2^14) >> 15 is exactly
// that shift. |d << 5| <= 8160 and w <= 1024 both fit int16.
inline int16x8_t Blend(int16x8_t s, int16x8_t b, int16x8_t w) {
  return vaddq_s16(s, vqrdmulhq_s16(vshlq_n_s16(vsubq_s16(b, s), 5), w));
}

// (h0*(256-fy) + h1*fy + 128) >> 8 == h0 + ((h1-h0)*fy + 128) >> 8
// == h0 + vqrdmulh(h1 - h0, fy << 7); fy << 7 <= 32640 fits int16.
inline Channels Vertical(const Channels& h0, const Channels& h1, int16x8_t fy7) {
  return {vaddq_s16(h0.u, vqrdmulhq_s16(vsubq_s16(h1.u, h0.u), fy7)),
          vaddq_s16(h0.v, vqrdmulhq_s16(vsubq_s16(h1.v, h0.v), fy7))};
}

// Source pairs as U lanes and V lanes: the low and high byte of each 16-bit
// lane.
inline Channels Split(uint16x8_t pairs) {
  return {vreinterpretq_s16_u16(vandq_u16(pairs, vdupq_n_u16(0xFF))),
          vreinterpretq_s16_u16(vshrq_n_u16(pairs, 8))};
}

// Blends pairs p..p+7 with the blurred channels b and stores them; the
// weights are the even entries of 16 (the odd ones lie in the same luma
// row); vqmovun saturates (only weights above 1024 can leave 0..255) and vst2
// interleaves U and V again.
inline void BlendStore16(const ChromaRow& row, int p, const Channels& b) {
  const Channels s = Split(vreinterpretq_u16_u8(vld1q_u8(row.src + kPair * p)));
  const int16x8_t w = vreinterpretq_s16_u16(vld2q_u16(row.wt + kPair * p).val[0]);
  const uint8x8x2_t out = {{vqmovun_s16(Blend(s.u, b.u, w)), vqmovun_s16(Blend(s.v, b.v, w))}};
  vst2_u8(row.out + kPair * p, out);
}

// Pairs p..p+3 from lanes 0..3: 8 source bytes and 8 weight entries.
inline void BlendStore8(const ChromaRow& row, int p, const Channels& b) {
  const uint16x4_t pairs = vreinterpret_u16_u8(vld1_u8(row.src + kPair * p));
  const Channels s = Split(vcombine_u16(pairs, pairs));
  const uint16x8_t entries = vld1q_u16(row.wt + kPair * p);
  const int16x8_t w = vreinterpretq_s16_u16(vuzp1q_u16(entries, entries));
  const uint8x8_t out = vzip1_u8(vqmovun_s16(Blend(s.u, b.u, w)), vqmovun_s16(Blend(s.v, b.v, w)));
  vst1_u8(row.out + kPair * p, out);
}

// Window byte indices for lane j: the U byte of small pair first[j] in lane j
// and its V byte in lane 8 + j; the right neighbour is 2 bytes further.
struct Table16 {
  uint8_t b[16];
};
constexpr Table16 LeftBytes(LaneFirst f) {
  Table16 t{};
  for (int j = 0; j < 8; ++j) {
    t.b[j] = static_cast<uint8_t>(kPair * f.pair[j]);
    t.b[8 + j] = static_cast<uint8_t>(kPair * f.pair[j] + 1);
  }
  return t;
}

// The same pair weights for the U half and the V half.
constexpr Table16 PairWeights(const int (&per_lane)[8]) {
  Table16 t{};
  for (int j = 0; j < 8; ++j) t.b[j] = t.b[8 + j] = static_cast<uint8_t>(per_lane[j]);
  return t;
}

struct Lookup {
  uint8x16_t left;
  uint8x16_t right;
};
inline Lookup LoadLookup(const Table16& left) {
  const uint8x16_t l = vld1q_u8(left.b);
  return {l, vaddq_u8(l, vdupq_n_u8(kPair))};
}

// L*wl + R*wr per lane: U sums in val[0], V sums in val[1].
inline uint16x8x2_t WeightedPairs(uint8x16_t window, const Lookup& at, uint8x16_t wl,
                                  uint8x16_t wr) {
  const uint8x16_t left = vqtbl1q_u8(window, at.left);
  const uint8x16_t right = vqtbl1q_u8(window, at.right);
  return {
      {vmlal_u8(vmull_u8(vget_low_u8(left), vget_low_u8(wl)), vget_low_u8(right), vget_low_u8(wr)),
       vmlal_high_u8(vmull_high_u8(left, wl), right, wr)}};
}

template <int kShift>
inline Channels RoundShift(uint16x8x2_t sums) {
  return {vreinterpretq_s16_u16(vrshrq_n_u16(sums.val[0], kShift)),
          vreinterpretq_s16_u16(vrshrq_n_u16(sums.val[1], kShift))};
}

// ---- x2. Remainder: 8 pairs per step while all fit, then the driver's
// formula. The 2x2 mean has no fraction, so the run's rows share it outright.
int X2Bulk_NEON(const ChromaRun& run, int pairs) {
  static constexpr Table16 kLeft = LeftBytes(kX2First);
  const Lookup at = LoadLookup(kLeft);
  const uint8x16_t one = vdupq_n_u8(1);
  const int named = NamedX2(pairs);
  return X2Walk(0, pairs, [&](int p) {
    const int a = p;  // byte of small pair p / 2
    const uint16x8x2_t top = WeightedPairs(LoadWindow(run.s0 + a, named - a), at, one, one);
    const uint16x8x2_t bottom = WeightedPairs(LoadWindow(run.s1 + a, named - a), at, one, one);
    // Sum of a 2x2 block: at most 4 * 255, fits u16; vrshr adds the 2.
    const Channels mean = RoundShift<2>(
        {{vaddq_u16(top.val[0], bottom.val[0]), vaddq_u16(top.val[1], bottom.val[1])}});
    for (int i = 0; i < run.n; ++i) BlendStore16(run.row[i], p, mean);
  });
}

// ---- x4, x8: the small sum shifted right by log2 F with rounding.
struct LaneWeights {
  int left[8];
  int right[8];
};
constexpr LaneWeights PhaseWeights(int F) {
  LaneWeights w{};
  for (int j = 0; j < 8; ++j) {
    w.left[j] = F - j % F;
    w.right[j] = j % F;
  }
  return w;
}

// Per column group the four horizontal vectors are formed once and stay in
// registers while the run's rows take their vertical step and blend.
template <int F>
void XFBulk_NEON(const ChromaRun& run, int bulk_pairs) {
  static constexpr Table16 kLeft = LeftBytes(PhaseFirst(F));
  static constexpr Table16 kLeftWeight = PairWeights(PhaseWeights(F).left);
  static constexpr Table16 kRightWeight = PairWeights(PhaseWeights(F).right);
  constexpr int kShift = F == 4 ? 2 : 3;
  const Lookup at = LoadLookup(kLeft);
  const uint8x16_t wl = vld1q_u8(kLeftWeight.b), wr = vld1q_u8(kRightWeight.b);
  const int named = NamedXF<F>(bulk_pairs);
  int16x8_t fy7[kMaxRun];
  for (int i = 0; i < run.n; ++i) fy7[i] = vdupq_n_s16(static_cast<int16_t>(run.fy[i] << 7));
  // Blends pairs p.. of every row of the run with `store` (16 or 8 bytes).
  auto group = [&](int p, auto store) {
    const int a = kPair * (p / F);
    const Channels h0 =
        RoundShift<kShift>(WeightedPairs(LoadWindow(run.s0 + a, named - a), at, wl, wr));
    const Channels h1 =
        RoundShift<kShift>(WeightedPairs(LoadWindow(run.s1 + a, named - a), at, wl, wr));
    for (int i = 0; i < run.n; ++i) store(run.row[i], p, Vertical(h0, h1, fy7[i]));
  };
  XFWalk(0, bulk_pairs, group, BlendStore16, BlendStore8);
}

// ---- x6: the weights of one part.
constexpr LaneWeights X6Weights(int part) {
  LaneWeights w{};
  for (int j = 0; j < kStepPairs; ++j) {
    w.left[j] = X6LeftWeight(part, j);
    w.right[j] = X6RightWeight(part, j);
  }
  return w;
}

// Horizontal step with 8-bit weights (left + right = 256, both fit u8):
// L*left + R*right + 128 <= 65408 fits u16, and vrshr by 8 adds the 128.
// Each part's four horizontal vectors serve all rows of the run before the
// next part.
void X6Bulk_NEON(const ChromaRun& run, int bulk_pairs) {
  static constexpr Table16 kLeft[kX6Parts] = {LeftBytes(X6First(0)), LeftBytes(X6First(1)),
                                              LeftBytes(X6First(2))};
  static constexpr Table16 kLeftWeight[kX6Parts] = {PairWeights(X6Weights(0).left),
                                                    PairWeights(X6Weights(1).left),
                                                    PairWeights(X6Weights(2).left)};
  static constexpr Table16 kRightWeight[kX6Parts] = {PairWeights(X6Weights(0).right),
                                                     PairWeights(X6Weights(1).right),
                                                     PairWeights(X6Weights(2).right)};
  const int named = NamedX6(bulk_pairs);
  // u = 256 - fy except on fy = 0 rows, whose u wraps to 0: they blur to 0.
  int16x8_t fy7[kMaxRun];
  for (int i = 0; i < run.n; ++i) fy7[i] = vdupq_n_s16(static_cast<int16_t>(run.fy[i] << 7));
  auto horizontal = [&](uint8x16_t window, int part) {
    return RoundShift<8>(WeightedPairs(window, LoadLookup(kLeft[part]),
                                       vld1q_u8(kLeftWeight[part].b),
                                       vld1q_u8(kRightWeight[part].b)));
  };
  uint8x16_t top, bottom;
  auto load = [&](int p) {
    const int a = X6WindowByte(p);
    top = LoadWindow(run.s0 + a, named - a);
    bottom = LoadWindow(run.s1 + a, named - a);
  };
  auto part_rows = [&](int part, int p, auto store) {
    const Channels h0 = horizontal(top, part), h1 = horizontal(bottom, part);
    const Channels zero = {vdupq_n_s16(0), vdupq_n_s16(0)};
    for (int i = 0; i < run.n; ++i)
      store(run.row[i], p, run.fy[i] == 0 ? zero : Vertical(h0, h1, fy7[i]));
  };
  X6Walk(bulk_pairs, load, part_rows, BlendStore16, BlendStore8);
}

}  // namespace

void FillCompositeUV_NEON(RowKernels* k) {
  k->chroma_x2_bulk = X2Bulk_NEON;
  k->chroma_x4_bulk = XFBulk_NEON<4>;
  k->chroma_x6_bulk = X6Bulk_NEON;
  k->chroma_x8_bulk = XFBulk_NEON<8>;
}

}  // namespace dofra
