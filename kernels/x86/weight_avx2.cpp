// AVX2 row helpers of the weight-map interpolation and the depth lookup (the
// drivers and the scalar formulas are in weight/weight_map.cpp and
// weight/depth_table.cpp): 32 pixels, or two groups of 16, per step, and the
// column interpolation 16 columns per step; the SSE4.1 members take the
// remainders.
//
// Everything here stays in this file's anonymous namespace: a shared inline
// helper compiled with -mavx2 could be the copy an SSE4.1-only CPU runs.
#include <immintrin.h>

#include <cstdint>

#include "kernels/weight_loops.h"

namespace dofra {

namespace {

const RowKernels& Sse41() { return RowKernelsAt(SimdLevel::kSse41); }

inline __m256i Load32(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void Store32(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
// Streaming stores need their width's alignment: a row 16-byte aligned only
// streams each half; one not even that is stored as usual.
template <bool kStream>
inline void Put32(uint16_t* out, __m256i v) {
  const uintptr_t at = reinterpret_cast<uintptr_t>(out);
  if (kStream && (at & 31) == 0) {
    _mm256_stream_si256(reinterpret_cast<__m256i*>(out), v);
  } else if (kStream && (at & 15) == 0) {
    _mm_stream_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(v));
    _mm_stream_si128(reinterpret_cast<__m128i*>(out + 8), _mm256_extracti128_si256(v, 1));
  } else {
    Store32(out, v);
  }
}
inline __m256i BothLanes(__m128i lo, __m128i hi) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
}
inline __m256i Broadcast(const void* p) {
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(static_cast<const __m128i*>(p)));
}

// top + ((delta * fy + 128) >> 8) for 16 pixels, as the SSE4.1 member:
// mulhrs(delta, fy << 7) is exactly that rounded product.
inline __m256i DepthOf16(__m256i top, __m256i delta, __m256i frac7) {
  return _mm256_add_epi16(top, _mm256_mulhrs_epi16(delta, frac7));
}

// 32 depths as bytes, lane-split: pixels 0..7, 16..23 | 8..15, 24..31. The
// in-lane unpacks of the looked-up bytes then give pixels 0..15 and 16..31.
inline __m256i Depths32(const uint16_t* top, const int16_t* delta, __m256i frac7) {
  return _mm256_packus_epi16(DepthOf16(Load32(top), Load32(delta), frac7),
                             DepthOf16(Load32(top + 16), Load32(delta + 16), frac7));
}

inline __m256i Fraction(const WeightRow& row) {
  return _mm256_set1_epi16(static_cast<int16_t>(row.fy << 7));
}

template <bool kStream>
inline void StoreWeights32(uint16_t* out, __m256i lo, __m256i hi) {
  Put32<kStream>(out, _mm256_unpacklo_epi8(lo, hi));
  Put32<kStream>(out + 16, _mm256_unpackhi_epi8(lo, hi));
}

// The distance tables of the SSE4.1 member, in both lanes.
struct DistanceTables {
  __m256i lo0, lo1, hi0, hi1, low, high, last, sixteen;
};

DistanceTables TablesOf(const WeightLut& lut) {
  return {Broadcast(lut.diff_lo),
          Broadcast(lut.diff_lo + 16),
          Broadcast(lut.diff_hi),
          Broadcast(lut.diff_hi + 16),
          _mm256_set1_epi8(static_cast<char>(lut.low)),
          _mm256_set1_epi8(static_cast<char>(lut.high)),
          _mm256_set1_epi8(kShortDiffs - 1),
          _mm256_set1_epi8(kShortDiffs / 2)};
}

// Low and high weight bytes of 32 byte depths, as the SSE4.1 member.
inline void LookUp(const DistanceTables& t, __m256i v, __m256i* lo, __m256i* hi) {
  // low <= high, so at most one saturating difference is nonzero.
  const __m256i d = _mm256_min_epu8(
      _mm256_or_si256(_mm256_subs_epu8(t.low, v), _mm256_subs_epu8(v, t.high)), t.last);
  const __m256i upper = _mm256_sub_epi8(d, t.sixteen);
  *lo = _mm256_xor_si256(_mm256_shuffle_epi8(t.lo0, d), _mm256_shuffle_epi8(t.lo1, upper));
  *hi = _mm256_xor_si256(_mm256_shuffle_epi8(t.hi0, d), _mm256_shuffle_epi8(t.hi1, upper));
}

// 32 pixels per step, then one group whose depths, packed with themselves,
// come out of the in-lane unpack in pixel order. Remainder: the SSE4.1
// member on the last n mod 16 columns.
template <bool kStream>
void WeightRowTable(const uint16_t* top, const int16_t* delta, int from, int to,
                    const WeightRow& row, const WeightLut& lut) {
  const DistanceTables t = TablesOf(lut);
  const __m256i frac7 = Fraction(row);
  __m256i lo, hi;
  int j = from;
  for (; j + 2 * kGroup <= to; j += 2 * kGroup) {
    LookUp(t, Depths32(top + j, delta + j, frac7), &lo, &hi);
    StoreWeights32<kStream>(row.out + j, lo, hi);
  }
  if (j + kGroup <= to) {
    const __m256i v = DepthOf16(Load32(top + j), Load32(delta + j), frac7);
    LookUp(t, _mm256_packus_epi16(v, v), &lo, &hi);
    Put32<kStream>(row.out + j, _mm256_unpacklo_epi8(lo, hi));
    j += kGroup;
  }
  if (j < to) Sse41().weight_row_short(top, delta, j, to, row, lut);
}

void WeightRowTable_AVX2(const uint16_t* top, const int16_t* delta, int from, int to,
                         const WeightRow& row, const WeightLut& lut) {
  (row.stream ? WeightRowTable<true> : WeightRowTable<false>)(top, delta, from, to, row, lut);
}

// Two groups per step, each lane with the tables of its own group: depths in
// pixel order (one cross-lane permutation), then looked up and interleaved
// in-lane, the two halves swapped back across lanes. Remainder: one group by
// the SSE4.1 member.
void NarrowRow_AVX2(const uint16_t* top, const int16_t* delta, const uint8_t* group_min, int from,
                    int to, const WeightRow& row, const WeightLut& lut) {
  constexpr int kPixelOrder = 0xD8;
  const __m256i frac7 = Fraction(row);
  int j = from;
  for (; j + 2 * kGroup <= to; j += 2 * kGroup) {
    const uint8_t a = group_min[j / kGroup], b = group_min[j / kGroup + 1];
    const __m256i lo_table =
        BothLanes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(lut.depth_lo + a)),
                  _mm_loadu_si128(reinterpret_cast<const __m128i*>(lut.depth_lo + b)));
    const __m256i hi_table =
        BothLanes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(lut.depth_hi + a)),
                  _mm_loadu_si128(reinterpret_cast<const __m128i*>(lut.depth_hi + b)));
    const __m256i at =
        BothLanes(_mm_set1_epi8(static_cast<char>(a)), _mm_set1_epi8(static_cast<char>(b)));
    const __m256i v = _mm256_permute4x64_epi64(Depths32(top + j, delta + j, frac7), kPixelOrder);
    const __m256i index = _mm256_sub_epi8(v, at);
    const __m256i lo = _mm256_shuffle_epi8(lo_table, index);
    const __m256i hi = _mm256_shuffle_epi8(hi_table, index);
    const __m256i first = _mm256_unpacklo_epi8(lo, hi), second = _mm256_unpackhi_epi8(lo, hi);
    Store32(row.out + j, _mm256_permute2x128_si256(first, second, 0x20));
    Store32(row.out + j + kGroup, _mm256_permute2x128_si256(first, second, 0x31));
  }
  if (j < to) Sse41().weight_narrow_row(top, delta, group_min, j, to, row, lut);
}

