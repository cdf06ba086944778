// The edge-quality measurement: for each generated scene, the weight maps
// that the library makes from disparity at W/8 and W/4 against the map it
// makes from the full-resolution disparity, in the band around depth edges.
#ifndef DOFRA_TOOLS_QUALITY_EDGES_H
#define DOFRA_TOOLS_QUALITY_EDGES_H

#include <dofra_quality.h>

#include <vector>

#include "cli.h"
#include "engine.h"
#include "quality_metric.h"

namespace dofra_tool {

constexpr int kEdgeBandRadius = 12;  // pixels either side of a depth edge
constexpr int kEdgeStep = 8;         // disparity jump that makes an edge

struct EdgeSettings {
  Size size;
  int level = 1;
  const DofraRefineTuning* tuning = nullptr;  // the library's defaults
  std::vector<int> divisors = {8, 4};         // disparity at W / divisor
};

// The W x H map of one method from the scene's disparity box-resampled to
// `map_size` (as dofra blur gives it), focused on the scene's focus; the
// refined map is guided by `guide` (the scene's NV21 frame). InputError
// when the library refuses.
std::vector<uint16_t> SceneWeights(const QualityScene& scene, const uint8_t* guide, Size map_size,
                                   MapMethod method, int level, const DofraRefineTuning* tuning);

// Columns default, no smoothing, refined. Two tables: every scene whole at
// each divisor, then the bars scene bar by bar.
std::vector<ScoreTable> MeasureEdges(const EdgeSettings& settings);

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_QUALITY_EDGES_H
