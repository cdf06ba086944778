// SSE4.1 bulk helpers of chroma compositing (the plane drivers and the
// scalar formulas are in blur/composite_uv.cpp).
#include <smmintrin.h>

#include "kernels/row_kernels.h"
#include "kernels/x86/composite_uv_x86.h"

namespace dofra {

namespace {

// Remainder: 8 pairs per step while all fit, then the driver's formula.
int X2Bulk_SSE41(const ChromaRun& run, int pairs) {
  return X2Steps8(run, 0, pairs, NamedX2(pairs));
}

template <int F>
void XFBulk_SSE41(const ChromaRun& run, int bulk_pairs) {
  XFSteps8<F>(run, 0, bulk_pairs, NamedXF<F>(bulk_pairs));
}

// Horizontal step with 8-bit weights (left + right = 256, both fit u8).
// maddubs takes the weights unsigned and the samples biased to signed
// (s - 128): the sum L*left + R*right - 32768 stays in [-32768, 32512], and
// adding 0x8080 mod 2^16 gives L*left + R*right + 128 <= 65408 for the shift.
// Each part's four horizontal vectors serve all rows of the run before the
// next part.
void X6Bulk_SSE41(const ChromaRun& run, int bulk_pairs) {
  static constexpr Table16 kShuf[kX6Parts][2] = {
      {PairShuffle(X6First(0), 0), PairShuffle(X6First(0), 1)},
      {PairShuffle(X6First(1), 0), PairShuffle(X6First(1), 1)},
      {PairShuffle(X6First(2), 0), PairShuffle(X6First(2), 1)}};
  static constexpr UTable16 kWeights[kX6Parts] = {X6Weights(0), X6Weights(1), X6Weights(2)};
  const __m128i bias = _mm_set1_epi8(static_cast<char>(0x80));
  const __m128i unbias = _mm_set1_epi16(static_cast<int16_t>(0x8080));
  const int named = NamedX6(bulk_pairs);
  // u = 256 - fy except on fy = 0 rows, whose u wraps to 0: they blur to 0.
  __m128i fy7[kMaxRun];
  for (int i = 0; i < run.n; ++i) fy7[i] = _mm_set1_epi16(static_cast<int16_t>(run.fy[i] << 7));
  auto horizontal = [&](__m128i window, int part, int c) {
    const __m128i shuf = LoadTable(kShuf[part][c]);
    const __m128i sum =
        _mm_maddubs_epi16(LoadTable(kWeights[part]), _mm_shuffle_epi8(window, shuf));
    return _mm_srli_epi16(_mm_add_epi16(sum, unbias), 8);
  };
  __m128i top, bottom;
  auto load = [&](int p) {
    const int a = X6WindowByte(p);
    top = _mm_xor_si128(LoadWindow(run.s0 + a, named - a), bias);
    bottom = _mm_xor_si128(LoadWindow(run.s1 + a, named - a), bias);
  };
  auto part_rows = [&](int part, int p, auto store) {
    const __m128i u0 = horizontal(top, part, 0), u1 = horizontal(bottom, part, 0);
    const __m128i v0 = horizontal(top, part, 1), v1 = horizontal(bottom, part, 1);
    for (int i = 0; i < run.n; ++i) {
      if (run.fy[i] == 0) {
        store(run.row[i], p, _mm_setzero_si128(), _mm_setzero_si128());
      } else {
        store(run.row[i], p, Vertical(u0, u1, fy7[i]), Vertical(v0, v1, fy7[i]));
      }
    }
  };
  X6Walk(bulk_pairs, load, part_rows, BlendStore16, BlendStore8);
}

}  // namespace

void FillCompositeUV_SSE41(RowKernels* k) {
  k->chroma_x2_bulk = X2Bulk_SSE41;
  k->chroma_x4_bulk = XFBulk_SSE41<4>;
  k->chroma_x6_bulk = X6Bulk_SSE41;
  k->chroma_x8_bulk = XFBulk_SSE41<8>;
}

}  // namespace dofra
