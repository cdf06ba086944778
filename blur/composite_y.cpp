// Luma compositing: enlarges the smoothed small plane on the fly (no enlarged
// plane is ever stored) and blends it with the sharp source under the weight
// map, one band of rows per call.
//
// Each factor has one plane driver that walks the row and column ranges and a
// bulk helper from the row-kernel table for a run of rows sharing their small
// rows: the _c members take the scalar table, the _neon members the active
// one, whose vector helpers interpolate the shared rows horizontally once per
// run. Every bulk helper covers the same columns and produces the same bytes;
// everything outside the bulk (edges, bottom rows) is shared scalar code.
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "blur/kernels.h"
#include "kernels/fixed_point.h"
#include "kernels/row_kernels.h"

namespace dofra {

namespace {

// Main rows with the same r0 also share r1, so a run of them shares one
// horizontal interpolation.
constexpr int kMaxRun = kMaxCompositeRun;

struct Planes {
  const uint8_t* src;
  const uint16_t* weights;
  const uint8_t* small;
  uint8_t* out;
  int W, H, sw, sh;
};

LumaRow MakeRow(const Planes& p, int r, int r0, int r1, int fy, int dx) {
  const ptrdiff_t o = static_cast<ptrdiff_t>(r) * p.W;
  return {p.src + o,
          p.weights + o,
          p.out + o,
          p.small + static_cast<ptrdiff_t>(r0) * p.sw,
          p.small + static_cast<ptrdiff_t>(r1) * p.sw,
          fy,
          dx};
}

// Position of column / row i: integer sample and 8-bit fraction.
inline int PosInt(int i, int step) { return PosInt(i * step); }
inline int PosFrac(int i, int step) { return PosFrac(i * step); }

// Rows from r up to `last` (at most kMaxRun) with the same r0 as row r.
inline int RunLength(int r, int last, int dy) {
  const int r0 = PosInt(r, dy);
  int n = 1;
  while (n < kMaxRun && r + n <= last && PosInt(r + n, dy) == r0) ++n;
  return n;
}

// ---------------------------------------------------------------- x2 ------

// Bulk helper: blends columns [0, n) and returns n, a multiple of 16 with
// every column in it using the full 2x2 mean (n <= W - 2).
using X2BulkFn = decltype(RowKernels::luma_x2_bulk);

inline int Mean2x2(const LumaRow& q, int k) {
  return (q.s0[k] + q.s0[k + 1] + q.s1[k] + q.s1[k + 1] + 2) >> 2;  // sum <= 1022
}

// Columns [from, to) with the full 2x2 mean.
void X2Means_C(const LumaRow& q, int from, int to) {
  for (int c = from; c < to; ++c) q.out[c] = BlendWrap(q.src[c], Mean2x2(q, c >> 1), q.w[c]);
}

int X2Bulk_C(const LumaRow* rows, int count, int W) {
  const int n = std::max(W - 2, 0) / kX2Group * kX2Group;
  for (int i = 0; i < count; ++i) X2Means_C(rows[i], 0, n);
  return n;
}

// Scalar formula for columns [from, W); also the remainder of the bulk.
void X2Tail_C(const LumaRow& q, int W, int from) {
  int c = std::max(from, W - 2);
  X2Means_C(q, from, c);
  // Last two columns: k + 1 would lie past a plane of width W / 2.
  for (; c < W; ++c) {
    const int k = c >> 1;
    q.out[c] = BlendWrap(q.src[c], (2 * q.s0[k] + 2 * q.s1[k] + 2) >> 2, q.w[c]);
  }
}

// Vector members also run the bulk on the columns past it: a copy of the
// row's end with its last sample repeated (EdgeSamples) turns the edge rules
// into the bulk formula, since a repeated sample interpolates to itself and
// the mean of a repeated pair is the pair's sample. The _c members keep the
// formulas as stated, pixel by pixel.
constexpr int kEdgeSamples = 32;
struct EdgeSamples {
  uint8_t s0[kEdgeSamples];
  uint8_t s1[kEdgeSamples];
};

// Samples x.. of both rows, sample `last` repeated past it.
EdgeSamples CopyEdge(const LumaRow& q, int x, int last) {
  EdgeSamples e;
  for (int j = 0; j < kEdgeSamples; ++j) {
    e.s0[j] = q.s0[std::min(x + j, last)];
    e.s1[j] = q.s1[std::min(x + j, last)];
  }
  return e;
}

// Row q from column c on, reading its small rows from e (sample c / F first).
LumaRow EdgeRow(const LumaRow& q, int c, const EdgeSamples& e) {
  return {q.src + c, q.w + c, q.out + c, e.s0, e.s1, q.fy, q.dx};
}

void CompositeX2(const Planes& p, int first, int last, X2BulkFn bulk, bool bulk_edge) {
  // The formula halves coordinates whatever sw is; an even W makes both
  // last columns read sample W / 2 - 1 alone.
  const bool edge_in_bulk = bulk_edge && p.W % 2 == 0;
  const int half_last = p.W / 2 - 1;
  // The band's last two rows clamp r1; a one-row band thus rewrites the row
  // above it (never row -1).
  const int r_begin = std::min(first, std::max(last - 1, 0));
  auto r1_of = [&](int r) {
    return r >= last - 1 ? std::min((r >> 1) + 1, p.sh - 1) : (r >> 1) + 1;
  };
  LumaRow rows[2];
  for (int r = r_begin; r <= last;) {
    // Rows 2k and 2k + 1 share their small rows.
    const int n = r + 1 <= last && (r & 1) == 0 && r1_of(r) == r1_of(r + 1) ? 2 : 1;
    for (int i = 0; i < n; ++i) rows[i] = MakeRow(p, r + i, r >> 1, r1_of(r), 0, 0);
    const int done = bulk(rows, n, p.W);
    if (!edge_in_bulk) {
      for (int i = 0; i < n; ++i) X2Tail_C(rows[i], p.W, done);
    } else {
      // Every tail column takes the full mean on the copy; the bulk's width
      // counts two columns past the ones it may write.
      const int tail = p.W - done;
      const EdgeSamples e = CopyEdge(rows[0], done / 2, half_last);
      LumaRow edge[2];
      for (int i = 0; i < n; ++i) edge[i] = EdgeRow(rows[i], done, e);
      const int tail_done = bulk(edge, n, tail + 2);
      for (int i = 0; i < n; ++i) X2Means_C(edge[i], tail_done, tail);
    }
    r += n;
  }
}

// ----------------------------------------------------------- x4, x8 -------

// Bulk helper: blends main-row columns [0, end) of `count` rows that share
// s0 and s1 with the fixed phase table of factor F; end is a multiple of 8.
using XFBulkFn = decltype(RowKernels::luma_x4_bulk);

template <int F>
inline int BilinearXF(const LumaRow& q, int x0, int fx) {
  const int h0 = Lerp8(q.s0[x0], q.s0[x0 + 1], kFracOne - fx, fx);
  const int h1 = Lerp8(q.s1[x0], q.s1[x0 + 1], kFracOne - fx, fx);
  return std::min(255, Lerp8(h0, h1, kFracOne - q.fy, q.fy));
}

// Columns [from, to) with the phase table.
template <int F>
void XFPhaseColumns_C(const LumaRow& q, int from, int to) {
  for (int c = from; c < to; ++c) {
    const int fx = (c % F) * (kFracOne / F);
    q.out[c] = BlendClamp(q.src[c], BilinearXF<F>(q, c / F, fx), q.w[c]);
  }
}

template <int F>
void XFBulk_C(const LumaRow* rows, int count, int end) {
  for (int i = 0; i < count; ++i) XFPhaseColumns_C<F>(rows[i], 0, end);
}

// Main-row columns [from, W): positions from c * dx, last F vertical only.
template <int F>
void XFMainTail_C(const LumaRow& q, int W, int from) {
  int c = from;
  for (; c < W - F; ++c) {
    const int b = BilinearXF<F>(q, PosInt(c, q.dx), PosFrac(c, q.dx));
    q.out[c] = BlendClamp(q.src[c], b, q.w[c]);
  }
  for (; c < W; ++c) {
    const int x0 = PosInt(c, q.dx);
    const int b = std::min(255, Lerp8(q.s0[x0], q.s1[x0], kFracOne - q.fy, q.fy));
    q.out[c] = BlendClamp(q.src[c], b, q.w[c]);
  }
}

// Bottom rows: horizontal only on row r0, nearest sample in the last F columns.
template <int F>
void XFBottomRow_C(const LumaRow& q, int W) {
  int c = 0;
  for (; c < W - F; ++c) {
    const int x0 = PosInt(c, q.dx);
    const int fx = PosFrac(c, q.dx);
    const int b = std::min(255, Lerp8(q.s0[x0], q.s0[x0 + 1], kFracOne - fx, fx));
    q.out[c] = BlendClamp(q.src[c], b, q.w[c]);
  }
  for (; c < W; ++c) q.out[c] = BlendClamp(q.src[c], q.s0[PosInt(c, q.dx)], q.w[c]);
}

// With W = F * sw the positions c * dx equal the phase table, so the tail
// columns (the last F among them) and the bottom rows (r1 = r0, whose
// vertical step returns h0) take the bulk formula on the copy too.
template <int F>
void CompositeXF(const Planes& p, int first, int last, XFBulkFn bulk, bool bulk_edge) {
  const int dx = p.sw * kPosOne / p.W;
  const int dy = p.sh * kPosOne / p.H;
  const bool at_bottom = last == p.H - 1;
  const int main_last = at_bottom ? p.H - 1 - F : last;
  const int bulk_end = std::max(p.W - F, 0) / kBulkGroup * kBulkGroup;
  const bool edge_in_bulk = bulk_edge && p.W == F * p.sw;
  LumaRow rows[kMaxRun];
  auto run = [&](int r, int n, int r0, int r1) {
    for (int i = 0; i < n; ++i) rows[i] = MakeRow(p, r + i, r0, r1, PosFrac(r + i, dy), dx);
    bulk(rows, n, bulk_end);
    if (!edge_in_bulk) return false;
    const EdgeSamples e = CopyEdge(rows[0], bulk_end / F, p.sw - 1);
    LumaRow edge[kMaxRun];
    for (int i = 0; i < n; ++i) edge[i] = EdgeRow(rows[i], bulk_end, e);
    const int tail = p.W - bulk_end;
    const int groups = tail / kBulkGroup * kBulkGroup;
    bulk(edge, n, groups);
    for (int i = 0; i < n; ++i) XFPhaseColumns_C<F>(edge[i], groups, tail);
    return true;
  };
  for (int r = first; r <= main_last;) {
    const int r0 = PosInt(r, dy);
    const int n = RunLength(r, main_last, dy);
    if (!run(r, n, r0, std::min(r0 + 1, p.sh - 1)))
      for (int i = 0; i < n; ++i) XFMainTail_C<F>(rows[i], p.W, bulk_end);
    r += n;
  }
  if (!at_bottom) return;
  for (int r = p.H - F; r <= p.H - 1;) {
    const int r0 = PosInt(r, dy);
    const int n = edge_in_bulk ? RunLength(r, p.H - 1, dy) : 1;
    if (!run(r, n, r0, r0)) XFBottomRow_C<F>(MakeRow(p, r, r0, r0, PosFrac(r, dy), dx), p.W);
    r += n;
  }
}

// ---------------------------------------------------------------- x6 ------

// Bulk helper: blends main-row columns [1, 1 + n) of `count` rows that share
// s0 and s1 with the six-step cycle, n a multiple of 24. The upper weight is
// q.fy ? 256 - q.fy : 0.
using X6BulkFn = decltype(RowKernels::luma_x6_bulk);

// Vertical step with the 8-bit upper weight u = (256 - fy) mod 256: a row
// with fy = 0 gets weights 0 and 0, hence the blurred sample 0.
inline int VerticalX6(int top, int bottom, int fy) {
  return Lerp8(top, bottom, (kFracOne - fy) & (kFracOne - 1), fy);
}

inline int BilinearX6(const LumaRow& q, int x0, int left, int right) {
  const int h0 = Lerp8(q.s0[x0], q.s0[x0 + 1], left, right);
  const int h1 = Lerp8(q.s1[x0], q.s1[x0 + 1], left, right);
  return VerticalX6(h0, h1, q.fy);
}

void X6Bulk_C(const LumaRow* rows, int count, int n) {
  for (int i = 0; i < count; ++i) {
    const LumaRow& q = rows[i];
    for (int c = 1; c <= n; ++c) {
      const int j = (c - 1) % 6;
      const int b = BilinearX6(q, (c - 1) / 6, kX6Left[j], kX6Right[j]);
      q.out[c] = BlendWrap(q.src[c], b, q.w[c]);
    }
  }
}

// Main row outside the bulk: column 0, then [from, W - 6] from c * dx, then
// the last 5 columns vertical only.
void X6MainEdges_C(const LumaRow& q, int W, int from) {
  q.out[0] = BlendWrap(q.src[0], VerticalX6(q.s0[0], q.s1[0], q.fy), q.w[0]);
  int c = from;
  for (; c <= W - 1 - kX6Edge; ++c) {
    const int fx = PosFrac(c, q.dx);
    q.out[c] = BlendWrap(q.src[c], BilinearX6(q, PosInt(c, q.dx), kFracOne - fx, fx), q.w[c]);
  }
  for (; c < W; ++c) {
    const int x0 = PosInt(c, q.dx);
    q.out[c] = BlendWrap(q.src[c], VerticalX6(q.s0[x0], q.s1[x0], q.fy), q.w[c]);
  }
}

// X6MainEdges_C for a run of rows sharing s0 and s1: the horizontal steps of
// the edge columns (column 0, then [from, W)) are taken once per run.
constexpr int kX6EdgeColumns = 1 + kX6Group + kX6Edge;  // column 0, tail < 24 + 5
void X6RunEdges(const LumaRow* rows, int n, int W, int from) {
  const LumaRow& q = rows[0];
  int col[kX6EdgeColumns], h0[kX6EdgeColumns], h1[kX6EdgeColumns];
  int k = 0;
  col[k] = 0, h0[k] = q.s0[0], h1[k] = q.s1[0], ++k;
  for (int c = from; c < W; ++c, ++k) {
    const int x0 = PosInt(c, q.dx), fx = PosFrac(c, q.dx);
    const bool vertical = c > W - 1 - kX6Edge;
    col[k] = c;
    h0[k] = vertical ? q.s0[x0] : Lerp8(q.s0[x0], q.s0[x0 + 1], kFracOne - fx, fx);
    h1[k] = vertical ? q.s1[x0] : Lerp8(q.s1[x0], q.s1[x0 + 1], kFracOne - fx, fx);
  }
  for (int i = 0; i < n; ++i) {
    const LumaRow& r = rows[i];
    for (int j = 0; j < k; ++j)
      r.out[col[j]] = BlendWrap(r.src[col[j]], VerticalX6(h0[j], h1[j], r.fy), r.w[col[j]]);
  }
}

// Row 0 and the bottom rows: horizontal only on row r0, nearest sample in
// column 0 and in the last 5 columns.
inline int X6HorizontalSample(const LumaRow& q, int W, int c) {
  const int x0 = PosInt(c, q.dx);
  if (c == 0 || c > W - 1 - kX6Edge) return q.s0[x0];
  const int fx = PosFrac(c, q.dx);
  return Lerp8(q.s0[x0], q.s0[x0 + 1], kFracOne - fx, fx);
}

void X6HorizontalRow_C(const LumaRow& q, int W) {
  for (int c = 0; c < W; ++c) q.out[c] = BlendWrap(q.src[c], X6HorizontalSample(q, W, c), q.w[c]);
}

// X6HorizontalRow_C for rows sharing r0: one horizontal pass per chunk of
// columns, then a blend per row.
constexpr int kX6Chunk = 256;
void X6HorizontalRows(const LumaRow* rows, int n, int W) {
  uint8_t h[kX6Chunk];
  for (int c0 = 0; c0 < W; c0 += kX6Chunk) {
    const int len = std::min(kX6Chunk, W - c0);
    for (int j = 0; j < len; ++j)
      h[j] = static_cast<uint8_t>(X6HorizontalSample(rows[0], W, c0 + j));
    for (int i = 0; i < n; ++i) {
      const LumaRow& q = rows[i];
      for (int j = 0; j < len; ++j) q.out[c0 + j] = BlendWrap(q.src[c0 + j], h[j], q.w[c0 + j]);
    }
  }
}

// Vector members take the edges a run (or rows sharing r0) at a time; the
// _c members keep the formulas pixel by pixel.
void CompositeX6(const Planes& p, int first, int last, X6BulkFn bulk, bool by_run) {
  const int dx = p.sw * kPosOne / p.W;
  const int dy = p.sh * kPosOne / p.H;
  const bool at_bottom = last == p.H - 1;
  const int bulk_n = std::max(p.W - 1 - kX6Edge, 0) / kX6Group * kX6Group;
  LumaRow rows[kMaxRun];
  if (first == 0) {
    rows[0] = MakeRow(p, 0, 0, 0, 0, dx);
    by_run ? X6HorizontalRows(rows, 1, p.W) : X6HorizontalRow_C(rows[0], p.W);
  }
  const int main_first = first == 0 ? 1 : first;
  const int main_last = at_bottom ? p.H - 1 - kX6Edge : last;
  for (int r = main_first; r <= main_last;) {
    const int r0 = PosInt(r, dy);
    const int n = RunLength(r, main_last, dy);
    for (int i = 0; i < n; ++i) rows[i] = MakeRow(p, r + i, r0, r0 + 1, PosFrac(r + i, dy), dx);
    bulk(rows, n, bulk_n);
    if (by_run)
      X6RunEdges(rows, n, p.W, 1 + bulk_n);
    else
      for (int i = 0; i < n; ++i) X6MainEdges_C(rows[i], p.W, 1 + bulk_n);
    r += n;
  }
  if (!at_bottom) return;
  for (int r = p.H - kX6Edge; r <= p.H - 1;) {
    const int r0 = PosInt(r, dy);
    const int n = by_run ? RunLength(r, p.H - 1, dy) : 1;
    for (int i = 0; i < n; ++i) rows[i] = MakeRow(p, r + i, r0, r0, PosFrac(r + i, dy), dx);
    by_run ? X6HorizontalRows(rows, n, p.W) : X6HorizontalRow_C(rows[0], p.W);
    r += n;
  }
}

}  // namespace

void FillCompositeY_C(RowKernels* k) {
  k->luma_x2_bulk = X2Bulk_C;
  k->luma_x4_bulk = XFBulk_C<4>;
  k->luma_x6_bulk = X6Bulk_C;
  k->luma_x8_bulk = XFBulk_C<8>;
}

}  // namespace dofra

