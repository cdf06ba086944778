#include "blur/dispatch.h"

#include <atomic>
#include <initializer_list>

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

// The x86 members exist when the build has them (DOFRA_SSE41); SSE4.1 is the
// x86-64 baseline they assume, AVX2 is checked on the CPU.
bool CpuHas(SimdLevel level) {
  switch (level) {
    case SimdLevel::kScalar:
      return true;
#if defined(DOFRA_X86_KERNELS)
    case SimdLevel::kSse41:
      return __builtin_cpu_supports("sse4.1");
    case SimdLevel::kAvx2:
      return __builtin_cpu_supports("avx2");
#endif
#if defined(DOFRA_ARM_KERNELS)
    case SimdLevel::kNeon:
      return true;  // every aarch64 CPU has it
#endif
    default:
      return false;
  }
}

SimdLevel BestLevel() {
  for (SimdLevel level : {SimdLevel::kAvx2, SimdLevel::kSse41, SimdLevel::kNeon}) {
    if (CpuHas(level)) return level;
  }
  return SimdLevel::kScalar;
}

// Chosen once, on first use.
std::atomic<SimdLevel>& Level() {
  static std::atomic<SimdLevel> level{BestLevel()};
  return level;
}

}  // namespace

SimdLevel ActiveSimdLevel() { return Level().load(std::memory_order_relaxed); }

bool SimdLevelAvailable(SimdLevel level) {
  static const bool available[] = {CpuHas(SimdLevel::kScalar), CpuHas(SimdLevel::kSse41),
                                   CpuHas(SimdLevel::kAvx2), CpuHas(SimdLevel::kNeon)};
  return available[static_cast<int>(level)];
}

bool ForceSimdLevel(SimdLevel level) {
  if (!SimdLevelAvailable(level)) return false;
  Level().store(level, std::memory_order_relaxed);
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