// One group's depths in one row: the two samples of every column gathered
// by shuffles from one 16-byte load, then one 16-lane interpolation.
__m256i LerpGroup(const uint8_t* row, const ColumnTable& c, int g) {
  const __m128i src = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + c.load_at[g]));
  const __m256i a = _mm256_cvtepu8_epi16(
      _mm_shuffle_epi8(src, _mm_load_si128(reinterpret_cast<const __m128i*>(c.pick0[g]))));
  const __m256i b = _mm256_cvtepu8_epi16(
      _mm_shuffle_epi8(src, _mm_load_si128(reinterpret_cast<const __m128i*>(c.pick1[g]))));
  return DepthOf16(a, _mm256_sub_epi16(b, a), Load32(c.frac7[g]));
}

// Remainder: the scalar formula (through the SSE4.1 member) on the last
// columns and on groups whose samples do not fit one load.
void LerpPair_AVX2(const uint8_t* row0, const uint8_t* row1, const ColumnTable& c, int from, int to,
                   uint16_t* top, int16_t* delta) {
  LerpPairWalk(row0, row1, c, from, to, top, delta, Sse41().weight_lerp_pair, [&](int g, int j) {
    const __m256i upper = LerpGroup(row0, c, g);
    Store32(top + j, upper);
    Store32(delta + j, _mm256_sub_epi16(LerpGroup(row1, c, g), upper));
  });
}

