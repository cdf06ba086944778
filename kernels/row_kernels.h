// The one seam between the plane drivers and the instruction sets: every
// row and bulk helper the kernels run, as a table of function pointers.
//
// The plane drivers and the scalar formulas live in blur/*.cpp and
// weight/*.cpp, one unit per family. Each instruction set has its own files,
// compiled with its own flags only (kernels/x86/*_sse41.cpp, *_avx2.cpp,
// kernels/arm/*_neon.cpp), that override the entries they vectorise. A table
// per level is filled once per process: the scalar entries first, then each
// level up to the requested one (row_kernels.cpp lists which files fill
// which level).
//
// Only plain records and declarations here: an inline function or template
// defined in a shared header and instantiated in an AVX2 file could become
// the copy that an SSE4.1-only CPU runs.
#ifndef DOFRA_KERNELS_ROW_KERNELS_H
#define DOFRA_KERNELS_ROW_KERNELS_H

#include <cstddef>
#include <cstdint>

#include "kernels/refine_rows.h"
#include "kernels/simd_level.h"
#include "kernels/weight_rows.h"

namespace dofra {

// Longest run of output rows that share their two small rows, handed to a
// compositing bulk helper at once (it lives on the stack).
constexpr int kMaxCompositeRun = 16;

// What a plane driver and its bulk helpers agree on: the columns (luma) or
// pairs (chroma) a bulk covers come in whole groups, and the edges the
// driver keeps for its formulas.
constexpr int kX2Group = 16;       // luma x2 bulk columns per group
constexpr int kBulkGroup = 8;      // luma x4 / x8 bulk columns per group
constexpr int kX6Group = 24;       // luma x6 bulk columns per group, chroma x6 bytes
constexpr int kX6Edge = 5;         // x6: last columns (pairs) and bottom rows outside the bulk
constexpr int kX6GroupPairs = 12;  // chroma x6 bulk pairs per group

// The x6 compositing phase cycle, both planes: right weights are the
// fractions of c * 10922, left weights 256 - right. The cycle never drifts.
constexpr int kX6Right[6] = {42, 85, 127, 170, 213, 255};
constexpr int kX6Left[6] = {214, 171, 129, 86, 43, 1};

// Luma compositing: one output row and the two small rows it interpolates
// between.
struct LumaRow {
  const uint8_t* src;
  const uint16_t* w;
  uint8_t* out;
  const uint8_t* s0;  // small row r0
  const uint8_t* s1;  // small row r1
  int fy;             // vertical fraction, 0..255
  int dx;             // 16.16 horizontal step
};

// Chroma compositing: the source, weight and output rows of one chroma row.
struct ChromaRow {
  const uint8_t* src;
  const uint16_t* wt;  // luma row 2r; pair p reads wt[2p]
  uint8_t* out;
};

// Consecutive chroma rows that read the same two small rows.
struct ChromaRun {
  const uint8_t* s0;
  const uint8_t* s1;
  int n;
  int fy[kMaxCompositeRun];
  ChromaRow row[kMaxCompositeRun];
};

// Shrink factors 2, 4, 6, 8 index their entries as factor / 2 - 1.
constexpr int kShrinkFactors = 4;

// Unnamed, like every helper an instruction set's unit includes: a function
// with external linkage compiled with AVX2 flags could be the copy kept.
namespace {
constexpr int FactorSlot(int factor) { return factor / 2 - 1; }
// Chroma x4 / x8 bulk bytes per group.
constexpr int ChromaGroupBytes(int factor) { return factor == 4 ? 8 : 16; }
}  // namespace
// Smoothing entries by the distance between same-channel samples: luma 1,
// interleaved chroma 2, indexed as lead - 1.
constexpr int kSmoothLeads = 2;

struct RowKernels {
  // Luma compositing of `count` rows sharing s0 and s1. x2: blends columns
  // [0, n) of a row W wide and returns n; the driver writes the rest.
  // x4 / x8: main-row columns [0, end). x6: columns [1, 1 + n).
  int (*luma_x2_bulk)(const LumaRow* rows, int count, int W);
  void (*luma_x4_bulk)(const LumaRow* rows, int count, int end);
  void (*luma_x6_bulk)(const LumaRow* rows, int count, int n);
  void (*luma_x8_bulk)(const LumaRow* rows, int count, int end);

