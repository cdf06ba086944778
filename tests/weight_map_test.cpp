// Frame-sized weights from the smoothed depth, and weight_async_process end
// to end (order of steps, refusals).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "blur/kernels.h"
#include "support/log_capture.h"
#include "support/test_image.h"
#include "weight/weight_context.h"
#include "weight/weight_internal.h"

namespace {

// Weight of one pixel of depth `depth` for a focus of depth `focus`: a
// dW = W, dH = H map samples every depth exactly (fx = fy = 0).
int WeightAt(int level, int focus, int depth) {
  const int W = 4, H = 2;
  uint8_t smooth[W * H];
  memset(smooth, focus, sizeof(smooth));
  smooth[1] = static_cast<uint8_t>(depth);
  uint16_t out[W * H];
  __WeightInterpolateUp(W, H, 0, 0, 0, H - 1, out, W, H, kWeightFalloff, kStrengthTable[20 - level],
                        smooth);
  EXPECT_EQ(out[0], 0) << "the focus pixel is sharp";
  return out[1];
}

struct RampCase {
  int level;
  int focus;
  int depth;
  int weight;
};
class WeightRamp : public ::testing::TestWithParam<RampCase> {};
TEST_P(WeightRamp, AroundFocusDepth) {
  const RampCase c = GetParam();
  EXPECT_EQ(WeightAt(c.level, c.focus, c.depth), c.weight)
      << "level " << c.level << " focus " << c.focus << " depth " << c.depth;
}
INSTANTIATE_TEST_SUITE_P(
    Band, WeightRamp,
    ::testing::Values(
        // focus 50 at level 1: band 40..62.
        RampCase{1, 50, 40, 0}, RampCase{1, 50, 62, 0}, RampCase{1, 50, 39, 40},
        RampCase{1, 50, 30, 409}, RampCase{1, 50, 16, 983}, RampCase{1, 50, 15, 1024},
        RampCase{1, 50, 0, 1024}, RampCase{1, 50, 63, 40}, RampCase{1, 50, 86, 983},
        RampCase{1, 50, 87, 1024}, RampCase{1, 50, 255, 1024},
        // level 13 (strength 100), 10 outside the band.
        RampCase{13, 50, 30, 320}, RampCase{13, 50, 72, 320},
        // far focus: band 100..255, only nearer depths blur.
        RampCase{1, 101, 99, 40}, RampCase{1, 200, 100, 0}, RampCase{1, 150, 255, 0},
        RampCase{1, 255, 60, 1024},
        // focus 100 is still near: band 80..125.
        RampCase{1, 100, 126, 40}, RampCase{1, 100, 79, 40},
        // focus 0: band 0..0.
        RampCase{1, 0, 25, 1024}, RampCase{1, 0, 24, 983}, RampCase{1, 0, 0, 0},
        // level 20 blurs nothing.
        RampCase{20, 50, 0, 0}, RampCase{20, 50, 255, 0}));

// Plain scalar formula vs the row-vectorised member, byte for byte.
struct Shape {
  int W, H, dW, dH;
};

// Depth maps that steer 16-column groups into each path: noise (wide ranges),
// gradients (every ramp step), tiles of one depth (runs of one weight, with
// tile edges inside groups), tiles with a little noise (narrow ranges).
enum class Depths { kNoise, kGradient, kTiles, kNoisyTiles, kCount };

void FillDepths(Depths kind, int dW, int dH, std::mt19937& rng, std::vector<uint8_t>* smooth) {
  uint8_t* d = smooth->data();
  switch (kind) {
    case Depths::kNoise:
      FillRandom(d, smooth->size(), rng);
      break;
    case Depths::kGradient:
      for (size_t i = 0; i < smooth->size(); ++i) d[i] = static_cast<uint8_t>(i * 3 / 2);
      break;
    case Depths::kTiles:
    case Depths::kNoisyTiles: {
      const int tile = 1 + static_cast<int>(rng() % 7);
      const int noise = kind == Depths::kTiles ? 1 : 1 + static_cast<int>(rng() % 12);
      std::vector<uint8_t> levels(64);
      FillRandom(levels.data(), levels.size(), rng);
      for (int y = 0; y < dH; ++y)
        for (int x = 0; x < dW; ++x)
          d[y * dW + x] = static_cast<uint8_t>(std::min(
              255, levels[(y / tile * 7 + x / tile) % 64] + static_cast<int>(rng() % noise)));
      break;
    }
    case Depths::kCount:
      break;
  }
}

class InterpolateUp : public ::testing::TestWithParam<Shape> {};
TEST_P(InterpolateUp, VectorMatchesScalar) {
  const Shape s = GetParam();
  std::mt19937 rng(static_cast<uint32_t>(s.W * 7919 + s.H * 31 + s.dW));
  for (int iter = 0; iter < 12; ++iter) {
    std::vector<uint8_t> smooth(static_cast<size_t>(s.dW) * s.dH);
    FillDepths(static_cast<Depths>(iter % static_cast<int>(Depths::kCount)), s.dW, s.dH, rng,
               &smooth);
    const int fx = static_cast<int>(rng() % s.W), fy = static_cast<int>(rng() % s.H);
    const int first = iter == 0 ? 0 : static_cast<int>(rng() % s.H);
    const int last = iter == 0 ? s.H - 1 : first + static_cast<int>(rng() % (s.H - first));
    // Falloff 25 (the library's) takes the distance tables; others the plain lookup.
    const uint8_t falloff = static_cast<uint8_t>(iter % 3 != 2 ? 25 : 1 + rng() % 255);
    const uint8_t strength = static_cast<uint8_t>(iter == 0 ? 128 : rng() % 256);
    // Bounded so that the compiler can see the guarded allocation never wraps.
    const size_t bytes = std::min<size_t>(static_cast<uint32_t>(s.W * s.H) * size_t{2}, 1u << 26);
    GuardedBytes a(bytes, 1, 2), b(bytes, 101, 6);
    auto* out_a = reinterpret_cast<uint16_t*>(a.data());
    auto* out_b = reinterpret_cast<uint16_t*>(b.data());
    __WeightInterpolateUp(s.W, s.H, fx, fy, first, last, out_a, s.dW, s.dH, falloff, strength,
                          smooth.data());
    __WeightInterpolateUp_c(s.W, s.H, fx, fy, first, last, out_b, s.dW, s.dH, falloff, strength,
                            smooth.data());
    const size_t from = static_cast<size_t>(first) * s.W, to = static_cast<size_t>(last + 1) * s.W;
    for (size_t i = from; i < to; ++i)
      ASSERT_EQ(out_a[i], out_b[i])
          << "pixel " << i << " falloff " << int(falloff) << " iter " << iter;
    for (size_t i = 0; i < bytes; ++i) {
      const bool inside = i >= from * 2 && i < to * 2;
      if (!inside) {
        ASSERT_TRUE(a.data()[i] == 1 && b.data()[i] == 101) << "row outside written";
      }
    }
    ASSERT_TRUE(a.GuardsIntact());
    ASSERT_TRUE(b.GuardsIntact());
  }
}
// Upscaling by 8 as in preview (and other factors), downscaling (groups too
// wide for one load), maps narrower than one load, more than one strip.
INSTANTIATE_TEST_SUITE_P(Shapes, InterpolateUp,
                         ::testing::Values(Shape{1, 1, 1, 1}, Shape{7, 5, 3, 2},
                                           Shape{17, 9, 17, 9}, Shape{33, 21, 40, 30},
                                           Shape{64, 48, 8, 6}, Shape{121, 67, 15, 9},
                                           Shape{240, 135, 30, 17}, Shape{1031, 3, 129, 2},
                                           Shape{2500, 4, 313, 3}, Shape{9, 300, 2, 301},
                                           Shape{1920, 24, 240, 3}, Shape{2049, 5, 2049, 5},
                                           Shape{4111, 3, 600, 2}, Shape{47, 33, 16, 11}));

// The last columns and rows interpolate only towards the last disparity
// column and row (a sentinel depth after the map must never be seen).
TEST(InterpolateUp, LastColumnsAndRowsStayInsideTheMap) {
  const int W = 1920, H = 1080, dW = 240, dH = 135;
  GuardedBytes smooth(static_cast<size_t>(dW) * dH, 0, 0, /*sentinel=*/255);
  // Band around focus 0 is 0..0 and falloff 255 makes the weight grow with
  // depth one to one, so a depth-255 sentinel would show as 1024.
  for (int y = 0; y < dH; ++y) smooth.data()[y * dW + dW - 1] = 10;
  for (int x = 0; x < dW; ++x) smooth.data()[(dH - 1) * dW + x] = 10;
  std::vector<uint16_t> out(static_cast<size_t>(W) * H);
  __WeightInterpolateUp(W, H, 0, 0, 0, H - 1, out.data(), dW, dH, 255, 128, smooth.data());
  const uint16_t ten = out[static_cast<size_t>(H - 1) * W];  // depth 10 exactly
  EXPECT_EQ(ten, 40);                                        // trunc(10 * 1024 / 255) = 40
  for (int y = 0; y < H; ++y)
    for (int x = W - 8; x < W; ++x)
      ASSERT_EQ(out[static_cast<size_t>(y) * W + x], ten) << y << "," << x;
  for (int y = H - 8; y < H; ++y)
    for (int x = 0; x < W; ++x)
      ASSERT_EQ(out[static_cast<size_t>(y) * W + x], ten) << y << "," << x;
  EXPECT_EQ(out[0], 0);
}

// --- weight_async_process ---

constexpr int kW = 96, kH = 64, kDW = 24, kDH = 16;

// A context made by weight_init, a DepthData block (unaligned by one byte)
// with the worked-example calibration, and a request.
struct Fixture {
  DofraHandle handle{};
  std::vector<uint8_t> block;
  DepthData* depth = nullptr;
  WeightParams request{};

