// blur_frame_refusal against an independent per-byte replay of the four band
// tasks, and the real kernels run over guarded planes for accepted sizes.
#include "blur/frame_check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "blur/kernels.h"
#include "support/test_image.h"

namespace {

constexpr int kKernel = 5;

// ---------------------------------------------------------------------------
// Oracle: every byte of every scratch plane carries a symbolic value (a hash
// of the formula and the values it read) and the set of tasks that wrote it.
// A read outside a plane, a read of a byte the reading task did not write, or
// two tasks writing different values makes the frame undefined.

using Key = uint64_t;

Key Mix(Key a, Key b) {
  uint64_t z = a * 0x9E3779B97F4A7C15ull + b + 0x632BE59BD9B4E019ull;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
  return z ^ (z >> 31);
}

struct Cell {
  Key value = 0;
  uint8_t writers = 0;
};

struct Plane2D {
  Plane2D(int64_t rows_in, int64_t cols_in)
      : rows(std::max<int64_t>(rows_in, 0)),
        cols(std::max<int64_t>(cols_in, 0)),
        cells(static_cast<size_t>(rows * cols)) {}
  bool In(int64_t y, int64_t x) const { return y >= 0 && y < rows && x >= 0 && x < cols; }
  Cell& At(int64_t y, int64_t x) { return cells[static_cast<size_t>(y * cols + x)]; }
  int64_t rows, cols;
  std::vector<Cell> cells;
};

struct Replay {
  bool undefined = false;
  int task = 0;