  // Chroma compositing of a run's bulk pairs. x2 returns the pairs it wrote
  // from 0; the driver writes the rest with the formula.
  int (*chroma_x2_bulk)(const ChromaRun& run, int pairs);
  void (*chroma_x4_bulk)(const ChromaRun& run, int bulk_pairs);
  void (*chroma_x6_bulk)(const ChromaRun& run, int bulk_pairs);
  void (*chroma_x8_bulk)(const ChromaRun& run, int bulk_pairs);

  // Luma shrink: small columns [begin, w) of one source row with column step
  // cx; small columns [begin, w) from `factor` intermediate rows w apart.
  void (*luma_shrink_horizontal[kShrinkFactors])(const uint8_t* src, uint8_t* out, int begin, int w,
                                                 int cx);
  void (*luma_shrink_vertical[kShrinkFactors])(const uint8_t* rows, uint8_t* out, int begin, int w);

  // Chroma shrink: pairs [p_begin, p_end) with groups group_bytes apart;
  // bytes [x_begin, x_end) from `factor` intermediate rows stride apart.
  void (*chroma_shrink_horizontal[kShrinkFactors])(const uint8_t* src, uint8_t* dst, int p_begin,
                                                   int p_end, int group_bytes);
  void (*chroma_shrink_vertical[kShrinkFactors])(const uint8_t* rows, uint8_t* dst, int x_begin,
                                                 int x_end, int stride);

  // Smoothing through the integral table: one integral row (entries
  // [begin, n), the earlier ones already written), and the box sums of
  // outputs [begin, end) of one row, with (box_row) or without (the band's
  // anchor row) the table row above.
  void (*integral_row[kSmoothLeads])(const uint8_t* expanded, uint32_t* column_sums, uint32_t* out,
                                     int begin, int n);
  void (*box_row_anchor[kSmoothLeads])(const uint32_t* top, const uint32_t* bottom, uint8_t* dst,
                                       int begin, int end, int span, uint32_t w);
  void (*box_row[kSmoothLeads])(const uint32_t* top, const uint32_t* bottom, uint8_t* dst,
                                int begin, int end, int span, uint32_t w);
  // Sliding box: 16-bit column sums [begin, m) gain a row (and lose one),
  // and outputs [begin, n) of one row from them (radius r <= 7).
  void (*slide_add)(const uint8_t* add, uint16_t* sums, int begin, int m);
  void (*slide_add_sub)(const uint8_t* add, const uint8_t* sub, uint16_t* sums, int begin, int m);
  void (*slide_box_row[kSmoothLeads])(const uint16_t* sums, uint8_t* dst, int begin, int n, int r,
                                      uint32_t w);

  // Weight map: see kernels/weight_rows.h.
  WeightRowFn weight_row;         // per pixel through the depth table
  WeightRowFn weight_row_short;   // valid when lut.short_table
  NarrowRowFn weight_narrow_row;  // whole groups within a 16-depth window
  FillRowFn weight_fill_row;      // one weight
  void (*weight_stream_fence)();  // orders streaming stores before the return
  LerpPairFn weight_lerp_pair;
  // dst[i] = table[src[i]] for i in [0, n).
  void (*depth_lookup)(const uint8_t* src, uint8_t* dst, int n, const uint8_t* table);
  // Minimum and maximum of src[0, body), body a multiple of 16.
  void (*depth_min_max_body)(const uint8_t* src, int body, uint8_t* min_out, uint8_t* max_out);

  // ---- Refined weight map (opt-in; weight/refine_map.cpp, kernels/refine_rows.h) ----
  RefineRowFn refine_joint_row;
  RefineRowFn refine_bilinear_row;
  ColumnSumsFn refine_column_sums;

