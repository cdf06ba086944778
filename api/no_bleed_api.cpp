// DofraSetNoBleed (include/dofra_quality.h): the no-glow blur, per handle.
#include "api/log.h"
#include "blur/blur_context.h"
#include "blur/no_bleed.h"
#include "dofra_quality.h"
#include "kernels/no_bleed_rows.h"
#include "weight/weight_context.h"
#include "weight/weight_internal.h"

namespace {

// Fixed lines of the log.
constexpr const char* kName = "DofraSetNoBleed";
constexpr int kLineNullHandle = 70;
constexpr int kLineNullMode = 72;
constexpr int kLineNoPipeline = 74;
constexpr int kLineBadEnable = 76;
constexpr int kLineBadLevel = 78;
constexpr int kLineBadPullback = 80;
constexpr int kLineNoWeightMap = 82;
constexpr int kLineScratch = 84;
constexpr int kLineBadThreshold = 86;

// Everything a switch needs, before anything changes.
bool CheckMode(const DofraHandle* handle, const DofraNoBleed* mode) {
  if (handle == nullptr) {
    DOFRA_LOG(kLineNullHandle, kName, "invalid handle\n");
    return false;
  }
  if (mode == nullptr) {
    DOFRA_LOG(kLineNullMode, kName, "invalid mode record\n");
    return false;
  }
  if (handle->pool == nullptr || handle->blur == nullptr || handle->band_count != 2) {
    DOFRA_LOG(kLineNoPipeline, kName, "handle not made by DofraInit\n");
    return false;
  }
  if (mode->enable != 0 && mode->enable != 1) {
    DOFRA_LOG(kLineBadEnable, kName, "enable %d is neither 0 nor 1\n", mode->enable);
    return false;
  }
  if (mode->enable == 0) return true;
  if (mode->level < 1 || mode->level > dofra::kStrengthLevels) {
    DOFRA_LOG(kLineBadLevel, kName, "invalid level %d\n", mode->level);
    return false;
  }
  if (mode->pullback < 0 || mode->pullback > dofra::kNoBleedMaxPullback) {
    DOFRA_LOG(kLineBadPullback, kName, "pullback %d outside 0..%d\n", mode->pullback,
              dofra::kNoBleedMaxPullback);
    return false;
  }
  if (mode->threshold < 1 || mode->threshold > DOFRA_NO_BLEED_THRESHOLD_MAX) {
    DOFRA_LOG(kLineBadThreshold, kName, "threshold %d outside 1..%d\n", mode->threshold,
              DOFRA_NO_BLEED_THRESHOLD_MAX);
    return false;
  }
  if (handle->weight == nullptr || handle->weight->weight_map == nullptr) {
    DOFRA_LOG(kLineNoWeightMap, kName, "no weight map: call DofraCreateWeightMap first\n");
    return false;
  }
  return true;
}

}  // namespace

extern "C" DOFRA_EXPORT int DofraSetNoBleed(DofraHandle* handle, const DofraNoBleed* mode) {
  if (!CheckMode(handle, mode)) return 1;
  BlurContext* ctx = handle->blur;
  if (mode->enable == 0) {
    if (ctx->no_bleed != nullptr) ctx->no_bleed->enabled = false;
    return 0;
  }
  if (ctx->no_bleed == nullptr) {
    const int W = handle->width, H = handle->height, s = ctx->scale_factor;
    ctx->no_bleed = dofra::NewNoBleedState(W, H, s);
    if (ctx->no_bleed == nullptr) {
      DOFRA_LOG(kLineScratch, kName, "scratch of %lld bytes malloc error\n",
                static_cast<long long>(dofra::NoBleedStateBytes(W, H, s)));
      return 1;
    }
  }
  const int strength = dofra::kStrengthTable[dofra::kStrengthLevels - mode->level];
  // threshold eighths of the full weight 8 * strength, exactly.
  dofra::SetNoBleedRule(ctx->no_bleed, mode->pullback,
                        static_cast<uint16_t>(mode->threshold * strength));
  ctx->no_bleed->enabled = true;
  return 0;
}
