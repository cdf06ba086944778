// Chroma compositing: enlarge the smoothed small chroma plane on the fly and
// blend it with the sharp chroma plane under the luma weight map, one band of
// chroma rows per call. Positions count pairs; every formula runs on the
// first bytes of the pairs and, separately, on the second bytes. A pair's
// weight is the luma entry of the upper-left pixel of its block: row 2r,
// column 2p, with the frame width W as stride.
//
// Bilinear steps are 8-bit fractions: a + b weights sum to 256, so
// 255 * 256 + 128 = 65408 fits in an unsigned 16-bit lane.
#include <cstdint>

#include "blur/kernels.h"
#include "kernels/fixed_point.h"
#include "kernels/row_kernels.h"

namespace dofra {

namespace {

constexpr int kPair = 2;  // bytes per pair

inline ChromaRow RowAt(const uint8_t* src, const uint16_t* weights, uint8_t* out, int W, int r) {
  return {src + r * W, weights + 2 * r * W, out + r * W};
}

// Pair positions in 16.16: pair index, fraction of the next pair (8 bits).
struct Pos {
  int x0;
  int fx;
};
inline Pos PosAt(int p, int step) {
  const int pos = p * step;
  return {PosInt(pos), PosFrac(pos)};
}

// Blends both bytes of pair p with blurred bytes b[0], b[1].
template <bool kClamp>
inline void PutPair(const ChromaRow& row, int p, const int* b) {
  const int wt = row.wt[kPair * p];
  for (int c = 0; c < kPair; ++c) {
    const int i = kPair * p + c;
    row.out[i] = kClamp ? BlendClamp(row.src[i], b[c], wt) : BlendWrap(row.src[i], b[c], wt);
  }
}

// Consecutive output rows that read the same two small rows. Their
// horizontal steps are equal, so a vector bulk computes them once per column
// group and runs the rows inside; only fy, source, weights and output differ.
// Capped so the run lives on the stack; a split run only recomputes.
constexpr int kMaxRun = kMaxCompositeRun;

// Small rows and vertical fraction of one output row.
struct RowSource {
  const uint8_t* s0;
  const uint8_t* s1;
  int fy;
};

// Rows [r_begin, r_end] in order, cut into runs sharing (s0, s1); `source`
// maps a row to its RowSource, `emit` handles one run.
template <typename SourceFn, typename EmitFn>
void ForEachRun(const uint8_t* src, const uint16_t* weights, uint8_t* out, int W, int r_begin,
                int r_end, SourceFn source, EmitFn emit) {
  ChromaRun run{};
  for (int r = r_begin; r <= r_end; ++r) {
    const RowSource rs = source(r);
    if (run.n == kMaxRun || (run.n > 0 && (rs.s0 != run.s0 || rs.s1 != run.s1))) {
      emit(run);
      run.n = 0;
    }
    run.s0 = rs.s0;
    run.s1 = rs.s1;
    run.fy[run.n] = rs.fy;
    run.row[run.n] = RowAt(src, weights, out, W, r);
    ++run.n;
  }
  if (run.n > 0) emit(run);
}

// Vector members also run the bulk on the pairs past it: a copy of the small
// rows' end with the last pair repeated turns the edge rules into the bulk
// formula, since a repeated sample interpolates to itself and the mean of a
// repeated pair is that pair. The _c members keep the stated formulas.
constexpr int kEdgePairs = 16;
struct EdgeRows {
  uint8_t s0[kPair * kEdgePairs];
  uint8_t s1[kPair * kEdgePairs];
};

// Small pairs x.. of the run's rows, pair `last` repeated past it; the run's
// rows from pair p on read them.
ChromaRun EdgeRun(const ChromaRun& run, int p, int x, int last, EdgeRows& e) {
  for (int j = 0; j < kEdgePairs; ++j) {
    const int from = kPair * (x + j < last ? x + j : last);
    for (int c = 0; c < kPair; ++c) {
      e.s0[kPair * j + c] = run.s0[from + c];
      e.s1[kPair * j + c] = run.s1[from + c];
    }
  }
  // Only the run's own rows are filled: this runs once per run.
  ChromaRun edge;
  edge.s0 = e.s0;
  edge.s1 = e.s1;
  edge.n = run.n;
  for (int i = 0; i < run.n; ++i) {
    const ChromaRow& r = run.row[i];
    edge.fy[i] = run.fy[i];
    edge.row[i] = {r.src + kPair * p, r.wt + kPair * p, r.out + kPair * p};
  }
  return edge;
}

// ---------------------------------------------------------------------------
// x2: the four pairs of a 2x2 block of pairs share the mean of the 2x2 block
// of small pairs at halved coordinates (a half-pair shift, not interpolation).

// Pairs [p_begin, p_end): (P[r0][k] + P[r0][k+1] + P[r1][k] + P[r1][k+1] + 2) >> 2.
void X2Pairs_C(const ChromaRow& row, const uint8_t* s0, const uint8_t* s1, int p_begin, int p_end) {
  for (int p = p_begin; p < p_end; ++p) {
    const int k = kPair * (p >> 1);
    int b[kPair];
    for (int c = 0; c < kPair; ++c) {
      b[c] = (s0[k + c] + s0[k + kPair + c] + s1[k + c] + s1[k + kPair + c] + 2) >> 2;
    }
    PutPair<false>(row, p, b);
  }
}

// The last two pairs: k + 1 would lie past a half-width row, so only the
// vertical pair counts, (2 * P[r0][k] + 2 * P[r1][k] + 2) >> 2.
void X2EdgePairs_C(const ChromaRow& row, const uint8_t* s0, const uint8_t* s1, int pairs) {
  for (int p = pairs - 2; p < pairs; ++p) {
    const int k = kPair * (p >> 1);
    int b[kPair];
    for (int c = 0; c < kPair; ++c) b[c] = (2 * s0[k + c] + 2 * s1[k + c] + 2) >> 2;
    PutPair<false>(row, p, b);
  }
}

// Returns the pairs written from 0; the driver writes the rest.
using X2BulkFn = decltype(RowKernels::chroma_x2_bulk);

int X2Bulk_C(const ChromaRun& run, int pairs) {
  for (int i = 0; i < run.n; ++i) X2Pairs_C(run.row[i], run.s0, run.s1, 0, pairs);
  return pairs;
}

void CompositeX2(X2BulkFn bulk, bool bulk_edge, const uint8_t* src, int W, int sw, int sh,
                 const uint16_t* weights, const uint8_t* small, uint8_t* out, int first, int last) {
  const int pairs = W / kPair;
  // An even pair count makes both last pairs read small pair pairs / 2 - 1.
  const bool edge_in_bulk = bulk_edge && pairs % 2 == 0;
  // The band's last two rows clamp r1; a one-row band thus also rewrites the
  // row above it (same values), except at row 0, which the frame check never
  // hands it (its row above would lie outside the plane). The rows written
  // are one consecutive range.
  const int r_begin = first < last - 1 ? first : (last - 1 < 0 ? 0 : last - 1);
  auto source = [&](int r) {
    const int r0 = r >> 1;
    const int r1 = r >= last - 1 && r0 + 1 > sh - 1 ? sh - 1 : r0 + 1;
    return RowSource{small + r0 * sw, small + r1 * sw, 0};
  };
  ForEachRun(src, weights, out, W, r_begin, last, source, [&](const ChromaRun& run) {
    const int done = bulk(run, pairs - 2);
    if (edge_in_bulk) {
      EdgeRows e;
      const ChromaRun edge = EdgeRun(run, done, done / 2, pairs / 2 - 1, e);
      const int tail = pairs - done, tail_done = bulk(edge, tail);
      for (int i = 0; i < run.n; ++i) X2Pairs_C(edge.row[i], edge.s0, edge.s1, tail_done, tail);
      return;
    }
    for (int i = 0; i < run.n; ++i) {
      X2Pairs_C(run.row[i], run.s0, run.s1, done, pairs - 2);
      X2EdgePairs_C(run.row[i], run.s0, run.s1, pairs);
    }
  });
}

// ---------------------------------------------------------------------------
// x4 and x8: bilinear with 8-bit fractions, clamped blend. The bulk takes its
// phase from the pair number (x0 = p / F, fx = (p mod F) * 256 / F).

template <int F>
int BulkPairsXF(int W) {
  constexpr int kGroupBytes = ChromaGroupBytes(F);
  return (W - kPair * F) / kGroupBytes * kGroupBytes / kPair;
}

// Main-row pairs [p_begin, p_end) with the phase of the pair number.
template <int F>
void XFPhasePairs_C(const ChromaRow& row, const uint8_t* s0, const uint8_t* s1, int fy, int p_begin,
                    int p_end) {
  for (int p = p_begin; p < p_end; ++p) {
    const int x = kPair * (p / F);
    const int fx = (p % F) * kFracOne / F;
    int b[kPair];
    for (int c = 0; c < kPair; ++c) {
      const int h0 = Lerp8(s0[x + c], s0[x + kPair + c], kFracOne - fx, fx);
      const int h1 = Lerp8(s1[x + c], s1[x + kPair + c], kFracOne - fx, fx);
      const int v = Lerp8(h0, h1, kFracOne - fy, fy);
      b[c] = v > 255 ? 255 : v;
    }
    PutPair<true>(row, p, b);
  }
}

using XFBulkFn = decltype(RowKernels::chroma_x4_bulk);

template <int F>
void XFBulk_C(const ChromaRun& run, int pairs) {
  for (int i = 0; i < run.n; ++i)
    XFPhasePairs_C<F>(run.row[i], run.s0, run.s1, run.fy[i], 0, pairs);
}

// Main row beyond the bulk: pairs up to W/2 - F - 1 from p * dx, then the
// last F pairs vertical only.
template <int F>
void XFMainTail_C(const ChromaRow& row, const uint8_t* s0, const uint8_t* s1, int fy, int p_begin,
                  int pairs, int dx) {
  for (int p = p_begin; p < pairs; ++p) {
    const Pos q = PosAt(p, dx);
    const int x = kPair * q.x0;
    const bool edge = p >= pairs - F;
    int b[kPair];
    for (int c = 0; c < kPair; ++c) {
      int v;
      if (edge) {
        v = Lerp8(s0[x + c], s1[x + c], kFracOne - fy, fy);
      } else {
        const int h0 = Lerp8(s0[x + c], s0[x + kPair + c], kFracOne - q.fx, q.fx);
        const int h1 = Lerp8(s1[x + c], s1[x + kPair + c], kFracOne - q.fx, q.fx);
        v = Lerp8(h0, h1, kFracOne - fy, fy);
      }
      b[c] = v > 255 ? 255 : v;
    }
    PutPair<true>(row, p, b);
  }
}

// Bottom rows from pair p_begin: horizontal only on r0; nearest pair for the
// last F pairs.
template <int F>
void XFBottomRow_C(const ChromaRow& row, const uint8_t* s0, int p_begin, int pairs, int dx) {
  for (int p = p_begin; p < pairs; ++p) {
    const Pos q = PosAt(p, dx);
    const int x = kPair * q.x0;
    int b[kPair];
    for (int c = 0; c < kPair; ++c) {
      const int v =
          p >= pairs - F ? s0[x + c] : Lerp8(s0[x + c], s0[x + kPair + c], kFracOne - q.fx, q.fx);
      b[c] = v > 255 ? 255 : v;
    }
    PutPair<true>(row, p, b);
  }
}

// A vector member may also run its bulk on the bottom rows: with fy = 0 and
// r1 = r0 the vertical step returns h0 exactly, and when dx is 65536 / F the
// positions p * dx equal the phase table. The _c members pass false.
template <int F>
void CompositeXF(XFBulkFn bulk, bool bulk_edges, const uint8_t* src, int W, int H, int sw, int sh,
                 const uint16_t* weights, const uint8_t* small, uint8_t* out, int first, int last) {
  const int dx = sw * kPosOne / W;
  const int dy = sh * kPosOne / H;
  const int pairs = W / kPair;
  const int bulk_pairs = BulkPairsXF<F>(W);
  const bool bottom = last == H - 1;
  const int main_last = bottom ? H - 1 - F : last;
  auto main_source = [&](int r) {
    const Pos q = PosAt(r, dy);  // r1 = r0 + 1 unclamped: bottom rows are excluded
    const uint8_t* s0 = small + q.x0 * sw;
    return RowSource{s0, s0 + sw, q.fx};
  };
  // With W = F * sw the last F pairs read the last small pair, so the whole
  // tail takes the bulk formula on a copy.
  const bool edge_in_bulk = bulk_edges && W == F * sw;
  constexpr int kGroupPairs = F == 4 ? 4 : 8;
  auto bulk_tail = [&](const ChromaRun& run) {
    EdgeRows e;
    const ChromaRun edge = EdgeRun(run, bulk_pairs, bulk_pairs / F, sw / kPair - 1, e);
    const int tail = pairs - bulk_pairs, groups = tail / kGroupPairs * kGroupPairs;
    bulk(edge, groups);
    for (int i = 0; i < run.n; ++i)
      XFPhasePairs_C<F>(edge.row[i], edge.s0, edge.s1, edge.fy[i], groups, tail);
  };
  ForEachRun(src, weights, out, W, first, main_last, main_source, [&](const ChromaRun& run) {
    bulk(run, bulk_pairs);
    if (edge_in_bulk) return bulk_tail(run);
    for (int i = 0; i < run.n; ++i) {
      XFMainTail_C<F>(run.row[i], run.s0, run.s1, run.fy[i], bulk_pairs, pairs, dx);
    }
  });
  if (!bottom) return;
  const int bottom_bulk = bulk_edges && dx == kPosOne / F ? bulk_pairs : 0;
  auto bottom_source = [&](int r) {
    const uint8_t* s0 = small + PosAt(r, dy).x0 * sw;
    return RowSource{s0, s0, 0};
  };
  ForEachRun(src, weights, out, W, H - F, H - 1, bottom_source, [&](const ChromaRun& run) {
    if (bottom_bulk > 0) bulk(run, bottom_bulk);
    if (edge_in_bulk) return bulk_tail(run);
    for (int i = 0; i < run.n; ++i) XFBottomRow_C<F>(run.row[i], run.s0, bottom_bulk, pairs, dx);
  });
}

// ---------------------------------------------------------------------------
// x6: 8-bit weights; the upper weight u = (256 - fy) mod 256 wraps, so a row
// whose fy is 0 blurs towards 0 (kept). Row 0 and pair 0 have their own rules.

constexpr int kX6Cycle = 6;

// Pair 0 and the last 5 pairs stay outside the bulk.
int BulkPairsX6(int W) { return kX6GroupPairs * ((W - kPair * (1 + kX6Edge)) / kX6Group); }

inline int X6Vertical(int a, int b, int u, int fy) { return Lerp8(a, b, u, fy); }

inline int X6Upper(int fy) { return (kFracOne - fy) & 255; }

using X6BulkFn = decltype(RowKernels::chroma_x6_bulk);

// Pairs 1..bulk_pairs: x0 = (p - 1) / 6, weights by (p - 1) mod 6.
void X6Pairs_C(const ChromaRow& row, const uint8_t* s0, const uint8_t* s1, int fy, int bulk_pairs) {
  const int u = X6Upper(fy);
  for (int p = 1; p <= bulk_pairs; ++p) {
    const int x = kPair * ((p - 1) / kX6Cycle);
    const int i = (p - 1) % kX6Cycle;
    int b[kPair];
    for (int c = 0; c < kPair; ++c) {
      const int h0 = Lerp8(s0[x + c], s0[x + kPair + c], kX6Left[i], kX6Right[i]);
      const int h1 = Lerp8(s1[x + c], s1[x + kPair + c], kX6Left[i], kX6Right[i]);
      b[c] = X6Vertical(h0, h1, u, fy);
    }
    PutPair<false>(row, p, b);
  }
}

void X6Bulk_C(const ChromaRun& run, int bulk_pairs) {
  for (int i = 0; i < run.n; ++i) X6Pairs_C(run.row[i], run.s0, run.s1, run.fy[i], bulk_pairs);
}

// Horizontal-only sample (row 0 and the bottom rows): pair 0 and the last 5
// pairs nearest, the rest from p * dx with left weight 256 - fx.
inline int X6HorizontalSample(const uint8_t* s0, int pairs, int dx, int p, int c) {
  const Pos q = PosAt(p, dx);
  const int x = kPair * q.x0;
  if (p == 0 || p >= pairs - kX6Edge) return s0[x + c];
  return Lerp8(s0[x + c], s0[x + kPair + c], kFracOne - q.fx, q.fx);
}

void X6HorizontalRow_C(const ChromaRow& row, const uint8_t* s0, int pairs, int dx) {
  for (int p = 0; p < pairs; ++p) {
    int b[kPair];
    for (int c = 0; c < kPair; ++c) b[c] = X6HorizontalSample(s0, pairs, dx, p, c);
    PutPair<false>(row, p, b);
  }
}

// X6HorizontalRow_C for a run of rows sharing s0: one horizontal pass per
// chunk of pairs, then a blend per row.
constexpr int kX6ChunkPairs = 128;
void X6HorizontalRun(const ChromaRun& run, int pairs, int dx) {
  int h[kX6ChunkPairs][kPair];
  for (int p0 = 0; p0 < pairs; p0 += kX6ChunkPairs) {
    const int len = pairs - p0 < kX6ChunkPairs ? pairs - p0 : kX6ChunkPairs;
    for (int j = 0; j < len; ++j)
      for (int c = 0; c < kPair; ++c) h[j][c] = X6HorizontalSample(run.s0, pairs, dx, p0 + j, c);
    for (int i = 0; i < run.n; ++i)
      for (int j = 0; j < len; ++j) PutPair<false>(run.row[i], p0 + j, h[j]);
  }
}

// Main row outside the bulk: pair 0, then pairs bulk_pairs + 1 on.
void X6MainEdges_C(const ChromaRow& row, const uint8_t* s0, const uint8_t* s1, int fy, int pairs,
                   int bulk_pairs, int dx) {
  const int u = X6Upper(fy);
  {
    int b[kPair];
    for (int c = 0; c < kPair; ++c) b[c] = X6Vertical(s0[c], s1[c], u, fy);
    PutPair<false>(row, 0, b);
  }
  for (int p = bulk_pairs + 1; p < pairs; ++p) {
    const Pos q = PosAt(p, dx);
    const int x = kPair * q.x0;
    const bool edge = p >= pairs - kX6Edge;
    int b[kPair];
    for (int c = 0; c < kPair; ++c) {
      if (edge) {
        b[c] = X6Vertical(s0[x + c], s1[x + c], u, fy);
      } else {
        const int h0 = Lerp8(s0[x + c], s0[x + kPair + c], kFracOne - q.fx, q.fx);
        const int h1 = Lerp8(s1[x + c], s1[x + kPair + c], kFracOne - q.fx, q.fx);
        b[c] = X6Vertical(h0, h1, u, fy);
      }
    }
    PutPair<false>(row, p, b);
  }
}

// X6MainEdges_C for a whole run: the horizontal steps of the edge pairs (pair
// 0, then bulk_pairs + 1 on, fewer than 12 + 5 + 12) once per run.
constexpr int kX6EdgePairs = 1 + 2 * kX6GroupPairs + kX6Edge;
void X6RunEdges(const ChromaRun& run, int pairs, int bulk_pairs, int dx) {
  int at[kX6EdgePairs], h0[kX6EdgePairs][kPair], h1[kX6EdgePairs][kPair];
  int k = 0;
  for (int p = bulk_pairs; p < pairs; ++p, ++k) {
    at[k] = p == bulk_pairs ? 0 : p;  // pair 0 first: vertical only, like the last 5
    const Pos q = PosAt(at[k], dx);
    const int x = kPair * q.x0;
    const bool vertical = at[k] == 0 || at[k] >= pairs - kX6Edge;
    for (int c = 0; c < kPair; ++c) {
      h0[k][c] = vertical ? run.s0[x + c]
                          : Lerp8(run.s0[x + c], run.s0[x + kPair + c], kFracOne - q.fx, q.fx);
      h1[k][c] = vertical ? run.s1[x + c]
                          : Lerp8(run.s1[x + c], run.s1[x + kPair + c], kFracOne - q.fx, q.fx);
    }
  }
  for (int i = 0; i < run.n; ++i) {
    const int fy = run.fy[i], u = X6Upper(fy);
    for (int j = 0; j < k; ++j) {
      int b[kPair];
      for (int c = 0; c < kPair; ++c) b[c] = X6Vertical(h0[j][c], h1[j][c], u, fy);
      PutPair<false>(run.row[i], at[j], b);
    }
  }
}

// Vector members take the edges a run at a time; the _c members keep the
// formulas pair by pair.
void CompositeX6(X6BulkFn bulk, bool by_run, const uint8_t* src, int W, int H, int sw, int sh,
                 const uint16_t* weights, const uint8_t* small, uint8_t* out, int first, int last) {
  const int dx = sw * kPosOne / W;
  const int dy = sh * kPosOne / H;
  const int pairs = W / kPair;
  const int bulk_pairs = BulkPairsX6(W);
  const bool bottom = last == H - 1;
  if (first == 0) X6HorizontalRow_C(RowAt(src, weights, out, W, 0), small, pairs, dx);
  const int main_first = first == 0 ? 1 : first;
  const int main_last = bottom ? H - 1 - kX6Edge : last;
  auto source = [&](int r) {
    const Pos q = PosAt(r, dy);
    const uint8_t* s0 = small + q.x0 * sw;
    return RowSource{s0, s0 + sw, q.fx};
  };
  ForEachRun(src, weights, out, W, main_first, main_last, source, [&](const ChromaRun& run) {
    bulk(run, bulk_pairs);
    if (by_run) return X6RunEdges(run, pairs, bulk_pairs, dx);
    for (int i = 0; i < run.n; ++i) {
      X6MainEdges_C(run.row[i], run.s0, run.s1, run.fy[i], pairs, bulk_pairs, dx);
    }
  });
  if (!bottom) return;
  auto bottom_source = [&](int r) {
    const uint8_t* s0 = small + PosAt(r, dy).x0 * sw;
    return RowSource{s0, s0, 0};
  };
  ForEachRun(src, weights, out, W, H - kX6Edge, H - 1, bottom_source, [&](const ChromaRun& run) {
    if (by_run) return X6HorizontalRun(run, pairs, dx);
    for (int i = 0; i < run.n; ++i) X6HorizontalRow_C(run.row[i], run.s0, pairs, dx);
  });
}

}  // namespace

void FillCompositeUV_C(RowKernels* k) {
  k->chroma_x2_bulk = X2Bulk_C;
  k->chroma_x4_bulk = XFBulk_C<4>;
  k->chroma_x6_bulk = X6Bulk_C;
  k->chroma_x8_bulk = XFBulk_C<8>;
}

}  // namespace dofra

