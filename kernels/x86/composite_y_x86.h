// 128-bit steps of luma compositing, shared by its SSE4.1 and AVX2 units, over
// the run loops of kernels/composite_y_loops.h. Include only from those
// units: everything here has internal linkage, so each unit keeps its own
// copy built with its own flags.
#ifndef DOFRA_KERNELS_X86_COMPOSITE_Y_X86_H
#define DOFRA_KERNELS_X86_COMPOSITE_Y_X86_H

#include <smmintrin.h>

#include <cstring>

#include "kernels/composite_y_loops.h"
#include "kernels/fixed_point.h"

namespace dofra {

namespace {

inline __m128i Load8(const void* p) { return _mm_loadl_epi64(static_cast<const __m128i*>(p)); }
inline __m128i Load16(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }

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
inline void BlendStore8(const LumaRow& q, int c, __m128i b16) {
  const __m128i s16 = _mm_cvtepu8_epi16(Load8(q.src + c));
  const __m128i o = Blend8(s16, b16, Load16(q.w + c));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(q.out + c), _mm_packus_epi16(o, o));
}

// Blends 16 columns at c with the blurred values lo (columns c..c+7) and hi.
inline void BlendStore16(const LumaRow& q, int c, __m128i lo, __m128i hi) {
  const __m128i src = Load16(q.src + c);
  const __m128i o_lo = Blend8(_mm_cvtepu8_epi16(src), lo, Load16(q.w + c));
  const __m128i o_hi = Blend8(_mm_unpackhi_epi8(src, _mm_setzero_si128()), hi, Load16(q.w + c + 8));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(q.out + c), _mm_packus_epi16(o_lo, o_hi));
}

// x2 from column c: 16 columns share 8 block means, each used twice.
int X2Groups(const LumaRow& q, int c, int W) {
  const __m128i two = _mm_set1_epi16(2);
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

inline void StoreRows8(StripCache& k, int i, __m128i h0, __m128i h1) {
  _mm_store_si128(reinterpret_cast<__m128i*>(k.h0 + i), h0);
  _mm_store_si128(reinterpret_cast<__m128i*>(k.d + i), _mm_sub_epi16(h1, h0));
}

template <int F>
struct XFPhase {
  static constexpr Table16 kShuffle = PairShuffleXF(F);
  static constexpr Table16 kWeights = PairWeightsXF(F);
  static constexpr int kStep = kBulkGroup / F;  // samples per 8 columns
};

// Horizontal step of the phase table. fx = 256 p / F is a multiple of 256 / F, so
// (L*(256-fx) + R*fx + 128) >> 8 == (L*(F-p) + R*p + F/2) / F: maddubs forms
// the small sum (<= 255 * 8) and mulhrs(x, 32768 / F) == (x + F/2) / F.
// Fills the strip cache for columns [c0 + i, c0 + len) of rows s0 and s1;
// len - i a multiple of 8, 16 columns per window, remainder one group of 8.
template <int F>
void XFHorizontalSteps16(const LumaRow& q, int c0, int i, int len, int named, StripCache& k) {
  using P = XFPhase<F>;
  constexpr int kStep = P::kStep;
  const __m128i shuffle_lo = LoadTable(P::kShuffle);
  const __m128i shuffle_hi = _mm_add_epi8(shuffle_lo, _mm_set1_epi8(kStep));
  const __m128i weights = LoadTable(P::kWeights);
  const __m128i div = _mm_set1_epi16(32768 / F);
  auto horizontal = [&](__m128i samples, __m128i shuffle) {
    const __m128i pairs = _mm_shuffle_epi8(samples, shuffle);
    return _mm_mulhrs_epi16(_mm_maddubs_epi16(pairs, weights), div);
  };
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

// x6 groups of 24 columns as three vectors of 8. Column t (0..23) of a group
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

// x6 horizontal step with 8-bit weights (left + right = 256, left <= 214 fits
// u8). maddubs takes the weights as unsigned and the samples biased to signed
// (s - 128): the pair sum stays in [-32768, 32512], and adding 0x8080 mod
// 2^16 restores L*left + R*right + 128 <= 65408 for the logical shift.
//
// One group of 24 bulk columns from column 1 + g0 + i, three vectors of 8.
inline void X6HorizontalGroup(const LumaRow& q, int g0, int i, int named, StripCache& k) {
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

}  // namespace

}  // namespace dofra

#endif  // DOFRA_KERNELS_X86_COMPOSITE_Y_X86_H
