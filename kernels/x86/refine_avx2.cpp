// AVX2 row helpers of the refined weight map (the driver and the scalar
// formulas are in weight/refine_map.cpp and weight/refine_rows.cpp): the
// SSE4.1 steps at twice the width, 16 columns in 16-bit lanes; the SSE4.1
// members take what does not fill a step.
//
// Everything here stays in this file's anonymous namespace: a shared inline
// helper compiled with -mavx2 could be the copy an SSE4.1-only CPU runs.
#include <immintrin.h>

#include "kernels/row_kernels.h"
#include "kernels/x86/refine_x86.h"

namespace dofra {

namespace {

// The SSE4.1 members, looked up once: they take a remainder per run.
const RowKernels& Sse41() {
  static const RowKernels& table = RowKernelsAt(SimdLevel::kSse41);
  return table;
}

inline __m256i Both(__m128i lo, __m128i hi) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
}
inline __m256i Broadcast(const void* p) { return _mm256_broadcastsi128_si256(Load128(p)); }
inline __m256i Widen(const uint8_t* p) { return _mm256_cvtepu8_epi16(Load128(p)); }

// Lane k of the 16 picks: column x + k's sample less `base`, zero-extended
// from a 16-byte load that both halves shuffle.
inline __m256i Gather16(const uint8_t* plane, int base, __m256i pick) {
  return _mm256_shuffle_epi8(Broadcast(plane + base), pick);
}

// As Distance8.
inline __m256i Distance16(__m256i y, __m256i v, __m256i u, __m256i sy, __m256i sv, __m256i su,
                          __m256i cw) {
  const __m256i chroma = _mm256_add_epi16(_mm256_abs_epi16(_mm256_sub_epi16(v, sv)),
                                          _mm256_abs_epi16(_mm256_sub_epi16(u, su)));
  const __m256i d = _mm256_add_epi16(_mm256_abs_epi16(_mm256_sub_epi16(y, sy)),
                                     _mm256_srli_epi16(_mm256_mullo_epi16(chroma, cw), 2));
  return _mm256_min_epi16(d, _mm256_set1_epi16(255));
}

// As RangeOf16, 32 distances; each half shuffles the same chunk.
inline __m256i RangeOf32(__m256i d, const RefineTables& t) {
  const __m256i nibble = _mm256_set1_epi8(15);
  const __m256i low = _mm256_and_si256(d, nibble);
  const __m256i high = _mm256_and_si256(_mm256_srli_epi16(d, 4), nibble);
  __m256i r = _mm256_setzero_si256();
  for (int c = 0; c < t.range_chunks; ++c) {
    const __m256i part = _mm256_shuffle_epi8(Broadcast(t.range + kRefineGroup * c), low);
    r = _mm256_or_si256(
        r, _mm256_and_si256(part, _mm256_cmpeq_epi8(high, _mm256_set1_epi8(static_cast<char>(c)))));
  }
  return r;
}

inline __m256i Lerp16(__m256i a, __m256i b, __m256i frac7) {
  return _mm256_add_epi16(a, _mm256_mulhrs_epi16(_mm256_sub_epi16(b, a), frac7));
}

// As Divide4, 8 lanes.
inline __m256i Divide8(__m256i n, __m256i s) {
  const __m256i q =
      _mm256_cvttps_epi32(_mm256_div_ps(_mm256_cvtepi32_ps(n), _mm256_cvtepi32_ps(s)));
  const __m256i r = _mm256_sub_epi32(n, _mm256_mullo_epi32(q, s));
  return _mm256_add_epi32(q, _mm256_srai_epi32(r, 31));
}

// As StoreWeights8, 16 depths.
inline void StoreWeights16(uint16_t* out, __m256i depth, const WeightLut& lut) {
  if (!lut.short_table) {
    alignas(32) uint16_t d[2 * kLanes];
    _mm256_store_si256(reinterpret_cast<__m256i*>(d), depth);
    for (int k = 0; k < 2 * kLanes; ++k) out[k] = lut.by_depth[d[k]];
    return;
  }
  const __m256i below = _mm256_sub_epi16(_mm256_set1_epi16(static_cast<int16_t>(lut.low)), depth);
  const __m256i above = _mm256_sub_epi16(depth, _mm256_set1_epi16(static_cast<int16_t>(lut.high)));
  const __m256i dist16 =
      _mm256_min_epi16(_mm256_max_epi16(_mm256_max_epi16(below, above), _mm256_setzero_si256()),
                       _mm256_set1_epi16(kShortDiffs - 1));
  // Each half's 8 distances twice over; the unpack takes the first 8.
  const __m256i dist = _mm256_packus_epi16(dist16, dist16);
  const __m256i upper = _mm256_sub_epi8(dist, _mm256_set1_epi8(kShortDiffs / 2));
  const __m256i lo = _mm256_xor_si256(_mm256_shuffle_epi8(Broadcast(lut.diff_lo), dist),
                                      _mm256_shuffle_epi8(Broadcast(lut.diff_lo + 16), upper));
  const __m256i hi = _mm256_xor_si256(_mm256_shuffle_epi8(Broadcast(lut.diff_hi), dist),
                                      _mm256_shuffle_epi8(Broadcast(lut.diff_hi + 16), upper));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm256_unpacklo_epi8(lo, hi));
}

