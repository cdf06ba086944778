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

#if defined(__SSE4_1__)
#include <smmintrin.h>
#endif

#include "blur/kernels.h"

namespace {

constexpr uint32_t kHalfQ10 = 512;  // rounding of a Q10 product
constexpr int kQ10Shift = 10;

// Two rounded Q10 steps, one per box dimension, in wrapping 32-bit unsigned
// arithmetic; the low 8 bits are stored by the caller (no saturation).
inline uint32_t Normalise(uint32_t sum, uint32_t w) {
  const uint32_t t = (sum * w + kHalfQ10) >> kQ10Shift;
  return (t * w + kHalfQ10) >> kQ10Shift;
}

using IntegralRowFn = void (*)(const uint8_t* expanded, uint32_t* column_sums, uint32_t* out,
                               int n);
using BoxRowFn = void (*)(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, int width,
                          int span, uint32_t w);

// Adds one expanded row to the column sums and stores their running sum
// along the row (per channel).
template <int kLead>
void IntegralRow_C(const uint8_t* expanded, uint32_t* column_sums, uint32_t* out, int n) {
  for (int q = 0; q < n; ++q) {
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

template <int kLead, bool kTop>
void BoxRowWhole_C(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, int width, int span,
                   uint32_t w) {
  BoxRow_C<kLead, kTop>(top, bottom, dst, 0, width, span, w);
}

struct SmoothRows {
  IntegralRowFn integral;
  BoxRowFn box_anchor;  // the band's first row: no row above the table
  BoxRowFn box;
};

template <int kLead>
constexpr SmoothRows kRows_C = {IntegralRow_C<kLead>, BoxRowWhole_C<kLead, false>,
                                BoxRowWhole_C<kLead, true>};

#if defined(__SSE4_1__)

// Inclusive prefix sum of four lanes, per channel: two channels interleave
// in the lanes when kLead is 2.
template <int kLead>
inline __m128i PrefixSum4(__m128i v) {
  if (kLead == 1) v = _mm_add_epi32(v, _mm_slli_si128(v, 4));
  return _mm_add_epi32(v, _mm_slli_si128(v, 8));
}

// The last running sum of each channel, broadcast to its lanes.
template <int kLead>
inline __m128i CarryOut(__m128i v) {
  return kLead == 1 ? _mm_shuffle_epi32(v, _MM_SHUFFLE(3, 3, 3, 3))
                    : _mm_shuffle_epi32(v, _MM_SHUFFLE(3, 2, 3, 2));
}

inline __m128i Load4Bytes(const uint8_t* p) {
  int32_t bytes;
  std::memcpy(&bytes, p, sizeof(bytes));
  return _mm_cvtepu8_epi32(_mm_cvtsi32_si128(bytes));
}

// Remainder: the scalar body over the last n % 4 entries (a prefix sum is
// not idempotent, so no overlapping vector).
template <int kLead>
void IntegralRow_SSE41(const uint8_t* expanded, uint32_t* column_sums, uint32_t* out, int n) {
  __m128i carry = _mm_setzero_si128();
  int q = 0;
  for (; q + 4 <= n; q += 4) {
    __m128i* sums = reinterpret_cast<__m128i*>(column_sums + q);
    const __m128i c = _mm_add_epi32(_mm_loadu_si128(sums), Load4Bytes(expanded + q));
    _mm_storeu_si128(sums, c);
    const __m128i row = _mm_add_epi32(PrefixSum4<kLead>(c), carry);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + q), row);
    carry = CarryOut<kLead>(row);
  }
  for (; q < n; ++q) {
    column_sums[q] += expanded[q];
    out[q] = column_sums[q] + (q >= kLead ? out[q - kLead] : 0u);
  }
}

inline __m128i LoadU32x4(const uint32_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

template <bool kTop>
inline __m128i BoxSum4(const uint32_t* top, const uint32_t* bottom, int right, int left) {
  __m128i sum = _mm_sub_epi32(LoadU32x4(bottom + right), LoadU32x4(bottom + left));
  if (kTop) sum = _mm_add_epi32(sum, _mm_sub_epi32(LoadU32x4(top + left), LoadU32x4(top + right)));
  return sum;
}

// Lane-wise the scalar expression itself: mullo and add wrap like uint32_t,
// so no rounding identity is needed and every input matches the formula.
inline __m128i Normalise4(__m128i sum, __m128i w) {
  const __m128i half = _mm_set1_epi32(static_cast<int>(kHalfQ10));
  const __m128i t = _mm_srli_epi32(_mm_add_epi32(_mm_mullo_epi32(sum, w), half), kQ10Shift);
  return _mm_srli_epi32(_mm_add_epi32(_mm_mullo_epi32(t, w), half), kQ10Shift);
}

// Eight normalised sums, kept mod 256 in words.
inline __m128i Normalise8Wide(__m128i lo, __m128i hi, __m128i w) {
  const __m128i low_byte = _mm_set1_epi32(0xFF);
  return _mm_packus_epi32(_mm_and_si128(Normalise4(lo, w), low_byte),
                          _mm_and_si128(Normalise4(hi, w), low_byte));
}

// For r <= 5 and w <= 1023: S <= 11 * 11 * 255 < 2^15 and t <= S, so both
// steps fit _mm_mulhrs_epi16, which is (a * b + 2^14) >> 15; with b = 32w
// that is exactly (S * w + 512) >> 10. The unsigned pack keeps S exact.
constexpr int kNarrowMaxRadius = 5;
constexpr uint32_t kNarrowMaxWeight = 1023;
constexpr int kNarrowScale = 5;  // 2^15 / 2^10

inline __m128i Normalise8Narrow(__m128i lo, __m128i hi, __m128i w_scaled) {
  const __m128i t = _mm_mulhrs_epi16(_mm_packus_epi32(lo, hi), w_scaled);
  return _mm_and_si128(_mm_mulhrs_epi16(t, w_scaled), _mm_set1_epi16(0xFF));
}

// Vectors of 8 outputs from column kLead (the first columns lack their left
// terms); remainder: the scalar body over the columns after the last full
// group, no overlap.
template <int kLead, bool kTop, bool kNarrow>
void BoxRow_SSE41(const uint32_t* top, const uint32_t* bottom, uint8_t* dst, int width, int span,
                  uint32_t w) {
  const int head = width < kLead ? width : kLead;
  BoxRow_C<kLead, kTop>(top, bottom, dst, 0, head, span, w);
  const __m128i wv = kNarrow ? _mm_set1_epi16(static_cast<int16_t>(w << kNarrowScale))
                             : _mm_set1_epi32(static_cast<int>(w));
  int x = head;
  for (; x + 8 <= width; x += 8) {
    const __m128i lo = BoxSum4<kTop>(top, bottom, x + span, x - kLead);
    const __m128i hi = BoxSum4<kTop>(top, bottom, x + 4 + span, x + 4 - kLead);
    const __m128i words = kNarrow ? Normalise8Narrow(lo, hi, wv) : Normalise8Wide(lo, hi, wv);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + x), _mm_packus_epi16(words, words));
  }
  BoxRow_C<kLead, kTop>(top, bottom, dst, x, width, span, w);
}

