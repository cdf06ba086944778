// The refined weight map's scratch: one block per handle, allocated by the
// mode's first call and kept until DofraDeinit, and the band records its
// rows run on.
#ifndef DOFRA_WEIGHT_REFINE_STATE_H
#define DOFRA_WEIGHT_REFINE_STATE_H

#include <cstdint>

#include "weight/refine_rows.h"

struct CThread_pool;

namespace dofra {

struct RefineState;

constexpr int kBands = 2;  // row bands per pass: the pool's two workers

struct RefineTask {
  RefineState* state;
  CThread_pool* pool;
  const uint8_t* guide;
  uint16_t* out;
  int first, last;  // rows (output or sample rows)
  int band;
};

// One block per handle; every array lives in it.
struct RefineState {
  int W, H, dW, dH;
  int64_t bytes;
  uint8_t* depth;      // dW x dH unsmoothed depth
  uint32_t* info;      // dW x dH PackSample
  uint8_t* wanted;     // dW x dH sample states
  int32_t* ix;         // W
  int32_t* ix1;        // W
  uint8_t* fx;         // W
  int32_t* cell;       // W: the sample whose cell (colour) a column lies in
  int32_t* iy;         // H: each row's upper sample
  uint8_t* fy;         // H
  int32_t* col_start;  // dW + 1: first column of each colour cell, W when none
  int32_t* row_start;  // dH + 1
  int32_t* lerp_start;  // dW + 1: first column whose left sample is j, W when none
  int32_t* run_end;    // dH x dW: runs of cells per row of cells
  uint8_t* run_kind;   // dH x dW
  uint16_t* run_weight;
  int32_t* runs;  // dH
  uint32_t* sums;  // kBands x 3 x dW
  RefineTables tables;
  RefineTask tasks[kBands];
  int last_col, last_row;  // the last colour cell any pixel lies in
  int last_lerp_col, last_lerp_row;  // the last left / upper sample of any pixel
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