struct RowWeights16 {
  bool flat;  // fy == 0: the upper weights are bx
  __m256i by0_7, by1_7, fy7, chroma_weight;
};

// As JointDepth8, 16 columns from x. The 32-bit sums hold columns 0..3,
// 8..11 (lo) and 4..7, 12..15 (hi), as the in-half unpacks leave them; the
// in-half pack puts them back in order.
inline __m256i JointDepth16(const RefineRow& row, const RefineColumns& cols, const RefineTables& t,
                            const RowWeights16& rw, int x) {
  const int base = cols.ix[x];
  const __m256i left = Both(PickOf8(cols.ix, x, base), PickOf8(cols.ix, x + kLanes, base));
  const __m256i right = Both(PickOf8(cols.ix1, x, base), PickOf8(cols.ix1, x + kLanes, base));
  const __m256i y = Widen(row.luma + x);
  __m128i v0, u0, v1, u1;
  Chroma8(row.chroma, x, &v0, &u0);
  Chroma8(row.chroma, x + kLanes, &v1, &u1);
  const __m256i v = Both(v0, v1), u = Both(u0, u1);
  const __m256i fx = Widen(cols.fx + x);
  const __m256i bx[2] = {_mm256_sub_epi16(_mm256_set1_epi16(kFracOne), fx), fx};
  __m256i depth[4], distance[4], purity[4];
  for (int k = 0; k < 4; ++k) {
    const SampleRow& s = k < 2 ? row.top : row.bottom;
    const __m256i pick = k & 1 ? right : left;
    depth[k] = Gather16(s.depth, base, pick);
    purity[k] = Gather16(s.purity, base, pick);
    distance[k] = Distance16(y, v, u, Gather16(s.y, base, pick), Gather16(s.v, base, pick),
                             Gather16(s.u, base, pick), rw.chroma_weight);
  }
  const __m256i zero = _mm256_setzero_si256();
  const __m256i r01 = RangeOf32(_mm256_packus_epi16(distance[0], distance[1]), t);
  const __m256i r23 = RangeOf32(_mm256_packus_epi16(distance[2], distance[3]), t);
  const __m256i range[4] = {_mm256_unpacklo_epi8(r01, zero), _mm256_unpackhi_epi8(r01, zero),
                            _mm256_unpacklo_epi8(r23, zero), _mm256_unpackhi_epi8(r23, zero)};
  __m256i sum = zero, weighted_lo = zero, weighted_hi = zero;
  for (int k = 0; k < 4; ++k) {
    const __m256i rp = _mm256_srli_epi16(
        _mm256_add_epi16(_mm256_mullo_epi16(range[k], purity[k]), _mm256_set1_epi16(kRound8)),
        kFracBits);
    const __m256i b = k >= 2    ? _mm256_mulhrs_epi16(bx[k & 1], rw.by1_7)
                      : rw.flat ? bx[k]
                                : _mm256_mulhrs_epi16(bx[k & 1], rw.by0_7);
    const __m256i w = _mm256_mullo_epi16(b, rp);
    sum = _mm256_add_epi16(sum, w);
    const __m256i low = _mm256_mullo_epi16(w, depth[k]), high = _mm256_mulhi_epu16(w, depth[k]);
    weighted_lo = _mm256_add_epi32(weighted_lo, _mm256_unpacklo_epi16(low, high));
    weighted_hi = _mm256_add_epi32(weighted_hi, _mm256_unpackhi_epi16(low, high));
  }
  const __m256i half = _mm256_srli_epi16(sum, 1), one = _mm256_set1_epi32(1);
  const __m256i q_lo = Divide8(_mm256_add_epi32(weighted_lo, _mm256_unpacklo_epi16(half, zero)),
                               _mm256_max_epi32(_mm256_unpacklo_epi16(sum, zero), one));
  const __m256i q_hi = Divide8(_mm256_add_epi32(weighted_hi, _mm256_unpackhi_epi16(half, zero)),
                               _mm256_max_epi32(_mm256_unpackhi_epi16(sum, zero), one));
  const __m256i joint = _mm256_packs_epi32(q_lo, q_hi);
  const __m256i fx7 = _mm256_slli_epi16(fx, 7);
  const __m256i bilinear =
      Lerp16(Lerp16(depth[0], depth[1], fx7), Lerp16(depth[2], depth[3], fx7), rw.fy7);
  return _mm256_blendv_epi8(joint, bilinear, _mm256_cmpeq_epi16(sum, zero));
}

