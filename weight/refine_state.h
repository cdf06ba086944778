// The refined weight map's scratch: one block per handle, allocated by the
// mode's first call and kept until DofraDeinit; the tables that depend on
// the sizes only are built with it, the rest is rewritten by every call.
#ifndef DOFRA_WEIGHT_REFINE_STATE_H
#define DOFRA_WEIGHT_REFINE_STATE_H

#include <cstdint>

#include "kernels/refine_rows.h"

struct CThread_pool;

namespace dofra {

struct RefineState;

// Tasks per pass: more than the pool's two workers, so that a band of
// costly rows does not keep the other thread waiting.
constexpr int kRefineTasks = 8;

struct RefineTask {
  RefineState* state;
  CThread_pool* pool;
  const uint8_t* guide;
  uint16_t* out;
  int first, last;  // rows (output or sample rows)
  int index;        // which task scratch it uses
};

// Per task, dW bytes each unless said: the kinds of three rows of cells,
// one row's spans and flags, the colour sums of one row of cells, and the
// colours and purity of the sample row below its band (kRefinePlanePad
// bytes past each, as the planes).
struct TaskScratch {
  uint8_t* kinds[3];
  uint8_t* lo;  // least and largest depths (of a cell or a neighbourhood)
  uint8_t* hi;
  uint8_t* seg_lo;  // least and largest segments of a cell
  uint8_t* seg_hi;
  uint8_t* joint;   // a joint cell above or below
  uint8_t* starts;  // the cells that start a run
  uint8_t* wanted;
  uint8_t* purity_distance;
  uint16_t* sum_luma;    // W: vertical luma sums per column
  uint16_t* sum_chroma;  // W: vertical chroma sums per byte
  uint32_t* cell_sums;   // 3 x dW: Y, V, U per colour cell
  uint8_t* halo[4];      // Y, V, U, purity
};

struct RefineState {
  int W, H, dW, dH;
  int64_t bytes;
  // Per size.
  int32_t* ix;                       // W
  int32_t* ix1;                      // W
  uint8_t* fx;                       // W
  int32_t* iy;                       // H: each row's upper sample
  uint8_t* fy;                       // H
  int32_t* col_start;                // dW + 1: first column of each colour cell, W when none
  int32_t* row_start;                // dH + 1
  int32_t* lerp_start;               // dW + 1: first column whose left sample is j, W when none
  int32_t* lerp_row_start;           // dH + 1: first row whose upper sample is i, H when none
  int last_col, last_row;            // the last colour cell any pixel lies in
  int last_lerp_col, last_lerp_row;  // the last left / upper sample of any pixel
  // Per call: the sample planes (dW x dH, kRefinePlanePad bytes past each),
  // colours and purity valid where a joint cell reads them.
  uint8_t* depth;
  uint8_t* colour_y;
  uint8_t* colour_v;
  uint8_t* colour_u;
  uint8_t* purity;
  uint8_t* segment;  // each sample's weight segment (no pad)
  // Per call: runs of cell kinds per row of cells.
  int32_t* run_end;  // dH x dW
  uint8_t* run_kind;
  uint16_t* run_weight;
  int32_t* runs;  // dH
  RefineTables tables;
  uint8_t purity_table[kRefineDepths];
  int range_sigma, purity_scale;  // of the kernels in the tables, 0 before the first
  TaskScratch scratch[kRefineTasks];
  RefineTask tasks[kRefineTasks];
};

// The scratch of one handle, for these sizes: the one in *slot when its sizes
// match, else a new one (the old one released). nullptr when the allocation
// fails; *slot then holds nothing.
RefineState* RefineStateFor(RefineState** slot, int W, int H, int dW, int dH);
void FreeRefineState(RefineState* state);
// Bytes a state of these sizes holds (for the log).
int64_t RefineStateBytes(int W, int H, int dW, int dH);

}  // namespace dofra

#endif  // DOFRA_WEIGHT_REFINE_STATE_H
