// Records shared by the weight-map interpolation's driver (weight_map.cpp)
// and its row helpers (scalar there, vectorised per instruction set).
// Plain data only: the same layout in every unit, whatever its flags.
#ifndef DOFRA_KERNELS_WEIGHT_ROWS_H
#define DOFRA_KERNELS_WEIGHT_ROWS_H

#include <cstdint>

namespace dofra {

constexpr int kDepths = 256;
constexpr int kShortDiffs = 32;     // two 16-entry byte shuffles
constexpr int kWeightGroup = 16;    // pixels per vector step, one byte each
constexpr int kWeightStrip = 2048;  // columns per strip: bounds the stack tables
constexpr int kWeightGroups = kWeightStrip / kWeightGroup;

// The weight as a function of the depth alone, built once per call with the
// same float arithmetic as the per-pixel formula.
struct WeightLut {
  int low;
  int high;
  uint16_t by_depth[kDepths];
  // by_depth[v..same_until[v]] all equal: a depth range weighs as one value.
  uint8_t same_until[kDepths];
  // by_depth split into bytes, padded so that 16 entries load from any depth.
  alignas(16) uint8_t depth_lo[kDepths + kWeightGroup];
  alignas(16) uint8_t depth_hi[kDepths + kWeightGroup];
  // Weights of distances 0..31 split into bytes, valid when short_table:
  // every larger distance weighs as 31 (true with falloff 25). Entries 16..31
  // hold w(d) ^ w(d - 16), so that xoring both shuffles gives w(d).
  bool short_table;
  alignas(16) uint8_t diff_lo[kShortDiffs];
  alignas(16) uint8_t diff_hi[kShortDiffs];
};

// Per-column sample positions of one strip of output columns, and for each
// group of 16 columns the byte shuffles that gather its samples from one
// 16-byte load of a disparity row.
struct ColumnTable {
  int n;
  int32_t ix[kWeightStrip];
  int32_t ix1[kWeightStrip];
  uint8_t fx[kWeightStrip];
  int32_t load_at[kWeightGroups];  // first of the 16 bytes loaded; -1: scalar group
  alignas(16) uint8_t pick0[kWeightGroups][kWeightGroup];
  alignas(16) uint8_t pick1[kWeightGroups][kWeightGroup];
  alignas(16) int16_t frac7[kWeightGroups][kWeightGroup];  // fx << 7, the mulhrs scale
};

// One output row between a pair of disparity rows: its vertical fraction and
// its entries at the strip's column 0.
struct WeightRow {
  int fy;
  uint16_t* out;
  bool stream;  // streaming stores where aligned: the map outgrows the caches
};

// Columns [from, to) of a row from a horizontally interpolated depth row
// `top` and the difference `delta` of the row below it (both at the strip's
// column 0); from is a multiple of 16.
using WeightRowFn = void (*)(const uint16_t* top, const int16_t* delta, int from, int to,
                             const WeightRow& row, const WeightLut& lut);
// Whole groups [from, to) whose depths lie in group_min[g]..group_min[g] + 15
// (g the column / 16).
using NarrowRowFn = void (*)(const uint16_t* top, const int16_t* delta, const uint8_t* group_min,
                             int from, int to, const WeightRow& row, const WeightLut& lut);
using FillRowFn = void (*)(uint16_t* out, int n, uint16_t w, bool stream);
// Columns [from, to) of two disparity rows interpolated across the strip:
// the upper one into `top`, the lower one as its difference from it; from is
// a multiple of 16.
using LerpPairFn = void (*)(const uint8_t* row0, const uint8_t* row1, const ColumnTable& c,
                            int from, int to, uint16_t* top, int16_t* delta);

}  // namespace dofra

#endif  // DOFRA_KERNELS_WEIGHT_ROWS_H
