// The memory floor's per-byte work, in a unit of its own compiled for the
// build machine's full instruction set (a floor, not a shippable kernel).
#ifndef DOFRA_BENCH_FLOOR_KERNEL_H
#define DOFRA_BENCH_FLOOR_KERNEL_H

#include <cstddef>
#include <cstdint>

namespace bench {

// Reads every source byte and weight once, writes every destination byte once.
void FloorLuma(const uint8_t* src, const uint16_t* weights, uint8_t* dst, size_t count);
// Reads every source byte once, writes every destination byte once.
void FloorChroma(const uint8_t* src, uint8_t* dst, size_t count);

}  // namespace bench

#endif  // DOFRA_BENCH_FLOOR_KERNEL_H
