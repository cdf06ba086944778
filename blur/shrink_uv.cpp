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
// nothing at all for w < 2. The row helpers differ between the formula and
// the vector member; the pass structure is shared.
struct ShrinkPairRows {
  // Pairs [0, pairs) of one row with groups `group_bytes` apart.
  void (*horizontal)(const uint8_t* src, uint8_t* dst, int pairs, int group_bytes);
  // Bytes [0, n) of one small row from the rows at top, top + stride, ...
  void (*vertical)(const uint8_t* top, uint8_t* dst, int n, int stride);
};

template <int kFactor>
void ShrinkPairHorizontal_C(const uint8_t* src, uint8_t* dst, int pairs, int group_bytes) {
  HorizontalPairs_C<kFactor>(src, dst, 0, pairs, group_bytes);
}

template <int kFactor>
void ShrinkPairVertical_C(const uint8_t* top, uint8_t* dst, int n, int stride) {
  VerticalBytes_C<kFactor>(top, dst, 0, n, stride);
}

template <int kFactor>
void ShrinkPairs(const ShrinkPairRows& rows, const uint8_t* src, uint8_t* small, uint8_t* tmp,
                 int W, int H, int w, int h, int y0, int y1) {
  if (w < kBytesPerPair) return;
  const int cx = W / w;
  const int ry = H / h;
  const int pairs = w / kBytesPerPair;
  const int r_last = ry * y1 + kFactor - 1;
  for (int r = ry * y0; r <= r_last; ++r) {
    rows.horizontal(src + r * W, tmp + r * w, pairs, kBytesPerPair * cx);
  }
  for (int y = y0; y <= y1; ++y) {
    rows.vertical(tmp + ry * y * w, small + y * w, kBytesPerPair * pairs, w);
  }
}

#if defined(__SSE4_1__)
// Horizontal pass, 8 output pairs per step when the groups are contiguous
// (cx == factor, as the pipeline passes). Each 16-byte load is shuffled so
// that maddubs with the tap weights and madd with ones leave 32-bit partial
// sums per channel (x4: whole sums of two pairs; x6, x8: two halves of one
// pair, joined by hadd), then packed as U, V, U, V... A sum is at most
// 8 * 255 = 2040, far inside every lane.
struct Table16 {
  int8_t b[16];
};

template <int kFactor>
struct HorizontalTables;
// Pairs A, B of one load: U(A) x4, V(A) x4, U(B) x4, V(B) x4.
template <>
struct HorizontalTables<4> {
  static constexpr Table16 kShuffle = {{0, 2, 4, 6, 1, 3, 5, 7, 8, 10, 12, 14, 9, 11, 13, 15}};
  static constexpr Table16 kTaps = {{1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}};
  static constexpr int kPairsPerLoad = 2;
};
// One pair per load: U taps 0-5 padded with two zero bytes, then V.
template <>
struct HorizontalTables<6> {
  static constexpr Table16 kShuffle = {{0, 2, 4, 6, 8, 10, -1, -1, 1, 3, 5, 7, 9, 11, -1, -1}};
  static constexpr Table16 kTaps = {{1, 1, 2, 2, 1, 1, 0, 0, 1, 1, 2, 2, 1, 1, 0, 0}};
  static constexpr int kPairsPerLoad = 1;
};
template <>
struct HorizontalTables<8> {
  static constexpr Table16 kShuffle = {{0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15}};
  static constexpr Table16 kTaps = {{1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}};
  static constexpr int kPairsPerLoad = 1;
};

inline __m128i Load16(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// Sums of the 4 output pairs whose groups start at g, g + gb, ... as 32-bit
// lanes U, V, U, V (two vectors' worth packed by the caller).
template <int kFactor>
inline __m128i FourPairSums(const uint8_t* g, int gb, __m128i shuffle, __m128i taps, __m128i ones) {
  using T = HorizontalTables<kFactor>;
  auto partial = [&](const uint8_t* q) {
    return _mm_madd_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(Load16(q), shuffle), taps), ones);
  };
  if (T::kPairsPerLoad == 2) {
    return _mm_packs_epi32(partial(g), partial(g + 2 * gb));
  }
  const __m128i ab = _mm_hadd_epi32(partial(g), partial(g + gb));
  const __m128i cd = _mm_hadd_epi32(partial(g + 2 * gb), partial(g + 3 * gb));
  return _mm_packs_epi32(ab, cd);
}

