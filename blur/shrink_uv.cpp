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

#if defined(__SSE4_1__)
#include <smmintrin.h>
#endif

namespace {

constexpr int kBytesPerPair = 2;

template <int kFactor>
struct Taps;
template <>
struct Taps<2> {
  static constexpr int kWeight[2] = {1, 1};
  static constexpr int kShift = 1;
};
template <>
struct Taps<4> {
  static constexpr int kWeight[4] = {1, 1, 1, 1};
  static constexpr int kShift = 2;
};
template <>
struct Taps<6> {
  static constexpr int kWeight[6] = {1, 1, 2, 2, 1, 1};
  static constexpr int kShift = 3;
};
template <>
struct Taps<8> {
  static constexpr int kWeight[8] = {1, 1, 1, 1, 1, 1, 1, 1};
  static constexpr int kShift = 3;
};

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
struct ShrinkX2Rows {
  void (*horizontal)(const uint8_t* src, uint8_t* dst, int pairs);
  void (*vertical)(const uint8_t* top, uint8_t* dst, int w);
};

constexpr int kX2GroupBytes = 2 * kBytesPerPair;

void ShrinkX2Horizontal_C(const uint8_t* src, uint8_t* dst, int pairs) {
  HorizontalPairs_C<2>(src, dst, 0, pairs, kX2GroupBytes);
}

void ShrinkX2Vertical_C(const uint8_t* top, uint8_t* dst, int w) {
  VerticalBytes_C<2>(top, dst, 0, w, w);
}

#if defined(__SSE4_1__)
constexpr int kVec = 16;

// Remainder: vector on the first multiple of 16 output bytes, then the scalar
// formula pair by pair (reads stay inside the 4 * pairs source bytes).
void ShrinkX2Horizontal_SSE41(const uint8_t* src, uint8_t* dst, int pairs) {
  // Per 16-byte half: even pairs to the low 8 bytes, odd pairs to the high 8.
  const __m128i split = _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15);
  const int vec_end = (kBytesPerPair * pairs) & ~(kVec - 1);
  for (int x = 0; x < vec_end; x += kVec) {
    const __m128i a =
        _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * x)), split);
    const __m128i b = _mm_shuffle_epi8(
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * x + kVec)), split);
    // pavgb is (a + b + 1) >> 1, the factor-2 rounding, byte by byte.
    const __m128i avg = _mm_avg_epu8(_mm_unpacklo_epi64(a, b), _mm_unpackhi_epi64(a, b));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), avg);
  }
  HorizontalPairs_C<2>(src, dst, vec_end / kBytesPerPair, pairs, kX2GroupBytes);
}

// Remainder: 16 bytes at a time, then the scalar formula byte by byte.
void ShrinkX2Vertical_SSE41(const uint8_t* top, uint8_t* dst, int w) {
  const int vec_end = w & ~(kVec - 1);
  for (int x = 0; x < vec_end; x += kVec) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(top + x));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(top + w + x));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), _mm_avg_epu8(a, b));
  }
  VerticalBytes_C<2>(top, dst, vec_end, w, w);
}
#endif

void ShrinkX2(const ShrinkX2Rows& rows, const uint8_t* src, uint8_t* small, uint8_t* tmp, int W,
              int H, int w, int h, int y0, int y1) {
  const int ry = H / h;
  const int pairs = w / kBytesPerPair;
  const int r_last = ry * y1 + 1;
  for (int r = ry * y0; r <= r_last; ++r) {
    rows.horizontal(src + r * W, tmp + r * w, pairs);
  }
  for (int y = y0; y <= y1; ++y) rows.vertical(tmp + ry * y * w, small + y * w, w);
}

// x4, x6, x8: group start 2 * p * cx, 2 * floor(w / 2) bytes in both passes,
// nothing at all for w < 2.
template <int kFactor>
void ShrinkPairs_C(const uint8_t* src, uint8_t* small, uint8_t* tmp, int W, int H, int w, int h,
                   int y0, int y1) {
  if (w < kBytesPerPair) return;
  const int cx = W / w;
  const int ry = H / h;
  const int pairs = w / kBytesPerPair;
  const int r_last = ry * y1 + kFactor - 1;
  for (int r = ry * y0; r <= r_last; ++r) {
    HorizontalPairs_C<kFactor>(src + r * W, tmp + r * w, 0, pairs, kBytesPerPair * cx);
  }
  for (int y = y0; y <= y1; ++y) {
    VerticalBytes_C<kFactor>(tmp + ry * y * w, small + y * w, 0, kBytesPerPair * pairs, w);
  }
}

}  // namespace

DOFRA_SHRINK(__BiLinearInterp_UV_x2_c) {
  ShrinkX2({ShrinkX2Horizontal_C, ShrinkX2Vertical_C}, src, small, tmp, W, H, w, h, y0, y1);
}

DOFRA_SHRINK(__BiLinearInterp_UV_x2_neon) {
#if defined(__SSE4_1__)
  ShrinkX2({ShrinkX2Horizontal_SSE41, ShrinkX2Vertical_SSE41}, src, small, tmp, W, H, w, h, y0, y1);
#else
  __BiLinearInterp_UV_x2_c(src, small, tmp, W, H, w, h, y0, y1);
#endif
}

DOFRA_SHRINK(__BiLinearInterp_UV_x4_c) { ShrinkPairs_C<4>(src, small, tmp, W, H, w, h, y0, y1); }
DOFRA_SHRINK(__BiLinearInterp_UV_x6_c) { ShrinkPairs_C<6>(src, small, tmp, W, H, w, h, y0, y1); }
DOFRA_SHRINK(__BiLinearInterp_UV_x8_c) { ShrinkPairs_C<8>(src, small, tmp, W, H, w, h, y0, y1); }

DOFRA_SHRINK(__BiLinearInterp_UV_x4) { ShrinkPairs_C<4>(src, small, tmp, W, H, w, h, y0, y1); }
DOFRA_SHRINK(__BiLinearInterp_UV_x6) { ShrinkPairs_C<6>(src, small, tmp, W, H, w, h, y0, y1); }
DOFRA_SHRINK(__BiLinearInterp_UV_x8) { ShrinkPairs_C<8>(src, small, tmp, W, H, w, h, y0, y1); }
