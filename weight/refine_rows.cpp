// Scalar members of the refined map's row helpers, and the per-pixel formula
// they are checked against.
#include "weight/refine_rows.h"

#include <algorithm>
#include <cstdlib>

#include "kernels/fixed_point.h"

namespace dofra {

namespace {

constexpr int kFullDistance = 255;  // distances past the tables' end read their last entry

inline int Lerp8(int a, int b, int f) { return Lerp8(a, b, kFracOne - f, f); }

inline int Channel(uint32_t info, int shift) { return static_cast<int>(info >> shift & 0xFF); }

// The colour distance of a sample, clipped to the table: luma, plus the
// chroma distance in quarters.
inline int Distance(int y, int v, int u, uint32_t info, int chroma_weight) {
  const int chroma = std::abs(v - Channel(info, 8)) + std::abs(u - Channel(info, 16));
  return std::min(std::abs(y - Channel(info, 0)) + (chroma_weight * chroma >> 2), kFullDistance);
}

// (bx * by + 128) >> 8 <= 256; times an 8-bit range-purity product < 65536.
inline int SampleWeight(int bx, int by, int range, uint32_t info, const RefineTables& t) {
  const int rp = (t.range[range] * t.purity[Channel(info, 24)] + kRound8) >> kFracBits;
  return ((bx * by + kRound8) >> kFracBits) * rp;
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
    const int d = Distance(p.y, p.v, p.u, p.info[k], t.chroma_weight);
    const int w = SampleWeight(bx[k], by[k], d, p.info[k], t);
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

// Column by column: four gathers of depth and sample info, four weights, one
// division where they do not all vanish.
void RefineJointRow_C(const RefineRow& row, const RefineColumns& cols, const RefineTables& t,
                      int from, int to) {
  const int by0 = kFracOne - row.fy, by1 = row.fy;
  for (int x = from; x < to; ++x) {
    const int i0 = cols.ix[x], i1 = cols.ix1[x], fx = cols.fx[x];
    const int bx0 = kFracOne - fx;
    const int y = row.luma[x];
    const int v = row.chroma[x & ~1], u = row.chroma[x | 1];
    const uint32_t info[4] = {row.info0[i0], row.info0[i1], row.info1[i0], row.info1[i1]};
    const int depth[4] = {row.depth0[i0], row.depth0[i1], row.depth1[i0], row.depth1[i1]};
    const int w[4] = {
        SampleWeight(bx0, by0, Distance(y, v, u, info[0], t.chroma_weight), info[0], t),
        SampleWeight(fx, by0, Distance(y, v, u, info[1], t.chroma_weight), info[1], t),
        SampleWeight(bx0, by1, Distance(y, v, u, info[2], t.chroma_weight), info[2], t),
        SampleWeight(fx, by1, Distance(y, v, u, info[3], t.chroma_weight), info[3], t)};
    const uint32_t sum = static_cast<uint32_t>(w[0] + w[1] + w[2] + w[3]);
    const uint32_t weighted =
        static_cast<uint32_t>(w[0] * depth[0] + w[1] * depth[1] + w[2] * depth[2] + w[3] * depth[3]);
    const int d = sum == 0 ? Lerp8(Lerp8(depth[0], depth[1], fx), Lerp8(depth[2], depth[3], fx),
                                   row.fy)
                           : static_cast<int>((weighted + sum / 2) / sum);
    row.out[x] = t.by_depth[d];
  }
}

void RefineBilinearRow_C(const RefineRow& row, const RefineColumns& cols, const RefineTables& t,
                         int from, int to) {
  for (int x = from; x < to; ++x) {
    const int i0 = cols.ix[x], i1 = cols.ix1[x], fx = cols.fx[x];
    const int top = Lerp8(row.depth0[i0], row.depth0[i1], fx);
    row.out[x] = t.by_depth[Lerp8(top, Lerp8(row.depth1[i0], row.depth1[i1], fx), row.fy)];
  }
}

void CellColourSums_C(const uint8_t* luma, const uint8_t* chroma, const int32_t* cell, int from,
                      int to, uint32_t* sums_y, uint32_t* sums_v, uint32_t* sums_u) {
  for (int x = from; x < to; ++x) {
    sums_y[cell[x]] += luma[x];
    sums_v[cell[x]] += chroma[x & ~1];
    sums_u[cell[x]] += chroma[x | 1];
  }
}

const RefineRowKernels& ScalarRefineRowKernels() {
  static const RefineRowKernels kScalar = {RefineJointRow_C, RefineBilinearRow_C,
                                           CellColourSums_C};
  return kScalar;
}

}  // namespace dofra
