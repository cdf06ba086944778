// AVX2 bulk helpers of chroma compositing (the plane drivers and the scalar
// formulas are in blur/composite_uv.cpp): the SSE4.1 members with 16 pairs
// per step, each 128-bit lane doing what one SSE4.1 vector does for 8 pairs
// with its own window; the 8- and 4-pair steps stay for the remainders.
//
// Everything here, the shared header's helpers included, has internal
// linkage: a shared inline helper compiled with -mavx2 could be the copy an
// SSE4.1-only CPU runs.
#include <immintrin.h>

#include "kernels/row_kernels.h"
#include "kernels/x86/composite_uv_x86.h"

namespace dofra {

namespace {

struct Table32 {
  uint8_t b[32];
};
inline __m256i LoadTable(const Table32& t) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(t.b));
}

// ---- 256-bit forms: lane 0 holds pairs p..p+7, lane 1 pairs p+8..p+15.

inline __m256i Load32(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline __m256i BothLanes(__m128i lo, __m128i hi) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
}

// The packs work per lane; 0xD8 puts the four quarters back in pair order.
constexpr int kQuartersInOrder = 0xD8;

// Weights of pairs p..p+15 from 32 entries, as PairWeights8.
inline __m256i PairWeights16(const uint16_t* wt) {
  const __m256i even = _mm256_set1_epi32(0xFFFF);
  const __m256i packed = _mm256_packus_epi32(_mm256_and_si256(Load32(wt), even),
                                             _mm256_and_si256(Load32(wt + 16), even));
  return _mm256_permute4x64_epi64(packed, kQuartersInOrder);
}

inline __m256i Blend(__m256i s, __m256i b, __m256i w) {
  return _mm256_add_epi16(s, _mm256_mulhrs_epi16(_mm256_slli_epi16(_mm256_sub_epi16(b, s), 5), w));
}

inline __m256i Vertical(__m256i h0, __m256i h1, __m256i fy7) {
  return _mm256_add_epi16(h0, _mm256_mulhrs_epi16(_mm256_sub_epi16(h1, h0), fy7));
}

inline __m256i Interleave(__m256i u, __m256i v) {
  const __m256i zip = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15));
  return _mm256_shuffle_epi8(_mm256_packus_epi16(u, v), zip);
}

// Blends pairs p..p+15 with blurred U lanes u and V lanes v and stores them.
inline void BlendStore32(const ChromaRow& row, int p, __m256i u, __m256i v) {
  const __m256i s = Load32(row.src + kPair * p);
  const __m256i w = PairWeights16(row.wt + kPair * p);
  const __m256i su = _mm256_and_si256(s, _mm256_set1_epi16(0xFF));
  const __m256i sv = _mm256_srli_epi16(s, 8);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(row.out + kPair * p),
                      Interleave(Blend(su, u, w), Blend(sv, v, w)));
}

// Remainder: 16 pairs per step, then 8 while all fit, then the driver's
// formula. The 2x2 mean has no fraction, so the run's rows share it outright.
int X2Bulk_AVX2(const ChromaRun& run, int pairs) {
  static constexpr Table16 kShufU = PairShuffle(kX2First, 0);
  static constexpr Table16 kShufV = PairShuffle(kX2First, 1);
  const __m256i shuf_u2 = _mm256_broadcastsi128_si256(LoadTable(kShufU));
  const __m256i shuf_v2 = _mm256_broadcastsi128_si256(LoadTable(kShufV));
  const int named = NamedX2(pairs);
  const __m256i ones2 = _mm256_set1_epi8(1), two2 = _mm256_set1_epi16(2);
  auto mean2 = [&](__m256i top, __m256i bottom, __m256i shuf) {
    const __m256i sum =
        _mm256_add_epi16(_mm256_maddubs_epi16(_mm256_shuffle_epi8(top, shuf), ones2),
                         _mm256_maddubs_epi16(_mm256_shuffle_epi8(bottom, shuf), ones2));
    return _mm256_srli_epi16(_mm256_add_epi16(sum, two2), 2);
  };
  // Pairs p + 8.. read small pairs from p / 2 + 4 on, 8 bytes further.
  auto window2 = [&](const uint8_t* row, int a) {
    return BothLanes(LoadWindow(row + a, named - a), LoadWindow(row + a + 8, named - a - 8));
  };
  int p = 0;
  for (; p + 16 <= pairs; p += 16) {
    const __m256i top = window2(run.s0, p), bottom = window2(run.s1, p);
    const __m256i u = mean2(top, bottom, shuf_u2), v = mean2(top, bottom, shuf_v2);
    for (int i = 0; i < run.n; ++i) BlendStore32(run.row[i], p, u, v);
  }
  return X2Steps8(run, p, pairs, named);
}

