// Depth-of-field preview blur: exported interface.
//
// A host creates one handle per preview stream (DofraInit), computes a weight
// map from a disparity map (weight_init / weight_async_process), installs it
// (DofraCreateWeightMap) and blurs every NV21 frame held in a graphics buffer
// (DofraBlurImage). Every function returns 0 on success and 1 on failure and
// logs its diagnostics under the tag "Vellora-v1.1.0".
#ifndef DOFRA_DEPTH_H
#define DOFRA_DEPTH_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define DOFRA_EXPORT __attribute__((visibility("default")))
#else
#define DOFRA_EXPORT
#endif

namespace android {
class GraphicBuffer;
}

struct CThread_pool;
struct BandTask;
struct BlurContext;
struct WeightContext;

// Filled by the host. DofraInit writes 5 into blur_kernel_size and
// weight_kernel_size of the caller's record before anything reads them.
struct DofraParams {
  int32_t width;               // frame width W, also the row stride of both planes
  int32_t height;              // frame height H
  int32_t disparity_width;     // disparity map width (weight_init)
  int32_t disparity_height;    // disparity map height (weight_init)
  int32_t blur_kernel_size;    // overwritten with 5 by DofraInit
  int32_t weight_extra;        // kept in the weight context, never used
  int32_t scale_factor;        // blur shrink factor: 2, 4, 6 or 8
  int32_t weight_kernel_size;  // overwritten with 5 by DofraInit
};

// Owned by the library: allocated by DofraInit, released by DofraDeinit.
// The weight functions use only buffer_total and weight, so a host may also
// pass a zero-filled record of its own to them.
struct DofraHandle {
  int32_t buffer_total;  // bytes of every buffer allocated for this handle
  int32_t band_count;    // bands per plane and worker threads (2)
  CThread_pool* pool;
  BandTask* pThreadArg;  // 2 * band_count band records, luma bands first
  int32_t width;
  int32_t height;
  BlurContext* blur;
  WeightContext* weight;
};

// Given to DofraCreateWeightMap. Only weight_map is read; the map (W x H
// unsigned 16-bit weights, 0..1024, row stride W) is borrowed, not copied.
// Each output byte blends the sharp byte s with the blurred byte b under its
// weight w: out = (s * (1024 - w) + b * w + 512) >> 10, so 0 keeps the sharp
// pixel and 1024 takes the blurred one. Both chroma bytes of a 2x2 block use
// the weight of its upper-left luma pixel.
struct DofraWeightMapInfo {
  int32_t host_data[3];  // the host's own, never read
  uint16_t* weight_map;
};

// Byte layout of the host's DepthData block: a 68-byte little-endian header
// followed directly by the disparity image (dW x dH bytes, row stride dW).
struct DepthData {
  uint8_t reserved0[16];
  int32_t calib_num;  // A, 19 fraction bits
  int32_t calib_den;  // B, 19 fraction bits, not 0
  uint8_t reserved1[36];
  uint16_t map_scale_den;  // M, not 0
  uint8_t reserved2[2];
  uint16_t map_scale_num;  // N
  uint8_t reserved3[2];
  // disparity bytes follow
};
#define DOFRA_DEPTH_HEADER_SIZE 68

// Request of weight_async_process.
struct WeightParams {
  int32_t level;    // 1 (strongest blur) .. 20 (no blur)
  int32_t focus_x;  // 0 .. W - 1, frame pixels
  int32_t focus_y;  // 0 .. H - 1, frame pixels
  DepthData* depth;
};

static_assert(sizeof(DofraParams) == 32, "DofraParams is eight int32");
static_assert(offsetof(DofraParams, scale_factor) == 24, "DofraParams layout");
static_assert(offsetof(DofraHandle, pool) == 8, "DofraHandle layout");
static_assert(offsetof(DofraHandle, pThreadArg) == 16, "DofraHandle layout");
static_assert(offsetof(DofraHandle, width) == 24, "DofraHandle layout");
static_assert(offsetof(DofraHandle, blur) == 32, "DofraHandle layout");
static_assert(offsetof(DofraHandle, weight) == 40, "DofraHandle layout");
static_assert(sizeof(DofraHandle) == 48, "DofraHandle layout");
static_assert(offsetof(DofraWeightMapInfo, weight_map) == 16, "DofraWeightMapInfo layout");
static_assert(offsetof(WeightParams, depth) == 16, "WeightParams layout");
static_assert(offsetof(DepthData, calib_num) == 16, "DepthData layout");
static_assert(offsetof(DepthData, calib_den) == 20, "DepthData layout");
static_assert(offsetof(DepthData, map_scale_den) == 60, "DepthData layout");
static_assert(offsetof(DepthData, map_scale_num) == 64, "DepthData layout");
static_assert(sizeof(DepthData) == DOFRA_DEPTH_HEADER_SIZE, "DepthData header is 68 bytes");

extern "C" {

// Creates a handle with two pinned workers and every frame buffer; stores it
// through *handle at once. Writes 5 into both kernel sizes of *params.
// Refuses (1) a null handle pointer, a scale factor other than 2, 4, 6, 8 and
// frame sizes the pipeline cannot process exactly; after a failure *handle
// still holds the address of the released handle: do not DofraDeinit it.
DOFRA_EXPORT int DofraInit(DofraHandle** handle, DofraParams* params);

// Stops and joins the workers and releases everything. 1 for a null handle.
DOFRA_EXPORT int DofraDeinit(DofraHandle* handle);

// Installs the host's weight map (pointer only). 1 for a null handle, a null
// info record or a handle without a weight context.
DOFRA_EXPORT int DofraCreateWeightMap(DofraHandle* handle, DofraWeightMapInfo* info);

// Blurs one NV21 frame (W x H luma, then W x H / 2 interleaved chroma, row
// stride W whatever the buffer's own stride) from src into dst, which may be
// the same buffer. Returns when the whole frame is written. 1 for a null
// handle or buffer, a handle without a weight map, or a failed lock (a failed
// destination lock leaves the source locked).
DOFRA_EXPORT int DofraBlurImage(DofraHandle* handle, android::GraphicBuffer* src,
                                android::GraphicBuffer* dst);

// Hangs a new weight context with all its buffers on handle->weight (a
// context already there is not released). Refuses (1, nothing allocated)
// null arguments, sizes that are not positive, a kernel size below 1 and
// sizes whose 32-bit buffer products overflow; an allocation failure returns
// 1 and leaves what was allocated for weight_deinit.
DOFRA_EXPORT int weight_init(DofraParams* params, DofraHandle* handle);

// Releases the weight context made by weight_init and its buffers, including
// a map installed by DofraCreateWeightMap (handle->weight is left as is, so do
// not DofraDeinit the same handle afterwards without a new weight_init).
DOFRA_EXPORT int weight_deinit(DofraHandle* handle);

// Computes the W x H weight map into out, synchronously on the caller's
// thread. Refuses (1, out untouched) null pointers, a handle without a
// context from weight_init, a level outside 1..20, a focus point outside the
// frame, and calibrations that divide by zero or leave the 32-bit range.
DOFRA_EXPORT int weight_async_process(WeightParams* request, DofraHandle* handle, uint16_t* out);

}  // extern "C"

#endif  // DOFRA_DEPTH_H