  Key Read(Plane2D& p, int64_t y, int64_t x) {
    if (!p.In(y, x)) return Fail();
    const Cell& c = p.At(y, x);
    if (!(c.writers & (1u << task))) return Fail();
    return c.value;
  }
  void Write(Plane2D& p, int64_t y, int64_t x, Key v) {
    if (!p.In(y, x)) {
      Fail();
      return;
    }
    Cell& c = p.At(y, x);
    if ((c.writers & ~(1u << task)) && c.value != v) Fail();
    c.value = v;
    c.writers |= 1u << task;
  }
  Key Fail() {
    undefined = true;
    return 0;
  }
};

// One plane and its scratch, as the band tasks of that plane see it.
struct PlaneJob {
  int plane;         // 0 luma, 1 chroma
  int W, H, sw, sh;  // bytes per row, rows, small bytes per row, small rows
  int frame_h;       // luma height (weight map rows)
  int r;
  Plane2D source, tmp, small, padded, smoothed, out;
  PlaneJob(int plane_in, int W_in, int H_in, int sw_in, int sh_in, int frame_h_in, int r_in)
      : plane(plane_in),
        W(W_in),
        H(H_in),
        sw(sw_in),
        sh(sh_in),
        frame_h(frame_h_in),
        r(r_in),
        source(H, W),
        tmp(H, sw),
        small(sh, sw),
        padded(int64_t{sh} + 2 * r, int64_t{sw} + (plane ? 4 : 2) * int64_t{r}),
        smoothed(sh, sw),
        out(H, W) {
    for (int64_t y = 0; y < H; ++y)
      for (int64_t x = 0; x < W; ++x) source.At(y, x) = {Mix(Mix(plane, y), x), 0xFF};
  }
};

Key Src(Replay& rp, PlaneJob& j, int64_t y, int64_t x) { return rp.Read(j.source, y, x); }

// Shrink: groups of `f` taps; `f` is the member's factor (2 for s = 3, 5, 7).
void ReplayShrink(Replay& rp, PlaneJob& j, int f, int y0, int y1) {
  const bool chroma = j.plane == 1;
  const int w = j.sw;
  if (j.sh == 0 || (w == 0 && !(chroma && f == 2))) {
    rp.Fail();  // H / h, W / w
    return;
  }
  const int64_t ry = j.H / j.sh;
  const int64_t cx = (chroma && f == 2) ? 0 : j.W / w;
  const bool narrow = chroma ? (f != 2 && w < 2) : ((f == 6 || f == 8) && w < 1);
  if (!(ry * y0 > ry * y1 + f - 1) && !narrow) {
    for (int64_t row = ry * y0; row <= ry * y1 + f - 1 && !rp.undefined; ++row) {
      if (!chroma) {
        const int x8 = 8 * (w / 8);
        for (int x = 0; x < w; ++x) {
          int64_t start = x * cx;
          if (f == 2) start = x < x8 ? 2 * x : 2 * int64_t{x8} + (x - x8) * cx;
          if (f == 4 && x < x8) start = (x / 8) * 8 * cx + 4 * (x % 8);
          Key k = Mix(1, f);
          for (int t = 0; t < f; ++t) k = Mix(k, Src(rp, j, row, start + t));
          rp.Write(j.tmp, row, x, k);
        }
      } else {
        for (int p = 0; p < w / 2; ++p) {
          const int64_t b = f == 2 ? 4 * int64_t{p} : 2 * p * cx;
          for (int ch = 0; ch < 2; ++ch) {
            Key k = Mix(1, f);
            for (int t = 0; t < f; ++t) k = Mix(k, Src(rp, j, row, b + 2 * t + ch));
            rp.Write(j.tmp, row, 2 * p + ch, k);
          }
        }
      }
    }
  }
  if (y0 > y1 || narrow) return;
  const int bytes = (chroma && f != 2) ? 2 * (w / 2) : w;
  for (int y = y0; y <= y1; ++y)
    for (int x = 0; x < bytes; ++x) {
      Key k = Mix(2, f);
      for (int t = 0; t < f; ++t) k = Mix(k, rp.Read(j.tmp, ry * y + t, x));
      rp.Write(j.small, y, x, k);
    }
}

void CopyRow(Replay& rp, PlaneJob& j, int64_t src_row, int64_t pad_row, int64_t col0) {
  for (int x = 0; x < j.sw; ++x)
    rp.Write(j.padded, pad_row, col0 + x, rp.Read(j.small, src_row, x));
}

// Luma expansion exactly as its four steps read (rows not clamped mid-plane).
void ReplayExpandY(Replay& rp, PlaneJob& j, int from, int to) {
  const int r = j.r, h = j.sh, w = j.sw;
  if (from == 0) {
    for (int p = 0; p < r; ++p) CopyRow(rp, j, 0, p, r);
  } else {
    for (int i = 0; i < r; ++i) CopyRow(rp, j, from - r + i, from + i, r);
  }
  for (int y = from; y <= to; ++y) CopyRow(rp, j, y, y + r, r);
  if (to == h - 1) {
    for (int p = h + r; p < h + 2 * r; ++p) CopyRow(rp, j, h - 1, p, r);
  } else {
    for (int i = 1; i <= r; ++i) CopyRow(rp, j, to + i, to + r + i, r);
  }
  if (to + 2 * r >= from && r > 0)
    for (int p = from; p <= to + 2 * r; ++p) {
      const Key left = rp.Read(j.padded, p, r), right = rp.Read(j.padded, p, r + w - 1);
      for (int i = 0; i < r; ++i) {
        rp.Write(j.padded, p, i, left);
        rp.Write(j.padded, p, r + w + i, right);
      }
    }
}

// Chroma expansion as fixed for this project: only rows from..to+2r, clamped.
void ReplayExpandUV(Replay& rp, PlaneJob& j, int from, int to) {
  const int r = j.r, h = j.sh, w = j.sw;
  for (int p = from; p <= to + 2 * r; ++p) {
    CopyRow(rp, j, std::clamp(p - r, 0, h - 1), p, 2 * r);
    if (r < 1) continue;
    const Key a0 = rp.Read(j.padded, p, 2 * r), a1 = rp.Read(j.padded, p, 2 * r + 1);
    const Key b0 = rp.Read(j.padded, p, 2 * r + w - 2), b1 = rp.Read(j.padded, p, 2 * r + w - 1);
    for (int i = 0; i < r; ++i) {
      rp.Write(j.padded, p, 2 * i, a0);
      rp.Write(j.padded, p, 2 * i + 1, a1);
      rp.Write(j.padded, p, 2 * r + w + 2 * i, b0);
      rp.Write(j.padded, p, 2 * r + w + 2 * i + 1, b1);
    }
  }
}

void ReplaySmooth(Replay& rp, PlaneJob& j, int from, int to) {
  const bool chroma = j.plane == 1;
  if (chroma)
    ReplayExpandUV(rp, j, from, to);
  else
    ReplayExpandY(rp, j, from, to);
  if (rp.undefined) return;
  // The integral table reads every padded byte of rows from..to+2r.
  for (int64_t p = from; p <= to + 2 * int64_t{j.r}; ++p)
    for (int64_t q = 0; q < j.padded.cols; ++q) rp.Read(j.padded, p, q);
  const int step = chroma ? 2 : 1;
  for (int y = from; y <= to && !rp.undefined; ++y)
    for (int x = 0; x < j.sw; ++x) {
      Key k = 3;
      for (int dy = 0; dy <= 2 * j.r; ++dy)
        for (int dx = 0; dx <= 2 * j.r; ++dx) k = Mix(k, rp.Read(j.padded, y + dy, x + step * dx));
      rp.Write(j.smoothed, y, x, k);
    }
}

// Compositing in columns: bytes for luma, pairs for chroma.
struct Compositor {
  Replay& rp;
  PlaneJob& j;
  int unit() const { return j.plane == 1 ? 2 : 1; }
  int n() const { return j.W / unit(); }
  Key S(int64_t row, int64_t col, int ch) { return rp.Read(j.smoothed, row, col * unit() + ch); }
  // blurred(ch) gives the blurred value's key for byte ch of column c.
  template <typename F>
  void Out(int64_t y, int64_t c, F blurred) {
    const int64_t wy = j.plane == 1 ? 2 * y : y, wx = j.plane == 1 ? 2 * c : c;
    const bool weight_in = wy >= 0 && wy < j.frame_h && wx >= 0 && wx < j.W;
    if (!weight_in) rp.Fail();
    for (int ch = 0; ch < unit(); ++ch) {
      const Key k = Mix(Mix(blurred(ch), Src(rp, j, y, c * unit() + ch)), Mix(wy, wx));
      rp.Write(j.out, y, c * unit() + ch, k);
    }
  }
};

void ReplayX2(Compositor& cp, int first, int last) {
  auto row = [&](int y, bool clamp) {
    const int r0 = y >> 1, r1 = clamp ? std::min(r0 + 1, cp.j.sh - 1) : r0 + 1;
    const int n = cp.n();
    for (int c = 0; c <= n - 3; ++c) {
      const int k = c >> 1;
      cp.Out(y, c, [&](int ch) {
        return Mix(Mix(Mix(Mix(10, cp.S(r0, k, ch)), cp.S(r0, k + 1, ch)), cp.S(r1, k, ch)),
                   cp.S(r1, k + 1, ch));
      });
    }
    for (int c = n - 2; c <= n - 1; ++c) {
      const int k = c >> 1;
      cp.Out(y, c, [&](int ch) { return Mix(Mix(11, cp.S(r0, k, ch)), cp.S(r1, k, ch)); });
    }
  };
  for (int y = first; y <= last - 2; ++y) row(y, false);
  row(last - 1, true);
  row(last, true);
}

struct Fixed {
  Replay& rp;
  int64_t step;
  // 16.16 position of column/row i in 32 bits; overflow is undefined.
  int64_t Pos(int64_t i) {
    const int64_t v = i * step;
    if (v > INT32_MAX) rp.Fail();
    return v;
  }
};

int64_t Step(Replay& rp, int64_t small, int64_t full) {
  if (small * 65536 > INT32_MAX) rp.Fail();
  return small * 65536 / full;
}

void ReplayX4X8(Compositor& cp, int F, int first, int last) {
  PlaneJob& j = cp.j;
  Fixed fx_pos{cp.rp, Step(cp.rp, j.sw, j.W)}, fy_pos{cp.rp, Step(cp.rp, j.sh, j.H)};
  const int n = cp.n();
  const bool ends = last == j.H - 1;
  const int group = (j.plane == 1 && F == 8) ? 16 : 8;
  const int bulk_end = j.plane == 1 ? group * ((j.W - 2 * F) / group) / 2 : 8 * ((j.W - F) / 8);
  for (int y = first; y <= (ends ? j.H - 1 - F : last); ++y) {
    const int64_t py = fy_pos.Pos(y), r0 = py >> 16, fy = (py >> 8) & 255;
    const int64_t r1 = j.plane == 0 ? std::min<int64_t>(r0 + 1, j.sh - 1) : r0 + 1;
    auto bilinear = [&](int64_t x0, int64_t fx) {
      return [&, x0, fx](int ch) {
        return Mix(Mix(Mix(Mix(Mix(20, fx * 256 + fy), cp.S(r0, x0, ch)), cp.S(r0, x0 + 1, ch)),
                       cp.S(r1, x0, ch)),
                   cp.S(r1, x0 + 1, ch));
      };
    };
    for (int c = 0; c < bulk_end; ++c) cp.Out(y, c, bilinear(c / F, (c % F) * 256 / F));
    for (int c = bulk_end; c <= n - F - 1; ++c) {
      const int64_t px = fx_pos.Pos(c);
      cp.Out(y, c, bilinear(px >> 16, (px >> 8) & 255));
    }
    for (int c = n - F; c <= n - 1; ++c) {
      const int64_t x0 = fx_pos.Pos(c) >> 16;
      cp.Out(y, c,
             [&](int ch) { return Mix(Mix(Mix(21, fy), cp.S(r0, x0, ch)), cp.S(r1, x0, ch)); });
    }
  }
  if (!ends) return;
  for (int y = j.H - F; y <= j.H - 1; ++y) {
    const int64_t r0 = fy_pos.Pos(y) >> 16;
    for (int c = 0; c <= n - F - 1; ++c) {
      const int64_t px = fx_pos.Pos(c), x0 = px >> 16, fx = (px >> 8) & 255;
      cp.Out(y, c,
             [&](int ch) { return Mix(Mix(Mix(22, fx), cp.S(r0, x0, ch)), cp.S(r0, x0 + 1, ch)); });
    }
    for (int c = n - F; c <= n - 1; ++c) {
      const int64_t x0 = fx_pos.Pos(c) >> 16;
      cp.Out(y, c, [&](int ch) { return Mix(23, cp.S(r0, x0, ch)); });
    }
  }
}

void ReplayX6(Compositor& cp, int first, int last) {
  PlaneJob& j = cp.j;
  Fixed fx_pos{cp.rp, Step(cp.rp, j.sw, j.W)}, fy_pos{cp.rp, Step(cp.rp, j.sh, j.H)};
  const int n = cp.n();
  const bool ends = last == j.H - 1;
  const int bulk = j.plane == 1 ? 24 * ((j.W - 12) / 24) / 2 : 24 * ((j.W - 6) / 24);
  // Row 0 and the bottom rows: horizontal only on one small row.
  auto edge_row = [&](int y, int64_t r0) {
    cp.Out(y, 0, [&](int ch) { return Mix(23, cp.S(r0, 0, ch)); });
    for (int c = 1; c <= n - 6; ++c) {
      const int64_t px = fx_pos.Pos(c), x0 = px >> 16, fx = (px >> 8) & 255;
      cp.Out(y, c,
             [&](int ch) { return Mix(Mix(Mix(22, fx), cp.S(r0, x0, ch)), cp.S(r0, x0 + 1, ch)); });
    }
    for (int c = n - 5; c <= n - 1; ++c) {
      const int64_t x0 = fx_pos.Pos(c) >> 16;
      cp.Out(y, c, [&](int ch) { return Mix(23, cp.S(r0, x0, ch)); });
    }
  };
  if (first == 0) edge_row(0, 0);
  for (int y = first == 0 ? 1 : first; y <= (ends ? j.H - 6 : last); ++y) {
    const int64_t py = fy_pos.Pos(y), r0 = py >> 16, fy = (py >> 8) & 255, r1 = r0 + 1;
    const int64_t u = (256 - fy) % 256;
    auto bilinear = [&](int64_t x0, int64_t left, int64_t fx) {
      return [&, x0, left, fx](int ch) {
        return Mix(Mix(Mix(Mix(Mix(30, (left * 256 + fx) * 65536 + u * 256 + fy), cp.S(r0, x0, ch)),
                           cp.S(r0, x0 + 1, ch)),
                       cp.S(r1, x0, ch)),
                   cp.S(r1, x0 + 1, ch));
      };
    };
    auto vertical = [&](int64_t x0) {
      return [&, x0](int ch) {
        return Mix(Mix(Mix(31, u * 256 + fy), cp.S(r0, x0, ch)), cp.S(r1, x0, ch));
      };
    };
    static const int kRight[6] = {42, 85, 127, 170, 213, 255},
                     kLeft[6] = {214, 171, 129, 86, 43, 1};
    cp.Out(y, 0, vertical(0));
    for (int c = 1; c <= bulk; ++c)
      cp.Out(y, c, bilinear((c - 1) / 6, kLeft[(c - 1) % 6], kRight[(c - 1) % 6]));
    for (int c = bulk + 1; c <= n - 6; ++c) {
      const int64_t px = fx_pos.Pos(c), fx = (px >> 8) & 255;
      cp.Out(y, c, bilinear(px >> 16, 256 - fx, fx));
    }
    for (int c = n - 5; c <= n - 1; ++c) cp.Out(y, c, vertical(fx_pos.Pos(c) >> 16));
  }
  if (ends)
    for (int y = j.H - 5; y <= j.H - 1; ++y) edge_row(y, fy_pos.Pos(y) >> 16);
}

// The context's eight buffer sizes, each product formed in signed 32 bits
// (W * H * 3 before halving), and their 32-bit sum.
bool SizesFit(int64_t W, int64_t H, int64_t sw, int64_t sh, int64_t r) {
  if (r > 46341) return false;  // (2r)^2 alone exceeds 32 bits; keeps the products below in range
  const int64_t products[] = {W * H * 3,
                              H * sw * 3,
                              sw * sh * 3,
                              (sw + 2 * r) * (sh + 2 * r),
                              (sw + 4 * r) * (sh / 2 + 2 * r),
                              (sw + 2 * r) * (sh + 2 * r + 1) * 8,
                              (sw + 4 * r) * (sh / 2 + 2 * r + 1) * 8};
  for (int64_t v : products)
    if (v > INT32_MAX) return false;
  const int64_t total = products[0] / 2 + products[1] / 2 + 2 * (products[2] / 2) + products[3] +
                        products[4] + products[5] + products[6];
  return 4 * r <= INT32_MAX && sw + 4 * r <= INT32_MAX && total <= INT32_MAX;
}

// True when the band pipeline does nothing undefined for this frame.
bool OracleAccepts(int W, int H, int s, int k) {
  if (s < 2 || s > 8) return false;  // s - 2 indexes a table of seven (s = 0 divides)
  if (k < 1) return false;           // kernel weight entry 0 does not exist
  if (W <= 0 || H <= 0 || W % 2 != 0) return false;
  const int sw = W / s, sh = H / s, r = k / 2;
  if (!SizesFit(W, H, sw, sh, r)) return false;
  const int member = (s == 4 || s == 6 || s == 8) ? s : 2;
  Replay rp;
  for (int plane = 0; plane < 2; ++plane) {
    const int ph = plane ? H / 2 : H, psh = plane ? sh / 2 : sh;
    PlaneJob job(plane, W, ph, sw, psh, H, r);
    const int rows = ph / 2;
    for (int b = 0; b < 2 && !rp.undefined; ++b) {
      rp.task = plane * 2 + b;
      const int first = b * rows, last = first + rows - 1;
      const int q = first / s;
      const int small_first = q < 2 ? 0 : q - 1;
      const int small_last = std::min(last / s + 1, psh - 1);
      const int y0 = std::max(small_first - r, 0), y1 = std::min(small_last + r, psh - 1);
      ReplayShrink(rp, job, member, y0, y1);
      if (!rp.undefined) ReplaySmooth(rp, job, small_first, small_last);
      if (rp.undefined) break;
      Compositor cp{rp, job};
      if (member == 2) ReplayX2(cp, first, last);
      if (member == 4 || member == 8) ReplayX4X8(cp, member, first, last);
      if (member == 6) ReplayX6(cp, first, last);
    }
    if (rp.undefined) return false;
  }
  return true;
}

// ---------------------------------------------------------------------------

struct Size {
  int w, h;
};

TEST(FrameCheck, KnownFramesAtEachFactor) {
  for (int s : {2, 4, 6, 8}) {
    EXPECT_EQ(blur_frame_refusal(1920, 1080, s, kKernel), nullptr) << s;
    EXPECT_EQ(blur_frame_refusal(3840, 2160, s, kKernel), nullptr) << s;
  }
  for (Size z : {Size{1280, 720}, Size{640, 480}, Size{1920, 1088}}) {
    EXPECT_NE(blur_frame_refusal(z.w, z.h, 6, kKernel), nullptr) << z.w << "x" << z.h;
    for (int s : {2, 4, 8}) EXPECT_EQ(blur_frame_refusal(z.w, z.h, s, kKernel), nullptr) << s;
  }
  // H / 2 odd: the last chroma band ends a row short and reads past the plane.
  for (int h : {1090, 1082, 726}) {
    EXPECT_EQ(blur_frame_refusal(1920, h, 2, kKernel), nullptr) << h;
    for (int s : {4, 6, 8})
      EXPECT_NE(blur_frame_refusal(1920, h, s, kKernel), nullptr) << h << " " << s;
  }
  // Odd W / s: the small chroma plane's last byte is never produced.
  EXPECT_NE(blur_frame_refusal(1000, 1000, 8, kKernel), nullptr);
  EXPECT_NE(blur_frame_refusal(1920 + 8, 1080, 8, kKernel), nullptr);
  EXPECT_NE(blur_frame_refusal(1922, 1080, 2, kKernel), nullptr);
}

TEST(FrameCheck, KnownFramesAgreeWithReplay) {
  for (Size z : {Size{640, 480}, Size{1920, 1088}, Size{640, 482}})
    for (int s : {2, 4, 6, 8})
      EXPECT_EQ(blur_frame_refusal(z.w, z.h, s, kKernel) == nullptr,
                OracleAccepts(z.w, z.h, s, kKernel))
          << z.w << "x" << z.h << " s=" << s;
}

struct RefusedCase {
  int w, h, s, k;
};

class FrameCheckRefusal : public ::testing::TestWithParam<RefusedCase> {};

TEST_P(FrameCheckRefusal, GivesAReason) {
  const RefusedCase c = GetParam();
  const char* why = blur_frame_refusal(c.w, c.h, c.s, c.k);
  ASSERT_NE(why, nullptr);
  EXPECT_FALSE(std::string(why).empty());
  EXPECT_EQ(OracleAccepts(c.w, c.h, c.s, c.k), false);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, FrameCheckRefusal,
    ::testing::Values(RefusedCase{1920, 1080, 0, 5}, RefusedCase{1920, 1080, 1, 5},
                      RefusedCase{1920, 1080, 3, 5}, RefusedCase{1920, 1080, 5, 5},
                      RefusedCase{1920, 1080, 7, 5}, RefusedCase{1920, 1080, 9, 5},
                      RefusedCase{1920, 1080, -2, 5}, RefusedCase{0, 1080, 4, 5},
                      RefusedCase{1920, -4, 4, 5}, RefusedCase{1921, 1080, 2, 5},
                      RefusedCase{1920, 1080, 4, 0}, RefusedCase{1920, 1080, 4, -5},
                      RefusedCase{46342, 46342, 2, 5},     // W * H * 3 overflows
                      RefusedCase{65536 * 4, 8, 4, 5},     // sw * 65536 overflows
                      RefusedCase{8, 8, 8, 5},             // sh / 2 = 0 divides
                      RefusedCase{1920, 1080, 4, 1 << 30}  // padded sizes overflow
                      ));

// Accept/refuse equals the per-byte replay over every size of a small range.
class FrameCheckOracle : public ::testing::TestWithParam<int> {};

TEST_P(FrameCheckOracle, MatchesReplayForEverySmallSize) {
  const int s = GetParam();
  constexpr int kMax = 96;
  int accepted = 0;
  for (int w = 1; w <= kMax; ++w)
    for (int h = 1; h <= kMax; ++h) {
      const bool oracle = OracleAccepts(w, h, s, kKernel);
      accepted += oracle;
      ASSERT_EQ(blur_frame_refusal(w, h, s, kKernel) == nullptr, oracle)
          << w << "x" << h << " s=" << s << " check says "
          << (blur_frame_refusal(w, h, s, kKernel) ? blur_frame_refusal(w, h, s, kKernel) : "ok");
    }
  if (s == 2 || s == 4 || s == 6 || s == 8) {
    EXPECT_GT(accepted, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Factors, FrameCheckOracle,
                         ::testing::Values(-2, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9));

TEST(FrameCheckOracle, MatchesReplayForSampledSizesAndKernels) {
  std::mt19937 rng(20261122);
  std::uniform_int_distribution<int> width(1, 400), height(1, 300), kernel(1, 9);
  for (int i = 0; i < 300; ++i) {
    const int w = width(rng), h = height(rng), s = 2 + 2 * (i % 4);
    const int k = i % 3 == 0 ? kernel(rng) : kKernel;
    ASSERT_EQ(blur_frame_refusal(w, h, s, k) == nullptr, OracleAccepts(w, h, s, k))
        << w << "x" << h << " s=" << s << " k=" << k;
  }
}

// ---------------------------------------------------------------------------
// The real kernels, two bands per plane, over guarded planes sized exactly.

struct Kernels {
  ShrinkFn shrink;
  SmoothFn smooth;
  BlendFn blend;
};

Kernels KernelsFor(int plane, int s) {
  if (plane == 0) {
    switch (s) {
      case 4:
        return {__BiLinearInterp_Y_x4_neon, __GaussianSmoothImage_Y_integral_image_neon,
                __CreateOutputImage_Y_x4_neon};
      case 6:
        return {__BiLinearInterp_Y_x6, __GaussianSmoothImage_Y_integral_image_neon,
                __CreateOutputImage_Y_x6_neon};
      case 8:
        return {__BiLinearInterp_Y_x8, __GaussianSmoothImage_Y_integral_image_neon,
                __CreateOutputImage_Y_x8_neon};
      default:
        return {__BiLinearInterp_Y_x2_neon, __GaussianSmoothImage_Y_integral_image_neon,
                __CreateOutputImage_Y_x2_neon};
    }
  }
  switch (s) {
    case 4:
      return {__BiLinearInterp_UV_x4, __GaussianSmoothImage_UV_integral_image_neon,
              __CreateOutputImage_UV_x4_neon};
    case 6:
      return {__BiLinearInterp_UV_x6, __GaussianSmoothImage_UV_integral_image_neon,
              __CreateOutputImage_UV_x6_neon};
    case 8:
      return {__BiLinearInterp_UV_x8, __GaussianSmoothImage_UV_integral_image_neon,
              __CreateOutputImage_UV_x8_neon};
    default:
      return {__BiLinearInterp_UV_x2_neon, __GaussianSmoothImage_UV_integral_image_neon,
              __CreateOutputImage_UV_x2_neon};
  }
}

void RunPlaneInGuards(int W, int H, int s, std::mt19937& rng) {
  const int r = kKernel / 2, sw = W / s, sh = H / s;
  std::vector<uint16_t> kernel_weights(kKernel, 1024 / kKernel);
  GuardedBytes weights_bytes(static_cast<size_t>(2) * W * H, 0);
  auto* weights = reinterpret_cast<uint16_t*>(weights_bytes.data());
  FillRandomWeights(weights, static_cast<size_t>(W) * H, rng);
  for (int plane = 0; plane < 2; ++plane) {
    const int ph = plane ? H / 2 : H, psh = plane ? sh / 2 : sh;
    const int pad = plane ? 4 * r : 2 * r;
    GuardedBytes src(static_cast<size_t>(W) * ph, 0, 1), out(static_cast<size_t>(W) * ph, 7, 3),
        tmp(static_cast<size_t>(sw) * ph, 0, 2);
    GuardedBytes small(static_cast<size_t>(sw) * psh, 0),
        padded(static_cast<size_t>(sw + pad) * (psh + 2 * r), 0),
        smoothed(static_cast<size_t>(sw) * psh, 0);
    std::vector<GuardedBytes> integral;
    FillRandom(src.data(), src.size(), rng);
    const Kernels k = KernelsFor(plane, s);
    const int rows = ph / 2;
    for (int b = 0; b < 2; ++b) {
      integral.emplace_back(static_cast<size_t>(4) * (sw + pad) * (psh + 2 * r + 1), 0);
      const int first = b * rows, last = first + rows - 1, q = first / s;
      const int small_first = q < 2 ? 0 : q - 1, small_last = std::min(last / s + 1, psh - 1);
      k.shrink(src.data(), small.data(), tmp.data(), W, ph, sw, psh, std::max(small_first - r, 0),
               std::min(small_last + r, psh - 1));
      k.smooth(small.data(), padded.data(), smoothed.data(), sw, psh, kernel_weights.data(), r, r,
               integral.back().data(), small_first, small_last);
      k.blend(src.data(), W, ph, sw, psh, weights, smoothed.data(), out.data(), first, last);
    }
    for (const GuardedBytes* g : {&src, &out, &tmp, &small, &padded, &smoothed})
      EXPECT_TRUE(g->GuardsIntact()) << W << "x" << H << " s=" << s << " plane " << plane;
    for (const GuardedBytes& g : integral) EXPECT_TRUE(g.GuardsIntact());
  }
  EXPECT_TRUE(weights_bytes.GuardsIntact());
}

TEST(FrameCheckKernels, AcceptedSizesStayInsideTheirPlanes) {
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> width(2, 300), height(2, 200);
  int run = 0;
  for (int i = 0; i < 4000 && run < 160; ++i) {
    const int w = width(rng), h = height(rng), s = 2 + 2 * (i % 4);
    if (blur_frame_refusal(w, h, s, kKernel) != nullptr) continue;
    RunPlaneInGuards(w, h, s, rng);
    ++run;
  }
  EXPECT_GE(run, 100);
  for (int s : {2, 4, 6, 8}) RunPlaneInGuards(1920, 1080, s, rng);
}

}  // namespace
