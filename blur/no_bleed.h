// The no-glow blur (opt-in, include/dofra_quality.h): its scratch on the
// blur context and the two steps a band adds to its strip pass, a mask of
// the shrunken rows it shrank and a masked smoothing of the rows it smoothed.
#ifndef DOFRA_BLUR_NO_BLEED_H
#define DOFRA_BLUR_NO_BLEED_H

#include <cstdint>

#include "blur/kernels.h"
#include "pool/band_task.h"

namespace dofra {

constexpr int kNoBleedTasks = 4;  // two luma bands, then two chroma bands

// Per mask row: whether every sample counts, none does, or some do.
enum : uint8_t { kMaskRowNone, kMaskRowAll, kMaskRowMixed };

// One band's share: where its plane's mask lives and how its samples map
// onto the weight map.
struct NoBleedTask {
  uint8_t* mask;         // the plane's mask, 0 or 1 per byte, small-plane layout
  uint8_t* padded_mask;  // its border-replicated copy, padded-input layout
  uint8_t* row_kinds;    // per mask row
  uint16_t* scratch;     // the band's own: a row of minima with room for the pullback
  uint8_t* smoothed;     // the band's own smoothed plane
  ExpandFn expand;       // the plane's border expansion
  int block;             // frame pixels per sample side: s (luma) or 2s (chroma)
  int lead;              // bytes between same-channel samples: 1 or 2
  int map_height;        // weight-map rows the plane may read
  int row_step;          // of those, the rows its composite reads: all (luma) or even (chroma)
  int pullback;
  uint16_t threshold;  // map pixels at least this count as blurred
};

// One block per handle, allocated by the mode's first switch on and kept
// until DofraDeinit; the frame size and factor are the handle's for life.
struct NoBleedState {
  bool enabled;
  int64_t bytes;
  NoBleedTask tasks[kNoBleedTasks];
};

// The scratch of a W x H frame at factor s; nullptr when the allocation fails.
NoBleedState* NewNoBleedState(int W, int H, int s);
int64_t NoBleedStateBytes(int W, int H, int s);
void FreeNoBleedState(NoBleedState* state);
// The rule every band follows from the next frame on.
void SetNoBleedRule(NoBleedState* state, int pullback, uint16_t threshold);

// Mask rows first..last of the band's plane from the weight map.
void NoBleedMaskRows(const BandTask& t, int first, int last);
// Rows first..last of the band's smoothed plane, just smoothed by default,
// smoothed again from counted samples where the box holds some but not all.
void NoBleedSmoothRows(const BandTask& t, int first, int last);

}  // namespace dofra

#endif  // DOFRA_BLUR_NO_BLEED_H
