// Weight-map computation: disparity -> depth -> smoothed depth -> frame-sized
// weights around the depth at the point of focus.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

#include "api/clock.h"
#include "api/log.h"
#include "blur/kernels.h"
#include "weight/weight_context.h"
#include "weight/weight_internal.h"

#if defined(__SSE4_1__)
#include <smmintrin.h>
#endif

const uint8_t kStrengthTable[kStrengthLevels] = {0,   60,  68,  76,  82,  87,  92,
                                                 100, 103, 107, 110, 112, 114, 116,
                                                 118, 120, 122, 124, 126, 128};

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

constexpr int kFixShift = 16;  // 16.16 positions in the disparity grid
constexpr int kFixOne = 1 << kFixShift;
constexpr int kFracShift = 8;         // 8-bit interpolation fractions
constexpr int kFracOne = 256;
constexpr int kFracRound = 128;
constexpr int kMaxStepExtent = 32767;  // d * 65536 must fit in int32
constexpr int32_t kNearFocusLimit = 25855;  // T <= 25855 <=> f <= 100
constexpr int kFarBandLow = 100;
constexpr int kFarBandHigh = 255;
constexpr int kWeightFull = 1024;  // Q10 one
constexpr float kWeightFullF = 1024.0f;
constexpr int kStrengthShift = 7;  // strength is in 1/128
constexpr int kStrengthRound = 64;
constexpr int kStrip = 1024;  // columns per strip: bounds the stack tables

// Rounded 8-bit-fraction interpolation; a * (256 - f) + b * f + 128 <= 65408.
inline int Lerp8(int a, int b, int f) {
  return (a * (kFracOne - f) + b * f + kFracRound) >> kFracShift;
}

struct Band {
  int low;
  int high;
};

// Depth at the point of focus and the in-focus band around it.
Band FocusBand(int focus_x, int focus_y, int sx, int sy, int dW, int dH, const uint8_t* d) {
  const int px = focus_x * sx, py = focus_y * sy;
  const int ix = px >> kFixShift, fx = (px >> kFracShift) & 0xFF;
  const int iy = py >> kFixShift, fy = (py >> kFracShift) & 0xFF;
  const int ix1 = std::min(ix + 1, dW - 1), iy1 = std::min(iy + 1, dH - 1);
  const int top = Lerp8(d[iy * dW + ix], d[iy * dW + ix1], fx);
  const int bottom = Lerp8(d[iy1 * dW + ix], d[iy1 * dW + ix1], fx);
  const int32_t t = top * (kFracOne - fy) + bottom * fy + kFracRound;
  if (t > kNearFocusLimit) return {kFarBandLow, kFarBandHigh};
  const double f = static_cast<double>(t >> kFracShift);
  // Written in exactly this form: 80 % to 125 % of the focus depth.
  return {static_cast<int>(std::max(f + (-0.2 * f), 0.0)),
          static_cast<int>(std::min(f + 0.25 * f, 255.0))};
}

// Everything the per-pixel weight needs besides the depth.
constexpr int kShortDiffs = 32;  // two 16-entry byte shuffles

struct WeightRamp {
  int low;
  int high;
  float gain;
  int strength;
  // Weights of distances 0..31, valid when every larger distance weighs as 31.
  uint16_t by_diff[kShortDiffs];
};

inline uint16_t WeightOfDiff(int diff, const WeightRamp& ramp) {
  int t = static_cast<int>(static_cast<float>(diff & 0xFF) * ramp.gain) & 0xFFFF;
  if (t >= kWeightFull) t = kWeightFull;
  return static_cast<uint16_t>((t * ramp.strength + kStrengthRound) >> kStrengthShift);
}

inline uint16_t WeightOf(int v, const WeightRamp& ramp) {
  return WeightOfDiff(v < ramp.low ? ramp.low - v : (v > ramp.high ? v - ramp.high : 0), ramp);
}

// Fills by_diff and tells whether the weight is flat from distance 31 on
// (so a distance clamped to 31 gives the same weight); with falloff 25 it is.
bool BuildShortTable(WeightRamp* ramp) {
  for (int d = 0; d < kShortDiffs; ++d) ramp->by_diff[d] = WeightOfDiff(d, *ramp);
  for (int d = kShortDiffs; d < 256; ++d)
    if (WeightOfDiff(d, *ramp) != ramp->by_diff[kShortDiffs - 1]) return false;
  return true;
}

