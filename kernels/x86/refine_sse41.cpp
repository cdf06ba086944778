// SSE4.1 row helpers of the refined weight map (the driver and the scalar
// formulas are in weight/refine_map.cpp and weight/refine_rows.cpp).
#include <smmintrin.h>

#include "kernels/row_kernels.h"
#include "kernels/x86/refine_x86.h"

namespace dofra {

namespace {

// 8 columns per step (16-bit lanes); remainder: the last step moved back
// (RefineWalk), the formula on runs shorter than one step.
void JointRow_SSE41(const RefineRow& row, const RefineColumns& cols, const RefineTables& t,
                    int from, int to) {
  const RowWeights rw = RowWeightsOf(row, t);
  RefineWalk<kLanes>(
      cols, from, to, [&](int a, int b) { JointFormula(row, cols, t, a, b); },
      [&](int x) { StoreWeights8(row.out + x, JointDepth8(row, cols, t, rw, x), t.weights); });
}

// Steps of 8 columns, as BilinearWalk8 lays them out.
void BilinearRow_SSE41(const RefineRow& row, const RefineColumns& cols, const RefineTables& t,
                       int from, int to) {
  const __m128i fy7 = _mm_set1_epi16(static_cast<int16_t>(row.fy << 7));
  BilinearWalk8(row, cols, t, from, to, [&](int x, int base) {
    StoreWeights8(row.out + x, BilinearDepth8(row, cols, fy7, x, base), t.weights);
  });
}

// 16 columns per step, then one of 8; remainder: the formula on the last
// columns. At most 257 rows of bytes: no 16-bit sum overflows.
void ColumnSums_SSE41(const uint8_t* const* rows, int n, uint16_t* sums, int from, int to) {
  const __m128i zero = _mm_setzero_si128();
  int x = from;
  for (; x + kRefineGroup <= to; x += kRefineGroup) {
    __m128i lo = zero, hi = zero;
    for (int r = 0; r < n; ++r) {
      const __m128i v = Load128(rows[r] + x);
      lo = _mm_add_epi16(lo, _mm_unpacklo_epi8(v, zero));
      hi = _mm_add_epi16(hi, _mm_unpackhi_epi8(v, zero));
    }
    Store128(sums + x, lo);
    Store128(sums + x + kLanes, hi);
  }
  if (x + kLanes <= to) {
    __m128i lo = zero;
    for (int r = 0; r < n; ++r) lo = _mm_add_epi16(lo, _mm_cvtepu8_epi16(Load64(rows[r] + x)));
    Store128(sums + x, lo);
    x += kLanes;
  }
  static const ColumnSumsFn formula = ScalarRowKernels().refine_column_sums;
  if (x < to) formula(rows, n, sums, x, to);
}

}  // namespace

void FillRefine_SSE41(RowKernels* k) {
  k->refine_joint_row = JointRow_SSE41;
  k->refine_bilinear_row = BilinearRow_SSE41;
  k->refine_column_sums = ColumnSums_SSE41;
}

}  // namespace dofra