// 16 pairs per step, then the steps of XFSteps8.
template <int F>
void XFBulk_AVX2(const ChromaRun& run, int bulk_pairs) {
  static constexpr Table16 kShufU = PairShuffle(PhaseFirst(F), 0);
  static constexpr Table16 kShufV = PairShuffle(PhaseFirst(F), 1);
  static constexpr Table16 kWeights = PhaseWeights(F);
  const __m128i shuf_u = LoadTable(kShufU), shuf_v = LoadTable(kShufV);
  const __m128i weights = LoadTable(kWeights);
  const int named = NamedXF<F>(bulk_pairs);
  const __m256i shuf_u2 = _mm256_broadcastsi128_si256(shuf_u);
  const __m256i shuf_v2 = _mm256_broadcastsi128_si256(shuf_v);
  const __m256i weights2 = _mm256_broadcastsi128_si256(weights);
  const __m256i div2 = _mm256_set1_epi16(32768 / F);
  auto horizontal2 = [&](__m256i window, __m256i shuf) {
    return _mm256_mulhrs_epi16(_mm256_maddubs_epi16(_mm256_shuffle_epi8(window, shuf), weights2),
                               div2);
  };
  // Pairs p + 8.. start 8 / F small pairs further.
  constexpr int kLaneOffset = kPair * (8 / F);
  auto window2 = [&](const uint8_t* row, int a) {
    return BothLanes(LoadWindow(row + a, named - a),
                     LoadWindow(row + a + kLaneOffset, named - a - kLaneOffset));
  };
  int p = 0;
  for (; p + 16 <= bulk_pairs; p += 16) {
    const int a = kPair * (p / F);
    const __m256i top = window2(run.s0, a), bottom = window2(run.s1, a);
    const __m256i u0 = horizontal2(top, shuf_u2), u1 = horizontal2(bottom, shuf_u2);
    const __m256i v0 = horizontal2(top, shuf_v2), v1 = horizontal2(bottom, shuf_v2);
    for (int i = 0; i < run.n; ++i) {
      const __m256i fy7w = _mm256_set1_epi16(static_cast<int16_t>(run.fy[i] << 7));
      BlendStore32(run.row[i], p, Vertical(u0, u1, fy7w), Vertical(v0, v1, fy7w));
    }
  }
  XFSteps8<F>(run, p, bulk_pairs, named);
}

// Parts q and q + 1 side by side, as lanes of one vector: the tables of a
// pair of parts starting at part `first` (0, 1 or 2), channel c.
constexpr Table32 X6PairShuffle(int first, int c) {
  Table32 t{};
  for (int lane = 0; lane < 2; ++lane) {
    const Table16 part = PairShuffle(X6First((first + lane) % kX6Parts), c);
    for (int i = 0; i < 16; ++i) t.b[16 * lane + i] = static_cast<uint8_t>(part.b[i]);
  }
  return t;
}
constexpr Table32 X6PairWeights(int first) {
  Table32 t{};
  for (int lane = 0; lane < 2; ++lane) {
    const UTable16 part = X6Weights((first + lane) % kX6Parts);
    for (int i = 0; i < 16; ++i) t.b[16 * lane + i] = part.b[i];
  }
  return t;
}

