#include "weight/refine_state.h"

#include <cstdlib>
#include <new>

namespace dofra {

namespace {

// Offsets of the arrays in one block, each 16-byte aligned.
struct Layout {
  size_t depth, info, wanted, ix, ix1, fx, cell, iy, fy, col_start, row_start, lerp_start, run_end,
      run_kind, run_weight, runs, sums, total;
};

size_t Take(size_t* at, int64_t bytes) {
  const size_t start = *at;
  *at += (static_cast<size_t>(bytes) + 15) & ~static_cast<size_t>(15);
  return start;
}

Layout LayoutOf(int W, int H, int dW, int dH) {
  const int64_t n = static_cast<int64_t>(dW) * dH;
  Layout l;
  size_t at = (sizeof(RefineState) + 15) & ~static_cast<size_t>(15);
  l.depth = Take(&at, n);
  l.info = Take(&at, n * 4);
  l.wanted = Take(&at, n);
  l.ix = Take(&at, int64_t{W} * 4);
  l.ix1 = Take(&at, int64_t{W} * 4);
  l.fx = Take(&at, W);
  l.cell = Take(&at, int64_t{W} * 4);
  l.iy = Take(&at, int64_t{H} * 4);
  l.fy = Take(&at, H);
  l.col_start = Take(&at, (int64_t{dW} + 1) * 4);
  l.row_start = Take(&at, (int64_t{dH} + 1) * 4);
  l.lerp_start = Take(&at, (int64_t{dW} + 1) * 4);
  l.run_end = Take(&at, n * 4);
  l.run_kind = Take(&at, n);
  l.run_weight = Take(&at, n * 2);
  l.runs = Take(&at, int64_t{dH} * 4);
  l.sums = Take(&at, int64_t{kBands} * 3 * dW * 4);
  l.total = at;
  return l;
}

template <typename T>
T* At(uint8_t* base, size_t offset) {
  return reinterpret_cast<T*>(base + offset);
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
  s->depth = At<uint8_t>(block, l.depth);
  s->info = At<uint32_t>(block, l.info);
  s->wanted = At<uint8_t>(block, l.wanted);
  s->ix = At<int32_t>(block, l.ix);
  s->ix1 = At<int32_t>(block, l.ix1);
  s->fx = At<uint8_t>(block, l.fx);
  s->cell = At<int32_t>(block, l.cell);
  s->iy = At<int32_t>(block, l.iy);
  s->fy = At<uint8_t>(block, l.fy);
  s->col_start = At<int32_t>(block, l.col_start);
  s->row_start = At<int32_t>(block, l.row_start);
  s->lerp_start = At<int32_t>(block, l.lerp_start);
  s->run_end = At<int32_t>(block, l.run_end);
  s->run_kind = At<uint8_t>(block, l.run_kind);
  s->run_weight = At<uint16_t>(block, l.run_weight);
  s->runs = At<int32_t>(block, l.runs);
  s->sums = At<uint32_t>(block, l.sums);
  *slot = s;
  return s;
}

void FreeRefineState(RefineState* state) {
  if (state == nullptr) return;
  state->~RefineState();
  free(state);
}

}  // namespace dofra
