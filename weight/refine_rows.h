// Row helpers of the refined weight map (its formula: include/dofra_quality.h)
// and the plain records they share with the driver (weight/refine_map.cpp).
// The scalar members here are the reference that vectorised members must
// match byte for byte.
#ifndef DOFRA_WEIGHT_REFINE_ROWS_H
#define DOFRA_WEIGHT_REFINE_ROWS_H

#include <cstdint>

namespace dofra {

constexpr int kRefineDepths = 256;

// What one depth sample brings besides its depth: its cell's mean colour and
// its purity weight, packed so that one 32-bit load (or gather) has them all.
inline uint32_t PackSample(uint8_t y, uint8_t v, uint8_t u, uint8_t purity) {
  return static_cast<uint32_t>(y) | static_cast<uint32_t>(v) << 8 |
         static_cast<uint32_t>(u) << 16 | static_cast<uint32_t>(purity) << 24;
}

// Per call: the two 8-bit kernels and the depth-to-weight rule.
struct RefineTables {
  uint8_t range[kRefineDepths];      // by colour distance
  uint8_t purity[kRefineDepths];     // by purity distance
  uint16_t by_depth[kRefineDepths];  // the plain map's weight of a depth
  int chroma_weight;                 // quarters
  int flat_spread;                   // samples this close stay bilinear
};

// Per call: each output column's samples and fraction (as the plain map).
struct RefineColumns {
  const int32_t* ix;
  const int32_t* ix1;
  const uint8_t* fx;
};

// One output row: its guide rows (an even number of pixels, so that every
// pixel has its chroma pair), its two sample rows and its fraction.
struct RefineRow {
  const uint8_t* luma;    // guide row y
  const uint8_t* chroma;  // guide chroma row y / 2: V, U pairs
  const uint8_t* depth0;  // sample rows iy and iy1 (dW each)
  const uint8_t* depth1;
  const uint32_t* info0;  // PackSample of the same rows; valid where joint
  const uint32_t* info1;
  int fy;
  uint16_t* out;  // the map's row y
};

// Weights of columns [from, to): the joint formula / plain bilinear, each
// through by_depth.
void RefineJointRow_C(const RefineRow& row, const RefineColumns& cols, const RefineTables& t,
                      int from, int to);
void RefineBilinearRow_C(const RefineRow& row, const RefineColumns& cols, const RefineTables& t,
                         int from, int to);

// Adds the colour of columns [from, to) of one guide row to the sums of
// their cells (cell[x] the sample column of x): luma, and the V and U of the
// chroma pair above each pixel.
void CellColourSums_C(const uint8_t* luma, const uint8_t* chroma, const int32_t* cell, int from,
                      int to, uint32_t* sums_y, uint32_t* sums_v, uint32_t* sums_u);

// The row helpers a level runs; the driver calls nothing else per pixel.
struct RefineRowKernels {
  void (*joint_row)(const RefineRow& row, const RefineColumns& cols, const RefineTables& t,
                    int from, int to);
  void (*bilinear_row)(const RefineRow& row, const RefineColumns& cols, const RefineTables& t,
                       int from, int to);
  void (*colour_sums)(const uint8_t* luma, const uint8_t* chroma, const int32_t* cell, int from,
                      int to, uint32_t* sums_y, uint32_t* sums_v, uint32_t* sums_u);
};
const RefineRowKernels& ScalarRefineRowKernels();

// The refined depth of one pixel: the per-pixel reference of both rows.
struct RefinePixel {
  uint8_t y, v, u;    // the guide's colour at the pixel
  uint8_t depth[4];   // samples (iy, ix), (iy, ix1), (iy1, ix), (iy1, ix1)
  uint32_t info[4];   // their PackSample
  int fx, fy;
};
// Bilinear where the samples span at most flat_spread, else joint.
int RefinedDepth(const RefinePixel& p, const RefineTables& t);
int JointDepth(const RefinePixel& p, const RefineTables& t);
int BilinearDepth(const uint8_t depth[4], int fx, int fy);

}  // namespace dofra

#endif  // DOFRA_WEIGHT_REFINE_ROWS_H