// One output row from two horizontally interpolated depth rows.
using WeightRowFn = void (*)(const uint16_t* top, const uint16_t* bottom, int n, int fy,
                             const WeightRamp& ramp, uint16_t* out);

void WeightRow_C(const uint16_t* top, const uint16_t* bottom, int n, int fy,
                 const WeightRamp& ramp, uint16_t* out) {
  for (int i = 0; i < n; ++i) out[i] = WeightOf(Lerp8(top[i], bottom[i], fy), ramp);
}

#if defined(__SSE4_1__)
// Remainder: the scalar formula on the last n mod 8 pixels.
void WeightRow_SSE41(const uint16_t* top, const uint16_t* bottom, int n, int fy,
                     const WeightRamp& ramp, uint16_t* out) {
  const __m128i w_top = _mm_set1_epi16(static_cast<int16_t>(kFracOne - fy));
  const __m128i w_bottom = _mm_set1_epi16(static_cast<int16_t>(fy));
  const __m128i round8 = _mm_set1_epi16(kFracRound);
  const __m128i low = _mm_set1_epi16(static_cast<int16_t>(ramp.low));
  const __m128i high = _mm_set1_epi16(static_cast<int16_t>(ramp.high));
  const __m128i low16 = _mm_set1_epi32(0xFFFF);
  const __m128i full = _mm_set1_epi32(kWeightFull);
  const __m128i strength = _mm_set1_epi32(ramp.strength);
  const __m128i round7 = _mm_set1_epi32(kStrengthRound);
  const __m128 gain = _mm_set1_ps(ramp.gain);
  const __m128i zero = _mm_setzero_si128();
  int i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(top + i));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bottom + i));
    // 255 * 256 + 128 fits in u16, so the 16-bit sum and logical shift are exact.
    const __m128i v = _mm_srli_epi16(
        _mm_add_epi16(_mm_add_epi16(_mm_mullo_epi16(a, w_top), _mm_mullo_epi16(b, w_bottom)),
                      round8),
        kFracShift);
    // low <= high, so at most one saturating difference is nonzero; diff <= 255.
    const __m128i diff = _mm_or_si128(_mm_subs_epu16(low, v), _mm_subs_epu16(v, high));
    __m128i t_lo = _mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(_mm_cvtepu16_epi32(diff)), gain));
    __m128i t_hi =
        _mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(_mm_unpackhi_epi16(diff, zero)), gain));
    t_lo = _mm_min_epi32(_mm_and_si128(t_lo, low16), full);
    t_hi = _mm_min_epi32(_mm_and_si128(t_hi, low16), full);
    // 1024 * 255 + 64 fits in 32 bits; the result (<= 2040) packs exactly.
    t_lo = _mm_srli_epi32(_mm_add_epi32(_mm_mullo_epi32(t_lo, strength), round7), kStrengthShift);
    t_hi = _mm_srli_epi32(_mm_add_epi32(_mm_mullo_epi32(t_hi, strength), round7), kStrengthShift);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi32(t_lo, t_hi));
  }
  WeightRow_C(top + i, bottom + i, n - i, fy, ramp, out + i);
}

