#include "kernels/simd_level.h"

#include <atomic>

namespace dofra {

namespace {

// SSE4.1 is the x86-64 baseline the whole build is compiled for (see
// CMakeLists.txt), so only AVX2 is asked of the CPU; NEON is part of every
// aarch64 CPU.
bool CpuHas(SimdLevel level) {
  switch (level) {
    case SimdLevel::kScalar:
      return true;
#if defined(DOFRA_X86_KERNELS)
    case SimdLevel::kSse41:
      return true;
    case SimdLevel::kAvx2:
      return __builtin_cpu_supports("avx2");
#endif
#if defined(DOFRA_ARM_KERNELS)
    case SimdLevel::kNeon:
      return true;
#endif
    default:
      return false;
  }
}

SimdLevel BestLevel() {
  for (SimdLevel level : kSimdLevels) {
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

bool SimdLevelAvailable(SimdLevel level) { return CpuHas(level); }

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

}  // namespace dofra
