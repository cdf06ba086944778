// The one blend formula shared by every compositing member, luma and chroma.
#ifndef DOFRA_BLUR_BLEND_H
#define DOFRA_BLUR_BLEND_H

#include <cstdint>

constexpr int kWeightOne = 1024;  // Q10: 1024 takes the blurred value entirely
constexpr int kRound10 = 512;

// (s * (1024 - w) + b * w + 512) >> 10. For w <= 1024 the sum is never
// negative and the result never exceeds 255.
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

#endif  // DOFRA_BLUR_BLEND_H
