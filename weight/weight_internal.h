// Internal routines of the weight-map computation: depth table, depth range
// and the interpolation of the smoothed depth up to frame size. None of them
// validates its input; weight_async_process checks everything beforehand.
#ifndef DOFRA_WEIGHT_WEIGHT_INTERNAL_H
#define DOFRA_WEIGHT_WEIGHT_INTERNAL_H

#include <cstdint>

#include "dofra_depth.h"
#include "kernels/weight_rows.h"

namespace dofra {

// Byte offsets of the calibration fields in the host's DepthData block; the
// block may be unaligned, so they are read with memcpy.
constexpr int kDepthCalibNumOffset = 16;
constexpr int kDepthCalibDenOffset = 20;
constexpr int kDepthScaleDenOffset = 60;
constexpr int kDepthScaleNumOffset = 64;

constexpr int kDepthTableSize = 256;
constexpr int kStrengthLevels = 20;
constexpr uint8_t kWeightFalloff = 25;

// Strength indexed by 20 - level (level 20 blurs nothing, level 1 fully).
extern const uint8_t kStrengthTable[kStrengthLevels];

// The calibration as read from the DepthData header.
struct DepthCalibration {
  int32_t calib_num;       // A
  int32_t calib_den;       // B
  uint16_t map_scale_den;  // M
  uint16_t map_scale_num;  // N
};
DepthCalibration ReadDepthCalibration(const DepthData* depth);

// True when every float-to-integer conversion that InitDisparityToDepth makes
// on this calibration sees a finite value inside the int32 range (and M != 0,
// B != 0).
bool DepthCalibrationConvertible(const DepthCalibration& cal);

// The weight of every depth and its tables under the plain map's rule, for
// the in-focus band around focus_depth.
void DepthWeightLut(int focus_depth, uint8_t falloff, uint8_t strength, WeightLut* lut);

// Function name and fixed log lines of a caller of CheckWeightRequest.
struct WeightRequestLog {
  const char* name;
  int null_request, null_handle, null_context, bad_context, null_depth, null_output, bad_level,
      bad_focus, bad_scale_den, bad_calib_den, bad_calibration, bad_steps;
};
// weight_async_process's refusals: one line each, false before anything is
// written.
bool CheckWeightRequest(const WeightParams* request, const DofraHandle* handle, const uint16_t* out,
                        const WeightRequestLog& log);

}  // namespace dofra

int InitDisparityToDepth(const DepthData* depth, uint8_t* table);
void __getRanged(const uint8_t* src, uint8_t* dst, int n, uint8_t unused_lo, uint8_t unused_hi,
                 const uint8_t* table);
void __getRanged_c(const uint8_t* src, uint8_t* dst, int n, const uint8_t* table);
void __getMinMax_neon(const uint8_t* src, int n, uint8_t* min_out, uint8_t* max_out);
void __getMinMax_c(const uint8_t* src, int n, uint8_t* min_out, uint8_t* max_out);
void __updateMinMax(const uint8_t* src, uint16_t* histogram, int n, int ratio, int min_range,
                    uint8_t* min_io, uint8_t* max_io);

#define DOFRA_WEIGHT_UP(name)                                                                   \
  void name(int W, int H, int focus_x, int focus_y, int first_row, int last_row, uint16_t* out, \
            int dW, int dH, uint8_t falloff, uint8_t strength, const uint8_t* smooth)
// Vectorised member (a per-call depth-to-weight table, runs of 16-column
// groups chosen per disparity row pair by the bounds of their samples, rows
// interpolated only where a run is not constant, large maps streamed) and its
// plain per-pixel formula; they write identical values.
DOFRA_WEIGHT_UP(__WeightInterpolateUp);
DOFRA_WEIGHT_UP(__WeightInterpolateUp_c);

namespace dofra {

// The weight path's members: the vectorised ones, or their formulas when the
// scalar level is forced. The disparity smoothing is the blur's (its table).
struct WeightKernelTable {
  void (*min_max)(const uint8_t* src, int n, uint8_t* min_out, uint8_t* max_out);
  DOFRA_WEIGHT_UP((*interpolate_up));
};
const WeightKernelTable& ActiveWeightKernels();

}  // namespace dofra

#endif  // DOFRA_WEIGHT_WEIGHT_INTERNAL_H
