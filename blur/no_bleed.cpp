#include "blur/no_bleed.h"

#include <cstdlib>
#include <cstring>

#include "kernels/no_bleed_rows.h"
#include "kernels/row_kernels.h"

namespace dofra {

namespace {

constexpr int64_t kAlign = 64;
constexpr int kRowSlack = 16;        // words past the pullback after a row of minima
constexpr int kStripOutputs = 1024;  // columns of sums kept on the stack at once

int64_t Aligned(int64_t n) { return (n + kAlign - 1) / kAlign * kAlign; }

// The parts of the block, in bytes, in order.
struct Layout {
  int64_t mask_y, mask_uv, padded_y, padded_uv, kinds_y, kinds_uv, smoothed, scratch;
  int64_t Total() const {
    return Aligned(mask_y) + Aligned(mask_uv) + Aligned(padded_y) + Aligned(padded_uv) +
           Aligned(kinds_y) + Aligned(kinds_uv) + 2 * Aligned(smoothed) +
           kNoBleedTasks * Aligned(scratch);
  }
};

Layout LayoutOf(int W, int H, int s) {
  const int64_t sw = W / s, sh = H / s, r = kNoBleedRadius;
  Layout l;
  l.mask_y = sw * sh;
  l.mask_uv = sw * (sh / 2);
  l.padded_y = (sw + 2 * r) * (sh + 2 * r);
  l.padded_uv = (sw + 4 * r) * (sh / 2 + 2 * r);
  l.kinds_y = sh;
  l.kinds_uv = sh / 2;
  l.smoothed = l.mask_y + l.mask_uv;  // one band's smoothed frame
  l.scratch = (W + 2 * kNoBleedMaxPullback + kRowSlack) * static_cast<int64_t>(sizeof(uint16_t));
  return l;
}

// Hands out consecutive aligned parts of one block.
struct Carver {
  uint8_t* at;
  uint8_t* Take(int64_t bytes) {
    uint8_t* p = at;
    at += Aligned(bytes);
    return p;
  }
};

bool RowsUniform(const uint8_t* kinds, int y, int h) {
  const int first = y - kNoBleedRadius < 0 ? 0 : y - kNoBleedRadius;
  const int last = y + kNoBleedRadius > h - 1 ? h - 1 : y + kNoBleedRadius;
  const uint8_t kind = kinds[first];
  if (kind == kMaskRowMixed) return false;
  for (int i = first + 1; i <= last; ++i)
    if (kinds[i] != kind) return false;
  return true;
}

}  // namespace

int64_t NoBleedStateBytes(int W, int H, int s) { return LayoutOf(W, H, s).Total(); }

NoBleedState* NewNoBleedState(int W, int H, int s) {
  const Layout l = LayoutOf(W, H, s);
  auto* state = static_cast<NoBleedState*>(calloc(1, sizeof(NoBleedState)));
  uint8_t* block = static_cast<uint8_t*>(calloc(1, static_cast<size_t>(l.Total())));
  if (state == nullptr || block == nullptr) {
    free(state);
    free(block);
    return nullptr;
  }
  state->bytes = l.Total();
  Carver c{block};
  uint8_t* mask[2] = {c.Take(l.mask_y), c.Take(l.mask_uv)};
  uint8_t* padded[2] = {c.Take(l.padded_y), c.Take(l.padded_uv)};
  uint8_t* kinds[2] = {c.Take(l.kinds_y), c.Take(l.kinds_uv)};
  uint8_t* smoothed[2] = {c.Take(l.smoothed), c.Take(l.smoothed)};
  for (int i = 0; i < kNoBleedTasks; ++i) {
    const int plane = i / 2, band = i % 2;
    NoBleedTask& t = state->tasks[i];
    t.mask = mask[plane];
    t.padded_mask = padded[plane];
    t.row_kinds = kinds[plane];
    t.scratch = reinterpret_cast<uint16_t*>(c.Take(l.scratch));
    t.smoothed = smoothed[band] + (plane == 0 ? 0 : l.mask_y);
    t.expand = plane == 0 ? __ExpandY : __ExpandUV;
    t.block = plane == 0 ? s : 2 * s;
    t.lead = plane == 0 ? 1 : 2;
    t.map_height = plane == 0 ? H : 2 * (H / 2);
    t.row_step = plane == 0 ? 1 : 2;
  }
  return state;
}

// The block starts at the first task's mask.
void FreeNoBleedState(NoBleedState* state) {
  if (state == nullptr) return;
  free(state->tasks[0].mask);
  free(state);
}

void SetNoBleedRule(NoBleedState* state, int pullback, uint16_t threshold) {
  for (NoBleedTask& t : state->tasks) {
    t.pullback = pullback;
    t.threshold = threshold;
  }
}

// A sample's window of map rows, clamped, is reduced to its minima by column
// first (the rows are the ones the band's composite reads soon after), then
// along the row.
void NoBleedMaskRows(const BandTask& t, int first, int last) {
  const NoBleedTask& nb = *t.no_bleed;
  const RowKernels& k = ActiveRowKernels();
  const int W = t.width, p = nb.pullback, count = t.small_width / nb.lead;
  uint16_t* row = nb.scratch + kNoBleedMaxPullback;
  for (int i = first; i <= last; ++i) {
    int top = i * nb.block - p < 0 ? 0 : i * nb.block - p;
    int bottom = i * nb.block + nb.block - 1 + p;
    if (bottom > nb.map_height - 1) bottom = nb.map_height - 1;
    top = (top + nb.row_step - 1) / nb.row_step * nb.row_step;  // the plane's rows only
    bottom = bottom / nb.row_step * nb.row_step;
    const size_t stride = static_cast<size_t>(W) * nb.row_step;
    k.map_min_rows(t.weight_map + static_cast<size_t>(top) * W, stride,
                   (bottom - top) / nb.row_step + 1, row, W);
    const int ones = k.mask_row[nb.lead - 1](
        row, W, nb.block, p, nb.threshold, nb.mask + static_cast<size_t>(i) * t.small_width, count);
    nb.row_kinds[i] = ones == 0 ? kMaskRowNone : ones == count ? kMaskRowAll : kMaskRowMixed;
  }
}

// The default smoothing's padded rows are still in place; the mask is padded
// the same way, and column sums of v * m and m slide down the rows as the
// default's sliding box does. Rows whose boxes all count or none do keep
// the default bytes and are skipped.
void NoBleedSmoothRows(const BandTask& t, int first, int last) {
  const NoBleedTask& nb = *t.no_bleed;
  const RowKernels& k = ActiveRowKernels();
  const int sw = t.small_width, sh = t.small_height, r = kNoBleedRadius;
  nb.expand(nb.mask, nb.padded_mask, sw, sh, r, first, last);
  const int span = 2 * r * nb.lead;
  const size_t pitch = static_cast<size_t>(sw + span);
  const auto box_row = k.masked_box_row[nb.lead - 1];
  uint16_t v_sums[kStripOutputs + 4 * kNoBleedRadius];
  uint16_t m_sums[kStripOutputs + 4 * kNoBleedRadius];
  for (int x0 = 0; x0 < sw; x0 += kStripOutputs) {
    const int n = sw - x0 < kStripOutputs ? sw - x0 : kStripOutputs;
    const int m = n + span;
    const uint8_t* v = t.padded_input + x0;
    const uint8_t* mask = nb.padded_mask + x0;
    int summed = -2;  // the sums hold padded rows summed..summed + 2r
    for (int y = first; y <= last; ++y) {
      if (RowsUniform(nb.row_kinds, y, sh)) continue;
      if (summed == y - 1) {
        const size_t in = (y + 2 * r) * pitch, out = (y - 1) * pitch;
        k.masked_slide_add_sub(v + in, mask + in, v + out, mask + out, v_sums, m_sums, 0, m);
      } else {
        std::memset(v_sums, 0, static_cast<size_t>(m) * sizeof(v_sums[0]));
        std::memset(m_sums, 0, static_cast<size_t>(m) * sizeof(m_sums[0]));
        for (int p = y; p <= y + 2 * r; ++p)
          k.masked_slide_add(v + p * pitch, mask + p * pitch, v_sums, m_sums, 0, m);
      }
      summed = y;
      box_row(v_sums, m_sums, nb.smoothed + static_cast<size_t>(y) * sw + x0, 0, n);
    }
  }
}

}  // namespace dofra
