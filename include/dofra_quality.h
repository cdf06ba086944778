// Depth-of-field preview blur: the opt-in quality modes.
//
// Nothing here changes the functions of dofra_depth.h: a mode costs and
// changes something only when its own call is made. Every function returns 0
// on success and 1 on refusal; a refusal logs one line under the library's
// tag and writes nothing.
#ifndef DOFRA_QUALITY_H
#define DOFRA_QUALITY_H

#include "dofra_depth.h"

// ---------------------------------------------------------------------------
// Refined weight map: the depth enlarged with the frame as its guide.
//
// The plain map interpolates a smoothed low-resolution depth, so every depth
// edge becomes a ramp one to three disparity cells wide. The refined map
// enlarges the unsmoothed depth instead, and lets the frame decide which of
// the four nearest depth samples each pixel belongs to:
//
//   depth   D = the depth table (as weight_async_process builds it) applied
//               to the disparity, not smoothed.
//   place   the plain map's 16.16 steps sx = dW * 65536 / W (sy alike) and
//           8-bit fractions, but each sample at the centre of the pixels it
//           stands for: pixel x at max(x * sx + sx / 2 - 32768, 0), its
//           samples ix = that >> 16 and min(ix + 1, dW - 1), fx = bits 8..15.
//           (The plain map puts a sample at its first pixel, which shifts
//           every edge by half a cell.)
//   cell    the pixels x with (x * sx) >> 16 == j (rows alike) for sample j:
//           its colour is their rounded mean luma Y and chroma V, U (the
//           pair above each pixel); a sample no pixel reaches takes the
//           colour of the last cell.
//   purity  p = min(v - min, max - v) over the sample's 3x3 neighbourhood;
//           a sample that lies between its neighbours straddles an edge.
//   weight  of each of the four samples k, in integers:
//             b_k  = (bx_k * by_k + 128) >> 8      bilinear, bx = 256 - fx or fx
//             d_k  = |Y - Y_k| + (chroma_weight * (|V - V_k| + |U - U_k|) >> 2)
//             rp_k = (R[min(d_k, 255)] * P[min(p_k, 255)] + 128) >> 8
//             w_k  = b_k * rp_k                    (< 65536)
//           with R and P 8-bit tables of the kernel 255 * (1 - t^2 / 9)^3 for
//           t = d / range_sigma and t = p / purity_scale (0 from t = 3 on).
//   depth   at the pixel (Y, V, U the guide's own, chroma at x / 2, y / 2):
//             (sum w_k D_k + sum w_k / 2) / sum w_k, integer division;
//           plain bilinear (the plain map's rounding) where sum w_k is 0 or
//           where the four samples span at most flat_spread depth steps.
//   weight  the plain map's rule on that depth: the in-focus band around the
//           depth at the point of focus, the same falloff, strength by level.
//
// The point of focus reads the refined depth at its own pixel (by the same
// formula), so the pixel the host focused on is sharp even beside an edge.
// ---------------------------------------------------------------------------

// The current frame: W x H luma bytes, then H / 2 rows of W bytes of
// interleaved V, U pairs, both with row stride W (the frame given to
// DofraBlurImage, as the host reads it after locking its buffer). With an
// odd H the last luma row reads the last chroma row.
struct DofraGuide {
  const uint8_t* nv21;
  int32_t width;   // must equal the handle's W
  int32_t height;  // must equal the handle's H
};

// Tuning of the refined map; a null pointer means every default. Each field
// is refused outside its range.
struct DofraRefineTuning {
  int32_t range_sigma;    // 1..64, default 12: colour distance (luma levels) of weight 0.70
  int32_t purity_scale;   // 1..64, default 4: depth steps of purity weight 0.70
  int32_t chroma_weight;  // 0..8, default 2: chroma distance counts chroma_weight / 4
  int32_t flat_spread;    // 0..255, default 2: four samples this close stay bilinear
};

#define DOFRA_REFINE_RANGE_SIGMA_DEFAULT 12
#define DOFRA_REFINE_PURITY_SCALE_DEFAULT 4
#define DOFRA_REFINE_CHROMA_WEIGHT_DEFAULT 2
#define DOFRA_REFINE_FLAT_SPREAD_DEFAULT 2

static_assert(sizeof(DofraGuide) == 16, "DofraGuide layout");
static_assert(sizeof(DofraRefineTuning) == 16, "DofraRefineTuning layout");

extern "C" {

// Computes the refined W x H weight map (0..1024, row stride W) of `request`
// into out, which the host then installs with DofraCreateWeightMap as usual.
// The handle must come from DofraInit (the rows run band-parallel on its
// workers) and carry a weight context from weight_init for the same frame
// size; the call reads that context's sizes only and changes nothing in it.
// The first call allocates the mode's scratch on the handle (released by
// DofraDeinit); later calls allocate nothing unless the disparity size changes.
// Refuses (1, out untouched, one log line) everything weight_async_process
// refuses, and a null guide or guide pixels, a guide whose size is not the
// handle's frame, a handle without workers or blur context, a weight context
// for another frame size or a disparity map larger than the frame, and
// tuning fields outside their ranges. Not to be run while DofraBlurImage runs
// on the same handle.
DOFRA_EXPORT int DofraRefineWeightMap(WeightParams* request, DofraHandle* handle,
                                      const DofraGuide* guide, const DofraRefineTuning* tuning,
                                      uint16_t* out);

}  // extern "C"

#endif  // DOFRA_QUALITY_H