// The members keep their global names; their bodies run the layer's code.
using namespace dofra;

// The _c members skip the bulk on the bottom rows: they are the formula as
// stated, pixel by pixel.
DOFRA_BLEND(__CreateOutputImage_UV_x2_c) {
  (void)H;
  CompositeX2(ScalarRowKernels().chroma_x2_bulk, false, src, W, sw, sh, weights, small, out,
              first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x4_c) {
  CompositeXF<4>(ScalarRowKernels().chroma_x4_bulk, false, src, W, H, sw, sh, weights, small, out,
                 first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x6_c) {
  CompositeX6(ScalarRowKernels().chroma_x6_bulk, false, src, W, H, sw, sh, weights, small, out,
              first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x8_c) {
  CompositeXF<8>(ScalarRowKernels().chroma_x8_bulk, false, src, W, H, sw, sh, weights, small, out,
                 first_row, last_row);
}

DOFRA_BLEND(__CreateOutputImage_UV_x2_neon) {
  (void)H;
  CompositeX2(ActiveRowKernels().chroma_x2_bulk, true, src, W, sw, sh, weights, small, out,
              first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x4_neon) {
  CompositeXF<4>(ActiveRowKernels().chroma_x4_bulk, true, src, W, H, sw, sh, weights, small, out,
                 first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x6_neon) {
  CompositeX6(ActiveRowKernels().chroma_x6_bulk, true, src, W, H, sw, sh, weights, small, out,
              first_row, last_row);
}
DOFRA_BLEND(__CreateOutputImage_UV_x8_neon) {
  CompositeXF<8>(ActiveRowKernels().chroma_x8_bulk, true, src, W, H, sw, sh, weights, small, out,
                 first_row, last_row);
}