template <int kLead>
SmoothRows BestRows(int r, uint32_t w) {
  if (r <= kNarrowMaxRadius && w <= kNarrowMaxWeight)
    return {IntegralRow_SSE41<kLead>, BoxRow_SSE41<kLead, false, true>,
            BoxRow_SSE41<kLead, true, true>};
  return {IntegralRow_SSE41<kLead>, BoxRow_SSE41<kLead, false, false>,
          BoxRow_SSE41<kLead, true, false>};
}

// Sliding box: rather than through the table, S is summed directly. Per
// strip of columns, 16-bit column sums over expanded rows y..y+2r slide down
// one row per output row (add the new row, drop the old one), then 2r + 1
// shifted loads of them give S. Exact while S fits a word:
// (2 * 7 + 1)^2 * 255 = 57375 < 2^16; a column sum is at most 15 * 255.
constexpr int kSlideMaxRadius = 7;
constexpr int kStripOutputs = 1024;  // a 960-wide small plane is one strip
constexpr int kMaxSpan = 2 * kSlideMaxRadius * 2;
constexpr int kAnyRadius = -1;  // template radius read at run time

inline __m128i LoadU16x8(const uint16_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// sums[q] += add[q] (- sub[q]) over m columns, wrapping words; remainder:
// the scalar body over the last m % 8 columns (not idempotent, no overlap).
template <bool kSub>
void SlideColumns_SSE41(const uint8_t* add, const uint8_t* sub, uint16_t* sums, int m) {
  const __m128i zero = _mm_setzero_si128();
  int q = 0;
  for (; q + 16 <= m; q += 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(add + q));
    __m128i lo = _mm_add_epi16(LoadU16x8(sums + q), _mm_unpacklo_epi8(a, zero));
    __m128i hi = _mm_add_epi16(LoadU16x8(sums + q + 8), _mm_unpackhi_epi8(a, zero));
    if (kSub) {
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(sub + q));
      lo = _mm_sub_epi16(lo, _mm_unpacklo_epi8(b, zero));
      hi = _mm_sub_epi16(hi, _mm_unpackhi_epi8(b, zero));
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(sums + q), lo);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(sums + q + 8), hi);
  }
  for (; q < m; ++q) sums[q] = static_cast<uint16_t>(sums[q] + add[q] - (kSub ? sub[q] : 0));
}

