// Weight context: created by weight_init with every disparity-resolution
// buffer the weight-map computation needs, released by weight_deinit.
#include "weight/weight_context.h"

#include <climits>
#include <cstdint>
#include <cstdlib>

#include "api/log.h"
#include "dofra_depth.h"

namespace {

constexpr const char* kInitName = "weight_init";
constexpr const char* kDeinitName = "weight_deinit";

// Allocation failures (fixed lines of the log).
constexpr int kLineWeightMap = 48;
constexpr int kLineRanged = 55;
constexpr int kLineExpand = 62;
constexpr int kLineTempim = 69;
constexpr int kLineSmooth = 76;
// Refusals.
constexpr int kLineNullArgs = 30;
constexpr int kLineBadSize = 34;
constexpr int kLineBadKernel = 38;
constexpr int kLineOverflow = 42;
constexpr int kLineContext = 44;
constexpr int kLineDeinitNull = 90;

constexpr int kHistRatio = 3;  // populated bin: at least 3/256 of the pixels
constexpr int kMinRange = 4;
constexpr int kWeightUnit = 1024;  // Q10 one

// Byte sizes of the five buffers, each a signed 32-bit product.
struct WeightBufferSizes {
  int32_t weight_map;
  int32_t ranged;
  int32_t expand;
  int32_t tempim;
  int32_t smooth;
  int32_t total;
};

bool FitsInt32(int64_t v) { return v >= INT32_MIN && v <= INT32_MAX; }

// Computes every size in 64 bits first so that a product that would leave
// the signed 32-bit range is refused instead of wrapping. Each factor is
// checked before it multiplies, so no 64-bit product overflows either.
bool ComputeSizes(int32_t W, int32_t H, int32_t dW, int32_t dH, int32_t r, WeightBufferSizes* s) {
  const int64_t pw = static_cast<int64_t>(dW) + 2 * static_cast<int64_t>(r);
  const int64_t ph = static_cast<int64_t>(dH) + 2 * static_cast<int64_t>(r);
  if (!FitsInt32(pw) || !FitsInt32(ph)) return false;
  const int64_t expand = pw * ph;
  if (!FitsInt32(expand)) return false;
  const int64_t map = static_cast<int64_t>(W) * H * 2;
  const int64_t disp = static_cast<int64_t>(dW) * dH;
  const int64_t tempim = (expand + pw) * 4;  // pw * (dH + (2r | 1)) == pw * (ph + 1)
  const int64_t total = map + disp + expand + tempim + disp;
  if (!FitsInt32(map) || !FitsInt32(disp) || !FitsInt32(tempim) || !FitsInt32(total)) return false;
  *s = {static_cast<int32_t>(map),    static_cast<int32_t>(disp), static_cast<int32_t>(expand),
        static_cast<int32_t>(tempim), static_cast<int32_t>(disp), static_cast<int32_t>(total)};
  return true;
}

bool CheckInitParams(const DofraParams* params, const DofraHandle* handle, WeightBufferSizes* s) {
  if (params == nullptr || handle == nullptr) {
    DOFRA_LOG(kLineNullArgs, kInitName, "invalid params or handle\n");
    return false;
  }
  const int32_t W = params->width, H = params->height;
  const int32_t dW = params->disparity_width, dH = params->disparity_height;
  if (W < 1 || H < 1 || dW < 1 || dH < 1) {
    DOFRA_LOG(kLineBadSize, kInitName, "invalid size %dx%d, disparity %dx%d\n", W, H, dW, dH);
    return false;
  }
  const int32_t k = params->weight_kernel_size;
  if (k < 1) {
    DOFRA_LOG(kLineBadKernel, kInitName, "invalid kernel size %d\n", k);
    return false;
  }
  if (!ComputeSizes(W, H, dW, dH, k / 2, s) ||
      !FitsInt32(static_cast<int64_t>(handle->buffer_total) + s->total)) {
    DOFRA_LOG(kLineOverflow, kInitName, "buffer sizes overflow for %dx%d, disparity %dx%d, k %d\n",
              W, H, dW, dH, k);
    return false;
  }
  return true;
}

uint8_t* AllocBytes(int32_t bytes) {
  return static_cast<uint8_t*>(malloc(static_cast<size_t>(bytes)));
}

template <typename T>
void FreeAndClear(T** p) {
  if (*p != nullptr) {
    free(*p);
    *p = nullptr;
  }
}

}  // namespace

