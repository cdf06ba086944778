#include "weight/refine_state.h"

#include <algorithm>
#include <cstdlib>
#include <new>

#include "kernels/fixed_point.h"

namespace dofra {

namespace {

constexpr size_t kAlign = 64;  // array offsets: no two arrays share a cache line

// Per task: its byte rows (kinds of three rows of cells, lo, hi, seg_lo,
// seg_hi, joint, starts, wanted, purity distance), sums and halo rows.
constexpr int kTaskRows = 11;
constexpr int kHaloRows = 4;

struct TaskLayout {
  size_t rows[kTaskRows], sum_luma, sum_chroma, cell_sums, halo[kHaloRows];
};

// Offsets of the arrays in one block.
struct Layout {
  size_t ix, ix1, fx, iy, fy, col_start, row_start, lerp_start, lerp_row_start;
  size_t planes[5], segment;
  size_t run_end, run_kind, run_weight, runs;
  TaskLayout tasks[kRefineTasks];
  size_t total;
};

size_t Take(size_t* at, int64_t bytes) {
  const size_t start = *at;
  *at += (static_cast<size_t>(bytes) + kAlign - 1) & ~(kAlign - 1);
  return start;
}

Layout LayoutOf(int W, int H, int dW, int dH) {
  const int64_t n = static_cast<int64_t>(dW) * dH;
  Layout l;
  size_t at = (sizeof(RefineState) + kAlign - 1) & ~(kAlign - 1);
  l.ix = Take(&at, int64_t{W} * 4);
  l.ix1 = Take(&at, int64_t{W} * 4);
  l.fx = Take(&at, W);
  l.iy = Take(&at, int64_t{H} * 4);
  l.fy = Take(&at, H);
  l.col_start = Take(&at, (int64_t{dW} + 1) * 4);
  l.row_start = Take(&at, (int64_t{dH} + 1) * 4);
  l.lerp_start = Take(&at, (int64_t{dW} + 1) * 4);
  l.lerp_row_start = Take(&at, (int64_t{dH} + 1) * 4);
  for (size_t& plane : l.planes) plane = Take(&at, n + kRefinePlanePad);
  l.segment = Take(&at, n);
  l.run_end = Take(&at, n * 4);
  l.run_kind = Take(&at, n);
  l.run_weight = Take(&at, n * 2);
  l.runs = Take(&at, int64_t{dH} * 4);
  for (TaskLayout& t : l.tasks) {
    for (size_t& row : t.rows) row = Take(&at, dW);
    t.sum_luma = Take(&at, int64_t{W} * 2);
    t.sum_chroma = Take(&at, int64_t{W} * 2);
    t.cell_sums = Take(&at, int64_t{dW} * 3 * 4);
    for (size_t& row : t.halo) row = Take(&at, int64_t{dW} + kRefinePlanePad);
  }
  l.total = at;
  return l;
}

template <typename T>
T* At(uint8_t* base, size_t offset) {
  return reinterpret_cast<T*>(base + offset);
}

// The position of pixel k in the sample grid (16.16), with each sample at
// the centre of the pixels it was resampled from: k * step puts it at their
// first pixel, half a cell early, which shifts every edge by that much.
int Position(int k, int step) { return std::max(k * step + (step >> 1) - (kPosOne >> 1), 0); }

// Columns and rows: samples, fractions and the first pixel of each cell.
void BuildGeometry(RefineState* s) {
  const int sx = (s->dW << kPosShift) / s->W;
  std::fill(s->col_start, s->col_start + s->dW + 1, s->W);
  std::fill(s->lerp_start, s->lerp_start + s->dW + 1, s->W);
  for (int x = 0; x < s->W; ++x) {
    const int q = Position(x, sx);
    const int i = PosInt(q);
    s->ix[x] = i;
    s->ix1[x] = std::min(i + 1, s->dW - 1);
    s->fx[x] = static_cast<uint8_t>(PosFrac(q));
    if (s->lerp_start[i] == s->W) s->lerp_start[i] = x;
    const int cell = PosInt(x * sx);
    if (s->col_start[cell] == s->W) s->col_start[cell] = x;
    s->last_col = cell;
  }
  s->last_lerp_col = s->ix[s->W - 1];
  const int sy = (s->dH << kPosShift) / s->H;
  std::fill(s->row_start, s->row_start + s->dH + 1, s->H);
  std::fill(s->lerp_row_start, s->lerp_row_start + s->dH + 1, s->H);
  for (int y = 0; y < s->H; ++y) {
    const int q = Position(y, sy);
    s->iy[y] = PosInt(q);
    s->fy[y] = static_cast<uint8_t>(PosFrac(q));
    const int cell = PosInt(y * sy);
    if (s->row_start[cell] == s->H) s->row_start[cell] = y;
    if (s->lerp_row_start[s->iy[y]] == s->H) s->lerp_row_start[s->iy[y]] = y;
    s->last_row = cell;
  }
  s->last_lerp_row = s->iy[s->H - 1];
}

}  // namespace

int64_t RefineStateBytes(int W, int H, int dW, int dH) {
  return static_cast<int64_t>(LayoutOf(W, H, dW, dH).total);
}

RefineState* RefineStateFor(RefineState** slot, int W, int H, int dW, int dH) {
  RefineState* s = *slot;
  if (s != nullptr && s->W == W && s->H == H && s->dW == dW && s->dH == dH) return s;
  FreeRefineState(s);
  *slot = nullptr;
  const Layout l = LayoutOf(W, H, dW, dH);
  auto* block = static_cast<uint8_t*>(malloc(l.total));
  if (block == nullptr) return nullptr;
  s = new (block) RefineState();
  s->W = W;
  s->H = H;
  s->dW = dW;
  s->dH = dH;
  s->bytes = static_cast<int64_t>(l.total);
  s->ix = At<int32_t>(block, l.ix);
  s->ix1 = At<int32_t>(block, l.ix1);
  s->fx = At<uint8_t>(block, l.fx);
  s->iy = At<int32_t>(block, l.iy);
  s->fy = At<uint8_t>(block, l.fy);
  s->col_start = At<int32_t>(block, l.col_start);
  s->row_start = At<int32_t>(block, l.row_start);
  s->lerp_start = At<int32_t>(block, l.lerp_start);
  s->lerp_row_start = At<int32_t>(block, l.lerp_row_start);
  uint8_t** planes[5] = {&s->depth, &s->colour_y, &s->colour_v, &s->colour_u, &s->purity};
  for (int p = 0; p < 5; ++p) {
    *planes[p] = At<uint8_t>(block, l.planes[p]);
    // The pad is only ever loaded, never used: defined all the same.
    std::fill(*planes[p], *planes[p] + static_cast<int64_t>(dW) * dH + kRefinePlanePad, 0);
  }
  s->segment = At<uint8_t>(block, l.segment);
  s->run_end = At<int32_t>(block, l.run_end);
  s->run_kind = At<uint8_t>(block, l.run_kind);
  s->run_weight = At<uint16_t>(block, l.run_weight);
  s->runs = At<int32_t>(block, l.runs);
  for (int t = 0; t < kRefineTasks; ++t) {
    const TaskLayout& tl = l.tasks[t];
    TaskScratch& ts = s->scratch[t];
    uint8_t** rows[kTaskRows] = {&ts.kinds[0], &ts.kinds[1], &ts.kinds[2],       &ts.lo,
                                 &ts.hi,       &ts.seg_lo,   &ts.seg_hi,         &ts.joint,
                                 &ts.starts,   &ts.wanted,   &ts.purity_distance};
    for (int r = 0; r < kTaskRows; ++r) *rows[r] = At<uint8_t>(block, tl.rows[r]);
    ts.sum_luma = At<uint16_t>(block, tl.sum_luma);
    ts.sum_chroma = At<uint16_t>(block, tl.sum_chroma);
    ts.cell_sums = At<uint32_t>(block, tl.cell_sums);
    for (int h = 0; h < kHaloRows; ++h) {
      ts.halo[h] = At<uint8_t>(block, tl.halo[h]);
      std::fill(ts.halo[h], ts.halo[h] + dW + kRefinePlanePad, 0);
    }
  }
  BuildGeometry(s);
  *slot = s;
  return s;
}

void FreeRefineState(RefineState* state) {
  if (state == nullptr) return;
  state->~RefineState();
  free(state);
}

}  // namespace dofra
