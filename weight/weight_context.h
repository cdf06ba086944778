// The weight-map computation's state, kept between calls on a handle.
#ifndef DOFRA_WEIGHT_WEIGHT_CONTEXT_H
#define DOFRA_WEIGHT_WEIGHT_CONTEXT_H

#include <cstdint>

struct WeightContext {
  int32_t kernel_size;       // box size k of the disparity smoothing; radius k / 2
  uint16_t* kernel_weights;  // k entries of 1024 / k
  int32_t weight_extra;      // the host's value, never read
  int32_t focus_x;
  int32_t focus_y;
  int32_t strength_index;  // 20 - level
  int32_t strength;        // 0..128
  int32_t width;
  int32_t height;
  int32_t disparity_width;
  int32_t disparity_height;
  uint8_t* disparity;        // borrowed: the host's DepthData + 68
  uint8_t* RangedDisparity;  // dW x dH depth values
  uint8_t* ExpandDisparity;  // (dW + 2r) x (dH + 2r) expanded scratch
  uint8_t* TempimDisparity;  // (dW + 2r) x (dH + 2r + 1) uint32 integral scratch
  uint8_t* SmoothDisparity;  // dW x dH smoothed depth
  uint8_t falloff;           // depth distance from in focus to full blur
  uint16_t* weight_map;      // W x H; replaced by the host's map in DofraCreateWeightMap
  int32_t hist_ratio;        // a bin counts when it holds ratio/256 of the pixels
  int32_t min_range;         // smallest accepted width of the populated range
  uint16_t histogram[256];
};

#endif  // DOFRA_WEIGHT_WEIGHT_CONTEXT_H
