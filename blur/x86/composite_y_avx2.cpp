// AVX2 bulk helpers of luma compositing (the plane drivers and the scalar
// formulas are in blur/composite_y.cpp): the SSE4.1 members with 32 columns
// per step, their 16- and 8-column steps kept for the remainders.
//
// Everything here stays in this file's anonymous namespace: a shared inline
// helper compiled with -mavx2 could be the copy an SSE4.1-only CPU runs.
#include <immintrin.h>

#include <cstring>

#include "blur/row_kernels.h"

namespace {

using RowCtx = LumaRow;

constexpr int kFracBits = 8;
constexpr int kBulkGroup = 8;  // x4 / x8 bulk columns per group
constexpr int kX2Group = 16;   // x2 bulk columns per group
constexpr int kX6Group = 24;   // x6 bulk columns per group

inline int Min(int a, int b) { return a < b ? a : b; }

inline __m128i Load8(const void* p) { return _mm_loadl_epi64(static_cast<const __m128i*>(p)); }
inline __m128i Load16(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline __m256i Load32(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }

// Small-row window of 8 bytes at p, of which only the first `need` are used.
// Past the row's last named sample (avail < 8) only `need` bytes are read.
inline __m128i LoadSamples(const uint8_t* p, int avail, int need) {
  if (avail >= 8) return Load8(p);
  uint8_t buf[8] = {0};
  std::memcpy(buf, p, static_cast<size_t>(need));
  return Load8(buf);
}

// Blend of 8 pixels in 16-bit lanes, exact for w in 0..1024:
// (s*(1024-w) + b*w + 512) >> 10 == s + ((d*w + 512) >> 10) with d = b - s,
// since s*1024 is a multiple of 1024; and mulhrs(d << 5, w) computes
// (d*32*w + 2^14) >> 15 == (d*w + 512) >> 10. |d << 5| <= 8160 and w <= 1024
// both fit int16. Heavier weights may leave 0..255; the caller's packus
// saturates them.
inline __m128i Blend8(__m128i s16, __m128i b16, __m128i w16) {
  const __m128i d = _mm_slli_epi16(_mm_sub_epi16(b16, s16), 5);
  return _mm_add_epi16(s16, _mm_mulhrs_epi16(d, w16));
}

// Blends 8 columns at c with the blurred values b16 and stores them.
inline void BlendStore8(const RowCtx& q, int c, __m128i b16) {
  const __m128i s16 = _mm_cvtepu8_epi16(Load8(q.src + c));
  const __m128i o = Blend8(s16, b16, Load16(q.w + c));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(q.out + c), _mm_packus_epi16(o, o));
}

// Blends 16 columns at c with the blurred values lo (columns c..c+7) and hi.
inline void BlendStore16(const RowCtx& q, int c, __m128i lo, __m128i hi) {
  const __m128i src = Load16(q.src + c);
  const __m128i o_lo = Blend8(_mm_cvtepu8_epi16(src), lo, Load16(q.w + c));
  const __m128i o_hi = Blend8(_mm_unpackhi_epi8(src, _mm_setzero_si128()), hi, Load16(q.w + c + 8));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(q.out + c), _mm_packus_epi16(o_lo, o_hi));
}

// Blend8 on 16 pixels.
inline __m256i Blend16(__m256i s16, __m256i b16, __m256i w16) {
  const __m256i d = _mm256_slli_epi16(_mm256_sub_epi16(b16, s16), 5);
  return _mm256_add_epi16(s16, _mm256_mulhrs_epi16(d, w16));
}

// The packs work per 128-bit lane; 0xD8 puts the four quarters back in
// column order.
constexpr int kQuartersInOrder = 0xD8;

// Blends 32 columns at c with the blurred values lo (columns c..c+15) and hi.
inline void BlendStore32(const RowCtx& q, int c, __m256i lo, __m256i hi) {
  const __m256i src = Load32(q.src + c);
  const __m256i s_lo = _mm256_cvtepu8_epi16(_mm256_castsi256_si128(src));
  const __m256i s_hi = _mm256_cvtepu8_epi16(_mm256_extracti128_si256(src, 1));
  const __m256i o_lo = Blend16(s_lo, lo, Load32(q.w + c));
  const __m256i o_hi = Blend16(s_hi, hi, Load32(q.w + c + 16));
  const __m256i packed = _mm256_packus_epi16(o_lo, o_hi);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(q.out + c),
                      _mm256_permute4x64_epi64(packed, kQuartersInOrder));
}

