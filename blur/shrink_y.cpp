// Luma shrink by 2, 4, 6 or 8: a horizontal pass into the intermediate plane
// (full height, small width), then a vertical pass into the small plane.
// Each pass rounds on its own (add half the tap sum, shift); no pass clamps,
// since every weighted sum is at most 8 * 255 = 2040 and the mean <= 255.
//
// Groups start at their first source sample (no phase). Factor 2 and 4 map
// columns as their vector part does: with x8 = 8 * (w / 8), factor 2 takes
// column x < x8 from 2x and the others from 2*x8 + (x - x8)*cx; factor 4
// takes column 8k + j < x8 from 8k*cx + 4j and the others from x*cx. Both
// equal x*s whenever cx = s, which is what the pipeline passes.
#include <cstddef>
#include <cstdint>

#include "blur/kernels.h"
#include "kernels/fixed_point.h"
#include "kernels/row_kernels.h"

namespace dofra {

namespace {

constexpr int kGroup = 8;  // outputs per vector step

// One rounded output from kFactor samples `step` bytes apart.
template <int kFactor>
inline uint8_t GroupMean(const uint8_t* p, ptrdiff_t step) {
  int sum = TapRound(kFactor);
  for (int i = 0; i < kFactor; ++i) sum += TapWeight(kFactor, i) * p[i * step];
  return static_cast<uint8_t>(sum >> TapShift(kFactor));
}

// First source column of small column x (see the file comment).
template <int kFactor>
inline int GroupStart(int x, int x8, int cx) {
  if (kFactor == 2) return x < x8 ? 2 * x : 2 * x8 + (x - x8) * cx;
  if (kFactor == 4) return x < x8 ? (x - x % kGroup) * cx + 4 * (x % kGroup) : x * cx;
  return x * cx;
}

template <int kFactor>
void HorizontalRow_C(const uint8_t* src, uint8_t* out, int begin, int w, int cx) {
  const int x8 = w - w % kGroup;
  for (int x = begin; x < w; ++x)
    out[x] = GroupMean<kFactor>(src + GroupStart<kFactor>(x, x8, cx), 1);
}

// `rows` is the first of kFactor intermediate rows, w bytes apart.
template <int kFactor>
void VerticalRow_C(const uint8_t* rows, uint8_t* out, int begin, int w) {
  for (int x = begin; x < w; ++x) out[x] = GroupMean<kFactor>(rows + x, w);
}

// Horizontal pass over source rows ry*y0 .. ry*y1 + s - 1, then vertical pass
// over small rows y0..y1. Factors 6 and 8 also skip both passes when w < 1.
template <int kFactor>
void Shrink(const RowKernels& k, const uint8_t* src, uint8_t* small, uint8_t* tmp, int W, int H,
            int w, int h, int y0, int y1) {
  const int cx = W / w;
  const int ry = H / h;
  const auto horizontal = k.luma_shrink_horizontal[FactorSlot(kFactor)];
  const auto vertical = k.luma_shrink_vertical[FactorSlot(kFactor)];
  if (kFactor >= 6 && w < 1) return;
  const size_t W_stride = static_cast<size_t>(W);
  const size_t w_stride = static_cast<size_t>(w);
  for (int r = ry * y0; r <= ry * y1 + kFactor - 1; ++r)
    horizontal(src + r * W_stride, tmp + r * w_stride, 0, w, cx);
  for (int y = y0; y <= y1; ++y)
    vertical(tmp + static_cast<size_t>(ry) * y * w_stride, small + y * w_stride, 0, w);
}

}  // namespace

void FillShrinkY_C(RowKernels* k) {
  k->luma_shrink_horizontal[0] = HorizontalRow_C<2>;
  k->luma_shrink_horizontal[1] = HorizontalRow_C<4>;
  k->luma_shrink_horizontal[2] = HorizontalRow_C<6>;
  k->luma_shrink_horizontal[3] = HorizontalRow_C<8>;
  k->luma_shrink_vertical[0] = VerticalRow_C<2>;
  k->luma_shrink_vertical[1] = VerticalRow_C<4>;
  k->luma_shrink_vertical[2] = VerticalRow_C<6>;
  k->luma_shrink_vertical[3] = VerticalRow_C<8>;
}

}  // namespace dofra

// The members keep their global names; their bodies run the layer's code.
using namespace dofra;

DOFRA_SHRINK(__BiLinearInterp_Y_x2_neon) {
  Shrink<2>(ActiveRowKernels(), src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_Y_x2_c) {
  Shrink<2>(ScalarRowKernels(), src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_Y_x4_neon) {
  Shrink<4>(ActiveRowKernels(), src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_Y_x4_c) {
  Shrink<4>(ScalarRowKernels(), src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_Y_x6) {
  Shrink<6>(ActiveRowKernels(), src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_Y_x6_c) {
  Shrink<6>(ScalarRowKernels(), src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_Y_x8) {
  Shrink<8>(ActiveRowKernels(), src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_Y_x8_c) {
  Shrink<8>(ScalarRowKernels(), src, small, tmp, W, H, w, h, y0, y1);
}
