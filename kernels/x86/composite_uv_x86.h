// 128-bit steps of chroma compositing, shared by its SSE4.1 and AVX2 units,
// under the walks of kernels/composite_uv_loops.h. Include only from those
// units: everything here has internal linkage, so each unit keeps its own
// copy built with its own flags.
#ifndef DOFRA_KERNELS_X86_COMPOSITE_UV_X86_H
#define DOFRA_KERNELS_X86_COMPOSITE_UV_X86_H

#include <smmintrin.h>

#include <cstring>

#include "kernels/composite_uv_loops.h"

namespace dofra {

namespace {

inline __m128i Load16(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline __m128i Load8(const void* p) { return _mm_loadl_epi64(static_cast<const __m128i*>(p)); }

struct Table16 {
  int8_t b[16];
};
struct UTable16 {
  uint8_t b[16];
};
inline __m128i LoadTable(const Table16& t) { return Load16(t.b); }
inline __m128i LoadTable(const UTable16& t) { return Load16(t.b); }

// 16 small-row bytes at p of which `avail` (> 0) are named: a full load only
// while all 16 lie inside what the row names, else a zero-padded copy.
inline __m128i LoadWindow(const uint8_t* p, int avail) {
  if (avail >= 16) return Load16(p);
  uint8_t buf[16] = {0};
  std::memcpy(buf, p, static_cast<size_t>(avail));
  return Load16(buf);
}

// Weights of pairs p..p+7 (wt = luma row 2r + 2p) as u16 lanes: the even
// entries of 16 loaded ones, masked and packed. The odd entries read in
// between lie in the same luma row.
inline __m128i PairWeights8(const uint16_t* wt) {
  const __m128i even = _mm_set1_epi32(0xFFFF);
  return _mm_packus_epi32(_mm_and_si128(Load16(wt), even), _mm_and_si128(Load16(wt + 8), even));
}

// Pairs p..p+3 in lanes 0..3 from 8 entries.
inline __m128i PairWeights4(const uint16_t* wt) {
  return _mm_packus_epi32(_mm_and_si128(Load16(wt), _mm_set1_epi32(0xFFFF)), _mm_setzero_si128());
}

// (s*(1024-w) + b*w + 512) >> 10 == s + ((b-s)*w + 512) >> 10, s*1024 being
// a multiple of 1024; mulhrs(d << 5, w) = (d*32*w + 2^14) >> 15 is exactly
// that shift. |d << 5| <= 8160 and w <= 1024 both fit int16.
inline __m128i Blend(__m128i s, __m128i b, __m128i w) {
  return _mm_add_epi16(s, _mm_mulhrs_epi16(_mm_slli_epi16(_mm_sub_epi16(b, s), 5), w));
}

// (h0*(256-fy) + h1*fy + 128) >> 8 == h0 + ((h1-h0)*fy + 128) >> 8
// == h0 + mulhrs(h1 - h0, fy << 7); fy << 7 <= 32640 fits int16.
inline __m128i Vertical(__m128i h0, __m128i h1, __m128i fy7) {
  return _mm_add_epi16(h0, _mm_mulhrs_epi16(_mm_sub_epi16(h1, h0), fy7));
}

// U lanes and V lanes back to pairs; packus saturates (only weights above
// 1024 can leave 0..255).
inline __m128i Interleave(__m128i u, __m128i v) {
  const __m128i zip = _mm_setr_epi8(0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15);
  return _mm_shuffle_epi8(_mm_packus_epi16(u, v), zip);
}

// Blends pairs p..p+7 with blurred U lanes u and V lanes v and stores them.
inline void BlendStore16(const ChromaRow& row, int p, __m128i u, __m128i v) {
  const __m128i s = Load16(row.src + kPair * p);
  const __m128i w = PairWeights8(row.wt + kPair * p);
  const __m128i su = _mm_and_si128(s, _mm_set1_epi16(0xFF));
  const __m128i sv = _mm_srli_epi16(s, 8);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(row.out + kPair * p),
                   Interleave(Blend(su, u, w), Blend(sv, v, w)));
}

// Pairs p..p+3 from lanes 0..3.
inline void BlendStore8(const ChromaRow& row, int p, __m128i u, __m128i v) {
  const __m128i s = Load8(row.src + kPair * p);
  const __m128i w = PairWeights4(row.wt + kPair * p);
  const __m128i su = _mm_and_si128(s, _mm_set1_epi16(0xFF));
  const __m128i sv = _mm_srli_epi16(s, 8);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(row.out + kPair * p),
                   Interleave(Blend(su, u, w), Blend(sv, v, w)));
}

// Shuffle picking, for lane j, the channel-c bytes of small pairs
// first[j] and first[j] + 1 of a window (pairs 2 bytes apart).
constexpr Table16 PairShuffle(LaneFirst f, int c) {
  Table16 t{};
  for (int j = 0; j < 8; ++j) {
    t.b[2 * j] = static_cast<int8_t>(kPair * f.pair[j] + c);
    t.b[2 * j + 1] = static_cast<int8_t>(kPair * f.pair[j] + kPair + c);
  }
  return t;
}

// x2 steps of 8 pairs from p while all fit; returns the first pair left to
// the driver's formula. The 2x2 mean has no fraction, so the run's rows
// share it outright.
inline int X2Steps8(const ChromaRun& run, int p, int pairs, int named) {
  static constexpr Table16 kShufU = PairShuffle(kX2First, 0);
  static constexpr Table16 kShufV = PairShuffle(kX2First, 1);
  const __m128i shuf_u = LoadTable(kShufU), shuf_v = LoadTable(kShufV);
  const __m128i ones = _mm_set1_epi8(1), two = _mm_set1_epi16(2);
  // Sum of a 2x2 block: at most 4 * 255 + 2, fits u16.
  auto mean = [&](__m128i top, __m128i bottom, __m128i shuf) {
    const __m128i sum = _mm_add_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(top, shuf), ones),
                                      _mm_maddubs_epi16(_mm_shuffle_epi8(bottom, shuf), ones));
    return _mm_srli_epi16(_mm_add_epi16(sum, two), 2);
  };
  return X2Walk(p, pairs, [&](int q) {
    const int a = q;  // byte of small pair q / 2
    const __m128i top = LoadWindow(run.s0 + a, named - a);
    const __m128i bottom = LoadWindow(run.s1 + a, named - a);
    const __m128i u = mean(top, bottom, shuf_u), v = mean(top, bottom, shuf_v);
    for (int i = 0; i < run.n; ++i) BlendStore16(run.row[i], q, u, v);
  });
}

