// The refined weight map's driver: per-call tables at disparity resolution,
// then the frame's rows band-parallel on a handle's pool. Validates nothing:
// DofraRefineWeightMap checks every argument first.
#ifndef DOFRA_WEIGHT_REFINE_MAP_H
#define DOFRA_WEIGHT_REFINE_MAP_H

#include <cstdint>

#include "dofra_quality.h"
#include "weight/refine_state.h"

namespace dofra {

struct RefineRequest {
  const DepthData* depth;  // calibration and dW x dH disparity
  int level;
  int focus_x, focus_y;
  const uint8_t* guide;  // NV21, W x H
  DofraRefineTuning tuning;
  uint16_t* out;
};

void RefineWeightMap(RefineState* state, CThread_pool* pool, const RefineRequest& r);

// The tuning's defaults, and whether every field lies in its range.
DofraRefineTuning DefaultRefineTuning();
bool RefineTuningValid(const DofraRefineTuning& t);

}  // namespace dofra

#endif  // DOFRA_WEIGHT_REFINE_MAP_H