// The members keep their global names; their bodies run the layer's code.
using namespace dofra;

DOFRA_BLEND(__CreateOutputImage_Y_x2_neon) {
  CompositeX2(Planes{src, weights, small, out, W, H, sw, sh}, first_row, last_row,
              ActiveRowKernels().luma_x2_bulk, true);
}
DOFRA_BLEND(__CreateOutputImage_Y_x2_c) {
  CompositeX2(Planes{src, weights, small, out, W, H, sw, sh}, first_row, last_row,
              ScalarRowKernels().luma_x2_bulk, false);
}
DOFRA_BLEND(__CreateOutputImage_Y_x4_neon) {
  CompositeXF<4>(Planes{src, weights, small, out, W, H, sw, sh}, first_row, last_row,
                 ActiveRowKernels().luma_x4_bulk, true);
}
DOFRA_BLEND(__CreateOutputImage_Y_x4_c) {
  CompositeXF<4>(Planes{src, weights, small, out, W, H, sw, sh}, first_row, last_row,
                 ScalarRowKernels().luma_x4_bulk, false);
}
DOFRA_BLEND(__CreateOutputImage_Y_x6_neon) {
  CompositeX6(Planes{src, weights, small, out, W, H, sw, sh}, first_row, last_row,
              ActiveRowKernels().luma_x6_bulk, true);
}
DOFRA_BLEND(__CreateOutputImage_Y_x6_c) {
  CompositeX6(Planes{src, weights, small, out, W, H, sw, sh}, first_row, last_row,
              ScalarRowKernels().luma_x6_bulk, false);
}
DOFRA_BLEND(__CreateOutputImage_Y_x8_neon) {
  CompositeXF<8>(Planes{src, weights, small, out, W, H, sw, sh}, first_row, last_row,
                 ActiveRowKernels().luma_x8_bulk, true);
}
DOFRA_BLEND(__CreateOutputImage_Y_x8_c) {
  CompositeXF<8>(Planes{src, weights, small, out, W, H, sw, sh}, first_row, last_row,
                 ScalarRowKernels().luma_x8_bulk, false);
}
