// The refined weight map, per call:
//   1. on the caller: the depth of every sample, the range and purity
//      kernels (kept while the tuning keeps them), the refined depth at the
//      point of focus, from it the weight of every depth and each sample's
//      weight segment (the stretch of depths around it of one weight);
//   2. band-parallel over rows of cells (a cell: the pixels between four
//      samples), one row of cells after the other: its kind, as runs, from
//      the samples' depth range (one weight: the four samples lie in one
//      segment, and the formula never leaves their range; plain bilinear:
//      they span at most flat_spread; else joint); the colour and purity of
//      the samples its joint cells read, from the guide rows just before
//      they are read again; then its output rows, run by run.
#include "weight/refine_map.h"

#include <algorithm>
#include <cstring>

#include "kernels/fixed_point.h"
#include "kernels/row_kernels.h"
#include "pool/thread_pool.h"
#include "weight/refine_rows.h"
#include "weight/refine_state.h"
#include "weight/weight_internal.h"

namespace dofra {

namespace {

constexpr int kPurityCap = 255;
constexpr int64_t kWakeWorkersPixels = 256 * 256;  // below this the caller runs every task

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

// The kernels of a tuning, rebuilt only when its scales change.
void SetTuning(RefineState* s, const DofraRefineTuning& tuning) {
  RefineTables& t = s->tables;
  if (s->range_sigma != tuning.range_sigma) {
    BuildKernel(tuning.range_sigma, t.range);
    SetRangeChunks(&t);
    s->range_sigma = tuning.range_sigma;
  }
  if (s->purity_scale != tuning.purity_scale) {
    BuildKernel(tuning.purity_scale, s->purity_table);
    s->purity_scale = tuning.purity_scale;
  }
  t.chroma_weight = tuning.chroma_weight;
  t.flat_spread = tuning.flat_spread;
}

// The weight segment of every depth: how many times the weight changes up
// to it. It never decreases, so the least and the largest of four samples'
// segments are those of their least and largest depths.
void BuildSegments(const uint16_t* by_depth, uint8_t* segment) {
  segment[0] = 0;
  for (int v = 1; v < kRefineDepths; ++v)
    segment[v] = static_cast<uint8_t>(segment[v - 1] + (by_depth[v] != by_depth[v - 1]));
}

// The guide's chroma row of pixel row y: rows past the last full pair of
// rows (an odd H) take the last chroma row. DofraInit handles have H >= 2.
const uint8_t* ChromaRow(const RefineState* s, const uint8_t* guide, int y) {
  const int row = std::min(y >> 1, s->H / 2 - 1);
  return guide + static_cast<size_t>(s->W) * s->H + static_cast<size_t>(row) * s->W;
}

// The colour of a sample is its cell's; a sample no pixel lies in (past the
// last cell) takes the colour of the last cell.
int ColourRow(const RefineState* s, int i) { return std::min(i, s->last_row); }
int ColourCol(const RefineState* s, int j) { return std::min(j, s->last_col); }

// Where one sample row's colours and purity weights go.
struct ColourRowOut {
  uint8_t* y;
  uint8_t* v;
  uint8_t* u;
  uint8_t* purity;
};

ColourRowOut PlaneRow(RefineState* s, int i) {
  const size_t at = static_cast<size_t>(i) * s->dW;
  return {s->colour_y + at, s->colour_v + at, s->colour_u + at, s->purity + at};
}

// The mean colours of cells [ja, jb) of row ci: per column sums of up to
// kMaxSumRows rows at once (16 bits), then per cell.
void CellColours(const RefineState* s, const uint8_t* guide, int ci, int ja, int jb,
                 TaskScratch& ts, ColumnSumsFn column_sums, const ColourRowOut& out) {
  const int dW = s->dW;
  const int x0 = s->col_start[ja], x1 = s->col_start[jb];
  const int c0 = x0 & ~1, c1 = (x1 + 1) & ~1;  // the chroma pairs of those columns (W is even)
  uint32_t* sum_y = ts.cell_sums;
  uint32_t* sum_v = sum_y + dW;
  uint32_t* sum_u = sum_v + dW;
  for (int j = ja; j < jb; ++j) sum_y[j] = sum_v[j] = sum_u[j] = 0;
  const uint8_t* luma_rows[kMaxSumRows];
  const uint8_t* chroma_rows[kMaxSumRows];
  const int y_end = s->row_start[ci + 1];
  for (int y0 = s->row_start[ci]; y0 < y_end; y0 += kMaxSumRows) {
    const int n = std::min(kMaxSumRows, y_end - y0);
    for (int r = 0; r < n; ++r) {
      luma_rows[r] = guide + static_cast<size_t>(y0 + r) * s->W;
      chroma_rows[r] = ChromaRow(s, guide, y0 + r);
    }
    column_sums(luma_rows, n, ts.sum_luma, x0, x1);
    column_sums(chroma_rows, n, ts.sum_chroma, c0, c1);
    for (int j = ja; j < jb; ++j) {
      for (int x = s->col_start[j]; x < s->col_start[j + 1]; ++x) {
        sum_y[j] += ts.sum_luma[x];
        sum_v[j] += ts.sum_chroma[x & ~1];
        sum_u[j] += ts.sum_chroma[x | 1];
      }
    }
  }
  const uint32_t rows = static_cast<uint32_t>(y_end - s->row_start[ci]);
  for (int j = ja; j < jb; ++j) {
    const uint32_t n = static_cast<uint32_t>(s->col_start[j + 1] - s->col_start[j]) * rows;
    out.y[j] = static_cast<uint8_t>((sum_y[j] + n / 2) / n);
    out.v[j] = static_cast<uint8_t>((sum_v[j] + n / 2) / n);
    out.u[j] = static_cast<uint8_t>((sum_u[j] + n / 2) / n);
  }
}

// min(v - min, max - v) over each sample's 3x3 neighbourhood within the map,
// for sample row i: the least and largest of three rows, then of three
// columns (the edges repeat their own).
void PurityDistances(const RefineState* s, int i, TaskScratch& ts) {
  const int dW = s->dW;
  const uint8_t* __restrict a = s->depth + static_cast<size_t>(std::max(i - 1, 0)) * dW;
  const uint8_t* __restrict b = s->depth + static_cast<size_t>(i) * dW;
  const uint8_t* __restrict c = s->depth + static_cast<size_t>(std::min(i + 1, s->dH - 1)) * dW;
  uint8_t* __restrict lo = ts.lo;
  uint8_t* __restrict hi = ts.hi;
  uint8_t* __restrict distance = ts.purity_distance;
  for (int j = 0; j < dW; ++j) {
    lo[j] = std::min(std::min(a[j], b[j]), c[j]);
    hi[j] = std::max(std::max(a[j], b[j]), c[j]);
  }
  const auto at = [&](int j, int j0, int j1) {
    const uint8_t l = std::min(std::min(lo[j0], lo[j]), lo[j1]);
    const uint8_t h = std::max(std::max(hi[j0], hi[j]), hi[j1]);
    distance[j] = std::min(static_cast<uint8_t>(b[j] - l), static_cast<uint8_t>(h - b[j]));
  };
  for (int j = 1; j + 1 < dW; ++j) at(j, j - 1, j + 1);
  at(0, 0, std::min(1, dW - 1));
  if (dW > 1) at(dW - 1, dW - 2, dW - 1);
}

// The purity weight of one sample (the point of focus reads four).
uint8_t PurityWeight(const RefineState* s, int i, int j) {
  const int dW = s->dW;
  const uint8_t* rows[3] = {s->depth + std::max(i - 1, 0) * dW, s->depth + i * dW,
                            s->depth + std::min(i + 1, s->dH - 1) * dW};
  int lo = 255, hi = 0;
  for (const uint8_t* r : rows) {
    for (int c = std::max(j - 1, 0); c <= std::min(j + 1, dW - 1); ++c) {
      lo = std::min(lo, int{r[c]});
      hi = std::max(hi, int{r[c]});
    }
  }
  const int v = rows[1][j];
  return s->purity_table[std::min({v - lo, hi - v, kPurityCap})];
}

// Colour and purity of the wanted samples of sample row i into `out`.
void SampleColours(const RefineState* s, const uint8_t* guide, int i, TaskScratch& ts,
                   ColumnSumsFn column_sums, const ColourRowOut& out) {
  uint8_t* wanted = ts.wanted;
  const int dW = s->dW, last = s->last_col;
  if (memchr(wanted, 1, dW) == nullptr) return;
  // A wanted sample past the last cell reads the last cell's colour.
  const bool tail = memchr(wanted + last + 1, 1, dW - last - 1) != nullptr;
  wanted[last] |= tail;
  const int ci = ColourRow(s, i);
  const uint8_t* const cells_end = wanted + last + 1;
  for (auto* w = static_cast<const uint8_t*>(memchr(wanted, 1, last + 1)); w != nullptr;) {
    const auto* run_end = static_cast<const uint8_t*>(memchr(w, 0, cells_end - w));
    if (run_end == nullptr) run_end = cells_end;
    CellColours(s, guide, ci, static_cast<int>(w - wanted), static_cast<int>(run_end - wanted), ts,
                column_sums, out);
    w = static_cast<const uint8_t*>(memchr(run_end, 1, cells_end - run_end));
  }
  for (int j = last + 1; tail && j < dW; ++j) {
    out.y[j] = out.y[last];
    out.v[j] = out.v[last];
    out.u[j] = out.u[last];
  }
  PurityDistances(s, i, ts);
  for (int j = 0; j < dW; ++j)
    if (wanted[j]) out.purity[j] = s->purity_table[ts.purity_distance[j]];
}

// The least and largest of each cell's four samples in one plane (the last
// column's cell reads its own column twice).
void CellSpans(const uint8_t* __restrict r0, const uint8_t* __restrict r1, int dW,
               uint8_t* __restrict lo, uint8_t* __restrict hi) {
  for (int j = 0; j + 1 < dW; ++j) {
    lo[j] = std::min(std::min(r0[j], r0[j + 1]), std::min(r1[j], r1[j + 1]));
    hi[j] = std::max(std::max(r0[j], r0[j + 1]), std::max(r1[j], r1[j + 1]));
  }
  lo[dW - 1] = std::min(r0[dW - 1], r1[dW - 1]);
  hi[dW - 1] = std::max(r0[dW - 1], r1[dW - 1]);
}

// The kinds of the cells of row i, kFill past the last one any pixel lies
// in; with `runs`, its runs too (adjacent cells of one kind, and for one
// weight of one segment).
void ClassifyRow(RefineState* s, int i, uint8_t* __restrict kinds, bool runs, TaskScratch& ts) {
  const int dW = s->dW, cells = s->last_lerp_col + 1;
  const size_t r0 = static_cast<size_t>(i) * dW;
  const size_t r1 = static_cast<size_t>(std::min(i + 1, s->dH - 1)) * dW;
  uint8_t* __restrict lo = ts.lo;
  uint8_t* __restrict hi = ts.hi;
  uint8_t* __restrict seg_lo = ts.seg_lo;
  uint8_t* __restrict seg_hi = ts.seg_hi;
  CellSpans(s->depth + r0, s->depth + r1, dW, lo, hi);
  CellSpans(s->segment + r0, s->segment + r1, dW, seg_lo, seg_hi);
  const uint8_t flat = static_cast<uint8_t>(s->tables.flat_spread);
  for (int j = 0; j < cells; ++j) {
    const uint8_t mixed = static_cast<uint8_t>(hi[j] - lo[j]) > flat ? kJoint : kBilinear;
    kinds[j] = seg_lo[j] == seg_hi[j] ? uint8_t{kFill} : mixed;
  }
  std::fill(kinds + cells, kinds + dW, kFill);
  if (!runs) return;
  // Where a run starts: a change of kind, or of segment between two cells
  // of one weight.
  uint8_t* __restrict starts = ts.starts;
  for (int j = 1; j < cells; ++j) {
    starts[j] = (kinds[j] != kinds[j - 1]) | ((kinds[j] == kFill) & (seg_lo[j] != seg_lo[j - 1]));
  }
  int32_t* end = s->run_end + r0;
  uint8_t* kind = s->run_kind + r0;
  uint16_t* weight = s->run_weight + r0;
  int count = 0;
  for (int j = 0; j < cells;) {
    const auto* next = static_cast<const uint8_t*>(memchr(starts + j + 1, 1, cells - j - 1));
    const int stop = next == nullptr ? cells : static_cast<int>(next - starts);
    kind[count] = kinds[j];
    weight[count] = s->tables.weights.by_depth[lo[j]];
    end[count++] = stop == cells ? s->W : s->lerp_start[stop];
    j = stop;
  }
  s->runs[i] = count;
}

// The samples of a row that the joint cells of the rows of cells above and
// below it read: a cell reads its own column and the next.
void MarkWanted(int dW, const uint8_t* __restrict above, const uint8_t* __restrict below,
                uint8_t* __restrict joint, uint8_t* __restrict wanted) {
  for (int j = 0; j < dW; ++j) joint[j] = (above[j] == kJoint) | (below[j] == kJoint);
  wanted[0] = joint[0];
  for (int j = 1; j < dW; ++j) wanted[j] = joint[j] | joint[j - 1];
}

SampleRow SamplesOf(const RefineState* s, int i, const ColourRowOut& colours) {
  return {s->depth + static_cast<size_t>(i) * s->dW, colours.y, colours.v, colours.u,
          colours.purity};
}

// Output rows [first, last] of row of cells i, run by run.
void WriteRows(const RefineState* s, const uint8_t* guide, uint16_t* out, int i, int first,
               int last, const SampleRow& top, const SampleRow& bottom, const RowKernels& k) {
  const int W = s->W;
  const RefineColumns cols = {s->ix, s->ix1, s->fx};
  const size_t at = static_cast<size_t>(i) * s->dW;
  const int32_t* end = s->run_end + at;
  const uint8_t* kind = s->run_kind + at;
  const uint16_t* weight = s->run_weight + at;
  for (int y = first; y <= last; ++y) {
    const RefineRow row = {
        guide + static_cast<size_t>(y) * W, ChromaRow(s, guide, y), top, bottom, s->fy[y],
        out + static_cast<size_t>(y) * W};
    int from = 0;
    for (int r = 0; r < s->runs[i]; from = end[r++]) {
      if (kind[r] == kFill)
        std::fill(row.out + from, row.out + end[r], weight[r]);
      else if (kind[r] == kBilinear)
        k.refine_bilinear_row(row, cols, s->tables, from, end[r]);
      else
        k.refine_joint_row(row, cols, s->tables, from, end[r]);
    }
  }
}

// Rows of cells [first, last]: each row's kinds and runs, the colours of
// its lower samples (of its upper ones before the first), then its output
// rows. A band writes the sample rows it owns, [first, last], into the
// planes; the row below its last, which the next band owns, goes to the
// band's own halo.
void Band(RefineState* s, const uint8_t* guide, uint16_t* out, int first, int last, TaskScratch& ts,
          const RowKernels& k) {
  uint8_t* above = ts.kinds[0];
  uint8_t* here = ts.kinds[1];
  uint8_t* below = ts.kinds[2];
  if (first > 0)
    ClassifyRow(s, first - 1, above, false, ts);
  else
    std::fill(above, above + s->dW, kFill);
  ClassifyRow(s, first, here, true, ts);
  MarkWanted(s->dW, above, here, ts.joint, ts.wanted);
  SampleColours(s, guide, first, ts, k.refine_column_sums, PlaneRow(s, first));
  const ColourRowOut halo = {ts.halo[0], ts.halo[1], ts.halo[2], ts.halo[3]};
  for (int i = first; i <= last; ++i) {
    const int lower = std::min(i + 1, s->dH - 1);
    if (lower != i) {
      if (lower <= s->last_lerp_row)
        ClassifyRow(s, lower, below, lower <= last, ts);
      else
        std::fill(below, below + s->dW, kFill);
      MarkWanted(s->dW, here, below, ts.joint, ts.wanted);
      SampleColours(s, guide, lower, ts, k.refine_column_sums,
                    lower <= last ? PlaneRow(s, lower) : halo);
    }
    const SampleRow bottom = SamplesOf(s, lower, lower <= last ? PlaneRow(s, lower) : halo);
    WriteRows(s, guide, out, i, s->lerp_row_start[i], s->lerp_row_start[i + 1] - 1,
              SamplesOf(s, i, PlaneRow(s, i)), bottom, k);
    std::swap(above, here);
    std::swap(here, below);
  }
}

void* BandTask(void* arg) {
  auto* t = static_cast<RefineTask*>(arg);
  Band(t->state, t->guide, t->out, t->first, t->last, t->state->scratch[t->index],
       ActiveRowKernels());
  one_thread_done(t->pool);
  return nullptr;
}

// Rows of cells [0, last_lerp_row] cut into up to kRefineTasks bands on the
// pool; the caller runs them all for small frames.
void RunBands(RefineState* s, CThread_pool* pool, const uint8_t* guide, uint16_t* out) {
  reset_thread_done(pool);
  const int rows = s->last_lerp_row + 1;
  const int per_task = (rows + kRefineTasks - 1) / kRefineTasks;
  int queued = 0;
  for (int b = 0; b < kRefineTasks; ++b) {
    const int first = b * per_task, last = std::min(rows, first + per_task) - 1;
    if (first > last) break;
    s->tasks[b] = {s, pool, guide, out, first, last, b};
    pool_queue_task(pool, BandTask, &s->tasks[b]);
    ++queued;
  }
  pool_run_queued(pool, int64_t{s->W} * s->H >= kWakeWorkersPixels);
  sync_thread_done(pool, queued);
}

// The pixel at the point of focus with its samples' colours and purity.
RefinePixel FocusPixel(RefineState* s, const uint8_t* guide, int x, int y, const RowKernels& k) {
  const int i[2] = {s->iy[y], std::min(s->iy[y] + 1, s->dH - 1)};
  const int j[2] = {s->ix[x], s->ix1[x]};
  const uint8_t* chroma = ChromaRow(s, guide, y) + (x & ~1);
  RefinePixel p;
  p.y = guide[static_cast<size_t>(y) * s->W + x];
  p.v = chroma[0];
  p.u = chroma[1];
  for (int n = 0; n < 4; ++n) {
    const int si = i[n >> 1], sj = j[n & 1];
    const int cj = ColourCol(s, sj);
    // Written at the sample's own row: the bands rewrite what they read.
    const ColourRowOut row = PlaneRow(s, si);
    CellColours(s, guide, ColourRow(s, si), cj, cj + 1, s->scratch[0], k.refine_column_sums, row);
    p.depth[n] = s->depth[static_cast<size_t>(si) * s->dW + sj];
    p.sy[n] = row.y[cj];
    p.sv[n] = row.v[cj];
    p.su[n] = row.u[cj];
    p.purity[n] = PurityWeight(s, si, sj);
  }
  p.fx = s->fx[x];
  p.fy = s->fy[y];
  return p;
}

}  // namespace

DofraRefineTuning DefaultRefineTuning() {
  return {DOFRA_REFINE_RANGE_SIGMA_DEFAULT, DOFRA_REFINE_PURITY_SCALE_DEFAULT,
          DOFRA_REFINE_CHROMA_WEIGHT_DEFAULT, DOFRA_REFINE_FLAT_SPREAD_DEFAULT};
}

bool RefineTuningValid(const DofraRefineTuning& t) {
  return t.range_sigma >= 1 && t.range_sigma <= 64 && t.purity_scale >= 1 && t.purity_scale <= 64 &&
         t.chroma_weight >= 0 && t.chroma_weight <= 8 && t.flat_spread >= 0 && t.flat_spread <= 255;
}

void RefineWeightMap(RefineState* s, CThread_pool* pool, const RefineRequest& r) {
  const RowKernels& k = ActiveRowKernels();
  const int n = s->dW * s->dH;
  uint8_t table[kDepthTableSize];
  InitDisparityToDepth(r.depth, table);
  k.depth_lookup(reinterpret_cast<const uint8_t*>(r.depth) + DOFRA_DEPTH_HEADER_SIZE, s->depth, n,
                 table);
  SetTuning(s, r.tuning);

  // The focus pixel's own samples first: its depth sets every weight.
  const int focus_depth = RefinedDepth(FocusPixel(s, r.guide, r.focus_x, r.focus_y, k), s->tables);
  DepthWeightLut(focus_depth, kWeightFalloff, kStrengthTable[kStrengthLevels - r.level],
                 &s->tables.weights);
  uint8_t segments[kRefineDepths];
  BuildSegments(s->tables.weights.by_depth, segments);
  k.depth_lookup(s->depth, s->segment, n, segments);

  RunBands(s, pool, r.guide, r.out);
}

}  // namespace dofra
