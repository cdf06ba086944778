// SSE4.1 row helpers of the chroma shrink (the plane drivers and the scalar
// formulas are in blur/shrink_uv.cpp). Widths count bytes; a pair is one U
// byte and one V byte, and channels never mix.
#include <smmintrin.h>

#include <cstdint>

#include "kernels/row_kernels.h"
#include "kernels/x86/shrink_uv_x86.h"

namespace {

// Remainder: vector on whole steps of 8 pairs, then the scalar formula pair
// by pair (reads stay inside the 4 * p_end source bytes).
void ShrinkX2Horizontal_SSE41(const uint8_t* src, uint8_t* dst, int p_begin, int p_end,
                              int group_bytes) {
  const int p = X2HorizontalSteps8(src, dst, p_begin, p_end, group_bytes);
  ScalarRowKernels().chroma_shrink_horizontal[0](src, dst, p, p_end, group_bytes);
}

// Remainder: 16 bytes at a time, then the scalar formula byte by byte.
void ShrinkX2Vertical_SSE41(const uint8_t* top, uint8_t* dst, int x_begin, int x_end, int stride) {
  const int x = X2VerticalSteps16(top, dst, x_begin, x_end, stride);
  ScalarRowKernels().chroma_shrink_vertical[0](top, dst, x, x_end, stride);
}

// Remainder: the scalar formula, for the pairs whose 16-byte load would
// reach past the row's last named source byte, and for cx != factor.
template <int kFactor>
void ShrinkPairHorizontal_SSE41(const uint8_t* src, uint8_t* dst, int p_begin, int p_end,
                                int group_bytes) {
  int p = p_begin;
  if (group_bytes == kBytesPerPair * kFactor) p = PairHorizontalSteps8<kFactor>(src, dst, p, p_end);
  ScalarRowKernels().chroma_shrink_horizontal[kFactor / 2 - 1](src, dst, p, p_end, group_bytes);
}

// Vertical pass, 16 bytes per step as u16 lanes; remainder: the scalar
// formula byte by byte.
template <int kFactor>
void ShrinkPairVertical_SSE41(const uint8_t* top, uint8_t* dst, int x_begin, int x_end,
                              int stride) {
  const int x = PairVerticalSteps16<kFactor>(top, dst, x_begin, x_end, stride);
  ScalarRowKernels().chroma_shrink_vertical[kFactor / 2 - 1](top, dst, x, x_end, stride);
}

}  // namespace

void FillShrinkUV_SSE41(RowKernels* k) {
  k->chroma_shrink_horizontal[0] = ShrinkX2Horizontal_SSE41;
  k->chroma_shrink_horizontal[1] = ShrinkPairHorizontal_SSE41<4>;
  k->chroma_shrink_horizontal[2] = ShrinkPairHorizontal_SSE41<6>;
  k->chroma_shrink_horizontal[3] = ShrinkPairHorizontal_SSE41<8>;
  k->chroma_shrink_vertical[0] = ShrinkX2Vertical_SSE41;
  k->chroma_shrink_vertical[1] = ShrinkPairVertical_SSE41<4>;
  k->chroma_shrink_vertical[2] = ShrinkPairVertical_SSE41<6>;
  k->chroma_shrink_vertical[3] = ShrinkPairVertical_SSE41<8>;
}