// Blends 16 columns at c with the blurred values b (columns c..c+15).
inline void BlendStore16Wide(const RowCtx& q, int c, __m256i b) {
  const __m256i o = Blend16(_mm256_cvtepu8_epi16(Load16(q.src + c)), b, Load32(q.w + c));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(q.out + c),
                   _mm_packus_epi16(_mm256_castsi256_si128(o), _mm256_extracti128_si256(o, 1)));
}

// x2: 32 columns share 16 block means, each used twice; then one step of 16.
int X2Bulk_AVX2(const RowCtx& q, int W) {
  const __m128i two = _mm_set1_epi16(2);
  const __m256i two16 = _mm256_set1_epi16(2);
  int c = 0;
  // Samples k..k+16 of both rows; k + 16 <= W / 2 - 1 while c + 32 <= W - 2.
  for (; c + 2 * kX2Group <= W - 2; c += 2 * kX2Group) {
    const int k = c >> 1;
    const __m256i a = _mm256_add_epi16(_mm256_cvtepu8_epi16(Load16(q.s0 + k)),
                                       _mm256_cvtepu8_epi16(Load16(q.s0 + k + 1)));
    const __m256i b = _mm256_add_epi16(_mm256_cvtepu8_epi16(Load16(q.s1 + k)),
                                       _mm256_cvtepu8_epi16(Load16(q.s1 + k + 1)));
    const __m256i mean = _mm256_srli_epi16(_mm256_add_epi16(_mm256_add_epi16(a, b), two16), 2);
    // Means 0..3, 8..11 | 4..7, 12..15: the in-lane unpacks then give
    // columns c..c+15 and c+16..c+31.
    const __m256i m = _mm256_permute4x64_epi64(mean, kQuartersInOrder);
    BlendStore32(q, c, _mm256_unpacklo_epi16(m, m), _mm256_unpackhi_epi16(m, m));
  }
  // Scalar remainder: columns past the last full group of 16 whose 2x2
  // samples k..k+8 are all named (c + 15 <= W - 3).
  for (; c + kX2Group <= W - 2; c += kX2Group) {
    const int k = c >> 1;
    const __m128i a =
        _mm_add_epi16(_mm_cvtepu8_epi16(Load8(q.s0 + k)), _mm_cvtepu8_epi16(Load8(q.s0 + k + 1)));
    const __m128i b =
        _mm_add_epi16(_mm_cvtepu8_epi16(Load8(q.s1 + k)), _mm_cvtepu8_epi16(Load8(q.s1 + k + 1)));
    const __m128i mean = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(a, b), two), 2);
    BlendStore16(q, c, _mm_unpacklo_epi16(mean, mean), _mm_unpackhi_epi16(mean, mean));
  }
  return c;
}

// Byte pairs (left, right) and their weights for one group of 8 columns of
// the phase table of factor F: column i of the group reads samples i / F and
// i / F + 1 with weights (F - i % F, i % F).
struct Table16 {
  int8_t b[16];
};

constexpr Table16 PairShuffleXF(int F) {
  Table16 t{};
  for (int i = 0; i < 8; ++i) {
    t.b[2 * i] = static_cast<int8_t>(i / F);
    t.b[2 * i + 1] = static_cast<int8_t>(i / F + 1);
  }
  return t;
}

constexpr Table16 PairWeightsXF(int F) {
  Table16 t{};
  for (int i = 0; i < 8; ++i) {
    t.b[2 * i] = static_cast<int8_t>(F - i % F);
    t.b[2 * i + 1] = static_cast<int8_t>(i % F);
  }
  return t;
}

inline __m128i LoadTable(const Table16& t) { return Load16(t.b); }

// Horizontally interpolated small rows of one strip of bulk columns, kept
// for every output row of a run: h0 (row r0) and d = h1 - h0 (row r1), both
// in 0..255 resp. -255..255 in 16-bit lanes. 8 KiB on the stack; wider rows
// take several strips.
constexpr int kStrip = 2016;  // a multiple of 32 and of 48
struct StripCache {
  alignas(32) int16_t h0[kStrip];
  alignas(32) int16_t d[kStrip];
};

inline void StoreRows8(StripCache& k, int i, __m128i h0, __m128i h1) {
  _mm_store_si128(reinterpret_cast<__m128i*>(k.h0 + i), h0);
  _mm_store_si128(reinterpret_cast<__m128i*>(k.d + i), _mm_sub_epi16(h1, h0));
}

inline void StoreRows16(StripCache& k, int i, __m256i h0, __m256i h1) {
  _mm256_store_si256(reinterpret_cast<__m256i*>(k.h0 + i), h0);
  _mm256_store_si256(reinterpret_cast<__m256i*>(k.d + i), _mm256_sub_epi16(h1, h0));
}

