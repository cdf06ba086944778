// The record of one band task. The pool's set-up allocates the handle's
// records; the blur's frame routine fills them and hands them to the pool.
#ifndef DOFRA_POOL_BAND_TASK_H
#define DOFRA_POOL_BAND_TASK_H

#include <cstdint>

struct CThread_pool;
namespace dofra {
struct NoBleedTask;
}

// One task: a band of rows of one plane, rewritten every frame.
struct BandTask {
  CThread_pool* pool;
  int32_t band_index;
  int32_t first_row;  // plane rows this band writes, inclusive
  int32_t last_row;
  int32_t width;   // W
  int32_t height;  // H (luma) or H / 2 (chroma)
  int32_t scale_factor;
  int32_t small_width;
  int32_t small_height;     // sh (luma) or sh / 2 (chroma)
  int32_t small_first_row;  // small rows this band smooths, inclusive
  int32_t small_last_row;
  int32_t kernel_size;
  uint16_t* kernel_weights;
  uint16_t* weight_map;  // full resolution for both planes
  uint8_t* source;
  uint8_t* destination;
  uint8_t* small_plane;
  uint8_t* shrink_tmp;
  uint8_t* padded_input;      // shared by the bands of a plane
  uint8_t* integral_scratch;  // this band's own slice
  uint8_t* smoothed_plane;
  // The no-glow blur's share of this band (opt-in); null on the default path.
  const dofra::NoBleedTask* no_bleed;
};

#endif  // DOFRA_POOL_BAND_TASK_H
