// Records shared by the refined weight map's driver (weight/refine_map.cpp),
// its scalar row helpers (weight/refine_rows.cpp) and their vectorised
// members; the formula is stated in include/dofra_quality.h. Plain data
// only: the same layout in every unit, whatever its flags.
#ifndef DOFRA_KERNELS_REFINE_ROWS_H
#define DOFRA_KERNELS_REFINE_ROWS_H

#include <cstdint>

#include "kernels/weight_rows.h"

namespace dofra {

constexpr int kRefineDepths = 256;
// Columns per vector step, one byte each; the samples of one step are
// gathered by byte shuffles from one 16-byte load of each sample plane.
constexpr int kRefineGroup = 16;
// Bytes readable past the last sample of every sample plane: a member loads
// 16 samples from any sample of a row.
constexpr int kRefinePlanePad = kRefineGroup;
// Colour sums of this many rows stay in 16 bits: 257 * 255 < 65536.
constexpr int kMaxSumRows = 257;

// Per call: the range kernel and the depth-to-weight rule.
struct RefineTables {
  alignas(16) uint8_t range[kRefineDepths];  // by colour distance
  int range_chunks;   // 16-entry chunks of range up to its last nonzero entry
  int chroma_weight;  // quarters
  int flat_spread;    // four samples this close stay bilinear
  // weights.by_depth: the plain map's weight of a depth; its distance tables
  // where weights.short_table (the plain map's rule always has them).
  WeightLut weights;
};

// Per frame size: each output column's samples and fraction. ix never
// decreases along a row and ix1 = min(ix + 1, dW - 1).
struct RefineColumns {
  const int32_t* ix;
  const int32_t* ix1;
  const uint8_t* fx;
};

// One row of samples, a plane each, kRefinePlanePad readable bytes past the
// plane: depth, the mean colour of the sample's cell, its purity weight.
struct SampleRow {
  const uint8_t* depth;
  const uint8_t* y;
  const uint8_t* v;
  const uint8_t* u;
  const uint8_t* purity;
};

// One output row: its guide rows (W even, so that every pixel has its chroma
// pair), its two sample rows and its fraction.
struct RefineRow {
  const uint8_t* luma;    // guide row y
  const uint8_t* chroma;  // guide chroma row y / 2: V, U pairs
  SampleRow top;          // sample row iy
  SampleRow bottom;       // sample row min(iy + 1, dH - 1)
  int fy;
  uint16_t* out;  // the map's row y
};

// Weights of columns [from, to) of a row: the joint formula, or plain
// bilinear, each through weights.by_depth.
using RefineRowFn = void (*)(const RefineRow& row, const RefineColumns& cols, const RefineTables& t,
                             int from, int to);
// sums[x] = rows[0][x] + ... + rows[n - 1][x] for x in [from, to), n at most
// kMaxSumRows: the colour sums of a block of rows (a row may repeat).
using ColumnSumsFn = void (*)(const uint8_t* const* rows, int n, uint16_t* sums, int from, int to);

}  // namespace dofra

#endif  // DOFRA_KERNELS_REFINE_ROWS_H