// 16 columns per step; runs of 8 to 15 columns and steps whose samples do
// not gather go to the SSE4.1 member.
void JointRow_AVX2(const RefineRow& row, const RefineColumns& cols, const RefineTables& t, int from,
                   int to) {
  const RowWeights16 rw = {row.fy == 0,
                           _mm256_set1_epi16(static_cast<int16_t>((kFracOne - row.fy) << 7)),
                           _mm256_set1_epi16(static_cast<int16_t>(row.fy << 7)),
                           _mm256_set1_epi16(static_cast<int16_t>(row.fy << 7)),
                           _mm256_set1_epi16(static_cast<int16_t>(t.chroma_weight))};
  RefineWalk<kRefineGroup>(
      cols, from, to, [&](int a, int b) { Sse41().refine_joint_row(row, cols, t, a, b); },
      [&](int x) { StoreWeights16(row.out + x, JointDepth16(row, cols, t, rw, x), t.weights); });
}

// 16 columns per step from one load per sample row.
void BilinearRow_AVX2(const RefineRow& row, const RefineColumns& cols, const RefineTables& t,
                      int from, int to) {
  const __m256i fy7 = _mm256_set1_epi16(static_cast<int16_t>(row.fy << 7));
  auto rest = [&](int a, int b) { Sse41().refine_bilinear_row(row, cols, t, a, b); };
  RefineWalk<kRefineGroup>(cols, from, to, rest, [&](int x) {
    const int base = cols.ix[x];
    const __m256i left = Both(PickOf8(cols.ix, x, base), PickOf8(cols.ix, x + kLanes, base));
    const __m256i right = Both(PickOf8(cols.ix1, x, base), PickOf8(cols.ix1, x + kLanes, base));
    const __m256i fx7 = _mm256_slli_epi16(Widen(cols.fx + x), 7);
    const __m256i top =
        Lerp16(Gather16(row.top.depth, base, left), Gather16(row.top.depth, base, right), fx7);
    const __m256i bottom = Lerp16(Gather16(row.bottom.depth, base, left),
                                  Gather16(row.bottom.depth, base, right), fx7);
    StoreWeights16(row.out + x, Lerp16(top, bottom, fy7), t.weights);
  });
}

// 32 columns per step; the SSE4.1 member takes the rest.
void ColumnSums_AVX2(const uint8_t* const* rows, int n, uint16_t* sums, int from, int to) {
  int x = from;
  for (; x + 2 * kRefineGroup <= to; x += 2 * kRefineGroup) {
    __m256i lo = _mm256_setzero_si256(), hi = _mm256_setzero_si256();
    for (int r = 0; r < n; ++r) {
      lo = _mm256_add_epi16(lo, Widen(rows[r] + x));
      hi = _mm256_add_epi16(hi, Widen(rows[r] + x + kRefineGroup));
    }
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(sums + x), lo);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(sums + x + kRefineGroup), hi);
  }
  if (x < to) Sse41().refine_column_sums(rows, n, sums, x, to);
}

}  // namespace

void FillRefine_AVX2(RowKernels* k) {
  k->refine_joint_row = JointRow_AVX2;
  k->refine_bilinear_row = BilinearRow_AVX2;
  k->refine_column_sums = ColumnSums_AVX2;
}

}  // namespace dofra
