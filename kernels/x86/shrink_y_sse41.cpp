// SSE4.1 row helpers of the luma shrink (the plane driver and the scalar
// formulas are in blur/shrink_y.cpp).
#include <smmintrin.h>

#include <cstdint>

#include "kernels/row_kernels.h"
#include "kernels/x86/shrink_y_x86.h"

namespace {

// Vector groups of 8 over columns below x8 (the group of column x starts at
// x * cx with cx = kFactor for 6 and 8, at x * cx for 4, at 2x for 2);
// remainder: the scalar formula on columns x8..w - 1, no overlap.
template <int kFactor>
void HorizontalRow_SSE41(const uint8_t* src, uint8_t* out, int begin, int w, int cx) {
  const auto formula = ScalarRowKernels().luma_shrink_horizontal[kFactor / 2 - 1];
  // The factor 6 and 8 vector groups assume a step of kFactor samples.
  if ((kFactor == 6 || kFactor == 8) && cx != kFactor) return formula(src, out, begin, w, cx);
  const int x8 = w - w % kGroup;
  int x = begin;
  if (kFactor == 2) {
    for (; x + 2 * kGroup <= x8; x += 2 * kGroup) {
      const __m128i v =
          _mm_packus_epi16(Halve16(Load16(src + 2 * x)), Halve16(Load16(src + 2 * x + 16)));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x), v);
    }
  }
  x = HorizontalGroups8<kFactor>(src, out, x, x8, cx);
  formula(src, out, x, w, cx);
}

// 16 columns per step (factor 2: _mm_avg_epu8, exactly (a + b + 1) >> 1);
// remainder: the scalar formula on the last w % 16 columns, no overlap.
template <int kFactor>
void VerticalRow_SSE41(const uint8_t* rows, uint8_t* out, int begin, int w) {
  const int x = VerticalSteps16<kFactor>(rows, out, begin, w);
  ScalarRowKernels().luma_shrink_vertical[kFactor / 2 - 1](rows, out, x, w);
}

}  // namespace

void FillShrinkY_SSE41(RowKernels* k) {
  k->luma_shrink_horizontal[0] = HorizontalRow_SSE41<2>;
  k->luma_shrink_horizontal[1] = HorizontalRow_SSE41<4>;
  k->luma_shrink_horizontal[2] = HorizontalRow_SSE41<6>;
  k->luma_shrink_horizontal[3] = HorizontalRow_SSE41<8>;
  k->luma_shrink_vertical[0] = VerticalRow_SSE41<2>;
  k->luma_shrink_vertical[1] = VerticalRow_SSE41<4>;
  k->luma_shrink_vertical[2] = VerticalRow_SSE41<6>;
  k->luma_shrink_vertical[3] = VerticalRow_SSE41<8>;
}
