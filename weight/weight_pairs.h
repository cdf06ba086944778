// What the weight-map interpolation prepares once per pair of disparity rows
// and strip of output columns: each 16-column group's depth bounds and kind,
// the runs of groups of one kind, and the interpolated depth rows of the
// groups that need the per-pixel path.
#ifndef DOFRA_WEIGHT_WEIGHT_PAIRS_H
#define DOFRA_WEIGHT_WEIGHT_PAIRS_H

#include <cstdint>

#include "kernels/weight_rows.h"

namespace dofra {

// Group kinds, one byte each: the per-pixel path through the distance
// tables, a 16-depth window, or constant stretch i of the weight as
// kKindFill + i.
constexpr uint8_t kKindMixed = 0;
constexpr uint8_t kKindNarrow = 1;
constexpr uint8_t kKindFill = 2;
constexpr int kStretches = 3;
constexpr uint8_t kKindSentinel = 0xFF;  // after the last group
constexpr int kWordGroups = 8;           // kinds compared per word

// How groups are told apart. Depth ranges [first, last] over which the
// weight is one value: those that hold depth 0, the low end of the in-focus
// band and depth 255 (one range may stand more than once); other constant
// ranges are a step or two wide. And the narrowest depth range that is not
// narrow: with the distance tables valid every group takes them, as they
// cost less than a window per group.
struct KindRules {
  uint8_t first[kStretches];
  uint8_t last[kStretches];
  uint16_t weight[kStretches];
  uint8_t narrow_width;
};
KindRules KindRulesOf(const WeightLut& lut);

// The disparity columns one strip reads, the widest span of columns that one
// of its whole groups reads, and the step between the groups' first columns
// where it is the same small step throughout (else 0).
struct StripSpans {
  int first;
  int columns;
  int window;
  int step;
};
StripSpans SpansOf(const ColumnTable& cols);

// Past this many columns plus a window, bounds are taken group by group.
constexpr int kBoundsColumns = kWeightStrip + 64;

struct PairRows {
  alignas(32) uint16_t top[kWeightStrip];  // valid in runs that are not fills
  alignas(32) int16_t delta[kWeightStrip];
  uint8_t group_min[kWeightGroups];
  uint8_t group_max[kWeightGroups];
  uint8_t kind[kWeightGroups + kWordGroups + 1];  // read a word past the sentinel
  int runs;
  int run_end[kWeightGroups + 1];  // column after each run
  uint8_t run_kind[kWeightGroups + 1];
  uint8_t bounds[4][kBoundsColumns];  // scratch: min and max, two stages each
};

// Everything that the output rows between disparity rows r0 and r1 share.
// Remainder: the last n mod 16 columns form a mixed run of their own.
void PreparePair(LerpPairFn lerp, const uint8_t* r0, const uint8_t* r1, const ColumnTable& cols,
                 const StripSpans& spans, const KindRules& rules, PairRows* p);

}  // namespace dofra

#endif  // DOFRA_WEIGHT_WEIGHT_PAIRS_H