// A 16-byte small-row window at p of which only the first `need` bytes are
// used, read as LoadSamples does.
inline __m128i LoadWindow16(const uint8_t* p, int avail, int need) {
  if (avail >= 16) return Load16(p);
  uint8_t buf[16] = {0};
  std::memcpy(buf, p, static_cast<size_t>(need));
  return Load16(buf);
}

// Vertical step and blend of strip columns [0, len) at row column c0, len a
// multiple of 8; 16 columns per step, remainder one group of 8.
// (h0*(256-fy) + h1*fy + 128) >> 8 == h0 + ((d*fy + 128) >> 8)
// == h0 + mulhrs(d, fy << 7); fy << 7 <= 32640 fits int16.
inline void VerticalBlendStrip(const RowCtx& q, int c0, int len, const StripCache& k) {
  const __m256i fy7 = _mm256_set1_epi16(static_cast<int16_t>(q.fy << 7));
  auto vertical = [&](int i) {
    const __m256i h0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(k.h0 + i));
    const __m256i d = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(k.d + i));
    return _mm256_add_epi16(h0, _mm256_mulhrs_epi16(d, fy7));
  };
  int i = 0;
  for (; i + 32 <= len; i += 32) BlendStore32(q, c0 + i, vertical(i), vertical(i + 16));
  if (i + 16 <= len) {
    BlendStore16Wide(q, c0 + i, vertical(i));
    i += 16;
  }
  if (i < len) BlendStore8(q, c0 + i, _mm256_castsi256_si128(vertical(i)));
}

// Horizontal step of the phase table. fx = 256 p / F is a multiple of 256 / F, so
// (L*(256-fx) + R*fx + 128) >> 8 == (L*(F-p) + R*p + F/2) / F: maddubs forms
// the small sum (<= 255 * 8) and mulhrs(x, 32768 / F) == (x + F/2) / F.
// Fills the strip cache for columns [c0, c0 + len) of rows s0 and s1; len a
// multiple of 8: 32 columns per window, remainders one window of 16 and
// one group of 8.
template <int F>
void XFHorizontalStrip(const RowCtx& q, int c0, int len, int named, StripCache& k) {
  static constexpr Table16 kShuffle = PairShuffleXF(F);
  static constexpr Table16 kWeights = PairWeightsXF(F);
  constexpr int kStep = kBulkGroup / F;  // samples per 8 columns
  const __m128i shuffle_lo = LoadTable(kShuffle);
  const __m128i shuffle_hi = _mm_add_epi8(shuffle_lo, _mm_set1_epi8(kStep));
  const __m128i weights = LoadTable(kWeights);
  const __m128i div = _mm_set1_epi16(32768 / F);
  auto horizontal = [&](__m128i samples, __m128i shuffle) {
    const __m128i pairs = _mm_shuffle_epi8(samples, shuffle);
    return _mm_mulhrs_epi16(_mm_maddubs_epi16(pairs, weights), div);
  };
  // 16 columns per vector: lanes take columns 0..7 and 8..15 of the same
  // broadcast window, the second vector the 16 columns after.
  const __m256i shuffle_a =
      _mm256_inserti128_si256(_mm256_castsi128_si256(shuffle_lo), shuffle_hi, 1);
  const __m256i shuffle_b = _mm256_add_epi8(shuffle_a, _mm256_set1_epi8(2 * kStep));
  const __m256i weights2 = _mm256_broadcastsi128_si256(weights);
  const __m256i div2 = _mm256_set1_epi16(32768 / F);
  auto horizontal2 = [&](__m256i samples, __m256i shuffle) {
    const __m256i pairs = _mm256_shuffle_epi8(samples, shuffle);
    return _mm256_mulhrs_epi16(_mm256_maddubs_epi16(pairs, weights2), div2);
  };
  auto window = [&](const uint8_t* row, int a, int need) {
    return _mm256_broadcastsi128_si256(LoadWindow16(row + a, named - a, need));
  };
  int i = 0;
  for (; i + 4 * kBulkGroup <= len; i += 4 * kBulkGroup) {
    const int a = (c0 + i) / F;
    const __m256i top = window(q.s0, a, 4 * kStep + 1);
    const __m256i bottom = window(q.s1, a, 4 * kStep + 1);
    StoreRows16(k, i, horizontal2(top, shuffle_a), horizontal2(bottom, shuffle_a));
    StoreRows16(k, i + 16, horizontal2(top, shuffle_b), horizontal2(bottom, shuffle_b));
  }
  for (; i + 2 * kBulkGroup <= len; i += 2 * kBulkGroup) {
    const int a = (c0 + i) / F;
    const __m128i top = LoadSamples(q.s0 + a, named - a, 2 * kStep + 1);
    const __m128i bottom = LoadSamples(q.s1 + a, named - a, 2 * kStep + 1);
    StoreRows8(k, i, horizontal(top, shuffle_lo), horizontal(bottom, shuffle_lo));
    StoreRows8(k, i + 8, horizontal(top, shuffle_hi), horizontal(bottom, shuffle_hi));
  }
  if (i < len) {
    const int a = (c0 + i) / F;
    const __m128i top = LoadSamples(q.s0 + a, named - a, kStep + 1);
    const __m128i bottom = LoadSamples(q.s1 + a, named - a, kStep + 1);
    StoreRows8(k, i, horizontal(top, shuffle_lo), horizontal(bottom, shuffle_lo));
  }
}

