#include "fill.h"

#include <cstddef>
#include <limits>
#include <vector>

namespace dofra_tool {

namespace {

// Chamfer steps: 3 along a row or column, 4 diagonally (~3 * sqrt 2).
constexpr uint32_t kStraight = 3;
constexpr uint32_t kDiagonal = 4;
constexpr uint32_t kFar = std::numeric_limits<uint32_t>::max() / 2;

struct Step {
  int dx;
  int dy;
  uint32_t cost;
};

// Neighbours already visited by a top-left to bottom-right sweep; the
// backward sweep uses them mirrored.
constexpr Step kForward[4] = {
    {-1, 0, kStraight}, {-1, -1, kDiagonal}, {0, -1, kStraight}, {1, -1, kDiagonal}};

class Sweeper {
 public:
  Sweeper(Image* gray, uint8_t unknown) : gray_(gray), distance_(gray->pixels.size(), kFar) {
    for (size_t i = 0; i < distance_.size(); ++i) {
      if (gray->pixels[i] != unknown) distance_[i] = 0;
    }
  }

  // One sweep in the given direction (+1 forward, -1 backward).
  void Sweep(int sign) {
    const int w = gray_->width;
    const int h = gray_->height;
    for (int n = 0; n < h; ++n) {
      const int y = sign > 0 ? n : h - 1 - n;
      for (int m = 0; m < w; ++m) {
        const int x = sign > 0 ? m : w - 1 - m;
        for (const Step& step : kForward) {
          Relax(x, y, x + sign * step.dx, y + sign * step.dy, step.cost);
        }
      }
    }
  }

 private:
  // Takes the neighbour's value when the path through it is shorter.
  void Relax(int x, int y, int nx, int ny, uint32_t cost) {
    if (nx < 0 || ny < 0 || nx >= gray_->width || ny >= gray_->height) return;
    const size_t at = static_cast<size_t>(y) * gray_->width + x;
    const size_t from = static_cast<size_t>(ny) * gray_->width + nx;
    if (distance_[from] + cost < distance_[at]) {
      distance_[at] = distance_[from] + cost;
      gray_->pixels[at] = gray_->pixels[from];
    }
  }

  Image* gray_;
  std::vector<uint32_t> distance_;
};

}  // namespace

int64_t FillUnknown(Image* gray, uint8_t unknown) {
  int64_t unknown_count = 0;
  for (uint8_t v : gray->pixels) unknown_count += v == unknown;
  if (unknown_count == 0 || unknown_count == static_cast<int64_t>(gray->pixels.size())) return 0;
  Sweeper sweeper(gray, unknown);
  sweeper.Sweep(1);
  sweeper.Sweep(-1);
  return unknown_count;
}

}  // namespace dofra_tool
