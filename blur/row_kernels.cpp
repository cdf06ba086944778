#include "blur/row_kernels.h"

namespace {

// Which files fill which level. A level that the build or the CPU lacks
// keeps the entries below it: even its fill functions are compiled for it,
// so none of its code runs on a CPU without it.
//
//   level    files                      entries
//   scalar   blur/*.cpp, weight/*.cpp   every entry: the formulas
//   sse4.1   blur/x86/*_sse41.cpp       every entry but weight_row, depth_lookup
//   avx2     blur/x86/*_avx2.cpp        compositing, shrinks, sliding box, weight rows,
//                                       depth_lookup
//   neon     blur/arm/*_neon.cpp        every entry but weight_row, weight_stream_fence
RowKernels BuildTable(SimdLevel level) {
  RowKernels k{};
  FillCompositeY_C(&k);
  FillCompositeUV_C(&k);
  FillShrinkY_C(&k);
  FillShrinkUV_C(&k);
  FillSmooth_C(&k);
  FillWeight_C(&k);
  FillDepthTable_C(&k);
#if defined(DOFRA_X86_KERNELS)
  const bool sse41 = level == SimdLevel::kSse41 || level == SimdLevel::kAvx2;
  if (sse41 && SimdLevelAvailable(SimdLevel::kSse41)) {
    FillCompositeY_SSE41(&k);
    FillCompositeUV_SSE41(&k);
    FillShrinkY_SSE41(&k);
    FillShrinkUV_SSE41(&k);
    FillSmooth_SSE41(&k);
    FillWeight_SSE41(&k);
  }
  if (level == SimdLevel::kAvx2 && SimdLevelAvailable(SimdLevel::kAvx2)) {
    FillCompositeY_AVX2(&k);
    FillCompositeUV_AVX2(&k);
    FillShrinkY_AVX2(&k);
    FillShrinkUV_AVX2(&k);
    FillSmooth_AVX2(&k);
    FillWeight_AVX2(&k);
  }
#elif defined(DOFRA_ARM_KERNELS)
  if (level == SimdLevel::kNeon && SimdLevelAvailable(SimdLevel::kNeon)) {
    FillCompositeY_NEON(&k);
    FillCompositeUV_NEON(&k);
    FillShrinkY_NEON(&k);
    FillShrinkUV_NEON(&k);
    FillSmooth_NEON(&k);
    FillWeight_NEON(&k);
  }
#else
  (void)level;
#endif
  return k;
}

constexpr int kLevels = 4;

}  // namespace

const RowKernels& RowKernelsAt(SimdLevel level) {
  static const RowKernels tables[kLevels] = {
      BuildTable(SimdLevel::kScalar), BuildTable(SimdLevel::kSse41), BuildTable(SimdLevel::kAvx2),
      BuildTable(SimdLevel::kNeon)};
  return tables[static_cast<int>(level)];
}

const RowKernels& ActiveRowKernels() { return RowKernelsAt(ActiveSimdLevel()); }

const RowKernels& ScalarRowKernels() { return RowKernelsAt(SimdLevel::kScalar); }