// The horizontal 2r + 1 taps (kLead bytes apart) of eight outputs.
template <int kLead, int kR>
inline __m128i BoxSum8(const uint16_t* sums, int r) {
  const int taps = 2 * (kR == kAnyRadius ? r : kR) + 1;
  __m128i sum = LoadU16x8(sums);
  for (int j = 1; j < taps; ++j) sum = _mm_add_epi16(sum, LoadU16x8(sums + j * kLead));
  return sum;
}

template <int kLead>
inline uint32_t BoxSum_C(const uint16_t* sums, int r) {
  uint32_t sum = 0;
  for (int j = 0; j <= 2 * r; ++j) sum += sums[j * kLead];
  return sum;
}

// Eight sums already in words: the same two mulhrs steps as Normalise8Narrow.
inline __m128i NormaliseWords8Narrow(__m128i sums, __m128i w_scaled) {
  const __m128i t = _mm_mulhrs_epi16(sums, w_scaled);
  return _mm_and_si128(_mm_mulhrs_epi16(t, w_scaled), _mm_set1_epi16(0xFF));
}

inline __m128i NormaliseWords8Wide(__m128i sums, __m128i w) {
  const __m128i zero = _mm_setzero_si128();
  return Normalise8Wide(_mm_unpacklo_epi16(sums, zero), _mm_unpackhi_epi16(sums, zero), w);
}

// One strip row of n outputs from its column sums. Remainder: one last
// vector ending at n, overlapping outputs already written with the same
// values (idempotent); strips narrower than a vector take the scalar body.
template <int kLead, int kR, bool kNarrow>
void SlideBoxRow_SSE41(const uint16_t* sums, uint8_t* dst, int n, int r, uint32_t w) {
  if (n < 8) {
    for (int x = 0; x < n; ++x)
      dst[x] = static_cast<uint8_t>(Normalise(BoxSum_C<kLead>(sums + x, r), w));
    return;
  }
  const __m128i wv = kNarrow ? _mm_set1_epi16(static_cast<int16_t>(w << kNarrowScale))
                             : _mm_set1_epi32(static_cast<int>(w));
  for (int x = 0;; x += 8) {
    if (x > n - 8) x = n - 8;
    const __m128i sum = BoxSum8<kLead, kR>(sums + x, r);
    const __m128i words = kNarrow ? NormaliseWords8Narrow(sum, wv) : NormaliseWords8Wide(sum, wv);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + x), _mm_packus_epi16(words, words));
    if (x == n - 8) break;
  }
}

using SlideBoxRowFn = void (*)(const uint16_t* sums, uint8_t* dst, int n, int r, uint32_t w);

