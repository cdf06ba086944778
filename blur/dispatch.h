// Kernel tables of the blur engine, indexed by scale factor - 2. Factors 3,
// 5 and 7 run the factor-2 routines on a small image sized for their own
// factor; the tables are laid out that way on purpose.
#ifndef DOFRA_BLUR_DISPATCH_H
#define DOFRA_BLUR_DISPATCH_H

#include "blur/kernels.h"

constexpr int kMinScaleFactor = 2;
constexpr int kScaleEntries = 7;  // factors 2..8

struct BlurKernelTable {
  ShrinkFn shrink_y[kScaleEntries];
  ShrinkFn shrink_uv[kScaleEntries];
  BlendFn blend_y[kScaleEntries];
  BlendFn blend_uv[kScaleEntries];
  SmoothFn smooth_y;
  SmoothFn smooth_uv;
};

// What the pipeline runs: the vectorised members.
extern const BlurKernelTable kBlurKernels;
// The same table made of the plain scalar formulas, for comparison.
extern const BlurKernelTable kBlurKernelsC;

// Instruction-set level of the vectorised members. The best level that the
// build and the CPU offer is chosen once per process; tests and benchmarks
// force another through ForceSimdLevel (the library reads no environment).
enum class SimdLevel { kScalar, kSse41, kAvx2, kNeon };

SimdLevel ActiveSimdLevel();
bool SimdLevelAvailable(SimdLevel level);
// Switches every later kernel call to `level`; false, and nothing changes,
// when the build or the CPU lacks it. Not for use while frames run.
bool ForceSimdLevel(SimdLevel level);
const char* SimdLevelName(SimdLevel level);

// The kernels the pipeline runs at the active level.
const BlurKernelTable& ActiveBlurKernels();

#endif  // DOFRA_BLUR_DISPATCH_H
