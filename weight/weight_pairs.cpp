// Per pair of disparity rows: group bounds from the disparity samples, group
// kinds, runs, and the depth rows of the runs that are not fills. Plain loops
// that the compiler vectorises; they run at disparity resolution.
#include "weight/weight_pairs.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace dofra {

namespace {

constexpr int kGroup = kWeightGroup;
constexpr int kMaxPickStep = 4;

// Bounds of each group straight from the rows: any span length.
void BoundsByGroup(const uint8_t* r0, const uint8_t* r1, const ColumnTable& cols, int groups,
                   PairRows* p) {
  for (int g = 0; g < groups; ++g) {
    uint8_t lo = 255, hi = 0;
    for (int c = cols.ix[g * kGroup]; c <= cols.ix1[g * kGroup + kGroup - 1]; ++c) {
      lo = std::min({lo, r0[c], r1[c]});
      hi = std::max({hi, r0[c], r1[c]});
    }
    p->group_min[g] = lo;
    p->group_max[g] = hi;
  }
}

// The loops below take restrict pointers and their counts by value (byte
// stores may alias anything) and pick values, not references, so that they
// vectorise.
inline uint8_t Min(uint8_t a, uint8_t b) { return a < b ? a : b; }
inline uint8_t Max(uint8_t a, uint8_t b) { return a > b ? a : b; }

void ColumnBounds(const uint8_t* __restrict a, const uint8_t* __restrict b, int n,
                  uint8_t* __restrict lo, uint8_t* __restrict hi) {
  for (int c = 0; c < n; ++c) {
    lo[c] = Min(a[c], b[c]);
    hi[c] = Max(a[c], b[c]);
  }
}

// Windows `step` columns longer: each reads the window `step` columns on.
void WidenWindows(const uint8_t* __restrict lo, const uint8_t* __restrict hi, int n, int step,
                  uint8_t* __restrict lo_next, uint8_t* __restrict hi_next) {
  for (int c = 0; c < n; ++c) {
    lo_next[c] = Min(lo[c], lo[c + step]);
    hi_next[c] = Max(hi[c], hi[c + step]);
  }
}

// The windows at groups that start `kStep` columns apart: a constant step
// lets the picks vectorise (8 output columns a disparity column gives 2).
template <int kStep>
void PickEvery(const uint8_t* __restrict lo, const uint8_t* __restrict hi, int groups,
               uint8_t* __restrict group_min, uint8_t* __restrict group_max) {
  for (int g = 0; g < groups; ++g) {
    group_min[g] = lo[g * kStep];
    group_max[g] = hi[g * kStep];
  }
}

// Bounds of every window of `window` columns, by doubling, then each group's
// window picked at its first column. Past the strip's last column both stages
// hold that column's bounds, so a window running off the end spans less,
// never more than the strip reads.
void BoundsByWindow(const uint8_t* r0, const uint8_t* r1, const ColumnTable& cols,
                    const StripSpans& s, int groups, PairRows* p) {
  uint8_t* lo = p->bounds[0];
  uint8_t* hi = p->bounds[1];
  uint8_t* lo_next = p->bounds[2];
  uint8_t* hi_next = p->bounds[3];
  const int columns = s.columns, window = s.window, end = columns + window;
  ColumnBounds(r0 + s.first, r1 + s.first, columns, lo, hi);
  const uint8_t lo_last = lo[columns - 1], hi_last = hi[columns - 1];
  std::fill(lo + columns, lo + end, lo_last);
  std::fill(hi + columns, hi + end, hi_last);
  std::fill(lo_next + columns, lo_next + end, lo_last);
  std::fill(hi_next + columns, hi_next + end, hi_last);
  for (int covered = 1; covered < window;) {
    const int step = std::min(covered, window - covered);
    WidenWindows(lo, hi, columns, step, lo_next, hi_next);
    std::swap(lo, lo_next);
    std::swap(hi, hi_next);
    covered += step;
  }
  switch (s.step) {
    case 1:
      return PickEvery<1>(lo, hi, groups, p->group_min, p->group_max);
    case 2:
      return PickEvery<2>(lo, hi, groups, p->group_min, p->group_max);
    case 3:
      return PickEvery<3>(lo, hi, groups, p->group_min, p->group_max);
    case 4:
      return PickEvery<4>(lo, hi, groups, p->group_min, p->group_max);
  }
  const int first = s.first;
  uint8_t* __restrict group_min = p->group_min;
  uint8_t* __restrict group_max = p->group_max;
  for (int g = 0; g < groups; ++g) {
    const int at = cols.ix[g * kGroup] - first;
    group_min[g] = lo[at];
    group_max[g] = hi[at];
  }
}

// Branch-free, so that the loop vectorises; a later stretch wins, and
// stretches never overlap unless they are the same one.
void Classify(const uint8_t* __restrict group_min, const uint8_t* __restrict group_max, int groups,
              KindRules s, uint8_t* __restrict kind) {
  const uint8_t narrow_width = s.narrow_width;
  for (int g = 0; g < groups; ++g) {
    const uint8_t lo = group_min[g], hi = group_max[g];
    uint8_t k = static_cast<uint8_t>(hi - lo) < narrow_width ? kKindNarrow : kKindMixed;
    k = (lo >= s.first[0] && hi <= s.last[0]) ? kKindFill : k;
    k = (lo >= s.first[1] && hi <= s.last[1]) ? kKindFill + 1 : k;
    k = (lo >= s.first[2] && hi <= s.last[2]) ? kKindFill + 2 : k;
    kind[g] = k;
  }
}

// A run ends at each group whose kind differs from the next one's (the
// sentinel after the last group differs from every kind): eight groups
// compared per little-endian word, each differing byte reduced to its top bit.
void FormRuns(int groups, int n, PairRows* p) {
  constexpr uint64_t kLow7 = 0x7F7F7F7F7F7F7F7FULL;
  constexpr uint64_t kTop = 0x8080808080808080ULL;
  uint8_t* kinds = p->kind;
  kinds[groups] = kKindSentinel;
  int runs = 0;
  for (int g = 0; g < groups; g += kWordGroups) {
    uint64_t here, next;
    memcpy(&here, kinds + g, sizeof here);
    memcpy(&next, kinds + g + 1, sizeof next);
    const uint64_t differ = here ^ next;
    for (uint64_t ends = (((differ & kLow7) + kLow7) | differ) & kTop; ends != 0;
         ends &= ends - 1) {
      const int end = g + __builtin_ctzll(ends) / 8;
      if (end >= groups) break;
      p->run_kind[runs] = kinds[end];
      p->run_end[runs++] = (end + 1) * kGroup;
    }
  }
  if (groups * kGroup < n) {
    p->run_kind[runs] = kKindMixed;
    p->run_end[runs++] = n;
  }
  p->runs = runs;
}

// Only where a run is not a fill: each row is interpolated for every pair it
// belongs to, which costs less than interpolating whole rows once.
void InterpolateRuns(LerpPairFn lerp, const uint8_t* r0, const uint8_t* r1, const ColumnTable& cols,
                     PairRows* p) {
  int from = 0;
  for (int r = 0; r < p->runs; from = p->run_end[r++]) {
    if (p->run_kind[r] >= kKindFill) continue;
    const int to = p->run_end[r];
    lerp(r0, r1, cols, from, to, p->top, p->delta);
  }
}

}  // namespace

