// The row loops of the box smoothing's vector members, written once for every
// instruction set: the formula on the columns a vector does not take, and the
// switches by radius and weight. A unit includes this and defines the steps
// declared below. Plain C++, no intrinsics, internal linkage.
#ifndef DOFRA_KERNELS_SMOOTH_LOOPS_H
#define DOFRA_KERNELS_SMOOTH_LOOPS_H

#include <cstdint>

#include "kernels/row_kernels.h"

namespace dofra {

namespace {

constexpr uint32_t kHalfQ10 = 512;  // rounding of a Q10 product
constexpr int kQ10Shift = 10;

// For r <= 5 and w <= 1023: S <= 11 * 11 * 255 < 2^15 and t <= S, so both
// Q10 steps fit a rounding 16-bit multiply-high, (a * b + 2^14) >> 15; with
// b = 32w that is exactly (S * w + 512) >> 10.
constexpr int kNarrowMaxRadius = 5;
constexpr uint32_t kNarrowMaxWeight = 1023;
constexpr int kNarrowScale = 5;  // 2^15 / 2^10

// Sliding box (the driver is SlideBand in blur/smooth.cpp): 2r + 1 shifted
// loads of the 16-bit column sums give S, exact while it fits a word (r <= 7).
constexpr int kSlideVector = 8;     // outputs per step
constexpr int kPipelineRadius = 2;  // the pipeline's radius gets unrolled taps
constexpr int kAnyRadius = -1;      // template radius read at run time

// The steps each unit defines; each returns the first entry, output or
// column left to the formula.
//
// Integral row entries from 0 in whole vectors (the carry runs along them).
template <int kLead>
int IntegralSteps(const uint8_t* expanded, uint32_t* column_sums, uint32_t* out, int n);
// Box sums of outputs [x, end) in whole vectors, x >= kLead.
template <int kLead, bool kTop, bool kNarrow>
int BoxSteps(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, int x, int end, int span,
             uint32_t w);
// Column sums [q, m) gain a row (and lose one), wrapping words.
template <bool kSub>
int SlideSteps(const uint8_t* add, const uint8_t* sub, uint16_t* sums, int q, int m);
// Outputs [begin, n) of one strip row, n - begin >= kSlideVector: the last
// vector ends at n, overlapping outputs already written with the same values
// (idempotent).
template <int kLead, int kR, bool kNarrow>
void SlideBoxSteps(const uint16_t* sums, uint8_t* dst, int begin, int n, int r, uint32_t w);

// Remainder: the scalar formula over the last entries (a prefix sum is not
// idempotent, so no overlapping vector); a row continued from begin > 0
// takes the formula throughout.
template <int kLead>
void IntegralRow(const uint8_t* expanded, uint32_t* column_sums, uint32_t* out, int begin, int n) {
  const int q = begin == 0 ? IntegralSteps<kLead>(expanded, column_sums, out, n) : begin;
  ScalarRowKernels().integral_row[kLead - 1](expanded, column_sums, out, q, n);
}

// Vectors from column kLead (the first columns lack their left terms);
// remainder: the scalar formula over the columns after the last full
// vector, no overlap.
template <int kLead, bool kTop, bool kNarrow>
void BoxRowWith(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, int begin, int end,
                int span, uint32_t w) {
  const auto formula =
      kTop ? ScalarRowKernels().box_row[kLead - 1] : ScalarRowKernels().box_row_anchor[kLead - 1];
  const int head = begin >= kLead ? begin : (end < kLead ? end : kLead);
  formula(top, bottom, dst, begin, head, span, w);
  const int x = BoxSteps<kLead, kTop, kNarrow>(top, bottom, dst, head, end, span, w);
  formula(top, bottom, dst, x, end, span, w);
}

// The narrow steps when r <= 5 (span = 2r * kLead) and w <= 1023.
template <int kLead, bool kTop>
void BoxRow(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, int begin, int end, int span,
            uint32_t w) {
  if (span <= 2 * kNarrowMaxRadius * kLead && w <= kNarrowMaxWeight)
    return BoxRowWith<kLead, kTop, true>(top, bottom, dst, begin, end, span, w);
  BoxRowWith<kLead, kTop, false>(top, bottom, dst, begin, end, span, w);
}

// Remainder: the scalar formula over the last columns (not idempotent, no
// overlap).
inline void SlideAdd(const uint8_t* add, uint16_t* sums, int begin, int m) {
  ScalarRowKernels().slide_add(add, sums, SlideSteps<false>(add, nullptr, sums, begin, m), m);
}

inline void SlideAddSub(const uint8_t* add, const uint8_t* sub, uint16_t* sums, int begin, int m) {
  ScalarRowKernels().slide_add_sub(add, sub, sums, SlideSteps<true>(add, sub, sums, begin, m), m);
}

// Steps of kSlideVector outputs from begin, the last one ending at n.
template <typename Step>
inline void SlideWalk(int begin, int n, Step step) {
  for (int x = begin;; x += kSlideVector) {
    if (x > n - kSlideVector) x = n - kSlideVector;
    step(x);
    if (x == n - kSlideVector) break;
  }
}

// Rows narrower than a vector take the scalar formula.
template <int kLead, int kR, bool kNarrow>
void SlideBoxRowWith(const uint16_t* sums, uint8_t* dst, int begin, int n, int r, uint32_t w) {
  if (n - begin < kSlideVector)
    return ScalarRowKernels().slide_box_row[kLead - 1](sums, dst, begin, n, r, w);
  SlideBoxSteps<kLead, kR, kNarrow>(sums, dst, begin, n, r, w);
}

template <int kLead>
void SlideBoxRow(const uint16_t* sums, uint8_t* dst, int begin, int n, int r, uint32_t w) {
  const bool narrow = r <= kNarrowMaxRadius && w <= kNarrowMaxWeight;
  if (r == kPipelineRadius) {
    if (narrow) return SlideBoxRowWith<kLead, kPipelineRadius, true>(sums, dst, begin, n, r, w);
    return SlideBoxRowWith<kLead, kPipelineRadius, false>(sums, dst, begin, n, r, w);
  }
  if (narrow) return SlideBoxRowWith<kLead, kAnyRadius, true>(sums, dst, begin, n, r, w);
  SlideBoxRowWith<kLead, kAnyRadius, false>(sums, dst, begin, n, r, w);
}

inline void FillSmoothLoops(RowKernels* k) {
  k->integral_row[0] = IntegralRow<1>;
  k->integral_row[1] = IntegralRow<2>;
  k->box_row_anchor[0] = BoxRow<1, false>;
  k->box_row_anchor[1] = BoxRow<2, false>;
  k->box_row[0] = BoxRow<1, true>;
  k->box_row[1] = BoxRow<2, true>;
  k->slide_add = SlideAdd;
  k->slide_add_sub = SlideAddSub;
  k->slide_box_row[0] = SlideBoxRow<1>;
  k->slide_box_row[1] = SlideBoxRow<2>;
}

}  // namespace

}  // namespace dofra

#endif  // DOFRA_KERNELS_SMOOTH_LOOPS_H
