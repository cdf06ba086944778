// The refined map's per-pixel formula, the reference that its row helpers
// (scalar here, vectorised per instruction set) must match byte for byte.
#ifndef DOFRA_WEIGHT_REFINE_ROWS_H
#define DOFRA_WEIGHT_REFINE_ROWS_H

#include <cstdint>

#include "kernels/refine_rows.h"

namespace dofra {

// One pixel and its four samples (iy, ix), (iy, ix1), (iy1, ix), (iy1, ix1).
struct RefinePixel {
  uint8_t y, v, u;  // the guide's colour at the pixel
  uint8_t depth[4];
  uint8_t sy[4], sv[4], su[4];  // the samples' cell colours
  uint8_t purity[4];            // the samples' purity weights
  int fx, fy;
};

// Bilinear where the samples span at most flat_spread, else joint.
int RefinedDepth(const RefinePixel& p, const RefineTables& t);
int JointDepth(const RefinePixel& p, const RefineTables& t);
int BilinearDepth(const uint8_t depth[4], int fx, int fy);

// range_chunks from range: the lookups past it read zeros.
void SetRangeChunks(RefineTables* t);

}  // namespace dofra

#endif  // DOFRA_WEIGHT_REFINE_ROWS_H