// One horizontal pass per strip and run, then a vertical step per row.
template <int F>
void XFBulk_AVX2(const RowCtx* rows, int count, int end) {
  StripCache k;
  const int named = end > 0 ? (end - 1) / F + 2 : 0;  // samples the rows name
  for (int c0 = 0; c0 < end; c0 += kStrip) {
    const int len = Min(kStrip, end - c0);
    XFHorizontalStrip<F>(rows[0], c0, len, named, k);
    for (int i = 0; i < count; ++i) VerticalBlendStrip(rows[i], c0, len, k);
  }
}

// x6 groups of 24 columns as three vectors of 8 (two groups as three
// vectors of 16, below). Column t (0..23) of a group
// reads samples t / 6 and t / 6 + 1 with weights (left, right)[t % 6].
constexpr Table16 PairShuffleX6(int v) {
  Table16 t{};
  for (int i = 0; i < 8; ++i) {
    const int col = 8 * v + i;
    t.b[2 * i] = static_cast<int8_t>(col / 6);
    t.b[2 * i + 1] = static_cast<int8_t>(col / 6 + 1);
  }
  return t;
}

struct UTable16 {
  uint8_t b[16];
};

constexpr UTable16 PairWeightsX6(int v) {
  UTable16 t{};
  for (int i = 0; i < 8; ++i) {
    const int j = (8 * v + i) % 6;
    t.b[2 * i] = static_cast<uint8_t>(kX6Left[j]);
    t.b[2 * i + 1] = static_cast<uint8_t>(kX6Right[j]);
  }
  return t;
}

// Two groups of 24 columns as three vectors of 16: vector v holds the
// eight-column parts 2v and 2v + 1 of the pair, part p being part p % 3 of
// group p / 3, whose samples start 4 further on.
struct Table32 {
  uint8_t b[32];
};

constexpr Table32 PairShuffleX6Wide(int v) {
  Table32 t{};
  for (int lane = 0; lane < 2; ++lane) {
    const Table16 part = PairShuffleX6((2 * v + lane) % 3);
    for (int i = 0; i < 16; ++i)
      t.b[16 * lane + i] = static_cast<uint8_t>(part.b[i] + 4 * ((2 * v + lane) / 3));
  }
  return t;
}

constexpr Table32 PairWeightsX6Wide(int v) {
  Table32 t{};
  for (int lane = 0; lane < 2; ++lane) {
    const UTable16 part = PairWeightsX6((2 * v + lane) % 3);
    for (int i = 0; i < 16; ++i) t.b[16 * lane + i] = part.b[i];
  }
  return t;
}

inline __m256i LoadTable(const Table32& t) { return Load32(t.b); }

// x6 horizontal step with 8-bit weights (left + right = 256, left <= 214 fits
// u8). maddubs takes the weights as unsigned and the samples biased to signed
// (s - 128): the pair sum stays in [-32768, 32512], and adding 0x8080 mod
// 2^16 restores L*left + R*right + 128 <= 65408 for the logical shift.
//
// One group of 24 bulk columns from column 1 + g0 + i, three vectors of 8.
void X6HorizontalGroup(const RowCtx& q, int g0, int i, int named, StripCache& k) {
  static constexpr Table16 kShuffle[3] = {PairShuffleX6(0), PairShuffleX6(1), PairShuffleX6(2)};
  static constexpr UTable16 kWeights[3] = {PairWeightsX6(0), PairWeightsX6(1), PairWeightsX6(2)};
  constexpr int kNeed = 5;  // samples per group of 24
  const __m128i bias = _mm_set1_epi8(static_cast<char>(0x80));
  const __m128i unbias = _mm_set1_epi16(static_cast<int16_t>(0x8080));
  auto horizontal = [&](__m128i samples, int v) {
    const __m128i pairs = _mm_shuffle_epi8(samples, LoadTable(kShuffle[v]));
    const __m128i sum = _mm_maddubs_epi16(Load16(kWeights[v].b), pairs);
    return _mm_srli_epi16(_mm_add_epi16(sum, unbias), kFracBits);
  };
  const int a = (g0 + i) / 6;
  const __m128i top = _mm_xor_si128(LoadSamples(q.s0 + a, named - a, kNeed), bias);
  const __m128i bottom = _mm_xor_si128(LoadSamples(q.s1 + a, named - a, kNeed), bias);
  for (int v = 0; v < 3; ++v) StoreRows8(k, i + 8 * v, horizontal(top, v), horizontal(bottom, v));
}

