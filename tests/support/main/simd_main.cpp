// The unit tests' main: `--simd=scalar` runs the whole suite with the scalar
// formulas in place of the vectorised members, so that a fault in a plane
// driver they share cannot hide behind their agreement.
#include <gtest/gtest.h>

#include <cstring>

#include "kernels/simd_level.h"

using namespace dofra;  // the library's internal names

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--simd=scalar") != 0) {
      fprintf(stderr, "unknown argument %s\n", argv[i]);
      return 2;
    }
    ForceSimdLevel(SimdLevel::kScalar);
  }
  printf("kernel level: %s\n", SimdLevelName(ActiveSimdLevel()));
  return RUN_ALL_TESTS();
}
