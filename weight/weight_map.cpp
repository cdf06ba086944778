// Weight-map computation: disparity -> depth -> smoothed depth -> frame-sized
// weights around the depth at the point of focus.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

#include "api/clock.h"
#include "api/log.h"
#include "blur/dispatch.h"
#include "blur/kernels.h"
#include "kernels/fixed_point.h"
#include "kernels/row_kernels.h"
#include "weight/weight_context.h"
#include "weight/weight_internal.h"
#include "weight/weight_pairs.h"

namespace dofra {

const uint8_t kStrengthTable[kStrengthLevels] = {0,   60,  68,  76,  82,  87,  92,  100, 103, 107,
                                                 110, 112, 114, 116, 118, 120, 122, 124, 126, 128};

namespace {

constexpr const char* kProcessName = "weight_async_process";
constexpr int kLineNullRequest = 310;
constexpr int kLineNullHandle = 312;
constexpr int kLineNullContext = 314;
constexpr int kLineBadContext = 316;
constexpr int kLineNullDepth = 318;
constexpr int kLineNullOutput = 320;
constexpr int kLineBadLevel = 322;
constexpr int kLineBadFocus = 324;
constexpr int kLineBadScaleDen = 326;
constexpr int kLineBadCalibDen = 328;
constexpr int kLineBadCalibration = 330;
constexpr int kLineBadSteps = 332;
constexpr WeightRequestLog kProcessLog = {
    kProcessName,     kLineNullRequest,    kLineNullHandle, kLineNullContext, kLineBadContext,
    kLineNullDepth,   kLineNullOutput,     kLineBadLevel,   kLineBadFocus,    kLineBadScaleDen,
    kLineBadCalibDen, kLineBadCalibration, kLineBadSteps};

constexpr int kMaxStepExtent = 32767;       // d * 65536 must fit in int32
constexpr int32_t kNearFocusLimit = 25855;  // T <= 25855 <=> f <= 100
constexpr int kNearFocusDepth = kNearFocusLimit >> kFracBits;
constexpr int kFarBandLow = 100;
constexpr int kFarBandHigh = 255;
constexpr int kWeightFull = 1024;  // Q10 one
constexpr float kWeightFullF = 1024.0f;
constexpr int kStrengthShift = 7;  // strength is in 1/128
constexpr int kStrengthRound = 64;

// Rounded 8-bit-fraction interpolation from a towards b.
inline int Lerp8(int a, int b, int f) { return Lerp8(a, b, kFracOne - f, f); }

struct Band {
  int low;
  int high;
};

// The in-focus band around a focus depth f.
Band BandAround(int focus_depth) {
  if (focus_depth > kNearFocusDepth) return {kFarBandLow, kFarBandHigh};
  const double f = static_cast<double>(focus_depth);
  // Written in exactly this form: 80 % to 125 % of the focus depth.
  return {static_cast<int>(std::max(f + (-0.2 * f), 0.0)),
          static_cast<int>(std::min(f + 0.25 * f, 255.0))};
}

// Depth at the point of focus and the in-focus band around it.
Band FocusBand(int focus_x, int focus_y, int sx, int sy, int dW, int dH, const uint8_t* d) {
  const int px = focus_x * sx, py = focus_y * sy;
  const int ix = PosInt(px), fx = PosFrac(px);
  const int iy = PosInt(py), fy = PosFrac(py);
  const int ix1 = std::min(ix + 1, dW - 1), iy1 = std::min(iy + 1, dH - 1);
  const int top = Lerp8(d[iy * dW + ix], d[iy * dW + ix1], fx);
  const int bottom = Lerp8(d[iy1 * dW + ix], d[iy1 * dW + ix1], fx);
  const int32_t t = top * (kFracOne - fy) + bottom * fy + kRound8;
  return BandAround(t >> kFracBits);
}

// Everything the per-pixel weight needs besides the depth.
struct WeightRamp {
  int low;
  int high;
  float gain;
  int strength;
};

inline uint16_t WeightOfDiff(int diff, const WeightRamp& ramp) {
  int t = static_cast<int>(static_cast<float>(diff & 0xFF) * ramp.gain) & 0xFFFF;
  if (t >= kWeightFull) t = kWeightFull;
  return static_cast<uint16_t>((t * ramp.strength + kStrengthRound) >> kStrengthShift);
}

inline uint16_t WeightOf(int v, const WeightRamp& ramp) {
  return WeightOfDiff(v < ramp.low ? ramp.low - v : (v > ramp.high ? v - ramp.high : 0), ramp);
}

constexpr int kGroup = kWeightGroup;
constexpr int kStrip = kWeightStrip;
// Maps from this size on are written with streaming stores: past what a
// core's own caches hold, a store that first reads its line costs twice.
constexpr int64_t kStreamMapBytes = 2 << 20;

void BuildLut(const WeightRamp& ramp, WeightLut* lut) {
  lut->low = ramp.low;
  lut->high = ramp.high;
  for (int v = 0; v < kDepths; ++v) lut->by_depth[v] = WeightOf(v, ramp);
  std::fill(lut->depth_lo + kDepths, lut->depth_lo + kDepths + kGroup, 0);
  std::fill(lut->depth_hi + kDepths, lut->depth_hi + kDepths + kGroup, 0);
  for (int v = 0; v < kDepths; ++v) {
    lut->depth_lo[v] = static_cast<uint8_t>(lut->by_depth[v] & 0xFF);
    lut->depth_hi[v] = static_cast<uint8_t>(lut->by_depth[v] >> 8);
  }
  lut->same_until[kDepths - 1] = kDepths - 1;
  for (int v = kDepths - 2; v >= 0; --v)
    lut->same_until[v] =
        lut->by_depth[v] == lut->by_depth[v + 1] ? lut->same_until[v + 1] : static_cast<uint8_t>(v);
  const uint16_t last = WeightOfDiff(kShortDiffs - 1, ramp);
  lut->short_table = true;
  for (int d = 0; d < kDepths; ++d) {
    const uint16_t w = WeightOfDiff(d, ramp);
    if (d < kShortDiffs) {
      const uint16_t x = d < kShortDiffs / 2 ? w : w ^ WeightOfDiff(d - kShortDiffs / 2, ramp);
      lut->diff_lo[d] = static_cast<uint8_t>(x & 0xFF);
      lut->diff_hi[d] = static_cast<uint8_t>(x >> 8);
    } else if (w != last) {
      lut->short_table = false;
    }
  }
}

}  // namespace

void DepthWeightLut(int focus_depth, uint8_t falloff, uint8_t strength, WeightLut* lut) {
  const Band band = BandAround(focus_depth);
  BuildLut({band.low, band.high, kWeightFullF / static_cast<float>(falloff), strength}, lut);
}

namespace {

void WeightRow_C(const uint16_t* top, const int16_t* delta, int from, int to, const WeightRow& row,
                 const WeightLut& lut) {
  for (int j = from; j < to; ++j)
    row.out[j] = lut.by_depth[Lerp8(top[j], top[j] + delta[j], row.fy)];
}

void FillRow_C(uint16_t* out, int n, uint16_t w, bool) { std::fill(out, out + n, w); }

void NoFence_C() {}

void NarrowRow_C(const uint16_t* top, const int16_t* delta, const uint8_t*, int from, int to,
                 const WeightRow& row, const WeightLut& lut) {
  WeightRow_C(top, delta, from, to, row, lut);
}

// A group is gathered by shuffles when its samples span at most 16 bytes; the
// load never starts past dW - 16, so it never reads past the row.
void BuildGroupShuffles(int dW, ColumnTable* c) {
  for (int g = 0; (g + 1) * kGroup <= c->n; ++g) {
    const int j0 = g * kGroup;
    const int at = std::min(c->ix[j0], dW - kGroup);
    const bool fits = at >= 0 && c->ix1[j0 + kGroup - 1] - at < kGroup;
    c->load_at[g] = fits ? at : -1;
    for (int k = 0; fits && k < kGroup; ++k) {
      c->pick0[g][k] = static_cast<uint8_t>(c->ix[j0 + k] - at);
      c->pick1[g][k] = static_cast<uint8_t>(c->ix1[j0 + k] - at);
      c->frac7[g][k] = static_cast<int16_t>(c->fx[j0 + k] << 7);
    }
  }
}

void BuildColumns(int x0, int n, int sx, int dW, ColumnTable* c) {
  c->n = n;
  int qx = x0 * sx;
  for (int j = 0; j < n; ++j, qx += sx) {
    c->ix[j] = PosInt(qx);
    c->ix1[j] = std::min(c->ix[j] + 1, dW - 1);
    c->fx[j] = static_cast<uint8_t>(PosFrac(qx));
  }
  BuildGroupShuffles(dW, c);
}

void LerpPair_C(const uint8_t* row0, const uint8_t* row1, const ColumnTable& c, int from, int to,
                uint16_t* top, int16_t* delta) {
  for (int j = from; j < to; ++j) {
    const int upper = Lerp8(row0[c.ix[j]], row0[c.ix1[j]], c.fx[j]);
    top[j] = static_cast<uint16_t>(upper);
    delta[j] = static_cast<int16_t>(Lerp8(row1[c.ix[j]], row1[c.ix1[j]], c.fx[j]) - upper);
  }
}

// One output row from left to right: rows one after another make the map
// one sequential stream (the top and delta a row reloads stay in L1).
void WriteRow(const RowKernels& k, const PairRows& p, const KindRules& rules, const WeightLut& lut,
              WeightRowFn row_fn, const WeightRow& row) {
  int from = 0;
  for (int r = 0; r < p.runs; from = p.run_end[r++]) {
    const int to = p.run_end[r];
    const uint8_t kind = p.run_kind[r];
    if (kind == kKindMixed)
      row_fn(p.top, p.delta, from, to, row, lut);
    else if (kind == kKindNarrow)
      k.weight_narrow_row(p.top, p.delta, p.group_min, from, to, row, lut);
    else
      k.weight_fill_row(row.out + from, to - from, rules.weight[kind - kKindFill], row.stream);
  }
}

}  // namespace

void FillWeight_C(RowKernels* k) {
  k->weight_row = WeightRow_C;
  k->weight_row_short = WeightRow_C;
  k->weight_narrow_row = NarrowRow_C;
  k->weight_fill_row = FillRow_C;
  k->weight_stream_fence = NoFence_C;
  k->weight_lerp_pair = LerpPair_C;
}

}  // namespace dofra

