// AVX2 bulk helpers of chroma compositing (the plane drivers and the scalar
// formulas are in blur/composite_uv.cpp): the SSE4.1 members with 16 pairs
// per step, each 128-bit lane doing what one SSE4.1 vector does for 8 pairs
// with its own window; the 8- and 4-pair steps stay for the remainders.
//
// Everything here stays in this file's anonymous namespace: a shared inline
// helper compiled with -mavx2 could be the copy an SSE4.1-only CPU runs.
#include <immintrin.h>

#include <cstring>

#include "blur/row_kernels.h"

namespace {

using RowPtrs = ChromaRow;
using Run = ChromaRun;

constexpr int kPair = 2;  // bytes per pair
constexpr int kMaxRun = kMaxCompositeRun;
constexpr int kX6Cycle = 6;

// Vector bulk, 8 pairs (16 bytes) per vector pair: the U bytes and the V
// bytes of the pairs sit in two vectors of u16 lanes, lane j for pair j, so
// that one vector of pair weights serves both channels and the channels never
// meet until the final interleave.

inline __m128i Load16(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline __m128i Load8(const void* p) { return _mm_loadl_epi64(static_cast<const __m128i*>(p)); }

struct Table16 {
  int8_t b[16];
};
struct UTable16 {
  uint8_t b[16];
};
struct Table32 {
  uint8_t b[32];
};
inline __m128i LoadTable(const Table16& t) { return Load16(t.b); }
inline __m128i LoadTable(const UTable16& t) { return Load16(t.b); }
inline __m256i LoadTable(const Table32& t) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(t.b));
}

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
inline void BlendStore16(const RowPtrs& row, int p, __m128i u, __m128i v) {
  const __m128i s = Load16(row.src + kPair * p);
  const __m128i w = PairWeights8(row.wt + kPair * p);
  const __m128i su = _mm_and_si128(s, _mm_set1_epi16(0xFF));
  const __m128i sv = _mm_srli_epi16(s, 8);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(row.out + kPair * p),
                   Interleave(Blend(su, u, w), Blend(sv, v, w)));
}

// Pairs p..p+3 from lanes 0..3.
inline void BlendStore8(const RowPtrs& row, int p, __m128i u, __m128i v) {
  const __m128i s = Load8(row.src + kPair * p);
  const __m128i w = PairWeights4(row.wt + kPair * p);
  const __m128i su = _mm_and_si128(s, _mm_set1_epi16(0xFF));
  const __m128i sv = _mm_srli_epi16(s, 8);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(row.out + kPair * p),
                   Interleave(Blend(su, u, w), Blend(sv, v, w)));
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
inline void BlendStore32(const RowPtrs& row, int p, __m256i u, __m256i v) {
  const __m256i s = Load32(row.src + kPair * p);
  const __m256i w = PairWeights16(row.wt + kPair * p);
  const __m256i su = _mm256_and_si256(s, _mm256_set1_epi16(0xFF));
  const __m256i sv = _mm256_srli_epi16(s, 8);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(row.out + kPair * p),
                      Interleave(Blend(su, u, w), Blend(sv, v, w)));
}

// Shuffle picking, for lane j, the channel-c bytes of small pairs
// first[j] and first[j] + 1 of a window (pairs 2 bytes apart).
struct LaneFirst {
  int pair[8];
};
constexpr Table16 PairShuffle(LaneFirst f, int c) {
  Table16 t{};
  for (int j = 0; j < 8; ++j) {
    t.b[2 * j] = static_cast<int8_t>(kPair * f.pair[j] + c);
    t.b[2 * j + 1] = static_cast<int8_t>(kPair * f.pair[j] + kPair + c);
  }
  return t;
}

// ---- x2: lane j (pair p + j, p even) reads small pairs j/2 and j/2 + 1.
constexpr LaneFirst kX2First = {{0, 0, 1, 1, 2, 2, 3, 3}};

