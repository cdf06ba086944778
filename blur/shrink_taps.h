// Tap weights and rounding shift of each shrink factor, the same in both
// passes of both planes. In an unnamed namespace like every helper that an
// instruction set's unit includes: nothing here becomes a shared symbol.
#ifndef DOFRA_BLUR_SHRINK_TAPS_H
#define DOFRA_BLUR_SHRINK_TAPS_H

namespace {

template <int kFactor>
struct Taps;
template <>
struct Taps<2> {
  static constexpr int kWeight[2] = {1, 1};
  static constexpr int kShift = 1;
};
template <>
struct Taps<4> {
  static constexpr int kWeight[4] = {1, 1, 1, 1};
  static constexpr int kShift = 2;
};
template <>
struct Taps<6> {
  static constexpr int kWeight[6] = {1, 1, 2, 2, 1, 1};  // the middle taps weigh double
  static constexpr int kShift = 3;
};
template <>
struct Taps<8> {
  static constexpr int kWeight[8] = {1, 1, 1, 1, 1, 1, 1, 1};
  static constexpr int kShift = 3;
};

}  // namespace

#endif  // DOFRA_BLUR_SHRINK_TAPS_H