// ---- x4, x8: maddubs forms the small sum and
// mulhrs(x, 32768 / F) == (x + F/2) >> log2 F.
constexpr Table16 PhaseWeights(int F) {
  Table16 t{};
  for (int j = 0; j < 8; ++j) {
    t.b[2 * j] = static_cast<int8_t>(F - j % F);
    t.b[2 * j + 1] = static_cast<int8_t>(j % F);
  }
  return t;
}

// x4, x8 from pair p. Per column group the four horizontal vectors are
// formed once and stay in registers while the run's rows take their vertical
// step and blend.
template <int F>
void XFSteps8(const ChromaRun& run, int p, int bulk_pairs, int named) {
  static constexpr Table16 kShufU = PairShuffle(PhaseFirst(F), 0);
  static constexpr Table16 kShufV = PairShuffle(PhaseFirst(F), 1);
  static constexpr Table16 kWeights = PhaseWeights(F);
  const __m128i shuf_u = LoadTable(kShufU), shuf_v = LoadTable(kShufV);
  const __m128i weights = LoadTable(kWeights);
  const __m128i div = _mm_set1_epi16(32768 / F);
  __m128i fy7[kMaxRun];
  for (int i = 0; i < run.n; ++i) fy7[i] = _mm_set1_epi16(static_cast<int16_t>(run.fy[i] << 7));
  auto horizontal = [&](__m128i window, __m128i shuf) {
    return _mm_mulhrs_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(window, shuf), weights), div);
  };
  // Blends pairs p.. of every row of the run with `store` (16 or 8 bytes).
  auto group = [&](int p, auto store) {
    const int a = kPair * (p / F);
    const __m128i top = LoadWindow(run.s0 + a, named - a);
    const __m128i bottom = LoadWindow(run.s1 + a, named - a);
    const __m128i u0 = horizontal(top, shuf_u), u1 = horizontal(bottom, shuf_u);
    const __m128i v0 = horizontal(top, shuf_v), v1 = horizontal(bottom, shuf_v);
    for (int i = 0; i < run.n; ++i) {
      store(run.row[i], p, Vertical(u0, u1, fy7[i]), Vertical(v0, v1, fy7[i]));
    }
  };
  XFWalk(p, bulk_pairs, group, BlendStore16, BlendStore8);
}

// ---- x6: the weights of one part, left and right per lane.
constexpr UTable16 X6Weights(int part) {
  UTable16 t{};
  for (int j = 0; j < kStepPairs; ++j) {
    t.b[2 * j] = static_cast<uint8_t>(X6LeftWeight(part, j));
    t.b[2 * j + 1] = static_cast<uint8_t>(X6RightWeight(part, j));
  }
  return t;
}

}  // namespace

}  // namespace dofra

#endif  // DOFRA_KERNELS_X86_COMPOSITE_UV_X86_H
