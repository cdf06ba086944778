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


// ---------------------------------------------------------------------------
// No glow: a blur that keeps in-focus colours out of the background.
//
// The default blur smooths the whole shrunken frame, so the subject in focus
// is smeared into the background around it, and the composite takes that
// smeared colour wherever the map says "blurred". With this mode on, the
// smoothed copy is gathered only from samples that surely belong to the
// blurred layer:
//
//   blurred   a map pixel counts as blurred when it is at least
//             threshold * strength(level): `threshold` eighths of the most
//             that maps of `level` reach, 8 * strength = 1024 * strength / 128
//             (1024 at level 1, 0 at level 20, where every pixel counts).
//   counted   a shrunken sample counts (m = 1) when every map pixel within
//             `pullback` frame pixels of the pixels it stands for, clamped to
//             the frame, counts as blurred; else m = 0. Luma sample (i, j)
//             stands for frame rows i*s .. i*s + s - 1 and columns j*s ..
//             j*s + s - 1 (s the scale factor). A chroma sample stands for
//             the 2s x 2s luma block of its pairs, read as the chroma
//             composite reads the map: on even rows only (rows 2i*s - pullback
//             .. 2i*s + 2s - 1 + pullback that are even), but on every column
//             (2j*s - pullback .. 2j*s + 2s - 1 + pullback).
//   smoothed  the default box of 5 x 5 samples (same border replication)
//             gives S = sum of m * v and c = sum of m over the box. Where
//             c is 25 or 0 the default value stays, byte for byte; else
//               out = floor((2 * S + c) / (2 * c))    the mean, half up
//             computed as ((S + c / 2) * ceil(2^17 / c)) >> 17, exact for
//             every c in 1..24 and S in 0..255 * c.
//
// So an in-focus pixel adds nothing to its neighbours' blur, while a near
// object that is itself out of focus keeps spreading over what lies behind
// it. The shrink, the enlargement and the blend are the default ones. The
// mask is derived band by band from the installed map's rows while the
// frame is blurred; nothing else is read.
// ---------------------------------------------------------------------------

struct DofraNoBleed {
  int32_t enable;    // 1 on, 0 off (then the other fields are not read)
  int32_t level;     // 1..20: the level the installed maps are made with
  int32_t pullback;  // 0..8 frame pixels, default 2
  int32_t threshold; // 1..8 eighths of the level's full weight, default 6
};

#define DOFRA_NO_BLEED_PULLBACK_DEFAULT 2
#define DOFRA_NO_BLEED_PULLBACK_MAX 8
// Six eighths: a soft map's ramp beside the subject still gathers from the
// background around it, while the pullback keeps the subject's own edge out.
// Eight counts only pixels at full weight (safest where the map's edge may
// fall inside the subject, but a soft map then leaves more glow).
#define DOFRA_NO_BLEED_THRESHOLD_DEFAULT 6
#define DOFRA_NO_BLEED_THRESHOLD_MAX 8

static_assert(sizeof(DofraNoBleed) == 16, "DofraNoBleed layout");

extern "C" {

// Switches the mode on or off for the frames DofraBlurImage blurs on this
// handle from now on. The handle must come from DofraInit; switching on
// needs a weight map installed (DofraCreateWeightMap). The first switch on
// allocates the mode's scratch on the handle (about 4 bytes per shrunken
// sample and 8 per frame column, 0.8 MB at 1920x1080 and factor 4; released
// by DofraDeinit, not counted in the buffer sum that DofraInit logs); frames
// allocate nothing. Off, the handle
// blurs exactly as if the mode had never been on. Refuses (1, the handle as
// it was, one log line): a null handle or record, a handle without workers
// or blur context, enable other than 0 or 1, and when switching on a level
// outside 1..20, a pullback outside 0..8, a threshold outside 1..8 or no
// installed weight map. Not to
// be called while DofraBlurImage runs on the same handle.
DOFRA_EXPORT int DofraSetNoBleed(DofraHandle* handle, const DofraNoBleed* mode);

}  // extern "C"

#endif  // DOFRA_QUALITY_H
