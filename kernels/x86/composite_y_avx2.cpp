// AVX2 bulk helpers of luma compositing (the plane drivers and the scalar
// formulas are in blur/composite_y.cpp): the SSE4.1 members with 32 columns
// per step, their 16- and 8-column steps kept for the remainders.
//
// Everything here, the shared header's helpers included, has internal
// linkage: a shared inline helper compiled with -mavx2 could be the copy an
// SSE4.1-only CPU runs.
#include <immintrin.h>

#include <cstring>

#include "kernels/row_kernels.h"
#include "kernels/x86/composite_y_x86.h"

namespace dofra {

namespace {

inline __m256i Load32(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }

// Blend8 on 16 pixels.
inline __m256i Blend16(__m256i s16, __m256i b16, __m256i w16) {
  const __m256i d = _mm256_slli_epi16(_mm256_sub_epi16(b16, s16), 5);
  return _mm256_add_epi16(s16, _mm256_mulhrs_epi16(d, w16));
}

// The packs work per 128-bit lane; 0xD8 puts the four quarters back in
// column order.
constexpr int kQuartersInOrder = 0xD8;

// Blends 32 columns at c with the blurred values lo (columns c..c+15) and hi.
inline void BlendStore32(const LumaRow& q, int c, __m256i lo, __m256i hi) {
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
inline void BlendStore16Wide(const LumaRow& q, int c, __m256i b) {
  const __m256i o = Blend16(_mm256_cvtepu8_epi16(Load16(q.src + c)), b, Load32(q.w + c));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(q.out + c),
                   _mm_packus_epi16(_mm256_castsi256_si128(o), _mm256_extracti128_si256(o, 1)));
}

// x2: 32 columns share 16 block means, each used twice; then one step of 16.
// The rows share the means: the first row of a strip of columns forms them
// and keeps them, the others reload them, each row walking the strip in turn
// (two rows interleaved per step run slower on wide frames).
constexpr int kX2Strip = 4096;  // columns, a multiple of 32
struct X2Means {
  __m256i lo[kX2Strip / 32];
  __m256i hi[kX2Strip / 32];
};

int X2Bulk_AVX2(const LumaRow* rows, int count, int W) {
  const LumaRow& q = rows[0];
  const __m256i two16 = _mm256_set1_epi16(2);
  // Samples k..k+16 of both rows; k + 16 <= W / 2 - 1 while c + 32 <= W - 2.
  const int end = W - 2 >= 2 * kX2Group ? (W - 2 - 2 * kX2Group) / 32 * 32 + 32 : 0;
  X2Means means;
  for (int c0 = 0; c0 < end; c0 += kX2Strip) {
    const int c1 = c0 + kX2Strip < end ? c0 + kX2Strip : end;
    for (int c = c0, g = 0; c < c1; c += 2 * kX2Group, ++g) {
      const int k = c >> 1;
      const __m256i a = _mm256_add_epi16(_mm256_cvtepu8_epi16(Load16(q.s0 + k)),
                                         _mm256_cvtepu8_epi16(Load16(q.s0 + k + 1)));
      const __m256i b = _mm256_add_epi16(_mm256_cvtepu8_epi16(Load16(q.s1 + k)),
                                         _mm256_cvtepu8_epi16(Load16(q.s1 + k + 1)));
      const __m256i mean = _mm256_srli_epi16(_mm256_add_epi16(_mm256_add_epi16(a, b), two16), 2);
      // Means 0..3, 8..11 | 4..7, 12..15: the in-lane unpacks then give
      // columns c..c+15 and c+16..c+31.
      const __m256i m = _mm256_permute4x64_epi64(mean, kQuartersInOrder);
      means.lo[g] = _mm256_unpacklo_epi16(m, m);
      means.hi[g] = _mm256_unpackhi_epi16(m, m);
      BlendStore32(q, c, means.lo[g], means.hi[g]);
    }
    for (int i = 1; i < count; ++i)
      for (int c = c0, g = 0; c < c1; c += 2 * kX2Group, ++g)
        BlendStore32(rows[i], c, means.lo[g], means.hi[g]);
  }
  int n = end;
  for (int i = 0; i < count; ++i) n = X2Groups(rows[i], end, W);
  return n;
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
// multiple of 8; 32 columns per step, remainders one step of 16 and one
// group of 8. (h0*(256-fy) + h1*fy + 128) >> 8 == h0 + ((d*fy + 128) >> 8)
// == h0 + mulhrs(d, fy << 7); fy << 7 <= 32640 fits int16.
void VerticalBlendStrip(const LumaRow& q, int c0, int len, const StripCache& k) {
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

// XFHorizontalSteps16 with 32 columns per window while whole.
template <int F>
void XFHorizontalStrip(const LumaRow& q, int c0, int len, int named, StripCache& k) {
  using P = XFPhase<F>;
  constexpr int kStep = P::kStep;
  const __m128i shuffle_lo = LoadTable(P::kShuffle);
  const __m128i shuffle_hi = _mm_add_epi8(shuffle_lo, _mm_set1_epi8(kStep));
  const __m128i weights = LoadTable(P::kWeights);
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
  XFHorizontalSteps16<F>(q, c0, i, len, named, k);
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

// Fills the strip cache for bulk columns [1 + g0, 1 + g0 + len), g0 and len
// multiples of 24: 48 columns per window, remainder one group of 24.
void X6HorizontalStrip(const LumaRow& q, int g0, int len, int named, StripCache& k) {
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
void X6ZeroRow(const LumaRow& q, int n) {
  int c = 1;
  const __m256i zero = _mm256_setzero_si256();
  for (; c + 32 <= 1 + n; c += 32) BlendStore32(q, c, zero, zero);
  for (; c + 16 <= 1 + n; c += 16) BlendStore16(q, c, _mm_setzero_si128(), _mm_setzero_si128());
  if (c < 1 + n) BlendStore8(q, c, _mm_setzero_si128());
}

}  // namespace

void FillCompositeY_AVX2(RowKernels* k) {
  FillCompositeYLoops(k);
  k->luma_x2_bulk = X2Bulk_AVX2;  // the rows share their means
}

}  // namespace dofra
