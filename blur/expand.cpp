// Border expansion ahead of the box filter: the small plane is copied into a
// buffer with r replicated rows above and below and r replicated samples (for
// chroma, r replicated pairs) left and right, so the filter never tests edges.
// Only whole-row block copies and block fills; nothing is computed per pixel.
#include <cstring>

#include "blur/kernels.h"

namespace dofra {

namespace {

inline int ClampRow(int row, int h) { return row < 0 ? 0 : (row >= h ? h - 1 : row); }

// Padded row p holds source row clamp(p - r, 0, h - 1): the edge fills repeat
// the first or last row, every other row is a plain copy.
void CopyRows(const uint8_t* src, uint8_t* dst, int w, int h, int r, int stride, int border,
              int first, int last) {
  for (int p = first; p <= last; ++p) {
    const int row = ClampRow(p - r, h);
    std::memcpy(dst + static_cast<size_t>(p) * stride + border, src + static_cast<size_t>(row) * w,
                static_cast<size_t>(w));
  }
}

// Luma sides: r copies of the row's first and last image byte.
void FillSidesY(uint8_t* dst, int w, int r, int first, int last) {
  const int stride = w + 2 * r;
  for (int p = first; p <= last; ++p) {
    uint8_t* row = dst + static_cast<size_t>(p) * stride;
    std::memset(row, row[r], static_cast<size_t>(r));
    std::memset(row + r + w, row[r + w - 1], static_cast<size_t>(r));
  }
}

// Chroma sides: r copies of the first and last pair, copied as pairs so the
// two components never mix.
void FillSidesUV(uint8_t* dst, int w, int r, int first, int last) {
  const int border = 2 * r;
  const int stride = w + 2 * border;
  for (int p = first; p <= last; ++p) {
    uint8_t* row = dst + static_cast<size_t>(p) * stride;
    const uint8_t* head = row + border;
    const uint8_t* tail = row + border + w - 2;
    for (int i = 0; i < r; ++i) {
      std::memcpy(row + 2 * i, head, 2);
      std::memcpy(row + border + w + 2 * i, tail, 2);
    }
  }
}

}  // namespace

}  // namespace dofra

// The members keep their global names; their bodies run the layer's code.
using namespace dofra;

// Padded rows from..to + 2r hold source rows from - r..to + r. At a band's
// inner edge the real neighbouring rows are copied; at the plane's edges the
// first or last row is repeated. Neighbours outside the plane for other
// ranges (0 < from < r, h - 1 - r < to < h - 1) are clamped to it.
void __ExpandY(const uint8_t* src, uint8_t* dst, int w, int h, int r, int from, int to) {
  const int stride = w + 2 * r;
  // Top: the fill with row 0 when from is 0, else the r rows above the band.
  if (r > 0) CopyRows(src, dst, w, h, r, stride, r, from, from + r - 1);
  if (from <= to) CopyRows(src, dst, w, h, r, stride, r, from + r, to + r);
  // Bottom: the fill with row h - 1 when to is h - 1, else the r rows below.
  if (r > 0) CopyRows(src, dst, w, h, r, stride, r, to + r + 1, to + 2 * r);
  // After the rows are in place, so the corners become the corner pixels.
  if (to + 2 * r >= from && r > 0) FillSidesY(dst, w, r, from, to + 2 * r);
}

// Padded rows from..to + 2r, each holding source row clamp(p - r, 0, h - 1),
// with borders of r pairs. Only the band's rows are written, like the luma
// routine, so concurrent chroma bands touch the shared buffer only where
// their rows overlap.
void __ExpandUV(const uint8_t* src, uint8_t* dst, int w, int h, int r, int from, int to) {
  if (h <= 0) return;
  const int stride = w + 4 * r;
  const int last = to + 2 * r;
  CopyRows(src, dst, w, h, r, stride, 2 * r, from, last);
  if (r > 0) FillSidesUV(dst, w, r, from, last);
}
