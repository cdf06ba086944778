// The row walks of the weight map's vector members, written once for every
// instruction set. A unit includes this and passes its vector steps in. Plain
// C++, no intrinsics, internal linkage.
#ifndef DOFRA_KERNELS_WEIGHT_LOOPS_H
#define DOFRA_KERNELS_WEIGHT_LOOPS_H

#include "kernels/row_kernels.h"

namespace dofra {

namespace {

constexpr int kGroup = kWeightGroup;

// Both rows of a pair interpolated across columns [from, to): group(g, j)
// writes group g at column j; `rest` (the formula, or a narrower member)
// takes the last columns and the groups whose samples do not fit one load.
template <typename Group>
inline void LerpPairWalk(const uint8_t* row0, const uint8_t* row1, const ColumnTable& c, int from,
                         int to, uint16_t* top, int16_t* delta, LerpPairFn rest, Group group) {
  int j = from;
  for (int g = from / kGroup; j + kGroup <= to; ++g, j += kGroup) {
    if (c.load_at[g] < 0)
      rest(row0, row1, c, j, j + kGroup, top, delta);
    else
      group(g, j);
  }
  if (j < to) rest(row0, row1, c, j, to, top, delta);
}

}  // namespace

}  // namespace dofra

#endif  // DOFRA_KERNELS_WEIGHT_LOOPS_H
