#include "blur/dispatch.h"

#include <atomic>

// Constant-initialised, so the tables exist before any handle does.
const BlurKernelTable kBlurKernels = {
    {__BiLinearInterp_Y_x2_neon, __BiLinearInterp_Y_x2_neon, __BiLinearInterp_Y_x4_neon,
     __BiLinearInterp_Y_x2_neon, __BiLinearInterp_Y_x6, __BiLinearInterp_Y_x2_neon,
     __BiLinearInterp_Y_x8},
    {__BiLinearInterp_UV_x2_neon, __BiLinearInterp_UV_x2_neon, __BiLinearInterp_UV_x4,
     __BiLinearInterp_UV_x2_neon, __BiLinearInterp_UV_x6, __BiLinearInterp_UV_x2_neon,
     __BiLinearInterp_UV_x8},
    {__CreateOutputImage_Y_x2_neon, __CreateOutputImage_Y_x2_neon, __CreateOutputImage_Y_x4_neon,
     __CreateOutputImage_Y_x2_neon, __CreateOutputImage_Y_x6_neon, __CreateOutputImage_Y_x2_neon,
     __CreateOutputImage_Y_x8_neon},
    {__CreateOutputImage_UV_x2_neon, __CreateOutputImage_UV_x2_neon, __CreateOutputImage_UV_x4_neon,
     __CreateOutputImage_UV_x2_neon, __CreateOutputImage_UV_x6_neon, __CreateOutputImage_UV_x2_neon,
     __CreateOutputImage_UV_x8_neon},
    __GaussianSmoothImage_Y_integral_image_neon,
    __GaussianSmoothImage_UV_integral_image_neon,
};

const BlurKernelTable kBlurKernelsC = {
    {__BiLinearInterp_Y_x2_c, __BiLinearInterp_Y_x2_c, __BiLinearInterp_Y_x4_c,
     __BiLinearInterp_Y_x2_c, __BiLinearInterp_Y_x6_c, __BiLinearInterp_Y_x2_c,
     __BiLinearInterp_Y_x8_c},
    {__BiLinearInterp_UV_x2_c, __BiLinearInterp_UV_x2_c, __BiLinearInterp_UV_x4_c,
     __BiLinearInterp_UV_x2_c, __BiLinearInterp_UV_x6_c, __BiLinearInterp_UV_x2_c,
     __BiLinearInterp_UV_x8_c},
    {__CreateOutputImage_Y_x2_c, __CreateOutputImage_Y_x2_c, __CreateOutputImage_Y_x4_c,
     __CreateOutputImage_Y_x2_c, __CreateOutputImage_Y_x6_c, __CreateOutputImage_Y_x2_c,
     __CreateOutputImage_Y_x8_c},
    {__CreateOutputImage_UV_x2_c, __CreateOutputImage_UV_x2_c, __CreateOutputImage_UV_x4_c,
     __CreateOutputImage_UV_x2_c, __CreateOutputImage_UV_x6_c, __CreateOutputImage_UV_x2_c,
     __CreateOutputImage_UV_x8_c},
    __GaussianSmoothImage_Y_integral_image_c,
    __GaussianSmoothImage_UV_integral_image_c,
};

namespace {

constexpr SimdLevel kBuildBest =
#if defined(__SSE4_1__)
    SimdLevel::kSse41;
#else
    SimdLevel::kScalar;
#endif

std::atomic<SimdLevel> g_level{kBuildBest};

}  // namespace

SimdLevel ActiveSimdLevel() { return g_level.load(std::memory_order_relaxed); }

bool SimdLevelAvailable(SimdLevel level) {
  return level == SimdLevel::kScalar || level == kBuildBest;
}

bool ForceSimdLevel(SimdLevel level) {
  if (!SimdLevelAvailable(level)) return false;
  g_level.store(level, std::memory_order_relaxed);
  return true;
}

const char* SimdLevelName(SimdLevel level) {
  switch (level) {
    case SimdLevel::kScalar:
      return "scalar";
    case SimdLevel::kSse41:
      return "sse4.1";
    case SimdLevel::kAvx2:
      return "avx2";
    case SimdLevel::kNeon:
      return "neon";
  }
  return "unknown";
}

const BlurKernelTable& ActiveBlurKernels() {
  return ActiveSimdLevel() == SimdLevel::kScalar ? kBlurKernelsC : kBlurKernels;
}
