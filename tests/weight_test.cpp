// The weight path: depth table, range search, weights around the focus depth,
// weight_async_process end to end, and weight_init / weight_deinit.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "blur/kernels.h"
#include "kernels/simd_level.h"
#include "support/log_capture.h"
#include "support/test_image.h"
#include "weight/weight_context.h"
#include "weight/weight_internal.h"

using namespace dofra;  // the library's internal names

namespace {

// A DepthData header `misalign` bytes into a buffer, then the disparity.
std::vector<uint8_t> Block(int32_t a, int32_t b, uint16_t m, uint16_t n, size_t misalign,
                           size_t disparity = 0) {
  std::vector<uint8_t> buf(misalign + DOFRA_DEPTH_HEADER_SIZE + disparity, 0xEE);
  uint8_t* h = buf.data() + misalign;
  memcpy(h + 16, &a, 4);
  memcpy(h + 20, &b, 4);
  memcpy(h + 60, &m, 2);
  memcpy(h + 64, &n, 2);
  return buf;
}

// K = 300, floorDisparity = 1, offset = 4, extra = 1, whatever the signs of A
// and B; K = 510 (A / B = 1275, m = n = 1): offset 16 and extra 2, K / 255
// truncated; a zero numerator gives a zero table.
TEST(DepthTable, WorkedExample) {
  const int32_t a = 1572864000, b = 524288;
  const int32_t signs[][2] = {{a, b}, {-a, b}, {a, -b}, {-a, -b}};
  for (size_t i = 0; i < 4; ++i) {
    const std::vector<uint8_t> buf = Block(signs[i][0], signs[i][1], 1280, 320, i);
    uint8_t t[256];
    InitDisparityToDepth(reinterpret_cast<const DepthData*>(buf.data() + i), t);
    const int head[] = {150, 150, 150, 150, 150, 150, 100, 75, 60, 50, 43, 38};
    for (int d = 0; d < 12; ++d) EXPECT_EQ(t[d], head[d]) << d;
    for (int d = 253; d < 256; ++d) EXPECT_EQ(t[d], 1) << d;
  }
  const std::vector<uint8_t> zero = Block(0, b, 1280, 320, 0);
  uint8_t t[256];
  InitDisparityToDepth(reinterpret_cast<const DepthData*>(zero.data()), t);
  EXPECT_EQ(std::vector<uint8_t>(t, t + 256), std::vector<uint8_t>(256, 0));
  const std::vector<uint8_t> k510 = Block(1275 * b, b, 1, 1, 0);
  InitDisparityToDepth(reinterpret_cast<const DepthData*>(k510.data()), t);
  EXPECT_EQ(std::vector<int>({t[0], t[17], t[18], t[19], t[255]}),
            std::vector<int>({170, 170, 128, 102, 2}));
}

TEST(DepthTable, ConvertibleOnlyInsideInt32) {
  const struct {
    int32_t a, b;
    uint16_t m, n;
    bool ok;
  } cases[] = {{1572864000, 524288, 1280, 320, true}, {0, 1, 1, 65535, true},
               {1572864000, 524288, 0, 320, false},   {1572864000, 0, 1280, 320, false},
               {INT32_MIN, 1, 1, 65535, false},       {INT32_MAX, 1000, 1, 65535, false},
               {INT32_MAX, 100000, 1, 65535, true}};
  for (const auto& c : cases)
    EXPECT_EQ(DepthCalibrationConvertible({c.a, c.b, c.m, c.n}), c.ok) << c.a << " " << c.b;
}

// The tail rule: a byte that lowers the minimum is not compared with the maximum.
TEST(DepthRange, MinMaxTailRule) {
  const struct {
    std::vector<uint8_t> bytes;
    int min, max;
  } cases[] = {{{100}, 100, 0},
               {{}, 255, 0},
               {{50, 40, 30}, 30, 0},
               {{30, 40, 50}, 30, 50},
               {{9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 3}, 3, 9}};
  for (const auto& c : cases) {
    uint8_t mn = 7, mx = 7;
    __getMinMax_c(c.bytes.data(), static_cast<int>(c.bytes.size()), &mn, &mx);
    EXPECT_EQ(mn, c.min);
    EXPECT_EQ(mx, c.max);
  }
}

std::vector<uint8_t> Runs(std::initializer_list<std::pair<int, int>> runs) {
  std::vector<uint8_t> v;
  for (const auto& run : runs) v.insert(v.end(), static_cast<size_t>(run.first), run.second);
  return v;
}

// Populated bins are those of at least 3/256 of the pixels; a range under 4
// stays; counters wrap at 65536; the histogram stays filled.
TEST(DepthRange, NarrowsToPopulatedBins) {
  std::vector<uint8_t> spread(25600);
  for (size_t i = 0; i < spread.size(); ++i) spread[i] = static_cast<uint8_t>(i);
  const struct {
    std::vector<uint8_t> image;
    int min_in, max_in, min, max;
  } cases[] = {{Runs({{12800, 10}, {12799, 200}, {1, 255}}), 10, 255, 10, 200},
               {Runs({{12800, 10}, {12800, 12}}), 10, 12, 10, 12},
               {spread, 0, 255, 0, 255},
               {Runs({{32, 50}, {1, 60}}), 50, 60, 0, 60},
               {Runs({{65836, 7}, {1000, 20}, {1000, 90}}), 7, 90, 20, 90}};
  for (const auto& c : cases) {
    uint8_t mn = static_cast<uint8_t>(c.min_in), mx = static_cast<uint8_t>(c.max_in);
    uint16_t hist[256];
    memset(hist, 0xAB, sizeof(hist));
    __updateMinMax(c.image.data(), hist, static_cast<int>(c.image.size()), 3, 4, &mn, &mx);
    EXPECT_EQ(mn, c.min) << c.image.size();
    EXPECT_EQ(mx, c.max) << c.image.size();
    uint32_t total = 0;
    for (uint16_t count : hist) total += count;
    EXPECT_EQ(total % 65536, c.image.size() % 65536);
  }
}

// Weight of a pixel of depth `depth` beside focus pixels of depth `focus`
// (dW = W, dH = H: every depth sampled exactly).
int WeightAt(int level, int focus, int depth) {
  uint8_t smooth[8];
  memset(smooth, focus, sizeof(smooth));
  smooth[1] = static_cast<uint8_t>(depth);
  uint16_t out[8];
  __WeightInterpolateUp_c(4, 2, 0, 0, 0, 1, out, 4, 2, kWeightFalloff, kStrengthTable[20 - level],
                          smooth);
  EXPECT_EQ(out[0], 0) << "the focus pixel is sharp";
  return out[1];
}

TEST(WeightMap, RampAroundTheFocusDepth) {
  const int cases[][4] = {
      // level, focus, depth, weight. Focus 50 at level 1: band 40..62.
      {1, 50, 40, 0},    {1, 50, 62, 0},   {1, 50, 39, 40},   {1, 50, 30, 409},   {1, 50, 16, 983},
      {1, 50, 15, 1024}, {1, 50, 63, 40},  {1, 50, 87, 1024}, {13, 50, 30, 320},  {13, 50, 72, 320},
      {1, 101, 99, 40},  {1, 200, 100, 0}, {1, 150, 255, 0},  {1, 255, 60, 1024}, {1, 100, 126, 40},
      {1, 100, 79, 40},  {1, 0, 25, 1024}, {1, 0, 24, 983},   {1, 0, 0, 0},       {20, 50, 255, 0},
      {7, 50, 0, 928},   {10, 50, 0, 880}, {19, 50, 0, 480},
  };
  for (const auto& c : cases)
    EXPECT_EQ(WeightAt(c[0], c[1], c[2]), c[3])
        << "level " << c[0] << " focus " << c[1] << " depth " << c[2];
}

// --- weight_async_process ---

constexpr int kW = 96, kH = 64, kDW = 24, kDH = 16;

// A context made by weight_init, the worked-example calibration one byte
// into its block, seeded disparity, and a request.
struct Fixture {
  DofraHandle handle{};
  std::vector<uint8_t> block = Block(1572864000, 524288, 1280, 320, 1, kDW* kDH);
  WeightParams request{1, kW / 2, kH / 2, reinterpret_cast<DepthData*>(block.data() + 1)};
  Fixture() {
    DofraParams params = {kW, kH, kDW, kDH, 5, 0, 4, 5};
    EXPECT_EQ(weight_init(&params, &handle), 0);
    std::mt19937 rng(99);
    FillRandom(Disparity(), kDW * kDH, rng);
  }
  ~Fixture() { weight_deinit(&handle); }
  uint8_t* Disparity() { return block.data() + 1 + DOFRA_DEPTH_HEADER_SIZE; }
};

// The whole computation per level as a digest of the map (the same at every
// kernel level), the context's record of the call, and no log line.
TEST(WeightProcess, DigestsPerLevel) {
  const struct {
    int level;
    uint64_t digest;
  } cases[] = {{1, 3631642299836256598ull},  {2, 3467327293356926277ull},
               {7, 8509628088564214450ull},  {13, 8154653794116936197ull},
               {19, 7976369484642157700ull}, {20, 5422416005258232707ull}};
  for (const auto& c : cases) {
    Fixture f;
    f.request.level = c.level;
    f.request.focus_x = c.level * 4 % kW;
    f.request.focus_y = kH - 1 - c.level;
    std::vector<uint16_t> out(kW * kH, 0xBEEF);
    LogCapture log;
    ASSERT_EQ(weight_async_process(&f.request, &f.handle, out.data()), 0);
    EXPECT_TRUE(log.Texts().empty());
    EXPECT_EQ(WeightMapDigest(out), c.digest)
        << "level " << c.level << " at " << SimdLevelName(ActiveSimdLevel());
    const WeightContext* ctx = f.handle.weight;
    EXPECT_EQ(ctx->strength, kStrengthTable[20 - c.level]);
    EXPECT_EQ(ctx->disparity, f.Disparity());
    uint32_t total = 0;
    for (uint16_t count : ctx->histogram) total += count;
    EXPECT_EQ(total, uint32_t(kDW * kDH)) << "histogram left in the context";
  }
}

void SetCalibration(Fixture& f, int32_t a, int32_t b, uint16_t m) {
  f.block = Block(a, b, m, 320, 1, kDW * kDH);
  f.request.depth = reinterpret_cast<DepthData*>(f.block.data() + 1);
}

struct ProcessRefusal {
  void (*spoil)(Fixture&, WeightParams**, DofraHandle**, uint16_t**);
  int line;
  const char* message;
};

TEST(WeightProcess, RefusalsLogReturnOneAndWriteNothing) {
  using P = WeightParams*;
  using Hd = DofraHandle*;
  using O = uint16_t*;
  static DofraHandle blank{}, unusable{};
  static WeightContext empty{};
  unusable.weight = &empty;
  const ProcessRefusal cases[] = {
      {[](Fixture&, P* r, Hd*, O*) { *r = nullptr; }, 310, "invalid request"},
      {[](Fixture&, P*, Hd* h, O*) { *h = nullptr; }, 312, "invalid handle"},
      {[](Fixture&, P*, Hd* h, O*) { *h = &blank; }, 314, "invalid weight context"},
      {[](Fixture&, P*, Hd* h, O*) { *h = &unusable; }, 316, "weight context not initialised"},
      {[](Fixture& f, P*, Hd*, O*) { f.request.depth = nullptr; }, 318, "invalid DepthData"},
      {[](Fixture&, P*, Hd*, O* o) { *o = nullptr; }, 320, "invalid output weight map"},
      {[](Fixture& f, P*, Hd*, O*) { f.request.level = 0; }, 322, "invalid level 0"},
      {[](Fixture& f, P*, Hd*, O*) { f.request.level = 21; }, 322, "invalid level 21"},
      {[](Fixture& f, P*, Hd*, O*) { f.request.focus_x = -1; }, 324,
       "focus (-1, 32) outside 96x64"},
      {[](Fixture& f, P*, Hd*, O*) { f.request.focus_x = kW; }, 324,
       "focus (96, 32) outside 96x64"},
      {[](Fixture& f, P*, Hd*, O*) { f.request.focus_y = kH; }, 324,
       "focus (48, 64) outside 96x64"},
      {[](Fixture& f, P*, Hd*, O*) { SetCalibration(f, 1572864000, 524288, 0); }, 326,
       "invalid map_scale_den 0"},
      {[](Fixture& f, P*, Hd*, O*) { SetCalibration(f, 1572864000, 0, 1280); }, 328,
       "invalid calib_den 0"},
      {[](Fixture& f, P*, Hd*, O*) { SetCalibration(f, INT32_MIN, 1, 1); }, 330,
       "calibration -2147483648 / 1, 320 / 1 out of range"},
      {[](Fixture& f, P*, Hd*, O*) { f.handle.weight->disparity_width = 32768; }, 332,
       "disparity 32768x16 too large"},
  };
  for (const ProcessRefusal& c : cases) {
    Fixture f;
    std::vector<uint16_t> out(kW * kH, 0x5A5A);
    WeightParams* request = &f.request;
    DofraHandle* handle = &f.handle;
    uint16_t* target = out.data();
    c.spoil(f, &request, &handle, &target);
    LogCapture log;
    EXPECT_EQ(weight_async_process(request, handle, target), 1) << c.message;
    EXPECT_EQ(log.Texts(), std::vector<std::string>{"L " + std::to_string(c.line) +
                                                    ", weight_async_process: " + c.message + "\n"});
    EXPECT_EQ(out, std::vector<uint16_t>(kW * kH, 0x5A5A));
  }
}

// --- weight_init / weight_deinit ---

// A record already on the handle is replaced, not released; weight_deinit
// releases whatever map the context holds (ASan reports a leak otherwise).
TEST(WeightInit, ReplacesTheRecordAndDeinitFreesTheMapItHolds) {
  DofraParams params = {32, 16, 8, 4, 5, 0, 4, 5};
  DofraHandle handle{};
  WeightContext blank{};
  handle.weight = &blank;
  ASSERT_EQ(weight_init(&params, &handle), 0);
  EXPECT_NE(handle.weight, &blank);
  uint16_t* own = handle.weight->weight_map;
  handle.weight->weight_map = static_cast<uint16_t*>(malloc(32 * 16 * 2));
  EXPECT_EQ(weight_deinit(&handle), 0);
  free(own);
}

TEST(WeightInit, RefusalsLogAndLeaveTheHandleAlone) {
  struct Case {
    DofraParams params;
    int32_t total;
    int line;
    const char* message;
  };
  std::vector<Case> cases = {
      {{1920, 1080, 240, 135, 5, 0, 4, 0}, 0, 38, "invalid kernel size 0"},
      {{32768, 32768, 4, 4, 5, 0, 4, 5}, 0, 42, nullptr},
      {{16, 16, 20000, 20000, 5, 0, 4, 5}, 0, 42, nullptr},
      {{16, 16, 4, 4, 5, 0, 4, INT32_MAX}, 0, 42, nullptr},
      {{32767, 32767, 200, 200, 5, 0, 4, 5}, 0, 42, nullptr},
      {{1920, 1080, 240, 135, 5, 0, 4, 5}, INT32_MAX - 4382555, 42, nullptr},
  };
  // Each dimension alone, zero and negative, so that no check covers another.
  for (int32_t DofraParams::*dim : {&DofraParams::width, &DofraParams::height,
                                    &DofraParams::disparity_width, &DofraParams::disparity_height})
    for (int32_t bad : {0, -2}) {
      cases.push_back({{1920, 1080, 240, 135, 5, 0, 4, 5}, 0, 34, nullptr});
      cases.back().params.*dim = bad;
    }
  for (auto c : cases) {
    WeightContext marker{};
    DofraHandle handle{};
    handle.buffer_total = c.total;
    handle.weight = &marker;
    LogCapture log;
    EXPECT_EQ(weight_init(&c.params, &handle), 1);
    const DofraParams& p = c.params;
    char sizes[128];  // both messages name the sizes; the overflow one the kernel too
    snprintf(sizes, sizeof(sizes),
             c.line == 34 ? "invalid size %dx%d, disparity %dx%d"
                          : "buffer sizes overflow for %dx%d, disparity %dx%d, k %d",
             p.width, p.height, p.disparity_width, p.disparity_height, p.weight_kernel_size);
    EXPECT_EQ(log.Texts(),
              std::vector<std::string>{"L " + std::to_string(c.line) + ", weight_init: " +
                                       (c.message ? c.message : sizes) + "\n"});
    EXPECT_EQ(handle.weight, &marker);
    EXPECT_EQ(handle.buffer_total, c.total);
  }
  DofraParams params = {32, 16, 8, 4, 5, 0, 4, 5};
  DofraHandle handle{};
  LogCapture log;
  EXPECT_EQ(weight_init(nullptr, &handle), 1);
  EXPECT_EQ(weight_init(&params, nullptr), 1);
  EXPECT_EQ(weight_deinit(nullptr), 1);
  EXPECT_EQ(weight_deinit(&handle), 1);
  EXPECT_EQ(log.Texts(),
            (std::vector<std::string>{"L 30, weight_init: invalid params or handle\n",
                                      "L 30, weight_init: invalid params or handle\n",
                                      "L 90, weight_deinit: invalid handle or weight context\n",
                                      "L 90, weight_deinit: invalid handle or weight context\n"}));
}

}  // namespace
