// Scores of a weight map against a reference map, and the tables the
// quality command prints: rows of scenes, columns of methods, each cell a
// score. A table of another measurement is built the same way and printed
// by the same code.
#ifndef DOFRA_TOOLS_QUALITY_METRIC_H
#define DOFRA_TOOLS_QUALITY_METRIC_H

#include <cstdint>
#include <string>
#include <vector>

#include "cli.h"
#include "image_io.h"
#include "quality_scenes.h"

namespace dofra_tool {

// Mean absolute error and the share of pixels off by more than a limit, both
// on the 0..255 scale of a map picture (a weight w reads w * 255 / 1024).
struct Score {
  double mean = 0;
  double share_off = 0;  // 0..1
  int64_t pixels = 0;
};

constexpr double kOffLimit = 32;  // of 255

// Pixels within `radius` (a square) of a depth edge: a pixel whose disparity
// differs from its right or lower neighbour's by at least `step`.
std::vector<uint8_t> EdgeBand(const Image& disparity, int radius, int step);

// Over the band's pixels inside [x0, x1) x [y0, y1).
Score ScoreMap(const uint16_t* map, const uint16_t* reference, const std::vector<uint8_t>& band,
               int width, const SceneRegion& region);

struct ScoreRow {
  std::string label;
  std::vector<Score> cells;
};

struct ScoreTable {
  std::string title;
  std::vector<std::string> columns;
  std::vector<ScoreRow> rows;
  // The column whose share the last column compares against, and the one
  // compared; -1: no comparison column.
  int baseline = -1;
  int candidate = -1;
};

// The change of the candidate's share against the baseline's, in percent
// (negative: fewer pixels off).
double ShareChange(const ScoreRow& row, const ScoreTable& table);

std::string FormatTable(const ScoreTable& table);

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_QUALITY_METRIC_H
