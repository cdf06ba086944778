// The blur engine's working memory and the per-frame band pipeline.
#ifndef DOFRA_BLUR_BLUR_CONTEXT_H
#define DOFRA_BLUR_BLUR_CONTEXT_H

#include <cstdint>

#include "pool/band_task.h"

struct DofraHandle;
struct DofraParams;
namespace dofra {
struct RefineState;
struct NoBleedState;
}

// Allocated once per handle by blur_init; nothing is cleared between frames.
struct BlurContext {
  int32_t kernel_size;       // k (always 5), radius k / 2
  uint16_t* kernel_weights;  // k entries of 1024 / k
  int32_t scale_factor;      // s
  int32_t small_width;       // W / s
  int32_t small_height;      // H / s
  uint8_t* Src_copy;         // W x H x 3 / 2: the source when it is also the destination
  uint8_t* XInterp_image;    // H x sw x 3 / 2: horizontal shrink, luma then chroma
  uint8_t* scale_img;        // sw x sh x 3 / 2: the shrunk frame
  uint8_t* input_tmp_y;      // (sw + 2r) x (sh + 2r) border-padded small luma
  uint8_t* input_tmp_uv;     // (sw + 4r) x (sh / 2 + 2r) border-padded small chroma
  uint8_t* tempim_y;         // two band slices of 32-bit luma integrals
  uint8_t* tempim_uv;        // two band slices of 32-bit chroma integrals
  uint8_t* smooth_img;       // sw x sh x 3 / 2: the smoothed small frame
  // Opt-in modes' scratch, allocated by their first call, not counted in
  // buffer_total.
  dofra::RefineState* refine;  // DofraRefineWeightMap
  dofra::NoBleedState* no_bleed;  // DofraSetNoBleed
};

// Allocates the context and its buffers into handle->blur and adds their
// sizes to handle->buffer_total. Refuses (1, before allocating anything) a
// frame the pipeline cannot process exactly; 1 when a buffer allocation fails
// (the partial context stays for blur_deinit).
int blur_init(DofraParams* params, DofraHandle* handle);
// Releases the context and every buffer it holds; a null context is skipped.
int blur_deinit(DofraHandle* handle);
// Blurs one frame band-parallel on the handle's pool under `weight_map` (the
// map installed in the handle's weight context, read by the caller once per
// frame) and returns when every band is written. A plane that is both source
// and destination is read from Src_copy. `smoothed` replaces smooth_img when
// not null; with the no-glow blur on, each band smooths into a plane of its
// own instead.
void blur_process(DofraHandle* handle, uint8_t* src_y, uint8_t* src_uv, uint8_t* dst_y,
                  uint8_t* dst_uv, uint8_t* smoothed, uint16_t* weight_map);

// Pool task bodies: shrink, smooth, enlarge and blend one band.
void* Smooth_Y_thread(void* band_task);
void* Smooth_UV_thread(void* band_task);

#endif  // DOFRA_BLUR_BLUR_CONTEXT_H
