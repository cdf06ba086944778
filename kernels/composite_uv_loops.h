// The run walks of the chroma compositing bulk, written once for every
// instruction set: which pairs a vector step covers, how far a small row is
// read, and in what order blocks and parts go. A unit includes this and
// passes its vector steps in. Plain C++, no intrinsics, internal linkage.
//
// Vector bulk, 8 pairs (16 bytes) per step: the U bytes and the V bytes of
// the pairs sit in two vectors of 16-bit lanes, lane j for pair j, so that
// one vector of pair weights serves both channels and the channels never
// meet until the final interleave.
#ifndef DOFRA_KERNELS_COMPOSITE_UV_LOOPS_H
#define DOFRA_KERNELS_COMPOSITE_UV_LOOPS_H

#include "kernels/row_kernels.h"

namespace dofra {

namespace {

constexpr int kPair = 2;  // bytes per pair
constexpr int kMaxRun = kMaxCompositeRun;
constexpr int kStepPairs = 8;  // pairs per vector step
constexpr int kX6Cycle = 6;

// Small pairs lane j of a step reads first: pair[j] and pair[j] + 1.
struct LaneFirst {
  int pair[kStepPairs];
};

// ---- x2: lane j (pair p + j, p even) reads small pairs j/2 and j/2 + 1.
constexpr LaneFirst kX2First = {{0, 0, 1, 1, 2, 2, 3, 3}};

// Bytes of the small rows an x2 bulk of `pairs` pairs names.
inline int NamedX2(int pairs) { return pairs > 0 ? kPair * (((pairs - 1) >> 1) + 2) : 0; }

// Steps of 8 pairs from p while all fit; returns the first pair left to the
// driver's formula.
template <typename Step>
inline int X2Walk(int p, int pairs, Step step) {
  for (; p + kStepPairs <= pairs; p += kStepPairs) step(p);
  return p;
}

// ---- x4, x8: lane j (pair p + j, p a multiple of F or of 4) reads small
// pairs j/F and j/F + 1 with phase j mod F. fx = 256 i / F, so
// (L*(256-fx) + R*fx + 128) >> 8 == (L*(F-i) + R*i + F/2) / F: the small sum
// (<= 255 * 8) divided by F with rounding.
constexpr LaneFirst PhaseFirst(int F) {
  LaneFirst f{};
  for (int j = 0; j < kStepPairs; ++j) f.pair[j] = j / F;
  return f;
}

// The window of small pairs p/F.. is read only as far as the bulk names
// (pair (bulk_pairs - 1) / F + 1).
template <int F>
inline int NamedXF(int bulk_pairs) {
  return bulk_pairs > 0 ? kPair * ((bulk_pairs - 1) / F + 2) : 0;
}

// From pair p: 8 pairs per step, then one group of 4 (x4's bulk_pairs is a
// multiple of 4, x8's of 8). group(p, store) blends pairs p.. of every row
// of the run with the 16- or the 8-byte store.
template <typename Group, typename Whole, typename Half>
inline void XFWalk(int p, int bulk_pairs, Group group, Whole whole, Half half) {
  for (; p + kStepPairs <= bulk_pairs; p += kStepPairs) group(p, whole);
  if (p < bulk_pairs) group(p, half);
}

// ---- x6: a block of 24 pairs (two groups of 12) from pair 1 + 24b reads
// small pairs 4b..4b+4 (10 bytes, one window); its pair 1 + 24b + q has
// x0 = 4b + q/6 and cycle step q mod 6. Part v holds q = 8v..8v+7; a lone
// last group of 12 uses part 0 and lanes 0..3 of part 1.
constexpr int kX6Parts = 3;
constexpr int kX6BlockPairs = kStepPairs * kX6Parts;

constexpr LaneFirst X6First(int part) {
  LaneFirst f{};
  for (int j = 0; j < kStepPairs; ++j) f.pair[j] = (kStepPairs * part + j) / kX6Cycle;
  return f;
}
// Left and right weights of lane j of a part.
constexpr int X6LeftWeight(int part, int j) { return kX6Left[(kStepPairs * part + j) % kX6Cycle]; }
constexpr int X6RightWeight(int part, int j) {
  return kX6Right[(kStepPairs * part + j) % kX6Cycle];
}

inline int NamedX6(int bulk_pairs) {
  return bulk_pairs > 0 ? kPair * ((bulk_pairs - 1) / kX6Cycle + 2) : 0;
}

// The bulk is whole groups of 12 pairs: blocks of 24 (three full parts),
// then at most one group of 12 as 16 + 8 bytes. load(p) reads the block's
// windows; part(part, p, store) serves all rows of the run with one part.
template <typename Load, typename Part, typename Whole, typename Half>
inline void X6Walk(int bulk_pairs, Load load, Part part, Whole whole, Half half) {
  int p = 1;
  for (; p + kX6BlockPairs - 1 <= bulk_pairs; p += kX6BlockPairs) {
    load(p);
    for (int v = 0; v < kX6Parts; ++v) part(v, p + kStepPairs * v, whole);
  }
  if (p + kX6GroupPairs - 1 <= bulk_pairs) {
    load(p);
    part(0, p, whole);
    part(1, p + kStepPairs, half);
  }
}

// The small row's byte of the block that pair p (>= 1) belongs to.
inline int X6WindowByte(int p) { return kPair * ((p - 1) / kX6Cycle); }

}  // namespace

}  // namespace dofra

#endif  // DOFRA_KERNELS_COMPOSITE_UV_LOOPS_H
