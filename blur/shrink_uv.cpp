// Chroma shrink: separable weighted averaging of the interleaved chroma plane,
// a horizontal pass into the intermediate rows, then a vertical pass into the
// small plane. Every pass rounds by itself (add half, shift). Widths count
// bytes; a pair is one U byte and one V byte, and channels never mix.
//
// Taps per factor, both passes:   x2: 1 1          (+1) >> 1
//                                 x4: 1 1 1 1      (+2) >> 2
//                                 x6: 1 1 2 2 1 1  (+4) >> 3
//                                 x8: 1 x 8        (+4) >> 3
// A weighted sum is at most 8 * 255 = 2040: fits in 16 bits, never clamps.
#include <cstdint>

#include "blur/kernels.h"
#include "kernels/fixed_point.h"
#include "kernels/row_kernels.h"

namespace dofra {

namespace {

constexpr int kBytesPerPair = 2;

// Weighted, rounded mean of kFactor same-channel bytes `stride` bytes apart.
template <int kFactor>
inline uint8_t Tap(const uint8_t* s, int stride) {
  int sum = 1 << (Taps<kFactor>::kShift - 1);
  for (int i = 0; i < kFactor; ++i) sum += Taps<kFactor>::kWeight[i] * s[i * stride];
  return static_cast<uint8_t>(sum >> Taps<kFactor>::kShift);
}

// Horizontal pass over pairs [p_begin, p_end) of one row; pair p's group
// starts at source byte p * group_bytes and spans kFactor pairs.
template <int kFactor>
void HorizontalPairs_C(const uint8_t* src, uint8_t* dst, int p_begin, int p_end, int group_bytes) {
  for (int p = p_begin; p < p_end; ++p) {
    const uint8_t* g = src + p * group_bytes;
    dst[kBytesPerPair * p] = Tap<kFactor>(g, kBytesPerPair);
    dst[kBytesPerPair * p + 1] = Tap<kFactor>(g + 1, kBytesPerPair);
  }
}

// Vertical pass over bytes [x_begin, x_end) of one small row; `rows` points
// at the first of kFactor intermediate rows `stride` bytes apart.
template <int kFactor>
void VerticalBytes_C(const uint8_t* rows, uint8_t* dst, int x_begin, int x_end, int stride) {
  for (int x = x_begin; x < x_end; ++x) dst[x] = Tap<kFactor>(rows + x, stride);
}

// The factor-2 member deliberately computes no column step: pair p always
// starts at source byte 4p, and its vertical pass covers all w bytes.
constexpr int kX2GroupBytes = 2 * kBytesPerPair;

void ShrinkX2(const RowKernels& k, const uint8_t* src, uint8_t* small, uint8_t* tmp, int W, int H,
              int w, int h, int y0, int y1) {
  const int ry = H / h;
  const int pairs = w / kBytesPerPair;
  const int r_last = ry * y1 + 1;
  for (int r = ry * y0; r <= r_last; ++r) {
    k.chroma_shrink_horizontal[0](src + r * W, tmp + r * w, 0, pairs, kX2GroupBytes);
  }
  for (int y = y0; y <= y1; ++y)
    k.chroma_shrink_vertical[0](tmp + ry * y * w, small + y * w, 0, w, w);
}

// x4, x6, x8: group start 2 * p * cx, 2 * floor(w / 2) bytes in both passes,
// nothing at all for w < 2. The row helpers differ between the formula and
// the vector member; the pass structure is shared.
template <int kFactor>
void ShrinkPairs(const RowKernels& k, const uint8_t* src, uint8_t* small, uint8_t* tmp, int W,
                 int H, int w, int h, int y0, int y1) {
  if (w < kBytesPerPair) return;
  const int cx = W / w;
  const int ry = H / h;
  const int pairs = w / kBytesPerPair;
  const int r_last = ry * y1 + kFactor - 1;
  for (int r = ry * y0; r <= r_last; ++r) {
    k.chroma_shrink_horizontal[FactorSlot(kFactor)](src + r * W, tmp + r * w, 0, pairs,
                                                    kBytesPerPair * cx);
  }
  for (int y = y0; y <= y1; ++y) {
    k.chroma_shrink_vertical[FactorSlot(kFactor)](tmp + ry * y * w, small + y * w, 0,
                                                  kBytesPerPair * pairs, w);
  }
}

}  // namespace

void FillShrinkUV_C(RowKernels* k) {
  k->chroma_shrink_horizontal[0] = HorizontalPairs_C<2>;
  k->chroma_shrink_horizontal[1] = HorizontalPairs_C<4>;
  k->chroma_shrink_horizontal[2] = HorizontalPairs_C<6>;
  k->chroma_shrink_horizontal[3] = HorizontalPairs_C<8>;
  k->chroma_shrink_vertical[0] = VerticalBytes_C<2>;
  k->chroma_shrink_vertical[1] = VerticalBytes_C<4>;
  k->chroma_shrink_vertical[2] = VerticalBytes_C<6>;
  k->chroma_shrink_vertical[3] = VerticalBytes_C<8>;
}

}  // namespace dofra

// The members keep their global names; their bodies run the layer's code.
using namespace dofra;

DOFRA_SHRINK(__BiLinearInterp_UV_x2_c) {
  ShrinkX2(ScalarRowKernels(), src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_UV_x2_neon) {
  ShrinkX2(ActiveRowKernels(), src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_UV_x4_c) {
  ShrinkPairs<4>(ScalarRowKernels(), src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_UV_x6_c) {
  ShrinkPairs<6>(ScalarRowKernels(), src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_UV_x8_c) {
  ShrinkPairs<8>(ScalarRowKernels(), src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_UV_x4) {
  ShrinkPairs<4>(ActiveRowKernels(), src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_UV_x6) {
  ShrinkPairs<6>(ActiveRowKernels(), src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_UV_x8) {
  ShrinkPairs<8>(ActiveRowKernels(), src, small, tmp, W, H, w, h, y0, y1);
}