// Table lookup by byte shuffles: 16 pixels per step, the distance clamped to
// 31 and looked up in two 16-entry tables, one per byte of the weight.
// Remainder: the scalar formula on the last n mod 16 pixels.
void WeightRowTable_SSE41(const uint16_t* top, const uint16_t* bottom, int n, int fy,
                          const WeightRamp& ramp, uint16_t* out) {
  alignas(16) uint8_t lo_bytes[kShortDiffs], hi_bytes[kShortDiffs];
  for (int d = 0; d < kShortDiffs; ++d) {
    lo_bytes[d] = static_cast<uint8_t>(ramp.by_diff[d] & 0xFF);
    hi_bytes[d] = static_cast<uint8_t>(ramp.by_diff[d] >> 8);
  }
  const __m128i lo0 = _mm_load_si128(reinterpret_cast<const __m128i*>(lo_bytes));
  const __m128i lo1 = _mm_load_si128(reinterpret_cast<const __m128i*>(lo_bytes + 16));
  const __m128i hi0 = _mm_load_si128(reinterpret_cast<const __m128i*>(hi_bytes));
  const __m128i hi1 = _mm_load_si128(reinterpret_cast<const __m128i*>(hi_bytes + 16));
  const __m128i w_top = _mm_set1_epi16(static_cast<int16_t>(kFracOne - fy));
  const __m128i w_bottom = _mm_set1_epi16(static_cast<int16_t>(fy));
  const __m128i round8 = _mm_set1_epi16(kFracRound);
  const __m128i low = _mm_set1_epi8(static_cast<char>(ramp.low));
  const __m128i high = _mm_set1_epi8(static_cast<char>(ramp.high));
  const __m128i last = _mm_set1_epi8(kShortDiffs - 1);
  const __m128i fifteen = _mm_set1_epi8(15);
  auto lerp = [&](int at) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(top + at));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bottom + at));
    // 255 * 256 + 128 fits in u16, so the 16-bit sum and logical shift are exact.
    return _mm_srli_epi16(
        _mm_add_epi16(_mm_add_epi16(_mm_mullo_epi16(a, w_top), _mm_mullo_epi16(b, w_bottom)),
                      round8),
        kFracShift);
  };
  int i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m128i v = _mm_packus_epi16(lerp(i), lerp(i + 8));  // depths <= 255
    // low <= high, so at most one saturating difference is nonzero.
    const __m128i diff = _mm_or_si128(_mm_subs_epu8(low, v), _mm_subs_epu8(v, high));
    const __m128i d = _mm_min_epu8(diff, last);
    const __m128i upper = _mm_cmpgt_epi8(d, fifteen);  // d <= 31: signed compare is safe
    // pshufb reads the low 4 bits of an index whose top bit is clear.
    const __m128i lo = _mm_blendv_epi8(_mm_shuffle_epi8(lo0, d), _mm_shuffle_epi8(lo1, d), upper);
    const __m128i hi = _mm_blendv_epi8(_mm_shuffle_epi8(hi0, d), _mm_shuffle_epi8(hi1, d), upper);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_unpacklo_epi8(lo, hi));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i + 8), _mm_unpackhi_epi8(lo, hi));
  }
  WeightRow_C(top + i, bottom + i, n - i, fy, ramp, out + i);
}

WeightRowFn PickWeightRow(bool short_table) {
  return short_table ? WeightRowTable_SSE41 : WeightRow_SSE41;
}
#else
WeightRowFn PickWeightRow(bool) { return WeightRow_C; }
#endif

// Per-column sample positions of one strip of output columns.
struct ColumnTable {
  int32_t ix[kStrip];
  int32_t ix1[kStrip];
  uint8_t fx[kStrip];
};

void BuildColumns(int x0, int n, int sx, int dW, ColumnTable* cols) {
  int qx = x0 * sx;
  for (int j = 0; j < n; ++j, qx += sx) {
    cols->ix[j] = qx >> kFixShift;
    cols->ix1[j] = std::min(cols->ix[j] + 1, dW - 1);
    cols->fx[j] = static_cast<uint8_t>((qx >> kFracShift) & 0xFF);
  }
}

void LerpColumns(const uint8_t* row, const ColumnTable& cols, int n, uint16_t* dst) {
  for (int j = 0; j < n; ++j)
    dst[j] = static_cast<uint16_t>(Lerp8(row[cols.ix[j]], row[cols.ix1[j]], cols.fx[j]));
}

// Two horizontally interpolated depth rows, each computed once and reused by
// every output row that falls between the same pair of disparity rows.
class RowCache {
 public:
  RowCache(const uint8_t* depth, int dW, const ColumnTable& cols, int n)
      : depth_(depth), dW_(dW), cols_(cols), n_(n) {}

  // The row for disparity row r; never evicts the row `keep` points at.
  const uint16_t* Get(int r, const uint16_t* keep) {
    for (int s = 0; s < 2; ++s)
      if (tag_[s] == r) return rows_[s];
    const int s = (rows_[0] == keep) ? 1 : 0;
    LerpColumns(depth_ + static_cast<ptrdiff_t>(r) * dW_, cols_, n_, rows_[s]);
    tag_[s] = r;
    return rows_[s];
  }

