// Disparity-to-depth table, ranged disparity and the depth-range search.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "api/clock.h"
#include "kernels/row_kernels.h"
#include "weight/weight_internal.h"

namespace dofra {
namespace {

constexpr float kFix19 = 1.9073486e-6f;  // 2^-19: the calibration's fraction bits
static_assert(kFix19 == 1.0f / 524288.0f, "the literal is exactly 2^-19");
constexpr float kRatioScale = 4.0f;
constexpr float kRatioDiv = 10.0f;
constexpr int32_t kFloorDiv = 250;
constexpr float kExtraDiv = 255.0f;
constexpr uint32_t kOffsetScale = 16;
constexpr int kHistBins = 256;
constexpr int kHistParts = 4;
constexpr int kVec = 16;  // bytes per SSE vector

// K of the table, in single precision and in exactly this order of operations.
float ScaledK(const DepthCalibration& cal) {
  const float a = static_cast<float>(cal.calib_num) * kFix19;
  const float b = static_cast<float>(cal.calib_den) * kFix19;
  float ratio = std::fabs(a / b);
  ratio = ratio * kRatioScale;
  ratio = ratio / kRatioDiv;
  float k = static_cast<float>(cal.map_scale_num) * ratio;
  return k / static_cast<float>(cal.map_scale_den);
}

uint32_t DisparityOffset(const DepthCalibration& cal) {
  return (kOffsetScale * cal.map_scale_num) / cal.map_scale_den;
}

// Divisor of entry i; the offset is unsigned but d - offset is clamped signed.
int32_t Divisor(int32_t i, int32_t floor_disparity, uint32_t offset, int32_t extra) {
  int32_t d = i > floor_disparity ? i : floor_disparity;
  d = d - static_cast<int32_t>(offset);
  if (d < 1) d = 1;
  return d + extra;
}

// True when truncating v to int32 is defined (finite and in range).
bool TruncatesToInt32(double v) { return v > -2147483649.0 && v < 2147483648.0; }

// Folds the last n mod 16 bytes in: a byte that lowers the minimum is not
// compared with the maximum (kept: one byte 100 gives min 100, max 0).
void FoldTail(const uint8_t* p, int count, uint8_t* mn, uint8_t* mx) {
  for (int i = 0; i < count; ++i) {
    if (p[i] < *mn) {
      *mn = p[i];
    } else if (p[i] > *mx) {
      *mx = p[i];
    }
  }
}

int BodyBytes(int n) { return n > 0 ? n / kVec * kVec : 0; }

void MinMaxBody_C(const uint8_t* src, int body, uint8_t* min_out, uint8_t* max_out) {
  uint8_t mn = 255, mx = 0;
  for (int i = 0; i < body; ++i) {
    if (src[i] < mn) mn = src[i];
    if (src[i] > mx) mx = src[i];
  }
  *min_out = mn;
  *max_out = mx;
}

// The whole-vector body through `body_fn`, then the tail rule on the last
// n mod 16 bytes (it differs from the plain fold, so the body never
// overlaps it).
void MinMax(decltype(RowKernels::depth_min_max_body) body_fn, const uint8_t* src, int n,
            uint8_t* min_out, uint8_t* max_out) {
  const int body = BodyBytes(n);
  uint8_t mn = 255, mx = 0;
  body_fn(src, body, &mn, &mx);
  FoldTail(src + body, n - body, &mn, &mx);
  *min_out = mn;
  *max_out = mx;
}

void Lookup_C(const uint8_t* src, uint8_t* dst, int n, const uint8_t* table) {
  for (int i = 0; i < n; ++i) dst[i] = table[src[i]];
}

}  // namespace

void FillDepthTable_C(RowKernels* k) {
  k->depth_lookup = Lookup_C;
  k->depth_min_max_body = MinMaxBody_C;
}

DepthCalibration ReadDepthCalibration(const DepthData* depth) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(depth);
  DepthCalibration cal;
  memcpy(&cal.calib_num, bytes + kDepthCalibNumOffset, sizeof(cal.calib_num));
  memcpy(&cal.calib_den, bytes + kDepthCalibDenOffset, sizeof(cal.calib_den));
  memcpy(&cal.map_scale_den, bytes + kDepthScaleDenOffset, sizeof(cal.map_scale_den));
  memcpy(&cal.map_scale_num, bytes + kDepthScaleNumOffset, sizeof(cal.map_scale_num));
  return cal;
}