// Fills the strip cache for bulk columns [1 + g0, 1 + g0 + len), g0 and len
// multiples of 24: 48 columns per window, remainder one group of 24.
void X6HorizontalStrip(const RowCtx& q, int g0, int len, int named, StripCache& k) {
  static constexpr Table32 kShuffle2[3] = {PairShuffleX6Wide(0), PairShuffleX6Wide(1),
                                           PairShuffleX6Wide(2)};
  static constexpr Table32 kWeights2[3] = {PairWeightsX6Wide(0), PairWeightsX6Wide(1),
                                           PairWeightsX6Wide(2)};
  constexpr int kNeed2 = 9;  // samples per two groups
  const __m256i bias2 = _mm256_set1_epi8(static_cast<char>(0x80));
  const __m256i unbias2 = _mm256_set1_epi16(static_cast<int16_t>(0x8080));
  auto horizontal2 = [&](__m256i samples, int v) {
    const __m256i pairs = _mm256_shuffle_epi8(samples, LoadTable(kShuffle2[v]));
    const __m256i sum = _mm256_maddubs_epi16(LoadTable(kWeights2[v]), pairs);
    return _mm256_srli_epi16(_mm256_add_epi16(sum, unbias2), kFracBits);
  };
  auto window = [&](const uint8_t* row, int a) {
    const __m128i w = LoadWindow16(row + a, named - a, kNeed2);
    return _mm256_xor_si256(_mm256_broadcastsi128_si256(w), bias2);
  };
  int i = 0;
  for (; i + 2 * kX6Group <= len; i += 2 * kX6Group) {
    const int a = (g0 + i) / 6;
    const __m256i top = window(q.s0, a), bottom = window(q.s1, a);
    for (int v = 0; v < 3; ++v)
      StoreRows16(k, i + 16 * v, horizontal2(top, v), horizontal2(bottom, v));
  }
  if (i < len) X6HorizontalGroup(q, g0, i, named, k);
}

// Blends bulk columns [1, 1 + n) with the blurred value 0 (a row with fy = 0).
void X6ZeroRow(const RowCtx& q, int n) {
  int c = 1;
  const __m256i zero = _mm256_setzero_si256();
  for (; c + 32 <= 1 + n; c += 32) BlendStore32(q, c, zero, zero);
  for (; c + 16 <= 1 + n; c += 16) BlendStore16(q, c, _mm_setzero_si128(), _mm_setzero_si128());
  if (c < 1 + n) BlendStore8(q, c, _mm_setzero_si128());
}

// As XFBulk_AVX2. A row with fy = 0 (the first of its r0, or with tiny dy
// several) has its upper weight wrapped to 0 as well, so it blurs to 0.
void X6Bulk_AVX2(const RowCtx* rows, int count, int n) {
  int blurred = 0;
  for (int i = 0; i < count; ++i) {
    if (rows[i].fy == 0)
      X6ZeroRow(rows[i], n);
    else
      ++blurred;
  }
  if (blurred == 0) return;
  StripCache k;
  const int named = n / 6 + 1;  // samples the rows name
  for (int g0 = 0; g0 < n; g0 += kStrip) {
    const int len = Min(kStrip, n - g0);
    X6HorizontalStrip(rows[0], g0, len, named, k);
    for (int i = 0; i < count; ++i)
      if (rows[i].fy != 0) VerticalBlendStrip(rows[i], 1 + g0, len, k);
  }
}

}  // namespace

void FillCompositeY_AVX2(RowKernels* k) {
  k->luma_x2_bulk = X2Bulk_AVX2;
  k->luma_x4_bulk = XFBulk_AVX2<4>;
  k->luma_x6_bulk = X6Bulk_AVX2;
  k->luma_x8_bulk = XFBulk_AVX2<8>;
}