// The members keep their global names; their bodies run the layer's code.
using namespace dofra;

DOFRA_WEIGHT_UP(__WeightInterpolateUp_c) {
  const int sx = (dW * kPosOne) / W;
  const int sy = (dH * kPosOne) / H;
  const Band band = FocusBand(focus_x, focus_y, sx, sy, dW, dH, smooth);
  if (first_row > last_row || W < 1) return;
  const WeightRamp ramp = {band.low, band.high, kWeightFullF / static_cast<float>(falloff),
                           strength};
  int qy = first_row * sy;
  for (int y = first_row; y <= last_row; ++y, qy += sy) {
    const int iy = PosInt(qy), fy = PosFrac(qy);
    const uint8_t* r0 = smooth + iy * dW;
    const uint8_t* r1 = smooth + std::min(iy + 1, dH - 1) * dW;
    int qx = 0;
    for (int x = 0; x < W; ++x, qx += sx) {
      const int ix = PosInt(qx), fx = PosFrac(qx);
      const int ix1 = std::min(ix + 1, dW - 1);
      const int v = Lerp8(Lerp8(r0[ix], r0[ix1], fx), Lerp8(r1[ix], r1[ix1], fx), fy);
      out[y * W + x] = WeightOf(v, ramp);
    }
  }
}