bool DepthCalibrationConvertible(const DepthCalibration& cal) {
  if (cal.map_scale_den == 0 || cal.calib_den == 0) return false;
  const float k = ScaledK(cal);
  if (!TruncatesToInt32(k)) return false;
  const int32_t floor_disparity = static_cast<int32_t>(k) / kFloorDiv;
  const float extra_f = k / kExtraDiv;
  if (!TruncatesToInt32(extra_f)) return false;
  const int32_t extra = static_cast<int32_t>(extra_f);
  const uint32_t offset = DisparityOffset(cal);
  for (int32_t i = 0; i < kDepthTableSize; ++i) {
    const float q = k / static_cast<float>(Divisor(i, floor_disparity, offset, extra));
    if (!TruncatesToInt32(static_cast<double>(q) + 0.5)) return false;
  }
  return true;
}

}  // namespace dofra

// The members keep their global names; their bodies run the layer's code.
using namespace dofra;

int InitDisparityToDepth(const DepthData* depth, uint8_t* table) {
  const DepthCalibration cal = ReadDepthCalibration(depth);
  const float k = ScaledK(cal);
  const int32_t floor_disparity = static_cast<int32_t>(k) / kFloorDiv;
  const uint32_t offset = DisparityOffset(cal);
  const int32_t extra = static_cast<int32_t>(k / kExtraDiv);
  for (int32_t i = 0; i < kDepthTableSize; ++i) {
    const float q = k / static_cast<float>(Divisor(i, floor_disparity, offset, extra));
    // Rounded in double, then the low 8 bits (never wraps while K >= 0).
    table[i] = static_cast<uint8_t>(static_cast<int32_t>(static_cast<double>(q) + 0.5));
  }
  return 0;
}

void __getRanged(const uint8_t* src, uint8_t* dst, int n, uint8_t /*unused_lo*/,
                 uint8_t /*unused_hi*/, const uint8_t* table) {
  ActiveRowKernels().depth_lookup(src, dst, n, table);
  TimingPoint();
}

void __getRanged_c(const uint8_t* src, uint8_t* dst, int n, const uint8_t* table) {
  ScalarRowKernels().depth_lookup(src, dst, n, table);
}

void __getMinMax_c(const uint8_t* src, int n, uint8_t* min_out, uint8_t* max_out) {
  MinMax(ScalarRowKernels().depth_min_max_body, src, n, min_out, max_out);
}

void __getMinMax_neon(const uint8_t* src, int n, uint8_t* min_out, uint8_t* max_out) {
  MinMax(ActiveRowKernels().depth_min_max_body, src, n, min_out, max_out);
  TimingPoint();
}

void __updateMinMax(const uint8_t* src, uint16_t* histogram, int n, int ratio, int min_range,
                    uint8_t* min_io, uint8_t* max_io) {
  const int threshold = (ratio * n) / 256;
  // Counted in four interleaved tables, so that runs of equal bytes do not
  // wait on one counter; each bin wraps at 65536, as specified, and the sum
  // of the four mod 65536 is that same count.
  uint16_t part[kHistParts][kHistBins] = {};
  int i = 0;
  for (; i + kHistParts <= n; i += kHistParts) {
    for (int k = 0; k < kHistParts; ++k) ++part[k][src[i + k]];
  }
  for (; i < n; ++i) ++part[0][src[i]];
  for (int b = 0; b < kHistBins; ++b)
    histogram[b] = static_cast<uint16_t>(part[0][b] + part[1][b] + part[2][b] + part[3][b]);

  int low = 255;  // bin 255 itself is never examined upward
  for (int b = 0; b < 255; ++b) {
    if (histogram[b] >= threshold) {
      low = b;
      break;
    }
  }
  int high = 0;  // bin 0 itself is never examined downward
  for (int j = *max_io; j >= 1; --j) {
    if (histogram[j] >= threshold) {
      high = j;
      break;
    }
  }
  if (high - low >= min_range) {
    *min_io = static_cast<uint8_t>(low);
    *max_io = static_cast<uint8_t>(high);
  }
  TimingPoint();
}
