// The frame-size check walks the row indices and the column indices that each
// of the four band tasks uses in every stage, without touching pixels: in every
// kernel the rows a sample comes from depend only on the output row and the
// columns only on the output column, so both walks are linear.
#include "blur/frame_check.h"

#include <algorithm>
#include <cstdint>

#include "kernels/fixed_point.h"
#include "kernels/row_kernels.h"

namespace dofra {

namespace {

constexpr int kBandCount = 2;  // the integral scratch sizes assume two bands
constexpr int64_t kInt32Max = 0x7fffffff;
constexpr int64_t kFixedOne = kPosOne;  // 1.0 in 16.16 positions, in 64 bits
constexpr int kLuma = 0;
constexpr int kChroma = 1;

constexpr char kBadFactor[] = "scale factor must be 2, 4, 6 or 8";
constexpr char kBadKernel[] = "kernel size must be positive";
constexpr char kBadSize[] = "frame size must be positive";
constexpr char kOddWidth[] = "frame width must be even";
constexpr char kTooSmall[] = "frame too small for the scale factor";
constexpr char kSizeOverflow[] = "buffer sizes overflow 32 bits";
constexpr char kOddSmallWidth[] = "width / scale factor must be even";
constexpr char kPositionOverflow[] = "frame too large for 16.16 positions";
constexpr const char* kShrinkOutside[] = {"luma shrink reads outside the frame",
                                          "chroma shrink reads outside the frame"};
constexpr const char* kSmoothUnshrunk[] = {
    "luma smoothing reads a small row its band did not shrink",
    "chroma smoothing reads a small row its band did not shrink"};
constexpr const char* kWriteOutside[] = {"luma compositing writes outside the plane",
                                         "chroma compositing writes outside the plane"};
constexpr const char* kRowUnsmoothed[] = {
    "luma compositing reads a small row its band did not smooth",
    "chroma compositing reads a small row its band did not smooth"};
constexpr const char* kColumnOutside[] = {
    "luma compositing reads past the small plane's columns",
    "chroma compositing reads past the small plane's columns"};
constexpr const char* kBandsDisagree[] = {"luma bands write one row with different values",
                                          "chroma bands write one row with different values"};

// One plane as its band tasks see it. Columns count samples: bytes for luma,
// pairs for chroma (the column rules of chroma are the luma rules in pairs).
struct Plane {
  int kind;        // kLuma or kChroma
  int width;       // bytes per row, W
  int height;      // rows
  int small_w;     // bytes per small row, sw
  int small_h;     // small rows
  int cols;        // samples per row
  int small_cols;  // samples per small row
  int s;
  int r;
};

struct Band {
  int first, last;              // plane rows, inclusive
  int small_first, small_last;  // rows it smooths
  int y0, y1;                   // rows it shrinks
};

Band MakeBand(const Plane& p, int b) {
  const int rows = p.height / kBandCount;
  Band band;
  band.first = b * rows;
  band.last = band.first + rows - 1;
  const int q = band.first / p.s;
  band.small_first = q < 2 ? 0 : q - 1;
  band.small_last = std::min(band.last / p.s + 1, p.small_h - 1);
  band.y0 = std::max(band.small_first - p.r, 0);
  band.y1 = std::min(band.small_last + p.r, p.small_h - 1);
  return band;
}

bool Within(int64_t lo, int64_t hi, int64_t min, int64_t max) {
  return lo > hi || (lo >= min && hi <= max);
}

// First source byte of small column (pair) x, per shrink member; reads then
// span `taps` samples of `unit` bytes each from there.
int64_t GroupStart(const Plane& p, int x, int cx) {
  constexpr int kGroup = 8;  // vector group of the x2/x4 luma members
  if (p.kind == kChroma) return p.s == 2 ? 4 * x : 2 * int64_t{x} * cx;
  const int x8 = kGroup * (p.small_w / kGroup);
  if (p.s == 2) return x < x8 ? 2 * x : 2 * int64_t{x8} + int64_t{x - x8} * cx;
  if (p.s == 4 && x < x8) return int64_t{x / kGroup} * kGroup * cx + 4 * (x % kGroup);
  return int64_t{x} * cx;
}

// Source rows ry*y0 .. ry*y1 + s - 1 and each group's s samples lie in the plane.
bool ShrinkInside(const Plane& p, const Band& b) {
  const int cx = p.width / p.small_w;
  const int ry = p.height / p.small_h;
  if (!Within(int64_t{ry} * b.y0, int64_t{ry} * b.y1 + p.s - 1, 0, p.height - 1)) return false;
  const int unit = p.kind == kChroma ? 2 : 1;
  for (int x = 0; x < p.small_cols; ++x) {
    const int64_t start = GroupStart(p, x, cx);
    if (start < 0 || start + int64_t{unit} * p.s - 1 > p.width - 1) return false;
  }
  return true;
}

// Small rows the border expansion of a band reads. The luma expansion copies
// real neighbour rows inside the plane (unclamped); the chroma one clamps.
bool ExpansionReadsShrunkRows(const Plane& p, const Band& b) {
  const int from = b.small_first, to = b.small_last, r = p.r, h = p.small_h;
  if (p.kind == kChroma) {
    const int lo = std::clamp(from - r, 0, h - 1), hi = std::clamp(to + r, 0, h - 1);
    return Within(lo, hi, b.y0, b.y1);
  }
  const bool top_ok =
      r == 0 || (from == 0 ? Within(0, 0, b.y0, b.y1) : Within(from - r, from - 1, b.y0, b.y1));
  const bool bottom_ok = r == 0 || (to == h - 1 ? Within(h - 1, h - 1, b.y0, b.y1)
                                                : Within(to + 1, to + r, b.y0, b.y1));
  return top_ok && bottom_ok && Within(from, to, b.y0, b.y1);
}

// How one output row is composited. Two bands writing the same row agree when
// rule, sample rows and vertical fraction agree (the column rules follow the rule).
// Row 0 of x6 follows the bottom-row rule on small row 0, so it shares kEdgeRows.
enum RowRule { kNotWritten, kBox, kMain, kEdgeRows };
struct RowUse {
  RowRule rule;
  int r0, r1, fy;
};

bool operator!=(const RowUse& a, const RowUse& b) {
  return a.rule != b.rule || a.r0 != b.r0 || a.r1 != b.r1 || a.fy != b.fy;
}

// Edge width of the bilinear members: vertical-only columns and bottom rows.
int EdgeWidth(int s) { return s == 6 ? kX6Edge : s; }

RowUse RowOf(const Plane& p, const Band& b, int row, int dy) {
  RowUse use{kNotWritten, 0, 0, 0};
  if (p.s == 2) {
    // Rows first..last-2 unclamped, then last-1 and last with r1 clamped.
    const bool main = row >= b.first && row <= b.last - 2;
    const bool tail = row == b.last || row == b.last - 1;
    if (!main && !tail) return use;
    const int r0 = row >> 1;
    return {kBox, r0, tail ? std::min(r0 + 1, p.small_h - 1) : r0 + 1, 0};
  }
  const int edge = EdgeWidth(p.s);
  const int64_t pos = int64_t{row} * dy;
  const int r0 = static_cast<int>(PosInt(pos));
  const int fy = PosFrac(pos);
  const bool ends_plane = b.last == p.height - 1;
  const bool x6 = p.s == 6;
  const int main_first = x6 && b.first == 0 ? 1 : b.first;
  const int main_last = ends_plane ? p.height - 1 - edge : b.last;
  if (ends_plane && row >= p.height - edge && row <= p.height - 1) return {kEdgeRows, r0, r0, 0};
  if (row >= main_first && row <= main_last) {
    // Luma x4/x8 clamp the lower row; chroma and x6 do not.
    const bool clamp = p.kind == kLuma && !x6;
    return {kMain, r0, clamp ? std::min(r0 + 1, p.small_h - 1) : r0 + 1, fy};
  }
  if (x6 && b.first == 0 && row == 0) return {kEdgeRows, 0, 0, 0};
  return use;
}

// Small columns read by output column c lie in 0 .. small_cols - 1.
bool ReadsInside(const Plane& p, int64_t x0, bool pair) {
  return x0 >= 0 && x0 + (pair ? 1 : 0) <= p.small_cols - 1;
}

int64_t Position(int c, int dx) { return PosInt(int64_t{c} * dx); }

// Every column written under `rule` lies in the plane and reads inside the small plane.
bool ColumnsInside(const Plane& p, RowRule rule, int dx) {
  const int n = p.cols;
  if (rule == kBox) {
    if (n < 2) return false;  // the last two columns would start before column 0
    for (int c = 0; c < n; ++c)
      if (!ReadsInside(p, c >> 1, c <= n - 3)) return false;
    return true;
  }
  const int edge = EdgeWidth(p.s);
  if (n < edge) return false;
  for (int c = n - edge; c < n; ++c)
    if (!ReadsInside(p, Position(c, dx), false)) return false;
  int bulk_first = 0, bulk_last = -1;  // columns on the fixed phase tables
  int first_interp = 0;
  if (p.s == 6) {
    if (!ReadsInside(p, 0, false)) return false;  // column 0 rule
    first_interp = 1;
    if (rule == kMain) {
      const int margin = (p.kind == kChroma ? 2 : 1) * (1 + kX6Edge);  // column (pair) 0, edge
      const int bulk_bytes = kX6Group * ((p.width - margin) / kX6Group);
      bulk_first = 1;
      bulk_last = p.kind == kChroma ? bulk_bytes / 2 : bulk_bytes;
    }
    for (int c = bulk_first; c <= bulk_last; ++c)
      if (!ReadsInside(p, (c - 1) / 6, true)) return false;
  } else if (rule == kMain) {
    // Bulk end: (W - F) or, for chroma, (W - 2F) bytes rounded down to the group.
    const int group = p.kind == kChroma ? ChromaGroupBytes(p.s) : kBulkGroup;
    const int bytes = p.width - (p.kind == kChroma ? 2 * p.s : p.s);
    const int bulk_end = group * (bytes / group);
    bulk_last = (p.kind == kChroma ? bulk_end / 2 : bulk_end) - 1;
    for (int c = 0; c <= bulk_last; ++c)
      if (!ReadsInside(p, c / p.s, true)) return false;
  }
  for (int c = std::max(first_interp, bulk_last + 1); c <= n - edge - 1; ++c)
    if (!ReadsInside(p, Position(c, dx), true)) return false;
  return true;
}

const char* CompositeRefusal(const Plane& p, const Band bands[kBandCount]) {
  const int dx = static_cast<int>(int64_t{p.small_w} * kFixedOne / p.width);
  const int dy = static_cast<int>(int64_t{p.small_h} * kFixedOne / p.height);
  bool used[kEdgeRows + 1] = {};
  for (int i = 0; i < kBandCount; ++i) {
    const Band& b = bands[i];
    const int lo = std::min(b.first - 1, p.height - 8), hi = std::max(b.last, p.height - 1);
    for (int row = lo; row <= hi; ++row) {
      const RowUse use = RowOf(p, b, row, dy);
      if (use.rule == kNotWritten) continue;
      if (row < 0 || row > p.height - 1) return kWriteOutside[p.kind];
      const int top = std::max(b.small_first, 0), bottom = std::min(b.small_last, p.small_h - 1);
      if (!Within(std::min(use.r0, use.r1), std::max(use.r0, use.r1), top, bottom))
        return kRowUnsmoothed[p.kind];
      used[use.rule] = true;
      for (int j = 0; j < i; ++j) {
        const RowUse other = RowOf(p, bands[j], row, dy);
        if (other.rule != kNotWritten && other != use) return kBandsDisagree[p.kind];
      }
    }
  }
  for (int rule = kBox; rule <= kEdgeRows; ++rule)
    if (used[rule] && !ColumnsInside(p, static_cast<RowRule>(rule), dx)) {
      return p.cols < 2 || (p.s != 2 && p.cols < EdgeWidth(p.s)) ? kWriteOutside[p.kind]
                                                                 : kColumnOutside[p.kind];
    }
  return nullptr;
}

const char* PlaneRefusal(const Plane& p) {
  Band bands[kBandCount];
  for (int i = 0; i < kBandCount; ++i) {
    bands[i] = MakeBand(p, i);
    if (!ShrinkInside(p, bands[i])) return kShrinkOutside[p.kind];
    if (!ExpansionReadsShrunkRows(p, bands[i])) return kSmoothUnshrunk[p.kind];
  }
  return CompositeRefusal(p, bands);
}

// Product that saturates just past the 32-bit range (operands are non-negative
// and at most about 2^32, so the int64 product of two never overflows).
int64_t Mul(int64_t a, int64_t b) { return std::min(a * b, kInt32Max + 1); }

// The eight buffer sizes of the blur context and their sum, each product
// formed left to right in signed 32 bits as the context does.
bool SizesFit(int64_t w, int64_t h, int64_t sw, int64_t sh, int64_t r) {
  const int64_t two_r = 2 * r, four_r = 4 * r;
  const int64_t padded_w = sw + two_r, padded_uv = sw + four_r;
  const int64_t steps[] = {Mul(Mul(w, h), 3),
                           Mul(Mul(h, sw), 3),
                           Mul(Mul(sw, sh), 3),
                           Mul(padded_w, sh + two_r),
                           Mul(padded_uv, sh / 2 + two_r),
                           Mul(Mul(padded_w, sh + two_r + 1), 8),
                           Mul(Mul(padded_uv, sh / 2 + two_r + 1), 8)};
  if (four_r > kInt32Max || padded_uv > kInt32Max) return false;
  for (int64_t v : steps)
    if (v > kInt32Max) return false;
  const int64_t total =
      steps[0] / 2 + steps[1] / 2 + 2 * (steps[2] / 2) + steps[3] + steps[4] + steps[5] + steps[6];
  return total <= kInt32Max;
}

}  // namespace

const char* blur_frame_refusal(int width, int height, int scale_factor, int kernel_size) {
  const int s = scale_factor;
  if (s != 2 && s != 4 && s != 6 && s != 8) return kBadFactor;
  if (kernel_size < 1) return kBadKernel;  // the smoothing reads weight entry 0
  if (width <= 0 || height <= 0) return kBadSize;
  if (width % 2 != 0) return kOddWidth;
  const int sw = width / s, sh = height / s, r = kernel_size / 2;
  if (sw < 1 || sh / 2 < 1) return kTooSmall;  // the shrinks divide by both
  if (!SizesFit(width, height, sw, sh, r)) return kSizeOverflow;
  if (sw % 2 != 0) return kOddSmallWidth;
  // sw * 65536 and sh * 65536 are the 16.16 steps' numerators; every position
  // c * dx and row * dy stays below them.
  if (s != 2 && (sw > kInt32Max / kFixedOne || sh > kInt32Max / kFixedOne))
    return kPositionOverflow;
  const Plane luma{kLuma, width, height, sw, sh, width, sw, s, r};
  const Plane chroma{kChroma, width, height / 2, sw, sh / 2, width / 2, sw / 2, s, r};
  if (const char* why = PlaneRefusal(luma)) return why;
  return PlaneRefusal(chroma);
}

}  // namespace dofra