// 16 entries per store; remainder: the SSE4.1 member.
template <bool kStream>
void Fill(uint16_t* out, int n, uint16_t w) {
  const __m256i value = _mm256_set1_epi16(static_cast<int16_t>(w));
  int i = 0;
  for (; i + 16 <= n; i += 16) Put32<kStream>(out + i, value);
  if (i < n) Sse41().weight_fill_row(out + i, n - i, w, false);
}

void FillRow_AVX2(uint16_t* out, int n, uint16_t w, bool stream) {
  (stream ? Fill<true> : Fill<false>)(out, n, w);
}

// A 256-entry byte table as sixteen 16-entry rows: each row looked up by the
// low nibble, then the sixteen candidates narrowed by the high nibble's bits,
// lowest first, each brought to the top bit that blendv reads (shifting 16-bit
// lanes left by at most 3 keeps every byte's top bit its own).
// Remainder: the scalar formula on the last n mod 32 bytes.
void Lookup_AVX2(const uint8_t* src, uint8_t* dst, int n, const uint8_t* table) {
  constexpr int kRows = 16;
  __m256i rows[kRows];
  for (int k = 0; k < kRows; ++k) rows[k] = Broadcast(table + kRows * k);
  const __m256i low_nibble = _mm256_set1_epi8(0x0F);
  int i = 0;
  for (; i + 32 <= n; i += 32) {
    const __m256i x = Load32(src + i);
    const __m256i index = _mm256_and_si256(x, low_nibble);
    __m256i pick[kRows];
    for (int k = 0; k < kRows; ++k) pick[k] = _mm256_shuffle_epi8(rows[k], index);
    const __m256i bit[4] = {_mm256_slli_epi16(x, 3), _mm256_slli_epi16(x, 2),
                            _mm256_slli_epi16(x, 1), x};
    for (int level = 0, count = kRows; count > 1; ++level, count /= 2)
      for (int k = 0; k < count / 2; ++k)
        pick[k] = _mm256_blendv_epi8(pick[2 * k], pick[2 * k + 1], bit[level]);
    Store32(dst + i, pick[0]);
  }
  for (; i < n; ++i) dst[i] = table[src[i]];
}

}  // namespace

void FillWeight_AVX2(RowKernels* k) {
  k->weight_row_short = WeightRowTable_AVX2;
  k->weight_narrow_row = NarrowRow_AVX2;
  k->weight_fill_row = FillRow_AVX2;
  k->weight_lerp_pair = LerpPair_AVX2;
  k->depth_lookup = Lookup_AVX2;
}

}  // namespace dofra
