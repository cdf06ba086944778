// SSE4.1 bulk helpers of luma compositing (the plane drivers and the scalar
// formulas are in blur/composite_y.cpp).
#include <smmintrin.h>

#include "kernels/row_kernels.h"
#include "kernels/x86/composite_y_x86.h"

namespace dofra {

namespace {

// Vertical step and blend of strip columns [0, len) at row column c0, len a
// multiple of 8; 16 columns per step, remainder one group of 8.
// (h0*(256-fy) + h1*fy + 128) >> 8 == h0 + ((d*fy + 128) >> 8)
// == h0 + mulhrs(d, fy << 7); fy << 7 <= 32640 fits int16.
void VerticalBlendStrip(const LumaRow& q, int c0, int len, const StripCache& k) {
  const __m128i fy7 = _mm_set1_epi16(static_cast<int16_t>(q.fy << 7));
  auto vertical = [&](int i) {
    const __m128i h0 = _mm_load_si128(reinterpret_cast<const __m128i*>(k.h0 + i));
    const __m128i d = _mm_load_si128(reinterpret_cast<const __m128i*>(k.d + i));
    return _mm_add_epi16(h0, _mm_mulhrs_epi16(d, fy7));
  };
  int i = 0;
  for (; i + 16 <= len; i += 16) BlendStore16(q, c0 + i, vertical(i), vertical(i + 8));
  if (i < len) BlendStore8(q, c0 + i, vertical(i));
}

template <int F>
void XFHorizontalStrip(const LumaRow& q, int c0, int len, int named, StripCache& k) {
  XFHorizontalSteps16<F>(q, c0, 0, len, named, k);
}

// Bulk columns [1 + g0, 1 + g0 + len), g0 and len multiples of 24; no
// remainder.
void X6HorizontalStrip(const LumaRow& q, int g0, int len, int named, StripCache& k) {
  for (int i = 0; i < len; i += kX6Group) X6HorizontalGroup(q, g0, i, named, k);
}

// Blends bulk columns [1, 1 + n) with the blurred value 0 (a row with fy = 0).
void X6ZeroRow(const LumaRow& q, int n) {
  int c = 1;
  for (; c + 16 <= 1 + n; c += 16) BlendStore16(q, c, _mm_setzero_si128(), _mm_setzero_si128());
  if (c < 1 + n) BlendStore8(q, c, _mm_setzero_si128());
}

}  // namespace

void FillCompositeY_SSE41(RowKernels* k) { FillCompositeYLoops(k); }

}  // namespace dofra
