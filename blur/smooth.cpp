// Box smoothing of radius r through an integral image, for one band of rows.
// The table is anchored at the band's first row, so a band gives the same
// rows as a whole-image call; sums are unsigned 32-bit and wrap, which is
// harmless because only differences of them are used.
//
// Both planes share one body: `kLead` is the distance in bytes between a
// sample and its same-channel neighbour (1 for luma, 2 for interleaved
// pairs), so the box spans `2r * kLead` bytes across.
//
// The scalar members are the table formula itself. The vectorised members
// reach the same box sums with a sliding window in 16-bit lanes when they
// fit (r <= 7); only the box sum enters the output, so any exact way of
// summing gives the same bytes. They leave the integral scratch unwritten
// then; larger radii go through the table as the scalar members do.
#include <cstring>

#include "blur/kernels.h"
#include "kernels/row_kernels.h"

namespace dofra {

namespace {

constexpr uint32_t kHalfQ10 = 512;  // rounding of a Q10 product
constexpr int kQ10Shift = 10;

// Two rounded Q10 steps, one per box dimension, in wrapping 32-bit unsigned
// arithmetic; the low 8 bits are stored by the caller (no saturation).
inline uint32_t Normalise(uint32_t sum, uint32_t w) {
  const uint32_t t = (sum * w + kHalfQ10) >> kQ10Shift;
  return (t * w + kHalfQ10) >> kQ10Shift;
}

// Adds one expanded row to the column sums and stores their running sum
// along the row (per channel), from entry `begin` on.
template <int kLead>
void IntegralRow_C(const uint8_t* expanded, uint32_t* column_sums, uint32_t* out, int begin,
                   int n) {
  for (int q = begin; q < n; ++q) {
    column_sums[q] += expanded[q];
    out[q] = column_sums[q] + (q >= kLead ? out[q - kLead] : 0u);
  }
}

// Box sums of one output row from integral rows `bottom` (row y + 2r) and
// `top` (row y - 1; absent for the anchor row): S = B[x+span] - B[x-lead] -
// T[x+span] + T[x-lead], with the terms left of column 0 dropped.
template <int kLead, bool kTop>
void BoxRow_C(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, int begin, int end,
              int span, uint32_t w) {
  for (int x = begin; x < end; ++x) {
    uint32_t sum = bottom[x + span];
    if (kTop) sum -= top[x + span];
    if (x >= kLead) {
      sum -= bottom[x - kLead];
      if (kTop) sum += top[x - kLead];
    }
    dst[x] = static_cast<uint8_t>(Normalise(sum, w));
  }
}

// Sliding box: rather than through the table, S is summed directly. Per
// strip of columns, 16-bit column sums over expanded rows y..y+2r slide down
// one row per output row (add the new row, drop the old one), then the 2r + 1
// column sums of a box give S. Exact while S fits a word:
// (2 * 7 + 1)^2 * 255 = 57375 < 2^16; a column sum is at most 15 * 255.
constexpr int kSlideMaxRadius = 7;
constexpr int kStripOutputs = 1024;  // a 960-wide small plane is one strip
constexpr int kMaxSpan = 2 * kSlideMaxRadius * 2;

void SlideAdd_C(const uint8_t* add, uint16_t* sums, int begin, int m) {
  for (int q = begin; q < m; ++q) sums[q] = static_cast<uint16_t>(sums[q] + add[q]);
}

void SlideAddSub_C(const uint8_t* add, const uint8_t* sub, uint16_t* sums, int begin, int m) {
  for (int q = begin; q < m; ++q) sums[q] = static_cast<uint16_t>(sums[q] + add[q] - sub[q]);
}

template <int kLead>
void SlideBoxRow_C(const uint16_t* sums, uint8_t* dst, int begin, int n, int r, uint32_t w) {
  for (int x = begin; x < n; ++x) {
    uint32_t sum = 0;
    for (int j = 0; j <= 2 * r; ++j) sum += sums[x + j * kLead];
    dst[x] = static_cast<uint8_t>(Normalise(sum, w));
  }
}

// Rows y0..y1 of the destination from expanded rows y0..y1 + 2r, strip by
// strip; a strip reads expanded columns x0..x0 + n + span - 1 only.
template <int kLead>
void SlideBand(const RowKernels& k, const uint8_t* expanded, uint8_t* dst, int W, int r, uint32_t w,
               int y0, int y1) {
  const int span = 2 * r * kLead;
  const size_t pitch = static_cast<size_t>(W + span);
  const auto box_row = k.slide_box_row[kLead - 1];
  uint16_t sums[kStripOutputs + kMaxSpan];
  for (int x0 = 0; x0 < W; x0 += kStripOutputs) {
    const int n = W - x0 < kStripOutputs ? W - x0 : kStripOutputs;
    const int m = n + span;
    const uint8_t* strip = expanded + x0;
    std::memset(sums, 0, static_cast<size_t>(m) * sizeof(sums[0]));
    for (int p = y0; p <= y0 + 2 * r && y0 <= y1; ++p) k.slide_add(strip + p * pitch, sums, 0, m);
    for (int y = y0; y <= y1; ++y) {
      box_row(sums, dst + static_cast<size_t>(y) * W + x0, 0, n, r, w);
      if (y < y1) k.slide_add_sub(strip + (y + 2 * r + 1) * pitch, strip + y * pitch, sums, 0, m);
    }
  }
}

// Expand rows y0..y1 + 2r, build integral rows y0..y1 + 2r (absolute row
// numbers) with the column sums in row H + 2r, and write rows y0..y1.
template <int kLead>
void Smooth(const RowKernels& k, ExpandFn expand, const uint8_t* src, uint8_t* expanded,
            uint8_t* dst, int W, int H, const uint16_t* kernel_weights, int r, uint8_t* integral,
            int y0, int y1) {
  expand(src, expanded, W, H, r, y0, y1);
  const int span = 2 * r * kLead;
  const int stride = W + span;
  const size_t pitch = static_cast<size_t>(stride);
  uint32_t* table = reinterpret_cast<uint32_t*>(integral);
  uint32_t* column_sums = table + static_cast<size_t>(H + 2 * r) * pitch;
  std::memset(column_sums, 0, pitch * sizeof(uint32_t));
  const uint32_t w = kernel_weights[0];
  // Output row y reads integral rows y - 1 and y + 2r, so it follows right
  // after row y + 2r is built, while the rows it reads are still in cache.
  // The anchor row is built even for an empty band.
  const int last = y1 + 2 * r > y0 ? y1 + 2 * r : y0;
  for (int p = y0; p <= last; ++p) {
    uint32_t* row = table + p * pitch;
    k.integral_row[kLead - 1](expanded + p * pitch, column_sums, row, 0, stride);
    const int y = p - 2 * r;
    if (y < y0 || y > y1) continue;
    uint8_t* out = dst + y * static_cast<size_t>(W);
    if (y == y0) {
      k.box_row_anchor[kLead - 1](nullptr, row, out, 0, W, span, w);
    } else {
      k.box_row[kLead - 1](row - (2 * r + 1) * pitch, row, out, 0, W, span, w);
    }
  }
}

// The vectorised member: the sliding box within its word budget, the
// integral table otherwise.
template <int kLead>
void SmoothFast(ExpandFn expand, const uint8_t* src, uint8_t* expanded, uint8_t* dst, int W, int H,
                const uint16_t* kernel_weights, int r, uint8_t* integral, int y0, int y1) {
  const RowKernels& k = ActiveRowKernels();
  if (r <= kSlideMaxRadius) {
    expand(src, expanded, W, H, r, y0, y1);
    SlideBand<kLead>(k, expanded, dst, W, r, kernel_weights[0], y0, y1);
    return;
  }
  Smooth<kLead>(k, expand, src, expanded, dst, W, H, kernel_weights, r, integral, y0, y1);
}

}  // namespace

void FillSmooth_C(RowKernels* k) {
  k->integral_row[0] = IntegralRow_C<1>;
  k->integral_row[1] = IntegralRow_C<2>;
  k->box_row_anchor[0] = BoxRow_C<1, false>;
  k->box_row_anchor[1] = BoxRow_C<2, false>;
  k->box_row[0] = BoxRow_C<1, true>;
  k->box_row[1] = BoxRow_C<2, true>;
  k->slide_add = SlideAdd_C;
  k->slide_add_sub = SlideAddSub_C;
  k->slide_box_row[0] = SlideBoxRow_C<1>;
  k->slide_box_row[1] = SlideBoxRow_C<2>;
}

}  // namespace dofra

// The members keep their global names; their bodies run the layer's code.
using namespace dofra;

// The kernel count (seventh argument) is never read: r and entry 0 of the
// weights define the filter.
DOFRA_SMOOTH(__GaussianSmoothImage_Y_integral_image_neon) {
  (void)count;
  SmoothFast<1>(__ExpandY, src, expanded, dst, W, H, kernel_weights, r, integral, row_start,
                row_end);
}

DOFRA_SMOOTH(__GaussianSmoothImage_Y_integral_image_c) {
  (void)count;
  Smooth<1>(ScalarRowKernels(), __ExpandY, src, expanded, dst, W, H, kernel_weights, r, integral,
            row_start, row_end);
}

DOFRA_SMOOTH(__GaussianSmoothImage_UV_integral_image_neon) {
  (void)count;
  SmoothFast<2>(__ExpandUV, src, expanded, dst, W, H, kernel_weights, r, integral, row_start,
                row_end);
}

DOFRA_SMOOTH(__GaussianSmoothImage_UV_integral_image_c) {
  (void)count;
  Smooth<2>(ScalarRowKernels(), __ExpandUV, src, expanded, dst, W, H, kernel_weights, r, integral,
            row_start, row_end);
}