// Per call: the weight of every depth and its constant stretches. Per strip
// of columns: sample positions and gathers. Per pair of disparity rows: group
// bounds from the samples, runs by kind, and the depth rows of the runs that
// need them. Per output row only fills, or the vertical blend and a lookup.
DOFRA_WEIGHT_UP(__WeightInterpolateUp) {
  const int sx = (dW * kPosOne) / W;
  const int sy = (dH * kPosOne) / H;
  const Band band = FocusBand(focus_x, focus_y, sx, sy, dW, dH, smooth);
  if (first_row > last_row || W < 1) return;
  const WeightRamp ramp = {band.low, band.high, kWeightFullF / static_cast<float>(falloff),
                           strength};
  WeightLut lut;
  BuildLut(ramp, &lut);
  const KindRules rules = KindRulesOf(lut);
  const RowKernels& k = ActiveRowKernels();
  const WeightRowFn row_fn = lut.short_table ? k.weight_row_short : k.weight_row;
  ColumnTable cols;
  PairRows pair;
  WeightRow row;
  // Only where every group of a row streams (the narrow path does not): a
  // line written both ways is flushed half-written, far slower than either.
  const int64_t map_bytes = static_cast<int64_t>(last_row - first_row + 1) * W * 2;
  row.stream = lut.short_table && map_bytes >= kStreamMapBytes;
  for (int x0 = 0; x0 < W; x0 += kStrip) {
    BuildColumns(x0, std::min(kStrip, W - x0), sx, dW, &cols);
    const StripSpans spans = SpansOf(cols);
    int pair_row = -1;
    int qy = first_row * sy;
    for (int y = first_row; y <= last_row; ++y, qy += sy) {
      const int iy = PosInt(qy);
      if (iy != pair_row) {
        PreparePair(k.weight_lerp_pair, smooth + static_cast<ptrdiff_t>(iy) * dW,
                    smooth + static_cast<ptrdiff_t>(std::min(iy + 1, dH - 1)) * dW, cols, spans,
                    rules, &pair);
        pair_row = iy;
      }
      row.fy = PosFrac(qy);
      row.out = out + static_cast<ptrdiff_t>(y) * W + x0;
      WriteRow(k, pair, rules, lut, row_fn, row);
    }
  }
  if (row.stream) k.weight_stream_fence();
}

