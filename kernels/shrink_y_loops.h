// The row loops of the luma shrink's vector members, written once for every
// instruction set: a unit includes this and defines the two steps declared
// below at its own width. Plain C++, no intrinsics, internal linkage.
#ifndef DOFRA_KERNELS_SHRINK_Y_LOOPS_H
#define DOFRA_KERNELS_SHRINK_Y_LOOPS_H

#include <cstdint>

#include "kernels/fixed_point.h"
#include "kernels/row_kernels.h"

namespace dofra {

namespace {

constexpr int kGroup = 8;  // outputs per narrowest vector step

// Outputs from column x below x8 (a multiple of 8), the group of column x
// starting at x * cx (at 2x for factor 2; factors 6 and 8 see cx == factor);
// returns the first column left to the formula.
template <int kFactor>
int HorizontalSteps(const uint8_t* src, uint8_t* out, int x, int x8, int cx);
// Outputs from column x of `kFactor` intermediate rows w bytes apart, while
// whole vectors fit; returns the first column left to the formula.
template <int kFactor>
int VerticalSteps(const uint8_t* rows, uint8_t* out, int x, int w);

// Remainder: the scalar formula on columns x8..w - 1, no overlap. The factor
// 6 and 8 vector groups assume a step of kFactor samples: other steps take
// the formula throughout.
template <int kFactor>
void HorizontalRow(const uint8_t* src, uint8_t* out, int begin, int w, int cx) {
  const auto formula = ScalarRowKernels().luma_shrink_horizontal[FactorSlot(kFactor)];
  if ((kFactor == 6 || kFactor == 8) && cx != kFactor) return formula(src, out, begin, w, cx);
  const int x8 = w - w % kGroup;
  formula(src, out, HorizontalSteps<kFactor>(src, out, begin, x8, cx), w, cx);
}

// Remainder: the scalar formula on the last columns, no overlap.
template <int kFactor>
void VerticalRow(const uint8_t* rows, uint8_t* out, int begin, int w) {
  const int x = VerticalSteps<kFactor>(rows, out, begin, w);
  ScalarRowKernels().luma_shrink_vertical[FactorSlot(kFactor)](rows, out, x, w);
}

inline void FillShrinkYLoops(RowKernels* k) {
  k->luma_shrink_horizontal[FactorSlot(2)] = HorizontalRow<2>;
  k->luma_shrink_horizontal[FactorSlot(4)] = HorizontalRow<4>;
  k->luma_shrink_horizontal[FactorSlot(6)] = HorizontalRow<6>;
  k->luma_shrink_horizontal[FactorSlot(8)] = HorizontalRow<8>;
  k->luma_shrink_vertical[FactorSlot(2)] = VerticalRow<2>;
  k->luma_shrink_vertical[FactorSlot(4)] = VerticalRow<4>;
  k->luma_shrink_vertical[FactorSlot(6)] = VerticalRow<6>;
  k->luma_shrink_vertical[FactorSlot(8)] = VerticalRow<8>;
}

}  // namespace

}  // namespace dofra

#endif  // DOFRA_KERNELS_SHRINK_Y_LOOPS_H
