#include "kernels/row_kernels.h"

#include <cstddef>

namespace dofra {

namespace {

using FillFn = void (*)(RowKernels*);
constexpr int kMaxFills = 10;  // fill functions per level, null after the last

// Which files fill which level, over the table of which level below it. A
// level that the build or the CPU lacks keeps the entries below it: even its
// fill functions are compiled for it, so none of its code runs on a CPU
// without it.
//
//   level    files                      entries
//   scalar   blur/*.cpp, weight/*.cpp   every entry: the formulas
//   sse4.1   kernels/x86/*_sse41.cpp    every entry but weight_row, depth_lookup
//   avx2     kernels/x86/*_avx2.cpp     compositing, shrinks, sliding box, weight rows,
//                                       depth_lookup, refined map rows and colour sums,
//                                       the no-glow rows
//   neon     kernels/arm/*_neon.cpp     every entry but weight_row, weight_stream_fence
struct LevelFills {
  SimdLevel level;
  SimdLevel below;
  FillFn fills[kMaxFills];
};

constexpr LevelFills kLevelFills[] = {
    {SimdLevel::kScalar,
     SimdLevel::kScalar,
     {FillCompositeY_C, FillCompositeUV_C, FillShrinkY_C, FillShrinkUV_C, FillSmooth_C,
      FillWeight_C, FillDepthTable_C, FillRefine_C, FillNoBleed_C}},
#if defined(DOFRA_X86_KERNELS)
    {SimdLevel::kSse41,
     SimdLevel::kScalar,
     {FillCompositeY_SSE41, FillCompositeUV_SSE41, FillShrinkY_SSE41, FillShrinkUV_SSE41,
      FillSmooth_SSE41, FillWeight_SSE41, FillRefine_SSE41, FillNoBleed_SSE41}},
    {SimdLevel::kAvx2,
     SimdLevel::kSse41,
     {FillCompositeY_AVX2, FillCompositeUV_AVX2, FillShrinkY_AVX2, FillShrinkUV_AVX2,
      FillSmooth_AVX2, FillWeight_AVX2, FillRefine_AVX2, FillNoBleed_AVX2}},
#endif
#if defined(DOFRA_ARM_KERNELS)
    {SimdLevel::kNeon,
     SimdLevel::kScalar,
     {FillCompositeY_NEON, FillCompositeUV_NEON, FillShrinkY_NEON, FillShrinkUV_NEON,
      FillSmooth_NEON, FillWeight_NEON, FillRefine_NEON, FillNoBleed_NEON}},
#endif
};

// The table of `level`: the one below it, then the level's own fills.
RowKernels BuildTable(SimdLevel level) {
  for (const LevelFills& l : kLevelFills) {
    if (l.level != level) continue;
    RowKernels k = level == l.below ? RowKernels{} : BuildTable(l.below);
    if (SimdLevelAvailable(level))
      for (FillFn fill : l.fills)
        if (fill != nullptr) fill(&k);
    return k;
  }
  return BuildTable(SimdLevel::kScalar);  // a level this build has no members for
}

constexpr size_t kLevelCount = sizeof(kSimdLevels) / sizeof(kSimdLevels[0]);

// Where each level stands in kSimdLevels, by the level's value: derived from
// the list, so that the vector members' remainders find their table (row by
// row) without a search.
struct Positions {
  size_t of[kLevelCount] = {};
  constexpr Positions() {
    for (size_t i = 0; i < kLevelCount; ++i) of[static_cast<size_t>(kSimdLevels[i])] = i;
  }
};
constexpr Positions kPositions;

struct Tables {
  RowKernels at[kLevelCount];  // in the order of kSimdLevels
  Tables() {
    for (size_t i = 0; i < kLevelCount; ++i) at[i] = BuildTable(kSimdLevels[i]);
  }
};

}  // namespace

const RowKernels& RowKernelsAt(SimdLevel level) {
  static const Tables tables;
  return tables.at[kPositions.of[static_cast<size_t>(level)]];
}

const RowKernels& ActiveRowKernels() { return RowKernelsAt(ActiveSimdLevel()); }

const RowKernels& ScalarRowKernels() { return RowKernelsAt(SimdLevel::kScalar); }

}  // namespace dofra