// Remainder: 16 pairs per step, then 8 while all fit, then the driver's
// formula. The 2x2 mean has no fraction, so the run's rows share it outright.
int X2Bulk_AVX2(const Run& run, int pairs) {
  static constexpr Table16 kShufU = PairShuffle(kX2First, 0);
  static constexpr Table16 kShufV = PairShuffle(kX2First, 1);
  const __m128i shuf_u = LoadTable(kShufU), shuf_v = LoadTable(kShufV);
  const __m128i ones = _mm_set1_epi8(1), two = _mm_set1_epi16(2);
  const int named = pairs > 0 ? kPair * (((pairs - 1) >> 1) + 2) : 0;
  // Sum of a 2x2 block: at most 4 * 255 + 2, fits u16.
  auto mean = [&](__m128i top, __m128i bottom, __m128i shuf) {
    const __m128i sum = _mm_add_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(top, shuf), ones),
                                      _mm_maddubs_epi16(_mm_shuffle_epi8(bottom, shuf), ones));
    return _mm_srli_epi16(_mm_add_epi16(sum, two), 2);
  };
  const __m256i shuf_u2 = _mm256_broadcastsi128_si256(shuf_u);
  const __m256i shuf_v2 = _mm256_broadcastsi128_si256(shuf_v);
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
  for (; p + 8 <= pairs; p += 8) {
    const int a = p;  // byte of small pair p / 2
    const __m128i top = LoadWindow(run.s0 + a, named - a);
    const __m128i bottom = LoadWindow(run.s1 + a, named - a);
    const __m128i u = mean(top, bottom, shuf_u), v = mean(top, bottom, shuf_v);
    for (int i = 0; i < run.n; ++i) BlendStore16(run.row[i], p, u, v);
  }
  return p;
}

// ---- x4, x8: lane j (pair p + j, p a multiple of F or of 4) reads small
// pairs j/F and j/F + 1 with phase j mod F. fx = 256 i / F, so
// (L*(256-fx) + R*fx + 128) >> 8 == (L*(F-i) + R*i + F/2) / F: maddubs forms
// the small sum (<= 255 * 8) and mulhrs(x, 32768 / F) == (x + F/2) >> log2 F.
constexpr LaneFirst PhaseFirst(int F) {
  LaneFirst f{};
  for (int j = 0; j < 8; ++j) f.pair[j] = j / F;
  return f;
}
constexpr Table16 PhaseWeights(int F) {
  Table16 t{};
  for (int j = 0; j < 8; ++j) {
    t.b[2 * j] = static_cast<int8_t>(F - j % F);
    t.b[2 * j + 1] = static_cast<int8_t>(j % F);
  }
  return t;
}

// Remainder: 16 pairs per step, then 8, then one group of 4 (x4's bulk_pairs is a
// multiple of 4, x8's of 8). The window of small pairs p/F.. is read only as
// far as the bulk names (pair (bulk_pairs - 1) / F + 1).
// Per column group the four horizontal vectors are formed once and stay in
// registers while the run's rows take their vertical step and blend.
template <int F>
void X48Bulk_AVX2(const Run& run, int bulk_pairs) {
  static constexpr Table16 kShufU = PairShuffle(PhaseFirst(F), 0);
  static constexpr Table16 kShufV = PairShuffle(PhaseFirst(F), 1);
  static constexpr Table16 kWeights = PhaseWeights(F);
  const __m128i shuf_u = LoadTable(kShufU), shuf_v = LoadTable(kShufV);
  const __m128i weights = LoadTable(kWeights);
  const __m128i div = _mm_set1_epi16(32768 / F);
  const int named = bulk_pairs > 0 ? kPair * ((bulk_pairs - 1) / F + 2) : 0;
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
  for (; p + 8 <= bulk_pairs; p += 8) group(p, BlendStore16);
  if (p < bulk_pairs) group(p, BlendStore8);
}

// ---- x6: a block of 24 pairs (two groups of 12) from pair 1 + 24b reads
// small pairs 4b..4b+4 (10 bytes, one window); its pair 1 + 24b + q has
// x0 = 4b + q/6 and cycle step q mod 6. Part v holds q = 8v..8v+7; a lone
// last group of 12 uses part 0 and lanes 0..3 of part 1.
constexpr int kX6Parts = 3;
constexpr LaneFirst X6First(int part) {
  LaneFirst f{};
  for (int j = 0; j < 8; ++j) f.pair[j] = (8 * part + j) / kX6Cycle;
  return f;
}
constexpr UTable16 X6Weights(int part) {
  UTable16 t{};
  for (int j = 0; j < 8; ++j) {
    const int i = (8 * part + j) % kX6Cycle;
    t.b[2 * j] = static_cast<uint8_t>(kX6Left[i]);
    t.b[2 * j + 1] = static_cast<uint8_t>(kX6Right[i]);
  }
  return t;
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
void X6Bulk_AVX2(const Run& run, int bulk_pairs) {
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
  const int named = bulk_pairs > 0 ? kPair * ((bulk_pairs - 1) / kX6Cycle + 2) : 0;
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
  k->chroma_x4_bulk = X48Bulk_AVX2<4>;
  k->chroma_x6_bulk = X6Bulk_AVX2;
  k->chroma_x8_bulk = X48Bulk_AVX2<8>;
}