 private:
  const uint8_t* depth_;
  int dW_;
  const ColumnTable& cols_;
  int n_;
  int tag_[2] = {-1, -1};
  uint16_t rows_[2][kStrip];
};

}  // namespace

DOFRA_WEIGHT_UP(__WeightInterpolateUp_c) {
  const int sx = (dW * kFixOne) / W;
  const int sy = (dH * kFixOne) / H;
  const Band band = FocusBand(focus_x, focus_y, sx, sy, dW, dH, smooth);
  if (first_row > last_row || W < 1) return;
  const WeightRamp ramp = {band.low, band.high, kWeightFullF / static_cast<float>(falloff),
                           strength, {}};
  int qy = first_row * sy;
  for (int y = first_row; y <= last_row; ++y, qy += sy) {
    const int iy = qy >> kFixShift, fy = (qy >> kFracShift) & 0xFF;
    const uint8_t* r0 = smooth + iy * dW;
    const uint8_t* r1 = smooth + std::min(iy + 1, dH - 1) * dW;
    int qx = 0;
    for (int x = 0; x < W; ++x, qx += sx) {
      const int ix = qx >> kFixShift, fx = (qx >> kFracShift) & 0xFF;
      const int ix1 = std::min(ix + 1, dW - 1);
      const int v = Lerp8(Lerp8(r0[ix], r0[ix1], fx), Lerp8(r1[ix], r1[ix1], fx), fy);
      out[y * W + x] = WeightOf(v, ramp);
    }
  }
}

DOFRA_WEIGHT_UP(__WeightInterpolateUp) {
  const int sx = (dW * kFixOne) / W;
  const int sy = (dH * kFixOne) / H;
  const Band band = FocusBand(focus_x, focus_y, sx, sy, dW, dH, smooth);
  if (first_row > last_row || W < 1) return;
  WeightRamp ramp = {band.low, band.high, kWeightFullF / static_cast<float>(falloff), strength,
                     {}};
  const WeightRowFn row_fn = PickWeightRow(BuildShortTable(&ramp));
  ColumnTable cols;
  // Strips of at most kStrip columns keep the tables on the stack.
  for (int x0 = 0; x0 < W; x0 += kStrip) {
    const int n = std::min(kStrip, W - x0);
    BuildColumns(x0, n, sx, dW, &cols);
    RowCache cache(smooth, dW, cols, n);
    int qy = first_row * sy;
    for (int y = first_row; y <= last_row; ++y, qy += sy) {
      const int iy = qy >> kFixShift, fy = (qy >> kFracShift) & 0xFF;
      const uint16_t* top = cache.Get(iy, nullptr);
      const uint16_t* bottom = cache.Get(std::min(iy + 1, dH - 1), top);
      row_fn(top, bottom, n, fy, ramp, out + static_cast<ptrdiff_t>(y) * W + x0);
    }
  }
}

