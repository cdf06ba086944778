// The blur engine's member table: the routines each stage runs, per factor
// slot as the row-kernel table indexes them (FactorSlot: 2, 4, 6, 8). The
// frame check refuses every other factor, so no slot is kept for them.
#ifndef DOFRA_BLUR_DISPATCH_H
#define DOFRA_BLUR_DISPATCH_H

#include "blur/kernels.h"
#include "kernels/row_kernels.h"

namespace dofra {

struct BlurKernelTable {
  ShrinkFn shrink_y[kShrinkFactors];
  ShrinkFn shrink_uv[kShrinkFactors];
  BlendFn blend_y[kShrinkFactors];
  BlendFn blend_uv[kShrinkFactors];
  SmoothFn smooth_y;
  SmoothFn smooth_uv;
};

// What the pipeline runs: the vectorised members.
extern const BlurKernelTable kBlurKernels;
// The same table made of the plain scalar formulas, for comparison.
extern const BlurKernelTable kBlurKernelsC;

// The members the pipeline runs at the active level.
const BlurKernelTable& ActiveBlurKernels();

}  // namespace dofra

#endif  // DOFRA_BLUR_DISPATCH_H