extern "C" DOFRA_EXPORT int weight_init(DofraParams* params, DofraHandle* handle) {
  WeightBufferSizes sizes;
  if (!CheckInitParams(params, handle, &sizes)) return 1;

  auto* ctx = static_cast<WeightContext*>(calloc(1, sizeof(WeightContext)));
  if (ctx == nullptr) {
    DOFRA_LOG(kLineContext, kInitName, "WeightContext calloc error\n");
    return 1;
  }
  // A blank record that DofraInit put here is deliberately not released.
  handle->weight = ctx;
  ctx->width = params->width;
  ctx->height = params->height;
  ctx->disparity_width = params->disparity_width;
  ctx->disparity_height = params->disparity_height;
  ctx->weight_extra = params->weight_extra;
  ctx->kernel_size = params->weight_kernel_size;
  ctx->hist_ratio = kHistRatio;
  ctx->min_range = kMinRange;

  const int32_t k = ctx->kernel_size;
  ctx->kernel_weights = static_cast<uint16_t*>(calloc(static_cast<size_t>(k), sizeof(uint16_t)));
  // A failed allocation here goes unreported; the null pointer is refused
  // later by weight_async_process.
  if (ctx->kernel_weights != nullptr) {
    const uint16_t w = static_cast<uint16_t>(static_cast<uint32_t>(kWeightUnit) / k);
    for (int32_t i = 0; i < k; ++i) ctx->kernel_weights[i] = w;
  }

  // Nothing is rolled back on failure: weight_deinit releases what is here.
  ctx->weight_map = reinterpret_cast<uint16_t*>(AllocBytes(sizes.weight_map));
  if (ctx->weight_map == nullptr) {
    DOFRA_LOG(kLineWeightMap, kInitName, "WeightMap malloc error\n");
    return 1;
  }
  ctx->RangedDisparity = AllocBytes(sizes.ranged);
  if (ctx->RangedDisparity == nullptr) {
    DOFRA_LOG(kLineRanged, kInitName, "RangedDisparity malloc error\n");
    return 1;
  }
  ctx->ExpandDisparity = AllocBytes(sizes.expand);
  if (ctx->ExpandDisparity == nullptr) {
    DOFRA_LOG(kLineExpand, kInitName, "ExpandDisparity malloc error\n");
    return 1;
  }
  ctx->TempimDisparity = AllocBytes(sizes.tempim);
  if (ctx->TempimDisparity == nullptr) {
    DOFRA_LOG(kLineTempim, kInitName, "TempimDisparity malloc error\n");
    return 1;
  }
  ctx->SmoothDisparity = AllocBytes(sizes.smooth);
  if (ctx->SmoothDisparity == nullptr) {
    DOFRA_LOG(kLineSmooth, kInitName, "SmoothDisparity malloc error\n");
    return 1;
  }

  handle->buffer_total += sizes.total;
  return 0;
}

extern "C" DOFRA_EXPORT int weight_deinit(DofraHandle* handle) {
  if (handle == nullptr || handle->weight == nullptr) {
    DOFRA_LOG(kLineDeinitNull, kDeinitName, "invalid handle or weight context\n");
    return 1;
  }
  WeightContext* ctx = handle->weight;
  FreeAndClear(&ctx->kernel_weights);
  FreeAndClear(&ctx->weight_map);  // whatever it holds, also a host map
  FreeAndClear(&ctx->RangedDisparity);
  FreeAndClear(&ctx->ExpandDisparity);
  FreeAndClear(&ctx->TempimDisparity);
  if (ctx->SmoothDisparity != nullptr) free(ctx->SmoothDisparity);
  free(ctx);  // handle->weight keeps pointing here, as documented
  return 0;
}
