// SSE4.1 steps of the luma shrink (the plane driver and the scalar formulas
// are in blur/shrink_y.cpp).
#include <smmintrin.h>

#include <cstdint>

#include "kernels/x86/shrink_y_x86.h"

namespace dofra {

namespace {

template <int kFactor>
int HorizontalSteps(const uint8_t* src, uint8_t* out, int x, int x8, int cx) {
  if (kFactor == 2) {
    for (; x + 2 * kGroup <= x8; x += 2 * kGroup) {
      const __m128i v =
          _mm_packus_epi16(Halve16(Load16(src + 2 * x)), Halve16(Load16(src + 2 * x + 16)));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x), v);
    }
  }
  return HorizontalGroups8<kFactor>(src, out, x, x8, cx);
}

// 16 columns per step (factor 2: _mm_avg_epu8, exactly (a + b + 1) >> 1).
template <int kFactor>
int VerticalSteps(const uint8_t* rows, uint8_t* out, int x, int w) {
  return VerticalSteps16<kFactor>(rows, out, x, w);
}

}  // namespace

void FillShrinkY_SSE41(RowKernels* k) { FillShrinkYLoops(k); }

}  // namespace dofra
