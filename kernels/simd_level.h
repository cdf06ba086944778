// Instruction-set levels of the vectorised members. The best level that the
// build and the CPU offer is chosen once per process; tests and benchmarks
// force another through ForceSimdLevel (the library reads no environment).
#ifndef DOFRA_KERNELS_SIMD_LEVEL_H
#define DOFRA_KERNELS_SIMD_LEVEL_H

namespace dofra {

enum class SimdLevel { kScalar, kSse41, kAvx2, kNeon };

// Every level, best first, the scalar formulas last. Dispatch, table
// building, the kernel harness and the tests walk this list: a new
// instruction set is an entry here plus its units.
constexpr SimdLevel kSimdLevels[] = {SimdLevel::kAvx2, SimdLevel::kSse41, SimdLevel::kNeon,
                                     SimdLevel::kScalar};

SimdLevel ActiveSimdLevel();
bool SimdLevelAvailable(SimdLevel level);
// Switches every later kernel call to `level`; false, and nothing changes,
// when the build or the CPU lacks it. Not for use while frames run.
bool ForceSimdLevel(SimdLevel level);
const char* SimdLevelName(SimdLevel level);

}  // namespace dofra

#endif  // DOFRA_KERNELS_SIMD_LEVEL_H