// Rows y0..y1 of the destination from expanded rows y0..y1 + 2r, strip by
// strip; a strip reads expanded columns x0..x0 + n + span - 1 only.
template <int kLead>
void SlideBand(SlideBoxRowFn box_row, const uint8_t* expanded, uint8_t* dst, int W, int r,
               uint32_t w, int y0, int y1) {
  const int span = 2 * r * kLead;
  const size_t pitch = static_cast<size_t>(W + span);
  uint16_t sums[kStripOutputs + kMaxSpan];
  for (int x0 = 0; x0 < W; x0 += kStripOutputs) {
    const int n = W - x0 < kStripOutputs ? W - x0 : kStripOutputs;
    const int m = n + span;
    const uint8_t* strip = expanded + x0;
    std::memset(sums, 0, static_cast<size_t>(m) * sizeof(sums[0]));
    for (int p = y0; p <= y0 + 2 * r && y0 <= y1; ++p)
      SlideColumns_SSE41<false>(strip + p * pitch, nullptr, sums, m);
    for (int y = y0; y <= y1; ++y) {
      box_row(sums, dst + static_cast<size_t>(y) * W + x0, n, r, w);
      if (y < y1)
        SlideColumns_SSE41<true>(strip + (y + 2 * r + 1) * pitch, strip + y * pitch, sums, m);
    }
  }
}

template <int kLead, int kR>
SlideBoxRowFn SlideRow(bool narrow) {
  return narrow ? SlideBoxRow_SSE41<kLead, kR, true> : SlideBoxRow_SSE41<kLead, kR, false>;
}

// The pipeline always runs r = 2, so that radius gets unrolled taps.
constexpr int kPipelineRadius = 2;

template <int kLead>
SlideBoxRowFn BestSlideRow(int r, uint32_t w) {
  const bool narrow = r <= kNarrowMaxRadius && w <= kNarrowMaxWeight;
  return r == kPipelineRadius ? SlideRow<kLead, kPipelineRadius>(narrow)
                              : SlideRow<kLead, kAnyRadius>(narrow);
}

#else

template <int kLead>
SmoothRows BestRows(int, uint32_t) {
  return kRows_C<kLead>;
}

#endif  // __SSE4_1__

// Expand rows y0..y1 + 2r, build integral rows y0..y1 + 2r (absolute row
// numbers) with the column sums in row H + 2r, and write rows y0..y1.
template <int kLead>
void Smooth(const SmoothRows rows, ExpandFn expand, const uint8_t* src, uint8_t* expanded,
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
    rows.integral(expanded + p * pitch, column_sums, row, stride);
    const int y = p - 2 * r;
    if (y < y0 || y > y1) continue;
    uint8_t* out = dst + y * static_cast<size_t>(W);
    if (y == y0) {
      rows.box_anchor(nullptr, row, out, W, span, w);
    } else {
      rows.box(row - (2 * r + 1) * pitch, row, out, W, span, w);
    }
  }
}

// The vectorised member: the sliding box within its word budget, the
// integral table otherwise (and on targets without SSE4.1).
template <int kLead>
void SmoothFast(ExpandFn expand, const uint8_t* src, uint8_t* expanded, uint8_t* dst, int W, int H,
                const uint16_t* kernel_weights, int r, uint8_t* integral, int y0, int y1) {
  const uint32_t w = kernel_weights[0];
#if defined(__SSE4_1__)
  if (r <= kSlideMaxRadius) {
    expand(src, expanded, W, H, r, y0, y1);
    SlideBand<kLead>(BestSlideRow<kLead>(r, w), expanded, dst, W, r, w, y0, y1);
    return;
  }
#endif
  Smooth<kLead>(BestRows<kLead>(r, w), expand, src, expanded, dst, W, H, kernel_weights, r,
                integral, y0, y1);
}

}  // namespace

// The kernel count (seventh argument) is never read: r and entry 0 of the
// weights define the filter.
DOFRA_SMOOTH(__GaussianSmoothImage_Y_integral_image_neon) {
  (void)count;
  SmoothFast<1>(__ExpandY, src, expanded, dst, W, H, kernel_weights, r, integral, row_start,
                row_end);
}

DOFRA_SMOOTH(__GaussianSmoothImage_Y_integral_image_c) {
  (void)count;
  Smooth<1>(kRows_C<1>, __ExpandY, src, expanded, dst, W, H, kernel_weights, r, integral, row_start,
            row_end);
}

DOFRA_SMOOTH(__GaussianSmoothImage_UV_integral_image_neon) {
  (void)count;
  SmoothFast<2>(__ExpandUV, src, expanded, dst, W, H, kernel_weights, r, integral, row_start,
                row_end);
}

DOFRA_SMOOTH(__GaussianSmoothImage_UV_integral_image_c) {
  (void)count;
  Smooth<2>(kRows_C<2>, __ExpandUV, src, expanded, dst, W, H, kernel_weights, r, integral,
            row_start, row_end);
}
