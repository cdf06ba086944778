// The run loops of the luma compositing bulk, written once for every
// instruction set: a unit includes this after its vector types and defines
// the steps declared below at its own width. Plain C++, no intrinsics, and
// internal linkage, so each unit compiles its own copy with its own flags.
#ifndef DOFRA_KERNELS_COMPOSITE_Y_LOOPS_H
#define DOFRA_KERNELS_COMPOSITE_Y_LOOPS_H

#include <cstdint>

#include "kernels/row_kernels.h"

namespace dofra {

namespace {

inline int Min(int a, int b) { return a < b ? a : b; }

// Horizontally interpolated small rows of one strip of bulk columns, kept
// for every output row of a run: h0 (row r0) and d = h1 - h0 (row r1), both
// in 0..255 resp. -255..255 in 16-bit lanes. 8 KiB on the stack; wider rows
// take several strips.
constexpr int kStrip = 2016;  // a multiple of 32 and of 48
struct StripCache {
  alignas(32) int16_t h0[kStrip];
  alignas(32) int16_t d[kStrip];
};

// The vector steps each unit defines.
//
// x2: blends whole groups of 16 columns of one row from column c while their
// 2x2 samples k..k+8 are all named (c + 15 <= W - 3); returns the first
// column left to the driver's formula.
int X2Groups(const LumaRow& q, int c, int W);
// Fills the strip cache for columns [c0, c0 + len) of rows s0 and s1 (len a
// multiple of 8) from the phase table of factor F; `named` samples of each
// row may be read.
template <int F>
void XFHorizontalStrip(const LumaRow& q, int c0, int len, int named, StripCache& k);
// Vertical step and blend of strip columns [0, len) at row column c0.
void VerticalBlendStrip(const LumaRow& q, int c0, int len, const StripCache& k);
// The same for x6 bulk columns [1 + g0, 1 + g0 + len), g0 and len
// multiples of 24.
void X6HorizontalStrip(const LumaRow& q, int g0, int len, int named, StripCache& k);
// Blends bulk columns [1, 1 + n) with the blurred value 0.
void X6ZeroRow(const LumaRow& q, int n);

// x2: each row on its own; the bulk is where every row's groups end.
inline int X2Bulk(const LumaRow* rows, int count, int W) {
  int n = 0;
  for (int i = 0; i < count; ++i) n = X2Groups(rows[i], 0, W);
  return n;
}

// One horizontal pass per strip and run, then a vertical step per row.
template <int F>
void XFBulk(const LumaRow* rows, int count, int end) {
  StripCache k;
  const int named = end > 0 ? (end - 1) / F + 2 : 0;  // samples the rows name
  for (int c0 = 0; c0 < end; c0 += kStrip) {
    const int len = Min(kStrip, end - c0);
    XFHorizontalStrip<F>(rows[0], c0, len, named, k);
    for (int i = 0; i < count; ++i) VerticalBlendStrip(rows[i], c0, len, k);
  }
}

// As XFBulk. A row with fy = 0 (the first of its r0, or with tiny dy
// several) has its upper weight wrapped to 0 as well, so it blurs to 0.
inline void X6Bulk(const LumaRow* rows, int count, int n) {
  int blurred = 0;
  for (int i = 0; i < count; ++i) {
    if (rows[i].fy == 0)
      X6ZeroRow(rows[i], n);
    else
      ++blurred;
  }
  if (blurred == 0) return;
  StripCache k;
  const int named = n / 6 + 1;  // samples the rows name
  for (int g0 = 0; g0 < n; g0 += kStrip) {
    const int len = Min(kStrip, n - g0);
    X6HorizontalStrip(rows[0], g0, len, named, k);
    for (int i = 0; i < count; ++i)
      if (rows[i].fy != 0) VerticalBlendStrip(rows[i], 1 + g0, len, k);
  }
}

// The entries of a level whose steps are the ones above.
inline void FillCompositeYLoops(RowKernels* k) {
  k->luma_x2_bulk = X2Bulk;
  k->luma_x4_bulk = XFBulk<4>;
  k->luma_x6_bulk = X6Bulk;
  k->luma_x8_bulk = XFBulk<8>;
}

}  // namespace

}  // namespace dofra

#endif  // DOFRA_KERNELS_COMPOSITE_Y_LOOPS_H
