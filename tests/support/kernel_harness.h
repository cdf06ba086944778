// One table of every kernel family: each vectorised member runs beside its
// scalar formula on the same seeded inputs, with outputs pre-filled and
// guarded, and must leave the same bytes.
#ifndef DOFRA_TESTS_SUPPORT_KERNEL_HARNESS_H
#define DOFRA_TESTS_SUPPORT_KERNEL_HARNESS_H

#include <cstdint>
#include <string>
#include <vector>

#include "kernels/simd_level.h"

// One call: plane sizes, the band and how the inputs look. Smoothing reads
// its Q10 weight from sw and its radius from r; compositing reads r as the
// number of small rows it may name (the small plane ends there).
struct KernelCase {
  int W, H, sw, sh, first, last, r;
  int pattern;  // 0 random, 1 all 0, 2 all 255, 3 alternating 0 / 255
  int offset;   // output misalignment
  uint32_t seed;
};

// Runs one member and returns every byte it may write, the outputs having
// been filled with `fill` first; fails the test when it writes past them.
using KernelRunner = std::vector<uint8_t> (*)(int member, bool vectorised, const KernelCase& c,
                                              uint8_t fill);

struct KernelFamily {
  std::string name;
  int member;  // index the runner understands (factor or plane)
  KernelRunner run;
  std::vector<KernelCase> cases;
};

std::vector<KernelFamily> AllKernelFamilies();

// Vectorised levels the build and the CPU offer; the others are named in `skipped`.
std::vector<dofra::SimdLevel> VectorLevels(std::string* skipped);

// Bytes that end exactly at an inaccessible page, so that any read past
// them faults in every build.
class FencedBytes {
 public:
  explicit FencedBytes(size_t size);
  ~FencedBytes();
  FencedBytes(const FencedBytes&) = delete;
  FencedBytes& operator=(const FencedBytes&) = delete;
  uint8_t* data() { return end_ - size_; }

 private:
  uint8_t* base_ = nullptr;
  uint8_t* end_ = nullptr;
  size_t map_len_ = 0;
  size_t size_;
};

#endif  // DOFRA_TESTS_SUPPORT_KERNEL_HARNESS_H