// Remainder: the scalar formula, for the pairs whose 16-byte load would
// reach past the row's last named source byte, and for cx != factor.
template <int kFactor>
void ShrinkPairHorizontal_SSE41(const uint8_t* src, uint8_t* dst, int pairs, int group_bytes) {
  constexpr int kGroup = kBytesPerPair * kFactor;
  constexpr int kShift = Taps<kFactor>::kShift;
  int p = 0;
  if (group_bytes == kGroup) {
    using T = HorizontalTables<kFactor>;
    const __m128i shuffle = _mm_loadu_si128(reinterpret_cast<const __m128i*>(T::kShuffle.b));
    const __m128i taps = _mm_loadu_si128(reinterpret_cast<const __m128i*>(T::kTaps.b));
    const __m128i ones = _mm_set1_epi16(1);
    const __m128i round = _mm_set1_epi16(1 << (kShift - 1));
    // The last load of a step starts at the group of pair p + 8 - kPairsPerLoad.
    const int named = kGroup * pairs;
    for (; kGroup * (p + 8 - T::kPairsPerLoad) + 16 <= named; p += 8) {
      const uint8_t* g = src + kGroup * p;
      const __m128i lo = FourPairSums<kFactor>(g, kGroup, shuffle, taps, ones);
      const __m128i hi = FourPairSums<kFactor>(g + 4 * kGroup, kGroup, shuffle, taps, ones);
      const __m128i out = _mm_packus_epi16(_mm_srli_epi16(_mm_add_epi16(lo, round), kShift),
                                           _mm_srli_epi16(_mm_add_epi16(hi, round), kShift));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + kBytesPerPair * p), out);
    }
  }
  HorizontalPairs_C<kFactor>(src, dst, p, pairs, group_bytes);
}

// Vertical pass, 16 bytes per step as u16 lanes; remainder: the scalar
// formula byte by byte.
template <int kFactor>
void ShrinkPairVertical_SSE41(const uint8_t* top, uint8_t* dst, int n, int stride) {
  constexpr int kShift = Taps<kFactor>::kShift;
  const __m128i round = _mm_set1_epi16(1 << (kShift - 1));
  const __m128i zero = _mm_setzero_si128();
  int x = 0;
  for (; x + 16 <= n; x += 16) {
    __m128i lo = round, hi = round;
    for (int i = 0; i < kFactor; ++i) {
      const __m128i v = Load16(top + i * stride + x);
      const __m128i wl = _mm_unpacklo_epi8(v, zero), wh = _mm_unpackhi_epi8(v, zero);
      for (int k = 0; k < Taps<kFactor>::kWeight[i]; ++k) {  // tap weights are 1 or 2
        lo = _mm_add_epi16(lo, wl);
        hi = _mm_add_epi16(hi, wh);
      }
    }
    const __m128i out = _mm_packus_epi16(_mm_srli_epi16(lo, kShift), _mm_srli_epi16(hi, kShift));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), out);
  }
  VerticalBytes_C<kFactor>(top, dst, x, n, stride);
}

template <int kFactor>
constexpr ShrinkPairRows kFastRows = {ShrinkPairHorizontal_SSE41<kFactor>,
                                      ShrinkPairVertical_SSE41<kFactor>};
#else
template <int kFactor>
constexpr ShrinkPairRows kFastRows = {ShrinkPairHorizontal_C<kFactor>,
                                      ShrinkPairVertical_C<kFactor>};
#endif

template <int kFactor>
constexpr ShrinkPairRows kFormulaRows = {ShrinkPairHorizontal_C<kFactor>,
                                         ShrinkPairVertical_C<kFactor>};

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

DOFRA_SHRINK(__BiLinearInterp_UV_x4_c) {
  ShrinkPairs<4>(kFormulaRows<4>, src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_UV_x6_c) {
  ShrinkPairs<6>(kFormulaRows<6>, src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_UV_x8_c) {
  ShrinkPairs<8>(kFormulaRows<8>, src, small, tmp, W, H, w, h, y0, y1);
}

DOFRA_SHRINK(__BiLinearInterp_UV_x4) {
  ShrinkPairs<4>(kFastRows<4>, src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_UV_x6) {
  ShrinkPairs<6>(kFastRows<6>, src, small, tmp, W, H, w, h, y0, y1);
}
DOFRA_SHRINK(__BiLinearInterp_UV_x8) {
  ShrinkPairs<8>(kFastRows<8>, src, small, tmp, W, H, w, h, y0, y1);
}
