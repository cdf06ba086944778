// The row-kernel tables: every level the CPU has fills every entry, each
// vector level replaces entries of the level below it, and forcing a level
// switches the table the _neon members run.
#include "kernels/row_kernels.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

using namespace dofra;  // the library's internal names

namespace {

// Every member of the table is a function pointer.
std::vector<uintptr_t> Entries(const RowKernels& k) {
  static_assert(sizeof(RowKernels) % sizeof(void (*)()) == 0, "only function pointers");
  std::vector<uintptr_t> e(sizeof(RowKernels) / sizeof(void (*)()));
  std::memcpy(e.data(), &k, sizeof(k));
  return e;
}

TEST(RowKernels, AvailableLevelsFillEveryEntryAndVectorLevelsReplaceSome) {
  std::vector<uintptr_t> above;  // the next better level's table
  for (SimdLevel level : kSimdLevels) {
    if (!SimdLevelAvailable(level)) {
      std::printf("skipped %s: not on this CPU or build\n", SimdLevelName(level));
      continue;
    }
    const std::vector<uintptr_t> e = Entries(RowKernelsAt(level));
    for (size_t i = 0; i < e.size(); ++i) EXPECT_NE(e[i], 0u) << SimdLevelName(level) << " #" << i;
    if (!above.empty()) {
      EXPECT_NE(e, above) << "the level above " << SimdLevelName(level) << " replaces nothing";
    }
    above = e;
  }
}

TEST(RowKernels, ForcingALevelSwitchesTheActiveTable) {
  const SimdLevel best = ActiveSimdLevel();
  for (SimdLevel level : kSimdLevels) {
    const SimdLevel before = ActiveSimdLevel();
    const bool available = SimdLevelAvailable(level);
    EXPECT_EQ(ForceSimdLevel(level), available) << SimdLevelName(level);
    EXPECT_EQ(ActiveSimdLevel(), available ? level : before);
    EXPECT_EQ(&ActiveRowKernels(), &RowKernelsAt(ActiveSimdLevel()));
  }
  EXPECT_EQ(&ScalarRowKernels(), &RowKernelsAt(SimdLevel::kScalar));
  ForceSimdLevel(best);
}

}  // namespace
