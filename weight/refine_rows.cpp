// The refined map's per-pixel formula and the scalar members of its row
// helpers (the vectorised ones: kernels/x86/refine_*.cpp,
// kernels/arm/refine_neon.cpp).
#include "weight/refine_rows.h"

#include <algorithm>
#include <cstdlib>

#include "kernels/fixed_point.h"
#include "kernels/row_kernels.h"

namespace dofra {

namespace {

constexpr int kFullDistance = 255;  // distances past the table's end read its last entry

inline int Lerp8(int a, int b, int f) { return Lerp8(a, b, kFracOne - f, f); }

// The colour distance of a sample, clipped to the table: luma, plus the
// chroma distance in quarters.
inline int Distance(int y, int v, int u, int sy, int sv, int su, int chroma_weight) {
  const int chroma = std::abs(v - sv) + std::abs(u - su);
  return std::min(std::abs(y - sy) + (chroma_weight * chroma >> 2), kFullDistance);
}

// (bx * by + 128) >> 8 <= 256; times an 8-bit range-purity product < 65536.
inline int SampleWeight(int bx, int by, int range, int purity, const RefineTables& t) {
  const int rp = (t.range[range] * purity + kRound8) >> kFracBits;
  return ((bx * by + kRound8) >> kFracBits) * rp;
}

// Sample k of a row pair at sample column i: 0, 1 upper, 2, 3 lower.
inline const SampleRow& RowOf(const RefineRow& row, int k) { return k < 2 ? row.top : row.bottom; }

// Column by column: four samples, four weights, one division where they do
// not all vanish.
void JointRow_C(const RefineRow& row, const RefineColumns& cols, const RefineTables& t, int from,
                int to) {
  for (int x = from; x < to; ++x) {
    RefinePixel p;
    p.y = row.luma[x];
    p.v = row.chroma[x & ~1];
    p.u = row.chroma[x | 1];
    for (int k = 0; k < 4; ++k) {
      const SampleRow& s = RowOf(row, k);
      const int i = k & 1 ? cols.ix1[x] : cols.ix[x];
      p.depth[k] = s.depth[i];
      p.sy[k] = s.y[i];
      p.sv[k] = s.v[i];
      p.su[k] = s.u[i];
      p.purity[k] = s.purity[i];
    }
    p.fx = cols.fx[x];
    p.fy = row.fy;
    row.out[x] = t.weights.by_depth[JointDepth(p, t)];
  }
}

void BilinearRow_C(const RefineRow& row, const RefineColumns& cols, const RefineTables& t, int from,
                   int to) {
  for (int x = from; x < to; ++x) {
    const int i0 = cols.ix[x], i1 = cols.ix1[x], fx = cols.fx[x];
    const int top = Lerp8(row.top.depth[i0], row.top.depth[i1], fx);
    row.out[x] =
        t.weights
            .by_depth[Lerp8(top, Lerp8(row.bottom.depth[i0], row.bottom.depth[i1], fx), row.fy)];
  }
}

void ColumnSums_C(const uint8_t* const* rows, int n, uint16_t* sums, int from, int to) {
  for (int x = from; x < to; ++x) {
    int sum = 0;
    for (int r = 0; r < n; ++r) sum += rows[r][x];
    sums[x] = static_cast<uint16_t>(sum);
  }
}

}  // namespace

int BilinearDepth(const uint8_t depth[4], int fx, int fy) {
  return Lerp8(Lerp8(depth[0], depth[1], fx), Lerp8(depth[2], depth[3], fx), fy);
}

int JointDepth(const RefinePixel& p, const RefineTables& t) {
  const int bx[4] = {kFracOne - p.fx, p.fx, kFracOne - p.fx, p.fx};
  const int by[4] = {kFracOne - p.fy, kFracOne - p.fy, p.fy, p.fy};
  uint32_t sum = 0, weighted = 0;  // sum < 65536, weighted < 2^24
  for (int k = 0; k < 4; ++k) {
    const int d = Distance(p.y, p.v, p.u, p.sy[k], p.sv[k], p.su[k], t.chroma_weight);
    const int w = SampleWeight(bx[k], by[k], d, p.purity[k], t);
    sum += static_cast<uint32_t>(w);
    weighted += static_cast<uint32_t>(w) * p.depth[k];
  }
  if (sum == 0) return BilinearDepth(p.depth, p.fx, p.fy);
  return static_cast<int>((weighted + sum / 2) / sum);
}

int RefinedDepth(const RefinePixel& p, const RefineTables& t) {
  const int lo = *std::min_element(p.depth, p.depth + 4);
  const int hi = *std::max_element(p.depth, p.depth + 4);
  return hi - lo <= t.flat_spread ? BilinearDepth(p.depth, p.fx, p.fy) : JointDepth(p, t);
}

void SetRangeChunks(RefineTables* t) {
  int last = kRefineDepths - 1;
  while (last >= 0 && t->range[last] == 0) --last;
  t->range_chunks = (last + kRefineGroup) / kRefineGroup;
}

void FillRefine_C(RowKernels* k) {
  k->refine_joint_row = JointRow_C;
  k->refine_bilinear_row = BilinearRow_C;
  k->refine_column_sums = ColumnSums_C;
}

}  // namespace dofra
