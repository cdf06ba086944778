// The row loops of the no-glow blur's vector members, written once for every
// instruction set: the scalar formula over the entries a vector does not
// take, and the mask row's window minimum by doubling. A unit includes this
// and defines the steps declared below. Plain C++, no intrinsics, internal
// linkage (an AVX2 unit includes it too).
#ifndef DOFRA_KERNELS_NO_BLEED_LOOPS_H
#define DOFRA_KERNELS_NO_BLEED_LOOPS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kernels/no_bleed_rows.h"
#include "kernels/row_kernels.h"

namespace dofra {

namespace {

// The steps each unit defines; each works in whole vectors from its first
// entry and returns the first entry left to the formula.
//
// out[x] = min over the rows, [0, n) in whole vectors: a cache line of
// each row at a time, the minima held in registers.
int MinRowsSteps(const uint16_t* rows, size_t stride, int count, uint16_t* out, int n);
// a[x] = min(a[x], a[x + d]) for x in [0, n), in place from left to right:
// a vector reads a[x + d ..] before anything at or right of x is written.
int MinShiftSteps(uint16_t* a, int n, int d);
// How many of row[0, n) are at least `threshold`, in whole vectors: the count
// and the first entry left to the formula.
int CountPassingSteps(const uint16_t* row, int n, uint16_t threshold, int* passing);
// The masked column sums, [begin, n).
template <bool kSub>
int MaskedSlideSteps(const uint8_t* v, const uint8_t* m, const uint8_t* v_sub, const uint8_t* m_sub,
                     uint16_t* v_sums, uint16_t* m_sums, int begin, int n);
// The masked box outputs [begin, n).
template <int kLead>
int MaskedBoxSteps(const uint16_t* v_sums, const uint16_t* m_sums, uint8_t* dst, int begin, int n);

const RowKernels& Formulas() { return ScalarRowKernels(); }

// Remainder: the formula over the last entries, no overlap.
void MapMinRows(const uint16_t* rows, size_t stride, int count, uint16_t* out, int n) {
  const int x = MinRowsSteps(rows, stride, count, out, n);
  Formulas().map_min_rows(rows + x, stride, count, out + x, n - x);
}

// In place and not idempotent: the formula continues where the vectors end.
void MinShift(uint16_t* a, int n, int d) {
  for (int x = MinShiftSteps(a, n, d); x < n; ++x) a[x] = a[x + d] < a[x] ? a[x + d] : a[x];
}

// The window of sample j is [j * block - pullback, j * block + block +
// pullback), L entries: with the row padded by its edge values, doubling
// steps leave in a[x] the minimum of 2^k entries from x (2^k <= L < 2^(k+1)),
// and two of those cover the window. The last window ends at count * block
// + 2 * pullback <= W + 2 * pullback, inside the padded row.
// A row whose entries all count as blurred counts every sample, one with none
// counts none: both are common (the background far behind, the ground in
// front) and need no windows.
template <int kLead>
int MaskRow(uint16_t* row, int W, int block, int pullback, uint16_t threshold, uint8_t* out,
            int count) {
  int passing = 0;
  for (int x = CountPassingSteps(row, W, threshold, &passing); x < W; ++x)
    passing += row[x] >= threshold;
  if (passing == 0 || passing == W) {
    std::memset(out, passing == W, static_cast<size_t>(kLead) * count);
    return passing == W ? count : 0;
  }
  uint16_t* a = row - pullback;
  for (int i = 0; i < pullback; ++i) {
    a[i] = row[0];
    row[W + i] = row[W - 1];
  }
  const int n = W + 2 * pullback, window = block + 2 * pullback;
  int span = 1;
  for (; 2 * span <= window; span *= 2) MinShift(a, n - span, span);
  const int tail = window - span;
  int ones = 0;
  const uint16_t* w = a;
  for (int j = 0; j < count; ++j, w += block) {
    const uint8_t m = (w[0] < w[tail] ? w[0] : w[tail]) >= threshold;
    out[kLead * j] = m;
    if (kLead == 2) out[kLead * j + 1] = m;
    ones += m;
  }
  return ones;
}

// Remainders: the formula over the last columns (not idempotent, no overlap).
void MaskedSlideAdd(const uint8_t* v, const uint8_t* m, uint16_t* v_sums, uint16_t* m_sums,
                    int begin, int n) {
  const int q = MaskedSlideSteps<false>(v, m, nullptr, nullptr, v_sums, m_sums, begin, n);
  Formulas().masked_slide_add(v, m, v_sums, m_sums, q, n);
}

void MaskedSlideAddSub(const uint8_t* v, const uint8_t* m, const uint8_t* v_sub,
                       const uint8_t* m_sub, uint16_t* v_sums, uint16_t* m_sums, int begin, int n) {
  const int q = MaskedSlideSteps<true>(v, m, v_sub, m_sub, v_sums, m_sums, begin, n);
  Formulas().masked_slide_add_sub(v, m, v_sub, m_sub, v_sums, m_sums, q, n);
}

template <int kLead>
void MaskedBoxRow(const uint16_t* v_sums, const uint16_t* m_sums, uint8_t* dst, int begin, int n) {
  const int x = MaskedBoxSteps<kLead>(v_sums, m_sums, dst, begin, n);
  Formulas().masked_box_row[kLead - 1](v_sums, m_sums, dst, x, n);
}

inline void FillNoBleedLoops(RowKernels* k) {
  k->map_min_rows = MapMinRows;
  k->mask_row[0] = MaskRow<1>;
  k->mask_row[1] = MaskRow<2>;
  k->masked_slide_add = MaskedSlideAdd;
  k->masked_slide_add_sub = MaskedSlideAddSub;
  k->masked_box_row[0] = MaskedBoxRow<1>;
  k->masked_box_row[1] = MaskedBoxRow<2>;
}

}  // namespace

}  // namespace dofra

#endif  // DOFRA_KERNELS_NO_BLEED_LOOPS_H