  // ---- No-glow blur (opt-in; blur/no_bleed.cpp, kernels/no_bleed_rows.h) ----
  // out[x] = min over k < count of rows[k * stride + x], x in [0, n).
  void (*map_min_rows)(const uint16_t* rows, size_t stride, int count, uint16_t* out, int n);
  // Mask of `count` samples from one row of W vertical minima: sample j is
  // 1 when row[x] >= threshold for every x within `pullback` of [j * block,
  // j * block + block), clamped to [0, W); lead 2 writes each twice (a pair).
  // Returns the samples that count. The row is clobbered, and `pullback`
  // entries before and after it are written too.
  int (*mask_row[kSmoothLeads])(uint16_t* row, int W, int block, int pullback, uint16_t threshold,
                                uint8_t* out, int count);
  // Column sums [begin, n) of v * m and of m (m is 0 or 1) gain a row
  // (and lose one), wrapping words.
  void (*masked_slide_add)(const uint8_t* v, const uint8_t* m, uint16_t* v_sums, uint16_t* m_sums,
                           int begin, int n);
  void (*masked_slide_add_sub)(const uint8_t* v, const uint8_t* m, const uint8_t* v_sub,
                               const uint8_t* m_sub, uint16_t* v_sums, uint16_t* m_sums, int begin,
                               int n);
  // Outputs [begin, n) of one row from the column sums of a 5-row box: where
  // its count c is neither 0 nor 25, the masked mean; elsewhere dst stays.
  void (*masked_box_row[kSmoothLeads])(const uint16_t* v_sums, const uint16_t* m_sums, uint8_t* dst,
                                       int begin, int n);
};

// The table of `level`: every entry set, to the member of the nearest level
// below where the level has none of its own (the scalar formula last), and
// the tables the kernels run.
const RowKernels& RowKernelsAt(SimdLevel level);
const RowKernels& ActiveRowKernels();  // the _neon members and their kin
const RowKernels& ScalarRowKernels();  // the _c members

// Entries filled per family and instruction set.
void FillCompositeY_C(RowKernels* k);
void FillCompositeUV_C(RowKernels* k);
void FillShrinkY_C(RowKernels* k);
void FillShrinkUV_C(RowKernels* k);
void FillSmooth_C(RowKernels* k);
void FillWeight_C(RowKernels* k);
void FillDepthTable_C(RowKernels* k);
void FillRefine_C(RowKernels* k);

void FillCompositeY_SSE41(RowKernels* k);
void FillCompositeUV_SSE41(RowKernels* k);
void FillShrinkY_SSE41(RowKernels* k);
void FillShrinkUV_SSE41(RowKernels* k);
void FillSmooth_SSE41(RowKernels* k);
void FillWeight_SSE41(RowKernels* k);
void FillRefine_SSE41(RowKernels* k);

void FillCompositeY_AVX2(RowKernels* k);
void FillCompositeUV_AVX2(RowKernels* k);
void FillShrinkY_AVX2(RowKernels* k);
void FillShrinkUV_AVX2(RowKernels* k);
void FillSmooth_AVX2(RowKernels* k);
void FillWeight_AVX2(RowKernels* k);
void FillRefine_AVX2(RowKernels* k);

void FillCompositeY_NEON(RowKernels* k);
void FillCompositeUV_NEON(RowKernels* k);
void FillShrinkY_NEON(RowKernels* k);
void FillShrinkUV_NEON(RowKernels* k);
void FillSmooth_NEON(RowKernels* k);
void FillWeight_NEON(RowKernels* k);
void FillRefine_NEON(RowKernels* k);

// The no-glow blur's entries, per instruction set.
void FillNoBleed_C(RowKernels* k);
void FillNoBleed_SSE41(RowKernels* k);
void FillNoBleed_AVX2(RowKernels* k);
void FillNoBleed_NEON(RowKernels* k);

}  // namespace dofra

#endif  // DOFRA_KERNELS_ROW_KERNELS_H
