// The row loops of the chroma shrink's vector members, written once for every
// instruction set: vector steps first, the scalar formula on what is left (no
// overlap). A unit includes this and defines the four steps declared below.
// Plain C++, no intrinsics, internal linkage. Widths count bytes; a pair is
// one U byte and one V byte, and channels never mix.
#ifndef DOFRA_KERNELS_SHRINK_UV_LOOPS_H
#define DOFRA_KERNELS_SHRINK_UV_LOOPS_H

#include <cstdint>

#include "kernels/fixed_point.h"
#include "kernels/row_kernels.h"

namespace dofra {

namespace {

constexpr int kBytesPerPair = 2;
constexpr int kX2GroupBytes = 2 * kBytesPerPair;  // factor-2 groups are 4 bytes apart

// Each returns the first pair (byte) left to the formula. The horizontal
// steps read only the groups of the pairs they write.
int X2HorizontalSteps(const uint8_t* src, uint8_t* dst, int p, int p_end);
int X2VerticalSteps(const uint8_t* top, uint8_t* dst, int x, int x_end, int stride);
// Contiguous groups of kFactor pairs (cx == factor, as the pipeline passes).
template <int kFactor>
int PairHorizontalSteps(const uint8_t* src, uint8_t* dst, int p, int p_end);
template <int kFactor>
int PairVerticalSteps(const uint8_t* top, uint8_t* dst, int x, int x_end, int stride);

inline void ShrinkX2Horizontal(const uint8_t* src, uint8_t* dst, int p_begin, int p_end,
                               int group_bytes) {
  const int p =
      group_bytes == kX2GroupBytes ? X2HorizontalSteps(src, dst, p_begin, p_end) : p_begin;
  ScalarRowKernels().chroma_shrink_horizontal[FactorSlot(2)](src, dst, p, p_end, group_bytes);
}

inline void ShrinkX2Vertical(const uint8_t* top, uint8_t* dst, int x_begin, int x_end, int stride) {
  const int x = X2VerticalSteps(top, dst, x_begin, x_end, stride);
  ScalarRowKernels().chroma_shrink_vertical[FactorSlot(2)](top, dst, x, x_end, stride);
}

// Other column steps (cx != factor) take the formula throughout.
template <int kFactor>
void ShrinkPairHorizontal(const uint8_t* src, uint8_t* dst, int p_begin, int p_end,
                          int group_bytes) {
  int p = p_begin;
  if (group_bytes == kBytesPerPair * kFactor) p = PairHorizontalSteps<kFactor>(src, dst, p, p_end);
  ScalarRowKernels().chroma_shrink_horizontal[FactorSlot(kFactor)](src, dst, p, p_end, group_bytes);
}

template <int kFactor>
void ShrinkPairVertical(const uint8_t* top, uint8_t* dst, int x_begin, int x_end, int stride) {
  const int x = PairVerticalSteps<kFactor>(top, dst, x_begin, x_end, stride);
  ScalarRowKernels().chroma_shrink_vertical[FactorSlot(kFactor)](top, dst, x, x_end, stride);
}

inline void FillShrinkUVLoops(RowKernels* k) {
  k->chroma_shrink_horizontal[FactorSlot(2)] = ShrinkX2Horizontal;
  k->chroma_shrink_horizontal[FactorSlot(4)] = ShrinkPairHorizontal<4>;
  k->chroma_shrink_horizontal[FactorSlot(6)] = ShrinkPairHorizontal<6>;
  k->chroma_shrink_horizontal[FactorSlot(8)] = ShrinkPairHorizontal<8>;
  k->chroma_shrink_vertical[FactorSlot(2)] = ShrinkX2Vertical;
  k->chroma_shrink_vertical[FactorSlot(4)] = ShrinkPairVertical<4>;
  k->chroma_shrink_vertical[FactorSlot(6)] = ShrinkPairVertical<6>;
  k->chroma_shrink_vertical[FactorSlot(8)] = ShrinkPairVertical<8>;
}

}  // namespace

}  // namespace dofra

#endif  // DOFRA_KERNELS_SHRINK_UV_LOOPS_H