namespace dofra {
namespace {

const WeightKernelTable kWeightKernels = {__getMinMax_neon, __WeightInterpolateUp};
const WeightKernelTable kWeightKernelsC = {__getMinMax_c, __WeightInterpolateUp_c};

}  // namespace

const WeightKernelTable& ActiveWeightKernels() {
  return ActiveSimdLevel() == SimdLevel::kScalar ? kWeightKernelsC : kWeightKernels;
}

}  // namespace dofra

namespace {

bool ContextUsable(const WeightContext* ctx) {
  return ctx->kernel_weights != nullptr && ctx->RangedDisparity != nullptr &&
         ctx->ExpandDisparity != nullptr && ctx->TempimDisparity != nullptr &&
         ctx->SmoothDisparity != nullptr && ctx->kernel_size >= 1 && ctx->width >= 1 &&
         ctx->height >= 1 && ctx->disparity_width >= 1 && ctx->disparity_height >= 1;
}

}  // namespace

// Everything that would make the computation undefined is refused here,
// before the output is touched.
bool dofra::CheckWeightRequest(const WeightParams* request, const DofraHandle* handle,
                               const uint16_t* out, const WeightRequestLog& log) {
  if (request == nullptr) {
    DOFRA_LOG(log.null_request, log.name, "invalid request\n");
    return false;
  }
  if (handle == nullptr) {
    DOFRA_LOG(log.null_handle, log.name, "invalid handle\n");
    return false;
  }
  const WeightContext* ctx = handle->weight;
  if (ctx == nullptr) {
    DOFRA_LOG(log.null_context, log.name, "invalid weight context\n");
    return false;
  }
  if (!ContextUsable(ctx)) {
    DOFRA_LOG(log.bad_context, log.name, "weight context not initialised\n");
    return false;
  }
  if (request->depth == nullptr) {
    DOFRA_LOG(log.null_depth, log.name, "invalid DepthData\n");
    return false;
  }
  if (out == nullptr) {
    DOFRA_LOG(log.null_output, log.name, "invalid output weight map\n");
    return false;
  }
  if (request->level < 1 || request->level > kStrengthLevels) {
    DOFRA_LOG(log.bad_level, log.name, "invalid level %d\n", request->level);
    return false;
  }
  if (request->focus_x < 0 || request->focus_x >= ctx->width || request->focus_y < 0 ||
      request->focus_y >= ctx->height) {
    DOFRA_LOG(log.bad_focus, log.name, "focus (%d, %d) outside %dx%d\n", request->focus_x,
              request->focus_y, ctx->width, ctx->height);
    return false;
  }
  const DepthCalibration cal = ReadDepthCalibration(request->depth);
  if (cal.map_scale_den == 0) {
    DOFRA_LOG(log.bad_scale_den, log.name, "invalid map_scale_den 0\n");
    return false;
  }
  if (cal.calib_den == 0) {
    DOFRA_LOG(log.bad_calib_den, log.name, "invalid calib_den 0\n");
    return false;
  }
  if (!DepthCalibrationConvertible(cal)) {
    DOFRA_LOG(log.bad_calibration, log.name, "calibration %d / %d, %u / %u out of range\n",
              cal.calib_num, cal.calib_den, cal.map_scale_num, cal.map_scale_den);
    return false;
  }
  // 16.16 steps need d * 65536 in int32; the histogram threshold ratio * n too.
  // With both steps in range, every sample of a frame pixel lies in the map.
  const int64_t pixels = static_cast<int64_t>(ctx->disparity_width) * ctx->disparity_height;
  if (ctx->disparity_width > kMaxStepExtent || ctx->disparity_height > kMaxStepExtent ||
      static_cast<int64_t>(ctx->hist_ratio) * pixels > INT32_MAX) {
    DOFRA_LOG(log.bad_steps, log.name, "disparity %dx%d too large\n", ctx->disparity_width,
              ctx->disparity_height);
    return false;
  }
  return true;
}

