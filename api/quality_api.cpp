// The exported opt-in quality modes (include/dofra_quality.h).
#include "api/log.h"
#include "blur/blur_context.h"
#include "dofra_quality.h"
#include "weight/refine_map.h"
#include "weight/weight_context.h"
#include "weight/weight_internal.h"

namespace {

// Fixed lines of the log: weight_async_process's refusals, then the mode's.
constexpr const char* kRefineName = "DofraRefineWeightMap";
constexpr int kLineNullRequest = 20;
constexpr int kLineNullHandle = 22;
constexpr int kLineNullContext = 24;
constexpr int kLineBadContext = 26;
constexpr int kLineNullDepth = 28;
constexpr int kLineNullOutput = 30;
constexpr int kLineBadLevel = 32;
constexpr int kLineBadFocus = 34;
constexpr int kLineBadScaleDen = 36;
constexpr int kLineBadCalibDen = 38;
constexpr int kLineBadCalibration = 40;
constexpr int kLineBadSteps = 42;
constexpr dofra::WeightRequestLog kRefineLog = {
    kRefineName,      kLineNullRequest,    kLineNullHandle, kLineNullContext, kLineBadContext,
    kLineNullDepth,   kLineNullOutput,     kLineBadLevel,   kLineBadFocus,    kLineBadScaleDen,
    kLineBadCalibDen, kLineBadCalibration, kLineBadSteps};
constexpr int kLineNoPipeline = 44;
constexpr int kLineNullGuide = 46;
constexpr int kLineGuideSize = 48;
constexpr int kLineContextSize = 50;
constexpr int kLineLargeDisparity = 52;
constexpr int kLineBadTuning = 54;
constexpr int kLineScratch = 56;

// Beyond weight_async_process's checks: a DofraInit handle, a guide of its
// frame size, a weight context for the same frame, tuning in range.
bool CheckRefine(const DofraHandle* handle, const DofraGuide* guide,
                 const DofraRefineTuning& tuning) {
  if (handle->pool == nullptr || handle->blur == nullptr) {
    DOFRA_LOG(kLineNoPipeline, kRefineName, "handle not made by DofraInit\n");
    return false;
  }
  if (guide == nullptr || guide->nv21 == nullptr) {
    DOFRA_LOG(kLineNullGuide, kRefineName, "invalid guide frame\n");
    return false;
  }
  if (guide->width != handle->width || guide->height != handle->height) {
    DOFRA_LOG(kLineGuideSize, kRefineName, "guide %dx%d is not the frame %dx%d\n", guide->width,
              guide->height, handle->width, handle->height);
    return false;
  }
  const WeightContext* ctx = handle->weight;
  if (ctx->width != handle->width || ctx->height != handle->height) {
    DOFRA_LOG(kLineContextSize, kRefineName, "weight context %dx%d is not the frame %dx%d\n",
              ctx->width, ctx->height, handle->width, handle->height);
    return false;
  }
  if (ctx->disparity_width > ctx->width || ctx->disparity_height > ctx->height) {
    DOFRA_LOG(kLineLargeDisparity, kRefineName, "disparity %dx%d larger than the frame\n",
              ctx->disparity_width, ctx->disparity_height);
    return false;
  }
  if (!dofra::RefineTuningValid(tuning)) {
    DOFRA_LOG(kLineBadTuning, kRefineName,
              "tuning out of range: range_sigma %d, purity_scale %d, chroma_weight %d, "
              "flat_spread %d\n",
              tuning.range_sigma, tuning.purity_scale, tuning.chroma_weight, tuning.flat_spread);
    return false;
  }
  return true;
}

}  // namespace

extern "C" DOFRA_EXPORT int DofraRefineWeightMap(WeightParams* request, DofraHandle* handle,
                                                 const DofraGuide* guide,
                                                 const DofraRefineTuning* tuning, uint16_t* out) {
  if (!dofra::CheckWeightRequest(request, handle, out, kRefineLog)) return 1;
  const DofraRefineTuning t = tuning != nullptr ? *tuning : dofra::DefaultRefineTuning();
  if (!CheckRefine(handle, guide, t)) return 1;
  const WeightContext* ctx = handle->weight;
  const int W = ctx->width, H = ctx->height;
  const int dW = ctx->disparity_width, dH = ctx->disparity_height;
  dofra::RefineState* state = dofra::RefineStateFor(&handle->blur->refine, W, H, dW, dH);
  if (state == nullptr) {
    DOFRA_LOG(kLineScratch, kRefineName, "scratch of %lld bytes malloc error\n",
              static_cast<long long>(dofra::RefineStateBytes(W, H, dW, dH)));
    return 1;
  }
  dofra::RefineWeightMap(
      state, handle->pool,
      {request->depth, request->level, request->focus_x, request->focus_y, guide->nv21, t, out});
  return 0;
}
