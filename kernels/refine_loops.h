// The column walk of the refined map's vector members, written once for
// every instruction set. A unit includes this and passes its vector step
// in. Plain C++, no intrinsics, internal linkage.
#ifndef DOFRA_KERNELS_REFINE_LOOPS_H
#define DOFRA_KERNELS_REFINE_LOOPS_H

#include "kernels/row_kernels.h"

namespace dofra {

namespace {

// Whether the samples of columns [x, x + n) gather from one 16-byte load at
// the first one's: columns never decrease, so the last column's right
// sample is the farthest.
inline bool Gathers(const RefineColumns& cols, int x, int n) {
  return cols.ix1[x + n - 1] - cols.ix[x] < kRefineGroup;
}

// Columns [from, to) of a row in steps of kStep columns, the last step
// moved back to end at `to`: a column's weight depends on its inputs alone,
// so the columns written twice get the same value twice. rest(a, b) writes
// columns [a, b) of a run shorter than one step, of a step whose samples do
// not gather from one load, and of a row narrower than one load (whose
// chroma loads would leave the row).
template <int kStep, typename Step, typename Rest>
inline void RefineWalk(const RefineColumns& cols, int from, int to, Rest rest, Step step) {
  if (to - from < kStep || to < kRefineGroup) return rest(from, to);
  for (int x = from;; x += kStep) {
    if (x > to - kStep) x = to - kStep;
    if (Gathers(cols, x, kStep))
      step(x);
    else
      rest(x, x + kStep);
    if (x + kStep == to) return;
  }
}

// The scalar formulas, for what the walks leave (looked up once: they run
// per run).
inline void JointFormula(const RefineRow& row, const RefineColumns& cols, const RefineTables& t,
                         int from, int to) {
  static const RefineRowFn formula = ScalarRowKernels().refine_joint_row;
  formula(row, cols, t, from, to);
}

inline void BilinearFormula(const RefineRow& row, const RefineColumns& cols, const RefineTables& t,
                            int from, int to) {
  static const RefineRowFn formula = ScalarRowKernels().refine_bilinear_row;
  formula(row, cols, t, from, to);
}

// Bilinear rows in steps of 8 columns: 16 columns per step, two halves of 8
// from one load per sample row; runs of 8 to 15 columns in steps of 8,
// shorter ones by the formula. half(x, base) writes the 8 columns from x
// whose samples load at sample `base`.
template <typename Half>
inline void BilinearWalk8(const RefineRow& row, const RefineColumns& cols, const RefineTables& t,
                          int from, int to, Half half) {
  auto eights = [&](int a, int b) {
    RefineWalk<kRefineGroup / 2>(
        cols, a, b, [&](int c, int d) { BilinearFormula(row, cols, t, c, d); },
        [&](int x) { half(x, cols.ix[x]); });
  };
  RefineWalk<kRefineGroup>(cols, from, to, eights, [&](int x) {
    half(x, cols.ix[x]);
    half(x + kRefineGroup / 2, cols.ix[x]);
  });
}

}  // namespace

}  // namespace dofra

#endif  // DOFRA_KERNELS_REFINE_LOOPS_H