extern "C" DOFRA_EXPORT int weight_async_process(WeightParams* request, DofraHandle* handle,
                                                 uint16_t* out) {
  if (!dofra::CheckWeightRequest(request, handle, out, kProcessLog)) return 1;
  WeightContext* ctx = handle->weight;
  const int r = ctx->kernel_size / 2;
  const int dW = ctx->disparity_width, dH = ctx->disparity_height;
  const int n = dW * dH;

  ctx->focus_x = request->focus_x;
  ctx->focus_y = request->focus_y;
  ctx->strength_index = kStrengthLevels - request->level;
  ctx->disparity = reinterpret_cast<uint8_t*>(request->depth) + DOFRA_DEPTH_HEADER_SIZE;

  const BlurKernelTable& kernels = ActiveBlurKernels();
  const WeightKernelTable& members = ActiveWeightKernels();
  uint8_t table[kDepthTableSize];
  InitDisparityToDepth(request->depth, table);
  __getRanged(ctx->disparity, ctx->RangedDisparity, n, 0, 0, table);
  kernels.smooth_y(ctx->RangedDisparity, ctx->ExpandDisparity, ctx->SmoothDisparity, dW, dH,
                   ctx->kernel_weights, r, r, ctx->TempimDisparity, 0, dH - 1);
  TimingPoint();

  // The range is computed but not used; the histogram stays in the context.
  uint8_t range_min = 0, range_max = 0;
  members.min_max(ctx->SmoothDisparity, n, &range_min, &range_max);
  __updateMinMax(ctx->SmoothDisparity, ctx->histogram, n, ctx->hist_ratio, ctx->min_range,
                 &range_min, &range_max);

  ctx->falloff = kWeightFalloff;
  ctx->strength = kStrengthTable[ctx->strength_index];
  members.interpolate_up(ctx->width, ctx->height, ctx->focus_x, ctx->focus_y, 0, ctx->height - 1,
                         out, dW, dH, ctx->falloff, static_cast<uint8_t>(ctx->strength),
                         ctx->SmoothDisparity);
  return 0;
}
