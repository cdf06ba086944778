#include "bench/floor_kernel.h"

namespace bench {

// restrict lets the loops vectorise: the floor is what the memory system
// allows, not what an aliasing-bound byte loop does.
void FloorLuma(const uint8_t* __restrict src, const uint16_t* __restrict weights,
               uint8_t* __restrict dst, size_t count) {
  for (size_t k = 0; k < count; ++k) dst[k] = static_cast<uint8_t>(src[k] ^ weights[k]);
}

void FloorChroma(const uint8_t* __restrict src, uint8_t* __restrict dst, size_t count) {
  for (size_t k = 0; k < count; ++k) dst[k] = src[k];
}

}  // namespace bench