// Horizontal step with 8-bit weights (left + right = 256, both fit u8).
// maddubs takes the weights unsigned and the samples biased to signed
// (s - 128): the sum L*left + R*right - 32768 stays in [-32768, 32512], and
// adding 0x8080 mod 2^16 gives L*left + R*right + 128 <= 65408 for the shift.
// The bulk is whole groups of 12 pairs, walked as parts of 8 pairs (part q
// from pair 1 + 8q, part q % 3 of block q / 3). Remainder: two parts per
// vector, then one part, then the half part (4 pairs) of a lone last group
// of 12. Each vector's four horizontal steps serve all rows of the run.
void X6Bulk_AVX2(const ChromaRun& run, int bulk_pairs) {
  static constexpr Table16 kShuf[kX6Parts][2] = {
      {PairShuffle(X6First(0), 0), PairShuffle(X6First(0), 1)},
      {PairShuffle(X6First(1), 0), PairShuffle(X6First(1), 1)},
      {PairShuffle(X6First(2), 0), PairShuffle(X6First(2), 1)}};
  static constexpr UTable16 kWeights[kX6Parts] = {X6Weights(0), X6Weights(1), X6Weights(2)};
  static constexpr Table32 kShuf2[kX6Parts][2] = {{X6PairShuffle(0, 0), X6PairShuffle(0, 1)},
                                                  {X6PairShuffle(1, 0), X6PairShuffle(1, 1)},
                                                  {X6PairShuffle(2, 0), X6PairShuffle(2, 1)}};
  static constexpr Table32 kWeights2[kX6Parts] = {X6PairWeights(0), X6PairWeights(1),
                                                  X6PairWeights(2)};
  const __m128i bias = _mm_set1_epi8(static_cast<char>(0x80));
  const __m128i unbias = _mm_set1_epi16(static_cast<int16_t>(0x8080));
  const __m256i unbias2 = _mm256_set1_epi16(static_cast<int16_t>(0x8080));
  const int named = NamedX6(bulk_pairs);
  // The window of block b: small pairs 4b..4b+4, biased.
  auto window = [&](const uint8_t* row, int block) {
    const int a = kPair * 4 * block;
    return _mm_xor_si128(LoadWindow(row + a, named - a), bias);
  };
  // u = 256 - fy except on fy = 0 rows, whose u wraps to 0: they blur to 0.
  auto rows2 = [&](int q) {
    const int first = q % kX6Parts;
    const __m256i top = BothLanes(window(run.s0, q / kX6Parts), window(run.s0, (q + 1) / kX6Parts));
    const __m256i bottom =
        BothLanes(window(run.s1, q / kX6Parts), window(run.s1, (q + 1) / kX6Parts));
    auto horizontal2 = [&](__m256i w, int c) {
      const __m256i sum = _mm256_maddubs_epi16(LoadTable(kWeights2[first]),
                                               _mm256_shuffle_epi8(w, LoadTable(kShuf2[first][c])));
      return _mm256_srli_epi16(_mm256_add_epi16(sum, unbias2), 8);
    };
    const __m256i u0 = horizontal2(top, 0), u1 = horizontal2(bottom, 0);
    const __m256i v0 = horizontal2(top, 1), v1 = horizontal2(bottom, 1);
    const int p = 1 + 8 * q;
    for (int i = 0; i < run.n; ++i) {
      if (run.fy[i] == 0) {
        BlendStore32(run.row[i], p, _mm256_setzero_si256(), _mm256_setzero_si256());
      } else {
        const __m256i fy7 = _mm256_set1_epi16(static_cast<int16_t>(run.fy[i] << 7));
        BlendStore32(run.row[i], p, Vertical(u0, u1, fy7), Vertical(v0, v1, fy7));
      }
    }
  };
  auto rows1 = [&](int q, auto store) {
    const int part = q % kX6Parts;
    const __m128i top = window(run.s0, q / kX6Parts), bottom = window(run.s1, q / kX6Parts);
    auto horizontal = [&](__m128i w, int c) {
      const __m128i sum = _mm_maddubs_epi16(LoadTable(kWeights[part]),
                                            _mm_shuffle_epi8(w, LoadTable(kShuf[part][c])));
      return _mm_srli_epi16(_mm_add_epi16(sum, unbias), 8);
    };
    const __m128i u0 = horizontal(top, 0), u1 = horizontal(bottom, 0);
    const __m128i v0 = horizontal(top, 1), v1 = horizontal(bottom, 1);
    const int p = 1 + 8 * q;
    for (int i = 0; i < run.n; ++i) {
      if (run.fy[i] == 0) {
        store(run.row[i], p, _mm_setzero_si128(), _mm_setzero_si128());
      } else {
        const __m128i fy7 = _mm_set1_epi16(static_cast<int16_t>(run.fy[i] << 7));
        store(run.row[i], p, Vertical(u0, u1, fy7), Vertical(v0, v1, fy7));
      }
    }
  };
  const int parts = bulk_pairs / 8;
  int q = 0;
  for (; q + 2 <= parts; q += 2) rows2(q);
  if (q < parts) rows1(q++, BlendStore16);
  if (8 * parts < bulk_pairs) rows1(q, BlendStore8);
}

}  // namespace

void FillCompositeUV_AVX2(RowKernels* k) {
  k->chroma_x2_bulk = X2Bulk_AVX2;
  k->chroma_x4_bulk = XFBulk_AVX2<4>;
  k->chroma_x6_bulk = X6Bulk_AVX2;
  k->chroma_x8_bulk = XFBulk_AVX2<8>;
}

}  // namespace dofra