namespace {

bool ContextUsable(const WeightContext* ctx) {
  return ctx->kernel_weights != nullptr && ctx->RangedDisparity != nullptr &&
         ctx->ExpandDisparity != nullptr && ctx->TempimDisparity != nullptr &&
         ctx->SmoothDisparity != nullptr && ctx->kernel_size >= 1 && ctx->width >= 1 &&
         ctx->height >= 1 && ctx->disparity_width >= 1 && ctx->disparity_height >= 1;
}

// Everything that would make the computation undefined is refused here,
// before the output is touched.
bool CheckRequest(const WeightParams* request, const DofraHandle* handle, const uint16_t* out) {
  if (request == nullptr) {
    DOFRA_LOG(kLineNullRequest, kProcessName, "invalid request\n");
    return false;
  }
  if (handle == nullptr) {
    DOFRA_LOG(kLineNullHandle, kProcessName, "invalid handle\n");
    return false;
  }
  const WeightContext* ctx = handle->weight;
  if (ctx == nullptr) {
    DOFRA_LOG(kLineNullContext, kProcessName, "invalid weight context\n");
    return false;
  }
  if (!ContextUsable(ctx)) {
    DOFRA_LOG(kLineBadContext, kProcessName, "weight context not initialised\n");
    return false;
  }
  if (request->depth == nullptr) {
    DOFRA_LOG(kLineNullDepth, kProcessName, "invalid DepthData\n");
    return false;
  }
  if (out == nullptr) {
    DOFRA_LOG(kLineNullOutput, kProcessName, "invalid output weight map\n");
    return false;
  }
  if (request->level < 1 || request->level > kStrengthLevels) {
    DOFRA_LOG(kLineBadLevel, kProcessName, "invalid level %d\n", request->level);
    return false;
  }
  if (request->focus_x < 0 || request->focus_x >= ctx->width || request->focus_y < 0 ||
      request->focus_y >= ctx->height) {
    DOFRA_LOG(kLineBadFocus, kProcessName, "focus (%d, %d) outside %dx%d\n", request->focus_x,
              request->focus_y, ctx->width, ctx->height);
    return false;
  }
  const DepthCalibration cal = ReadDepthCalibration(request->depth);
  if (cal.map_scale_den == 0) {
    DOFRA_LOG(kLineBadScaleDen, kProcessName, "invalid map_scale_den 0\n");
    return false;
  }
  if (cal.calib_den == 0) {
    DOFRA_LOG(kLineBadCalibDen, kProcessName, "invalid calib_den 0\n");
    return false;
  }
  if (!DepthCalibrationConvertible(cal)) {
    DOFRA_LOG(kLineBadCalibration, kProcessName, "calibration %d / %d, %u / %u out of range\n",
              cal.calib_num, cal.calib_den, cal.map_scale_num, cal.map_scale_den);
    return false;
  }
  // 16.16 steps need d * 65536 in int32; the histogram threshold ratio * n too.
  // With both steps in range, every sample of a frame pixel lies in the map.
  const int64_t pixels = static_cast<int64_t>(ctx->disparity_width) * ctx->disparity_height;
  if (ctx->disparity_width > kMaxStepExtent || ctx->disparity_height > kMaxStepExtent ||
      static_cast<int64_t>(ctx->hist_ratio) * pixels > INT32_MAX) {
    DOFRA_LOG(kLineBadSteps, kProcessName, "disparity %dx%d too large\n", ctx->disparity_width,
              ctx->disparity_height);
    return false;
  }
  return true;
}

}  // namespace

extern "C" DOFRA_EXPORT int weight_async_process(WeightParams* request, DofraHandle* handle,
                                                 uint16_t* out) {
  if (!CheckRequest(request, handle, out)) return 1;
  WeightContext* ctx = handle->weight;
  const int r = ctx->kernel_size / 2;
  const int dW = ctx->disparity_width, dH = ctx->disparity_height;
  const int n = dW * dH;

  ctx->focus_x = request->focus_x;
  ctx->focus_y = request->focus_y;
  ctx->strength_index = kStrengthLevels - request->level;
  ctx->disparity = reinterpret_cast<uint8_t*>(request->depth) + DOFRA_DEPTH_HEADER_SIZE;

  uint8_t table[kDepthTableSize];
  InitDisparityToDepth(request->depth, table);
  __getRanged(ctx->disparity, ctx->RangedDisparity, n, 0, 0, table);
  __GaussianSmoothImage_Y_integral_image_neon(ctx->RangedDisparity, ctx->ExpandDisparity,
                                              ctx->SmoothDisparity, dW, dH, ctx->kernel_weights,
                                              r, r, ctx->TempimDisparity, 0, dH - 1);
  (void)getTime();

  // The range is computed but not used; the histogram stays in the context.
  uint8_t range_min = 0, range_max = 0;
  __getMinMax_neon(ctx->SmoothDisparity, n, &range_min, &range_max);
  __updateMinMax(ctx->SmoothDisparity, ctx->histogram, n, ctx->hist_ratio, ctx->min_range,
                 &range_min, &range_max);

  ctx->falloff = kWeightFalloff;
  ctx->strength = kStrengthTable[ctx->strength_index];
  __WeightInterpolateUp(ctx->width, ctx->height, ctx->focus_x, ctx->focus_y, 0, ctx->height - 1,
                        out, dW, dH, ctx->falloff, static_cast<uint8_t>(ctx->strength),
                        ctx->SmoothDisparity);
  return 0;
}