KindRules KindRulesOf(const WeightLut& lut) {
  KindRules s;
  const int holds[kStretches] = {0, lut.low, kDepths - 1};
  for (int i = 0; i < kStretches; ++i) {
    int first = holds[i];
    while (first > 0 && lut.by_depth[first - 1] == lut.by_depth[holds[i]]) --first;
    s.first[i] = static_cast<uint8_t>(first);
    s.last[i] = lut.same_until[first];
    s.weight[i] = lut.by_depth[first];
  }
  s.narrow_width = lut.short_table ? 0 : static_cast<uint8_t>(kGroup);
  return s;
}

// Sample columns never decrease along a strip: a group reads the columns from
// its first pixel's ix to its last pixel's ix1, or a subset of them.
StripSpans SpansOf(const ColumnTable& cols) {
  StripSpans s;
  s.first = cols.ix[0];
  s.columns = cols.ix1[cols.n - 1] - s.first + 1;
  s.window = 0;
  const int groups = cols.n / kGroup;
  s.step = groups > 1 ? cols.ix[kGroup] - s.first : 0;
  for (int g = 0; g < groups; ++g) {
    s.window = std::max(s.window, cols.ix1[g * kGroup + kGroup - 1] - cols.ix[g * kGroup] + 1);
    if (cols.ix[g * kGroup] - s.first != g * s.step) s.step = 0;
  }
  if (s.step > kMaxPickStep) s.step = 0;
  return s;
}

void PreparePair(LerpPairFn lerp, const uint8_t* r0, const uint8_t* r1, const ColumnTable& cols,
                 const StripSpans& spans, const KindRules& rules, PairRows* p) {
  const int groups = cols.n / kGroup;
  if (groups > 0 && spans.columns + spans.window <= kBoundsColumns)
    BoundsByWindow(r0, r1, cols, spans, groups, p);
  else
    BoundsByGroup(r0, r1, cols, groups, p);
  Classify(p->group_min, p->group_max, groups, rules, p->kind);
  FormRuns(groups, cols.n, p);
  InterpolateRuns(lerp, r0, r1, cols, p);
}

}  // namespace dofra
