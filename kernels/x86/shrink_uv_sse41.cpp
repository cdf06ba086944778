// SSE4.1 steps of the chroma shrink (the plane drivers and the scalar
// formulas are in blur/shrink_uv.cpp).
#include <smmintrin.h>

#include <cstdint>

#include "kernels/x86/shrink_uv_x86.h"

namespace dofra {

namespace {

int X2HorizontalSteps(const uint8_t* src, uint8_t* dst, int p, int p_end) {
  return X2HorizontalSteps8(src, dst, p, p_end);
}

int X2VerticalSteps(const uint8_t* top, uint8_t* dst, int x, int x_end, int stride) {
  return X2VerticalSteps16(top, dst, x, x_end, stride);
}

// Up to the pairs whose 16-byte load would reach past the row's last named
// source byte.
template <int kFactor>
int PairHorizontalSteps(const uint8_t* src, uint8_t* dst, int p, int p_end) {
  return PairHorizontalSteps8<kFactor>(src, dst, p, p_end);
}

// 16 bytes per step as u16 lanes.
template <int kFactor>
int PairVerticalSteps(const uint8_t* top, uint8_t* dst, int x, int x_end, int stride) {
  return PairVerticalSteps16<kFactor>(top, dst, x, x_end, stride);
}

}  // namespace

void FillShrinkUV_SSE41(RowKernels* k) { FillShrinkUVLoops(k); }

}  // namespace dofra
