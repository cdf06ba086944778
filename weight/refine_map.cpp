// The refined weight map, per call:
//   1. column and row tables: each output pixel's samples and fractions, and
//      the first pixel of each sample's cell (as the plain map places them);
//   2. the unsmoothed depth and each sample's purity distance;
//   3. the colours of the focus pixel's samples, the refined focus depth and
//      from it the weight of every depth;
//   4. per cell (the pixels between four samples) its kind: one weight (the
//      weight is constant over the samples' depth range, and the formula
//      never leaves that range), plain bilinear, or joint; runs of kinds per
//      row of cells;
//   5. band-parallel: the colours of the samples that joint cells read;
//   6. band-parallel: the output rows, run by run.
#include "weight/refine_map.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "kernels/fixed_point.h"
#include "pool/thread_pool.h"
#include "weight/refine_rows.h"
#include "weight/refine_state.h"
#include "weight/weight_internal.h"

namespace dofra {

namespace {

constexpr int kPurityCap = 255;
constexpr int64_t kWakeWorkersPixels = 256 * 256;  // below this the caller runs every band

// Sample states.
constexpr uint8_t kUnused = 0;
constexpr uint8_t kWanted = 1;  // a joint cell reads its colour
constexpr uint8_t kKnown = 2;   // colour computed this call

enum CellKind : uint8_t { kFill, kBilinear, kJoint };

// 255 * (1 - t^2 / 9)^3 with t = d / scale, in integers: 0 from t = 3 on.
void BuildKernel(int scale, uint8_t* table) {
  const int64_t reach = int64_t{9} * scale * scale;
  const int64_t den = reach * reach * reach;
  for (int d = 0; d < kRefineDepths; ++d) {
    const int64_t c = std::max<int64_t>(0, reach - int64_t{d} * d);
    table[d] = static_cast<uint8_t>((c * c * c * 255 + den / 2) / den);
  }
}

// The position of pixel k in the sample grid (16.16), with each sample at
// the centre of the pixels it was resampled from: k * step puts it at their
// first pixel, half a cell early, which shifts every edge by that much.
int Position(int k, int step) {
  return std::max(k * step + (step >> 1) - (1 << (kPosShift - 1)), 0);
}

// Columns: samples, fraction and the first column of each cell.
void BuildColumns(RefineState* s) {
  const int sx = (s->dW << kPosShift) / s->W;
  std::fill(s->col_start, s->col_start + s->dW + 1, s->W);
  std::fill(s->lerp_start, s->lerp_start + s->dW + 1, s->W);
  for (int x = 0; x < s->W; ++x) {
    const int q = Position(x, sx);
    const int i = q >> kPosShift;
    s->ix[x] = i;
    s->ix1[x] = std::min(i + 1, s->dW - 1);
    s->fx[x] = static_cast<uint8_t>((q >> kFracBits) & 0xFF);
    if (s->lerp_start[i] == s->W) s->lerp_start[i] = x;
    s->cell[x] = (x * sx) >> kPosShift;
    if (s->col_start[s->cell[x]] == s->W) s->col_start[s->cell[x]] = x;
  }
  s->last_col = s->cell[s->W - 1];
  s->last_lerp_col = s->ix[s->W - 1];
  const int sy = (s->dH << kPosShift) / s->H;
  std::fill(s->row_start, s->row_start + s->dH + 1, s->H);
  for (int y = 0; y < s->H; ++y) {
    const int q = Position(y, sy);
    s->iy[y] = q >> kPosShift;
    s->fy[y] = static_cast<uint8_t>((q >> kFracBits) & 0xFF);
    const int cell = (y * sy) >> kPosShift;
    if (s->row_start[cell] == s->H) s->row_start[cell] = y;
    s->last_row = cell;
  }
  s->last_lerp_row = s->iy[s->H - 1];
}

// min(v - min, max - v) over the 3x3 neighbourhood within the map.
void BuildPurity(RefineState* s) {
  const int dW = s->dW, dH = s->dH;
  for (int i = 0; i < dH; ++i) {
    const uint8_t* rows[3] = {s->depth + std::max(i - 1, 0) * dW, s->depth + i * dW,
                              s->depth + std::min(i + 1, dH - 1) * dW};
    for (int j = 0; j < dW; ++j) {
      const int j0 = std::max(j - 1, 0), j1 = std::min(j + 1, dW - 1);
      int lo = 255, hi = 0;
      for (const uint8_t* r : rows) {
        lo = std::min({lo, int{r[j0]}, int{r[j]}, int{r[j1]}});
        hi = std::max({hi, int{r[j0]}, int{r[j]}, int{r[j1]}});
      }
      const int v = rows[1][j];
      s->info[i * dW + j] = static_cast<uint32_t>(std::min({v - lo, hi - v, kPurityCap})) << 24;
    }
  }
}

// The guide's chroma row of pixel row y: rows past the last full pair of
// rows (an odd H) take the last chroma row. DofraInit handles have H >= 2.
const uint8_t* ChromaRow(const RefineState* s, const uint8_t* guide, int y) {
  const int row = std::min(y >> 1, s->H / 2 - 1);
  return guide + static_cast<size_t>(s->W) * s->H + static_cast<size_t>(row) * s->W;
}

// A sample past the last cell (no pixel has it as its first sample) takes
// the colour of the last cell.
int ColourRow(const RefineState* s, int i) { return std::min(i, s->last_row); }
int ColourCol(const RefineState* s, int j) { return std::min(j, s->last_col); }

void Want(RefineState* s, int i, int j) {
  s->wanted[ColourRow(s, i) * s->dW + ColourCol(s, j)] |= kWanted;
  s->wanted[i * s->dW + j] |= kWanted;
}

void WantCell(RefineState* s, int i, int j) {
  const int i1 = std::min(i + 1, s->dH - 1), j1 = std::min(j + 1, s->dW - 1);
  Want(s, i, j);
  Want(s, i, j1);
  Want(s, i1, j);
  Want(s, i1, j1);
}

// The mean colours of the wanted samples of sample rows [first, last] that
// are not known yet, into their info; `band` picks the sums scratch.
void ComputeColours(RefineState* s, const uint8_t* guide, int first, int last, int band,
                    const RefineRowKernels& k) {
  const int W = s->W, dW = s->dW;
  uint32_t* sy = s->sums + static_cast<size_t>(band) * 3 * dW;
  uint32_t* sv = sy + dW;
  uint32_t* su = sv + dW;
  for (int i = first; i <= std::min(last, s->last_row); ++i) {
    uint8_t* wanted = s->wanted + static_cast<size_t>(i) * dW;
    const int y0 = s->row_start[i], y1 = s->row_start[i + 1];
    bool any = false;
    for (int j = 0; j <= s->last_col; ++j) {
      if (wanted[j] != kWanted) continue;
      any = true;
      sy[j] = sv[j] = su[j] = 0;
    }
    if (!any) continue;
    for (int y = y0; y < y1; ++y) {
      const uint8_t* luma_row = guide + static_cast<size_t>(y) * W;
      const uint8_t* chroma_row = ChromaRow(s, guide, y);
      for (int j = 0; j <= s->last_col;) {
        if (wanted[j] != kWanted) {
          ++j;
          continue;
        }
        int end = j;
        while (end <= s->last_col && wanted[end] == kWanted) ++end;
        k.colour_sums(luma_row, chroma_row, s->cell, s->col_start[j], s->col_start[end], sy, sv,
                      su);
        j = end;
      }
    }
    for (int j = 0; j <= s->last_col; ++j) {
      if (wanted[j] != kWanted) continue;
      const uint32_t n = static_cast<uint32_t>(s->col_start[j + 1] - s->col_start[j]) *
                         static_cast<uint32_t>(y1 - y0);
      uint32_t& info = s->info[static_cast<size_t>(i) * dW + j];
      info = (info & 0xFF000000u) | PackSample(static_cast<uint8_t>((sy[j] + n / 2) / n),
                                               static_cast<uint8_t>((sv[j] + n / 2) / n),
                                               static_cast<uint8_t>((su[j] + n / 2) / n), 0);
      wanted[j] = kKnown;
    }
  }
}

// Samples past the last cell copy the colour of the last cell (now known).
void CopyEdgeColours(RefineState* s) {
  for (int i = 0; i < s->dH; ++i) {
    for (int j = 0; j < s->dW; ++j) {
      const size_t at = static_cast<size_t>(i) * s->dW + j;
      if (s->wanted[at] != kWanted) continue;
      const size_t from = static_cast<size_t>(ColourRow(s, i)) * s->dW + ColourCol(s, j);
      s->info[at] = (s->info[at] & 0xFF000000u) | (s->info[from] & 0x00FFFFFFu);
      s->wanted[at] = kKnown;
    }
  }
}

RefinePixel PixelAt(const RefineState* s, const uint8_t* guide, int x, int y) {
  const int i0 = s->iy[y], i1 = std::min(i0 + 1, s->dH - 1);
  const int j0 = s->ix[x], j1 = s->ix1[x];
  const uint8_t* chroma = ChromaRow(s, guide, y) + (x & ~1);
  RefinePixel p;
  p.y = guide[static_cast<size_t>(y) * s->W + x];
  p.v = chroma[0];
  p.u = chroma[1];
  const int at[4] = {i0 * s->dW + j0, i0 * s->dW + j1, i1 * s->dW + j0, i1 * s->dW + j1};
  for (int k = 0; k < 4; ++k) {
    p.depth[k] = s->depth[at[k]];
    p.info[k] = s->info[at[k]];
  }
  p.fx = s->fx[x];
  p.fy = s->fy[y];
  return p;
}

// same_until[v]: the last depth whose weight equals by_depth[v] without a
// change in between.
void SameUntil(const uint16_t* by_depth, uint8_t* same_until) {
  same_until[kRefineDepths - 1] = kRefineDepths - 1;
  for (int v = kRefineDepths - 2; v >= 0; --v)
    same_until[v] = by_depth[v] == by_depth[v + 1] ? same_until[v + 1] : static_cast<uint8_t>(v);
}

// Kinds of the cells of every row of cells, merged into runs; joint cells
// want their samples' colours.
void ClassifyCells(RefineState* s) {
  uint8_t same_until[kRefineDepths];
  SameUntil(s->tables.by_depth, same_until);
  const int dW = s->dW;
  for (int i = 0; i <= s->last_lerp_row; ++i) {
    const uint8_t* r0 = s->depth + static_cast<size_t>(i) * dW;
    const uint8_t* r1 = s->depth + static_cast<size_t>(std::min(i + 1, s->dH - 1)) * dW;
    int32_t* end = s->run_end + static_cast<size_t>(i) * dW;
    uint8_t* kind = s->run_kind + static_cast<size_t>(i) * dW;
    uint16_t* weight = s->run_weight + static_cast<size_t>(i) * dW;
    int runs = 0;
    for (int j = 0; j <= s->last_lerp_col; ++j) {
      const int j1 = std::min(j + 1, dW - 1);
      const int lo = std::min({r0[j], r0[j1], r1[j], r1[j1]});
      const int hi = std::max({r0[j], r0[j1], r1[j], r1[j1]});
      CellKind k = kJoint;
      if (same_until[lo] >= hi)
        k = kFill;
      else if (hi - lo <= s->tables.flat_spread)
        k = kBilinear;
      const uint16_t w = k == kFill ? s->tables.by_depth[lo] : 0;
      if (k == kJoint) WantCell(s, i, j);
      if (runs > 0 && kind[runs - 1] == k && weight[runs - 1] == w) {
        end[runs - 1] = s->lerp_start[j + 1];
        continue;
      }
      kind[runs] = k;
      weight[runs] = w;
      end[runs++] = s->lerp_start[j + 1];
    }
    end[runs - 1] = s->W;
    s->runs[i] = runs;
  }
}

void WriteRows(RefineState* s, const uint8_t* guide, uint16_t* out, int first, int last,
               const RefineRowKernels& k) {
  const int W = s->W, dW = s->dW;
  const RefineColumns cols = {s->ix, s->ix1, s->fx};
  for (int y = first; y <= last; ++y) {
    const int i = s->iy[y], i1 = std::min(i + 1, s->dH - 1);
    RefineRow row;
    row.luma = guide + static_cast<size_t>(y) * W;
    row.chroma = ChromaRow(s, guide, y);
    row.depth0 = s->depth + static_cast<size_t>(i) * dW;
    row.depth1 = s->depth + static_cast<size_t>(i1) * dW;
    row.info0 = s->info + static_cast<size_t>(i) * dW;
    row.info1 = s->info + static_cast<size_t>(i1) * dW;
    row.fy = s->fy[y];
    row.out = out + static_cast<size_t>(y) * W;
    const int32_t* end = s->run_end + static_cast<size_t>(i) * dW;
    const uint8_t* kind = s->run_kind + static_cast<size_t>(i) * dW;
    const uint16_t* weight = s->run_weight + static_cast<size_t>(i) * dW;
    int from = 0;
    for (int r = 0; r < s->runs[i]; from = end[r++]) {
      if (kind[r] == kFill)
        std::fill(row.out + from, row.out + end[r], weight[r]);
      else if (kind[r] == kBilinear)
        k.bilinear_row(row, cols, s->tables, from, end[r]);
      else
        k.joint_row(row, cols, s->tables, from, end[r]);
    }
  }
}

void* ColourTask(void* arg) {
  auto* t = static_cast<RefineTask*>(arg);
  ComputeColours(t->state, t->guide, t->first, t->last, t->band, ScalarRefineRowKernels());
  one_thread_done(t->pool);
  return nullptr;
}

void* RowTask(void* arg) {
  auto* t = static_cast<RefineTask*>(arg);
  WriteRows(t->state, t->guide, t->out, t->first, t->last, ScalarRefineRowKernels());
  one_thread_done(t->pool);
  return nullptr;
}

// Rows [0, rows) cut into kBands bands on the pool; the caller runs them all
// for small frames.
void RunBands(RefineState* s, CThread_pool* pool, PoolProcess process, int rows,
              const uint8_t* guide, uint16_t* out) {
  reset_thread_done(pool);
  const int per_band = (rows + kBands - 1) / kBands;
  int queued = 0;
  for (int b = 0; b < kBands; ++b) {
    const int first = b * per_band, last = std::min(rows, first + per_band) - 1;
    if (first > last) continue;
    s->tasks[b] = {s, pool, guide, out, first, last, b};
    pool_queue_task(pool, process, &s->tasks[b]);
    ++queued;
  }
  pool_run_queued(pool, int64_t{s->W} * s->H >= kWakeWorkersPixels);
  sync_thread_done(pool, queued);
}

}  // namespace

DofraRefineTuning DefaultRefineTuning() {
  return {DOFRA_REFINE_RANGE_SIGMA_DEFAULT, DOFRA_REFINE_PURITY_SCALE_DEFAULT,
          DOFRA_REFINE_CHROMA_WEIGHT_DEFAULT, DOFRA_REFINE_FLAT_SPREAD_DEFAULT};
}

bool RefineTuningValid(const DofraRefineTuning& t) {
  return t.range_sigma >= 1 && t.range_sigma <= 64 && t.purity_scale >= 1 &&
         t.purity_scale <= 64 && t.chroma_weight >= 0 && t.chroma_weight <= 8 &&
         t.flat_spread >= 0 && t.flat_spread <= 255;
}

void RefineWeightMap(RefineState* s, CThread_pool* pool, const RefineRequest& r) {
  const int dW = s->dW, dH = s->dH;
  const size_t n = static_cast<size_t>(dW) * dH;
  BuildColumns(s);
  uint8_t table[kDepthTableSize];
  InitDisparityToDepth(r.depth, table);
  const auto* disparity = reinterpret_cast<const uint8_t*>(r.depth) + DOFRA_DEPTH_HEADER_SIZE;
  for (size_t i = 0; i < n; ++i) s->depth[i] = table[disparity[i]];
  BuildPurity(s);
  RefineTables& t = s->tables;
  BuildKernel(r.tuning.range_sigma, t.range);
  BuildKernel(r.tuning.purity_scale, t.purity);
  t.chroma_weight = r.tuning.chroma_weight;
  t.flat_spread = r.tuning.flat_spread;
  memset(s->wanted, kUnused, n);

  // The focus pixel's own samples first: its depth sets every weight.
  const RefineRowKernels& k = ScalarRefineRowKernels();
  WantCell(s, s->iy[r.focus_y], s->ix[r.focus_x]);
  ComputeColours(s, r.guide, 0, dH - 1, 0, k);
  CopyEdgeColours(s);
  const int focus_depth = RefinedDepth(PixelAt(s, r.guide, r.focus_x, r.focus_y), t);
  DepthWeights(focus_depth, kWeightFalloff, kStrengthTable[kStrengthLevels - r.level],
               t.by_depth);

  ClassifyCells(s);
  RunBands(s, pool, ColourTask, dH, r.guide, r.out);
  CopyEdgeColours(s);
  RunBands(s, pool, RowTask, s->H, r.guide, r.out);
}

}  // namespace dofra
