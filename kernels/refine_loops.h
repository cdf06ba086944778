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

}  // namespace

}  // namespace dofra

#endif  // DOFRA_KERNELS_REFINE_LOOPS_H
