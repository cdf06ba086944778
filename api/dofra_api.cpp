// The exported handle functions.
#include <ui/GraphicBuffer.h>

#include <atomic>
#include <cstdlib>

#include "api/clock.h"
#include "api/log.h"
#include "blur/blur_context.h"
#include "dofra_depth.h"
#include "blur/no_bleed.h"
#include "pool/thread_pool.h"
#include "weight/refine_state.h"
#include "weight/weight_context.h"

namespace {

// Fixed lines of the log, with the names they log under.
constexpr const char* kInitName = "DofraInit";
constexpr const char* kCreateMapName = "DofraCreateWeightMap";
constexpr const char* kBlurName = "DofraBlurImage";
constexpr int kLineBuildTime = 16;
constexpr int kLineNullParams = 18;
constexpr int kLineHandleAlloc = 22;
constexpr int kLineBufferSum = 48;
constexpr int kLineInitTime = 49;
constexpr int kLineNullInfo = 118;
constexpr int kLineNoContext = 120;
constexpr int kLineCreateMapTime = 124;
constexpr int kLineNullHandle = 139;
constexpr int kLineNullSource = 144;
constexpr int kLineNullOutput = 149;
constexpr int kLineNoWeightMap = 154;
constexpr int kLineSourceLock = 163;
constexpr int kLineOutputLock = 169;
constexpr int kLineBlurTime = 224;

constexpr int32_t kForcedKernelSize = 5;
constexpr uint32_t kLockRead = android::GraphicBuffer::USAGE_SW_READ_OFTEN;    // 3
constexpr uint32_t kLockWrite = android::GraphicBuffer::USAGE_SW_WRITE_OFTEN;  // 48
constexpr double kMsPerSecond = 1000.0;

// Completed frames of every handle in the process. Atomic only to keep
// concurrent handles free of a data race; the count itself is unordered.
std::atomic<int32_t> g_frame_counter{0};

double ElapsedMs(double t0) { return (getTime() - t0) * kMsPerSecond; }

// Nothing here checks its pointers: a failed thread_init already cleared a
// pool it could not start, and both teardowns skip what was never made.
int InitFailed(DofraHandle* handle) {
  thread_deinit(handle);
  // The refined map's scratch hangs on the blur context (null when unused).
  if (handle->blur != nullptr) dofra::FreeRefineState(handle->blur->refine);
  // So does the no-glow blur's.
  if (handle->blur != nullptr) dofra::FreeNoBleedState(handle->blur->no_bleed);
  blur_deinit(handle);
  if (handle->weight != nullptr) free(handle->weight);
  free(handle);
  return 1;
}

}  // namespace

