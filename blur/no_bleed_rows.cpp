// The no-glow blur's row helpers as plain formulas: the reference every
// instruction set's members match byte for byte.
#include "kernels/no_bleed_rows.h"

#include <algorithm>

#include "kernels/row_kernels.h"

namespace dofra {

namespace {

void MapMinRows_C(const uint16_t* rows, size_t stride, int count, uint16_t* out, int n) {
  for (int x = 0; x < n; ++x) {
    uint16_t m = rows[x];
    for (int k = 1; k < count; ++k) m = std::min(m, rows[static_cast<size_t>(k) * stride + x]);
    out[x] = m;
  }
}

// The definition itself: the minimum over the sample's window, clamped.
template <int kLead>
int MaskRow_C(uint16_t* row, int W, int block, int pullback, uint16_t threshold, uint8_t* out,
              int count) {
  int ones = 0;
  for (int j = 0; j < count; ++j) {
    const int lo = std::max(j * block - pullback, 0);
    const int hi = std::min(j * block + block - 1 + pullback, W - 1);
    uint8_t m = 1;
    for (int x = lo; x <= hi && m; ++x) m = row[x] >= threshold;
    for (int b = 0; b < kLead; ++b) out[kLead * j + b] = m;
    ones += m;
  }
  return ones;
}

template <bool kSub>
void MaskedSlide_C(const uint8_t* v, const uint8_t* m, const uint8_t* v_sub, const uint8_t* m_sub,
                   uint16_t* v_sums, uint16_t* m_sums, int begin, int n) {
  for (int q = begin; q < n; ++q) {
    int dv = v[q] * m[q], dm = m[q];
    if (kSub) dv -= v_sub[q] * m_sub[q], dm -= m_sub[q];
    v_sums[q] = static_cast<uint16_t>(v_sums[q] + dv);
    m_sums[q] = static_cast<uint16_t>(m_sums[q] + dm);
  }
}

void MaskedSlideAdd_C(const uint8_t* v, const uint8_t* m, uint16_t* v_sums, uint16_t* m_sums,
                      int begin, int n) {
  MaskedSlide_C<false>(v, m, nullptr, nullptr, v_sums, m_sums, begin, n);
}

void MaskedSlideAddSub_C(const uint8_t* v, const uint8_t* m, const uint8_t* v_sub,
                         const uint8_t* m_sub, uint16_t* v_sums, uint16_t* m_sums, int begin,
                         int n) {
  MaskedSlide_C<true>(v, m, v_sub, m_sub, v_sums, m_sums, begin, n);
}

// floor((2S + c) / (2c)) through the reciprocal table (exact, see
// kernels/no_bleed_rows.h).
template <int kLead>
void MaskedBoxRow_C(const uint16_t* v_sums, const uint16_t* m_sums, uint8_t* dst, int begin,
                    int n) {
  for (int x = begin; x < n; ++x) {
    uint32_t c = 0, s = 0;
    for (int j = 0; j < kNoBleedTaps; ++j) {
      c += m_sums[x + j * kLead];
      s += v_sums[x + j * kLead];
    }
    if (c == 0 || c == kNoBleedArea) continue;
    dst[x] = static_cast<uint8_t>(((s + c / 2) * kNoBleedRecip[c]) >> kRecipShift);
  }
}

}  // namespace

void FillNoBleed_C(RowKernels* k) {
  k->map_min_rows = MapMinRows_C;
  k->mask_row[0] = MaskRow_C<1>;
  k->mask_row[1] = MaskRow_C<2>;
  k->masked_slide_add = MaskedSlideAdd_C;
  k->masked_slide_add_sub = MaskedSlideAddSub_C;
  k->masked_box_row[0] = MaskedBoxRow_C<1>;
  k->masked_box_row[1] = MaskedBoxRow_C<2>;
}

}  // namespace dofra
