// The fixed-point helpers every stage shares: the blend, the shrink taps, the
// 8-bit interpolation step and 16.16 positions. In an unnamed namespace like
// every helper that an instruction set's unit includes: nothing here becomes
// a shared symbol that one unit's flags could compile for all.
#ifndef DOFRA_KERNELS_FIXED_POINT_H
#define DOFRA_KERNELS_FIXED_POINT_H

#include <cstdint>

namespace dofra {

namespace {

// ---- Blend: out = (s * (1024 - w) + b * w + 512) >> 10.
constexpr int kWeightOne = 1024;  // Q10: 1024 takes the blurred value entirely
constexpr int kRound10 = 512;

// For w <= 1024 the sum is never negative and the result never exceeds 255.
inline int BlendValue(int sharp, int blurred, int weight) {
  return (sharp * (kWeightOne - weight) + blurred * weight + kRound10) >> 10;
}

// x2 and x6 store the low 8 bits.
inline uint8_t BlendWrap(int sharp, int blurred, int weight) {
  return static_cast<uint8_t>(BlendValue(sharp, blurred, weight));
}

// x4 and x8 clamp at 255.
inline uint8_t BlendClamp(int sharp, int blurred, int weight) {
  const int v = BlendValue(sharp, blurred, weight);
  return static_cast<uint8_t>(v > 255 ? 255 : v);
}

// ---- Shrink taps: weights and rounding shift of each factor, the same in
// both passes of both planes. A weighted sum is at most 8 * 255 = 2040.
template <int kFactor>
struct Taps;
template <>
struct Taps<2> {
  static constexpr int kWeight[2] = {1, 1};
  static constexpr int kShift = 1;
};
template <>
struct Taps<4> {
  static constexpr int kWeight[4] = {1, 1, 1, 1};
  static constexpr int kShift = 2;
};
template <>
struct Taps<6> {
  static constexpr int kWeight[6] = {1, 1, 2, 2, 1, 1};  // the middle taps weigh double
  static constexpr int kShift = 3;
};
template <>
struct Taps<8> {
  static constexpr int kWeight[8] = {1, 1, 1, 1, 1, 1, 1, 1};
  static constexpr int kShift = 3;
};

// Taps 1,1 / 1,1,1,1 / 1,1,2,2,1,1 / 1 x 8; the sums are 2, 4, 8, 8.
constexpr int TapWeight(int factor, int i) { return factor == 6 && (i == 2 || i == 3) ? 2 : 1; }
constexpr int TapShift(int factor) { return factor == 2 ? 1 : factor == 4 ? 2 : 3; }
constexpr int TapRound(int factor) { return 1 << (TapShift(factor) - 1); }

// ---- 8-bit interpolation: weights wa + wb = 256.
constexpr int kFracBits = 8;
constexpr int kFracOne = 256;
constexpr int kRound8 = 128;

// (a * wa + b * wb + 128) >> 8; products <= 255 * 256 + 128, fit in 16 bits.
inline int Lerp8(int a, int b, int wa, int wb) { return (a * wa + b * wb + kRound8) >> kFracBits; }

// ---- 16.16 positions: the integer sample and an 8-bit fraction.
constexpr int kPosShift = 16;
constexpr int kPosOne = 1 << kPosShift;

template <typename T>
constexpr T PosInt(T pos) {
  return pos >> kPosShift;
}
template <typename T>
constexpr int PosFrac(T pos) {
  return static_cast<int>((pos >> kFracBits) & (kFracOne - 1));
}

}  // namespace

}  // namespace dofra

#endif  // DOFRA_KERNELS_FIXED_POINT_H