extern "C" {

int DofraInit(DofraHandle** out, DofraParams* params) {
  const double t0 = getTime();
  DOFRA_LOG(kLineBuildTime, kInitName, "build time %s %s\n", __DATE__, __TIME__);
  if (out == nullptr) return 1;
  if (params == nullptr) {
    DOFRA_LOG(kLineNullParams, kInitName, "invalid params\n");
    return 1;
  }

  DofraHandle* handle = static_cast<DofraHandle*>(calloc(1, sizeof(DofraHandle)));
  *out = handle;
  if (handle == nullptr) {
    DOFRA_LOG(kLineHandleAlloc, kInitName, "can't alloc handle\n");
    return 1;
  }
  handle->width = params->width;
  handle->height = params->height;
  // Deliberately written back into the host's record: a later weight_init
  // given the same record sees the same kernel size.
  params->blur_kernel_size = kForcedKernelSize;
  params->weight_kernel_size = kForcedKernelSize;

  if (thread_init(handle) != 0) return InitFailed(handle);
  if (blur_init(params, handle) != 0) return InitFailed(handle);
  handle->weight = static_cast<WeightContext*>(calloc(1, sizeof(WeightContext)));

  DOFRA_LOG(kLineBufferSum, kInitName, "DofraInit: buffer sum: %d KB\n",
            handle->buffer_total / 1024);
  DOFRA_LOG(kLineInitTime, kInitName, "DofraInit: %.3f ms\n", ElapsedMs(t0));
  return 0;
}

int DofraDeinit(DofraHandle* handle) {
  if (handle == nullptr) return 1;
  thread_deinit(handle);
  // The refined map's scratch hangs on the blur context (null when unused).
  if (handle->blur != nullptr) dofra::FreeRefineState(handle->blur->refine);
  // So does the no-glow blur's.
  if (handle->blur != nullptr) dofra::FreeNoBleedState(handle->blur->no_bleed);
  blur_deinit(handle);
  // Only the record: buffers hung on it by weight_init belong to weight_deinit.
  if (handle->weight != nullptr) free(handle->weight);
  free(handle);
  return 0;
}

int DofraCreateWeightMap(DofraHandle* handle, DofraWeightMapInfo* info) {
  const double t0 = getTime();
  if (handle == nullptr) return 1;
  if (info == nullptr) {
    DOFRA_LOG(kLineNullInfo, kCreateMapName, "invalid weight map info\n");
    return 1;
  }
  if (handle->weight == nullptr) {
    DOFRA_LOG(kLineNoContext, kCreateMapName, "handle has no weight context\n");
    return 1;
  }
  // Borrowed, not copied: the blur reads the host's map on every frame.
  handle->weight->weight_map = info->weight_map;
  DOFRA_LOG(kLineCreateMapTime, kCreateMapName, "DofraCreateWeightMap: %.3f ms\n", ElapsedMs(t0));
  return 0;
}

int DofraBlurImage(DofraHandle* handle, android::GraphicBuffer* src, android::GraphicBuffer* dst) {
  const double t0 = getTime();
  if (handle == nullptr) {
    DOFRA_LOG(kLineNullHandle, kBlurName, "invalid handle\n");
    return 1;
  }
  if (src == nullptr) {
    DOFRA_LOG(kLineNullSource, kBlurName, "invalid Src_YUV\n");
    return 1;
  }
  if (dst == nullptr) {
    DOFRA_LOG(kLineNullOutput, kBlurName, "invalid Output_YUV\n");
    return 1;
  }
  if (handle->weight == nullptr || handle->weight->weight_map == nullptr) {
    DOFRA_LOG(kLineNoWeightMap, kBlurName, "no weight map: call DofraCreateWeightMap first\n");
    return 1;
  }

  void* src_addr = nullptr;
  if (src->lock(kLockRead, &src_addr) != 0) {
    DOFRA_LOG(kLineSourceLock, kBlurName, "Src_YUV lock(...) failed\n");
    return 1;
  }
  void* dst_addr = nullptr;
  if (dst->lock(kLockWrite, &dst_addr) != 0) {
    // The source stays locked: no error path here unwinds.
    DOFRA_LOG(kLineOutputLock, kBlurName, "Output_YUV lock(...) failed\n");
    return 1;
  }
  TimingPoint();

  // Row stride W for both planes, whatever the buffer's own stride.
  const int64_t luma_bytes = static_cast<int64_t>(handle->width) * handle->height;
  uint8_t* src_y = static_cast<uint8_t*>(src_addr);
  uint8_t* dst_y = static_cast<uint8_t*>(dst_addr);
  blur_process(handle, src_y, src_y + luma_bytes, dst_y, dst_y + luma_bytes, nullptr,
               handle->weight->weight_map);

  src->unlock();
  dst->unlock();
  const int32_t frame = static_cast<int32_t>(
      static_cast<uint32_t>(g_frame_counter.fetch_add(1, std::memory_order_relaxed)) + 1u);
  DOFRA_LOG(kLineBlurTime, kBlurName, "DofraBlurImage %d: %.3f ms\n", frame, ElapsedMs(t0));
  return 0;
}

}  // extern "C"