  Fixture() {
    DofraParams params = {kW, kH, kDW, kDH, 5, 0, 4, 5};
    EXPECT_EQ(weight_init(&params, &handle), 0);
    block.assign(1 + DOFRA_DEPTH_HEADER_SIZE + kDW * kDH, 0);
    depth = reinterpret_cast<DepthData*>(block.data() + 1);
    SetCalibration(1572864000, 524288, 1280, 320);
    std::mt19937 rng(99);
    FillRandom(Disparity(), kDW * kDH, rng);
    request = {1, kW / 2, kH / 2, depth};
  }
  ~Fixture() { weight_deinit(&handle); }
  uint8_t* Disparity() { return block.data() + 1 + DOFRA_DEPTH_HEADER_SIZE; }
  void SetCalibration(int32_t a, int32_t b, uint16_t m, uint16_t n) {
    uint8_t* h = block.data() + 1;
    memcpy(h + 16, &a, 4);
    memcpy(h + 20, &b, 4);
    memcpy(h + 60, &m, 2);
    memcpy(h + 64, &n, 2);
  }
};

// The specified steps, spelled out with the plain formulas.
std::vector<uint16_t> ExpectedMap(Fixture& f) {
  uint8_t table[256];
  InitDisparityToDepth(f.depth, table);
  std::vector<uint8_t> ranged(kDW * kDH), expand((kDW + 4) * (kDH + 4)), smooth(kDW * kDH);
  std::vector<uint32_t> tempim((kDW + 4) * (kDH + 5));
  __getRanged(f.Disparity(), ranged.data(), kDW * kDH, 0, 0, table);
  const uint16_t weights[5] = {204, 204, 204, 204, 204};
  __GaussianSmoothImage_Y_integral_image_c(ranged.data(), expand.data(), smooth.data(), kDW, kDH,
                                           weights, 2, 2, reinterpret_cast<uint8_t*>(tempim.data()),
                                           0, kDH - 1);
  std::vector<uint16_t> out(kW * kH);
  __WeightInterpolateUp_c(kW, kH, f.request.focus_x, f.request.focus_y, 0, kH - 1, out.data(), kDW,
                          kDH, 25, kStrengthTable[20 - f.request.level], smooth.data());
  return out;
}

class AsyncLevels : public ::testing::TestWithParam<int> {};
TEST_P(AsyncLevels, MatchesTheStepsAndLogsNothing) {
  Fixture f;
  f.request.level = GetParam();
  f.request.focus_x = GetParam() * 4 % kW;
  f.request.focus_y = kH - 1 - GetParam() % kH;
  const std::vector<uint16_t> expected = ExpectedMap(f);
  std::vector<uint16_t> out(kW * kH, 0xBEEF);
  LogCapture log;
  ASSERT_EQ(weight_async_process(&f.request, &f.handle, out.data()), 0);
  EXPECT_TRUE(log.Texts().empty());
  EXPECT_EQ(out, expected);
  const WeightContext* ctx = f.handle.weight;
  EXPECT_EQ(ctx->strength_index, 20 - GetParam());
  EXPECT_EQ(ctx->strength, kStrengthTable[20 - GetParam()]);
  EXPECT_EQ(ctx->falloff, 25);
  EXPECT_EQ(ctx->disparity, f.Disparity());
  uint32_t total = 0;
  for (uint16_t count : ctx->histogram) total += count;
  EXPECT_EQ(total, static_cast<uint32_t>(kDW * kDH)) << "histogram left in the context";
  if (GetParam() == 20) {
    for (uint16_t w : out) ASSERT_EQ(w, 0);
  }
}
INSTANTIATE_TEST_SUITE_P(Levels, AsyncLevels, ::testing::Values(1, 2, 7, 13, 19, 20));

struct Refusal {
  const char* name;
  void (*spoil)(Fixture&, WeightParams**, DofraHandle**, uint16_t**);
  const char* message;
};
class AsyncRefusals : public ::testing::TestWithParam<Refusal> {};
TEST_P(AsyncRefusals, LogsReturnsOneWritesNothing) {
  Fixture f;
  std::vector<uint16_t> out(kW * kH, 0x5A5A);
  WeightParams* request = &f.request;
  DofraHandle* handle = &f.handle;
  uint16_t* target = out.data();
  GetParam().spoil(f, &request, &handle, &target);
  LogCapture log;
  EXPECT_EQ(weight_async_process(request, handle, target), 1);
  const std::vector<std::string> texts = log.Texts();
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_NE(texts[0].find("weight_async_process: "), std::string::npos) << texts[0];
  EXPECT_NE(texts[0].find(GetParam().message), std::string::npos) << texts[0];
  EXPECT_EQ(texts[0].rfind("L ", 0), 0u);
  for (uint16_t w : out) ASSERT_EQ(w, 0x5A5A);
}
using P = WeightParams*;
using Hd = DofraHandle*;
using O = uint16_t*;
INSTANTIATE_TEST_SUITE_P(
    Cases, AsyncRefusals,
    ::testing::Values(
        Refusal{"null_request", [](Fixture&, P* r, Hd*, O*) { *r = nullptr; }, "invalid request"},
        Refusal{"null_handle", [](Fixture&, P*, Hd* h, O*) { *h = nullptr; }, "invalid handle"},
        Refusal{"null_context",
                [](Fixture&, P*, Hd* h, O*) {
                  static DofraHandle blank{};
                  *h = &blank;
                },
                "invalid weight context"},
        Refusal{"blank_context",
                [](Fixture&, P*, Hd* h, O*) {
                  static WeightContext ctx{};
                  static DofraHandle blank{};
                  blank.weight = &ctx;
                  *h = &blank;
                },
                "not initialised"},
        Refusal{"null_depth", [](Fixture& f, P*, Hd*, O*) { f.request.depth = nullptr; },
                "invalid DepthData"},
        Refusal{"null_output", [](Fixture&, P*, Hd*, O* o) { *o = nullptr; }, "invalid output"},
        Refusal{"level_0", [](Fixture& f, P*, Hd*, O*) { f.request.level = 0; }, "invalid level 0"},
        Refusal{"level_21", [](Fixture& f, P*, Hd*, O*) { f.request.level = 21; },
                "invalid level 21"},
        Refusal{"focus_x_neg", [](Fixture& f, P*, Hd*, O*) { f.request.focus_x = -1; }, "focus"},
        Refusal{"focus_x_W", [](Fixture& f, P*, Hd*, O*) { f.request.focus_x = kW; }, "focus"},
        Refusal{"focus_y_neg", [](Fixture& f, P*, Hd*, O*) { f.request.focus_y = -1; }, "focus"},
        Refusal{"focus_y_H", [](Fixture& f, P*, Hd*, O*) { f.request.focus_y = kH; }, "focus"},
        Refusal{"scale_den_0",
                [](Fixture& f, P*, Hd*, O*) { f.SetCalibration(1572864000, 524288, 0, 320); },
                "map_scale_den"},
        Refusal{"calib_den_0",
                [](Fixture& f, P*, Hd*, O*) { f.SetCalibration(1572864000, 0, 1280, 320); },
                "calib_den"},
        Refusal{"huge_K", [](Fixture& f, P*, Hd*, O*) { f.SetCalibration(INT32_MIN, 1, 1, 65535); },
                "out of range"},
        Refusal{"steps_overflow",
                [](Fixture& f, P*, Hd*, O*) { f.handle.weight->disparity_width = 32768; },
                "too large"}),
    [](const ::testing::TestParamInfo<Refusal>& info) { return std::string(info.param.name); });

}  // namespace
