// The refined weight map: its row helpers against the per-pixel formula, the
// exported call's refusals, its digest on a fixed scene, and that it leaves
// the plain path and the handle's accounting alone.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "blur/blur_context.h"
#include "dofra_quality.h"
#include "kernels/row_kernels.h"
#include "support/log_capture.h"
#include "support/test_image.h"
#include "weight/refine_rows.h"
#include "weight/weight_context.h"

namespace {

using namespace dofra;

constexpr int kW = 96, kH = 64, kDW = 24, kDH = 16;

// --- row helpers ---

RefineTables RandomTables(std::mt19937& rng) {
  RefineTables t{};
  for (int i = 0; i < kRefineDepths; ++i) {
    // Mostly decreasing kernels with zeros, as the real ones.
    t.range[i] = static_cast<uint8_t>(i < 40 ? 255 - i * 6 - rng() % 3 : 0);
    t.weights.by_depth[i] = static_cast<uint16_t>(rng() % 1025);
  }
  SetRangeChunks(&t);
  t.chroma_weight = static_cast<int>(rng() % 9);
  t.flat_spread = 0;
  return t;
}

// Random sample rows of few depths (so that cells mix) and random guides.
struct RowData {
  std::vector<uint8_t> planes[2][5];  // per sample row: depth, y, v, u, purity
  std::vector<uint8_t> luma, chroma;
  std::vector<int32_t> ix, ix1;
  std::vector<uint8_t> fx;
  RowData(int w, int dw, std::mt19937& rng) : luma(w), chroma(w), ix(w), ix1(w), fx(w) {
    const int levels[] = {0, 3, 40, 41, 200, 255};
    for (int r = 0; r < 2; ++r) {
      for (auto& plane : planes[r]) plane.resize(dw + kRefinePlanePad);
      for (int j = 0; j < dw; ++j) {
        planes[r][0][j] = static_cast<uint8_t>(levels[rng() % 6]);
        for (int c = 1; c < 4; ++c) planes[r][c][j] = static_cast<uint8_t>(rng());
        // Some with no weight.
        planes[r][4][j] = static_cast<uint8_t>(r == 1 && rng() % 4 == 0 ? 0 : rng());
      }
    }
    for (int x = 0; x < w; ++x) {
      luma[x] = static_cast<uint8_t>(rng());
      chroma[x] = static_cast<uint8_t>(rng());
      ix[x] = static_cast<int32_t>(rng() % dw);
      ix1[x] = std::min(ix[x] + 1, dw - 1);
      fx[x] = static_cast<uint8_t>(rng() % 4 == 0 ? 0 : rng());
    }
  }
  SampleRow Samples(int r) const {
    return {planes[r][0].data(), planes[r][1].data(), planes[r][2].data(), planes[r][3].data(),
            planes[r][4].data()};
  }
  RefinePixel Pixel(int x, int fy) const {
    RefinePixel p;
    p.y = luma[x];
    p.v = chroma[x & ~1];
    p.u = chroma[x | 1];
    for (int k = 0; k < 4; ++k) {
      const auto& rows = planes[k >> 1];
      const int i = k & 1 ? ix1[x] : ix[x];
      p.depth[k] = rows[0][i];
      p.sy[k] = rows[1][i];
      p.sv[k] = rows[2][i];
      p.su[k] = rows[3][i];
      p.purity[k] = rows[4][i];
    }
    p.fx = fx[x];
    p.fy = fy;
    return p;
  }
};

// Each scalar row helper writes exactly [from, to) with the formula's weight
// there (the vectorised members are held to these by the kernel harness).
TEST(RefineRows, MatchThePerPixelFormula) {
  std::mt19937 rng(5);
  const RowKernels& k = ScalarRowKernels();
  for (int trial = 0; trial < 200; ++trial) {
    // Rows of NV21 frames are an even number of pixels (chroma pairs).
    const int w = 2 + 2 * static_cast<int>(rng() % 35), dw = 1 + static_cast<int>(rng() % 12);
    const RowData d(w, dw, rng);
    const RefineTables t = RandomTables(rng);
    const int fy = trial % 5 == 0 ? 0 : static_cast<int>(rng() % 256);
    const int from = static_cast<int>(rng() % w),
              to = from + static_cast<int>(rng() % (w - from + 1));
    std::vector<uint16_t> joint(w, 0xDEAD), bilinear(w, 0xDEAD);
    RefineRow row = {d.luma.data(), d.chroma.data(), d.Samples(0), d.Samples(1), fy, joint.data()};
    const RefineColumns cols = {d.ix.data(), d.ix1.data(), d.fx.data()};
    k.refine_joint_row(row, cols, t, from, to);
    row.out = bilinear.data();
    k.refine_bilinear_row(row, cols, t, from, to);
    for (int x = 0; x < w; ++x) {
      const bool inside = x >= from && x < to;
      const RefinePixel p = d.Pixel(x, fy);
      EXPECT_EQ(joint[x], inside ? t.weights.by_depth[JointDepth(p, t)] : 0xDEAD)
          << trial << " " << x;
      EXPECT_EQ(bilinear[x],
                inside ? t.weights.by_depth[BilinearDepth(p.depth, p.fx, fy)] : 0xDEAD);
    }
  }
}

// Sets sample k's colour (luma, V, U) and purity weight.
void SetSample(RefinePixel* p, int k, int y, int v, int u, int purity) {
  p->sy[k] = static_cast<uint8_t>(y);
  p->sv[k] = static_cast<uint8_t>(v);
  p->su[k] = static_cast<uint8_t>(u);
  p->purity[k] = static_cast<uint8_t>(purity);
}

// Worked pixels: the formula itself, not only its two spellings.
TEST(RefineRows, WorkedPixels) {
  RefineTables t{};
  for (int i = 0; i < kRefineDepths; ++i) t.range[i] = static_cast<uint8_t>(i < 10 ? 255 : 0);
  RefinePixel p{};
  p.y = 100;
  const uint8_t depth[4] = {10, 200, 10, 200};
  memcpy(p.depth, depth, 4);
  p.fx = 192;  // bilinear leans right, towards 200
  p.fy = 0;
  // The left samples match the pixel's colour, the right ones do not: 10.
  for (int k : {0, 2}) SetSample(&p, k, 100, 0, 0, 255);
  for (int k : {1, 3}) SetSample(&p, k, 150, 0, 0, 255);
  EXPECT_EQ(JointDepth(p, t), 10);
  // Both sides match: their bilinear shares, (64 * 10 + 192 * 200 + 128) / 256.
  for (int k : {1, 3}) SetSample(&p, k, 105, 0, 0, 255);
  EXPECT_EQ(JointDepth(p, t), 153);
  // Impure samples drop out; with every weight gone, plain bilinear.
  for (int k : {0, 2}) SetSample(&p, k, 100, 0, 0, 0);
  EXPECT_EQ(JointDepth(p, t), 200);
  for (int k : {1, 3}) SetSample(&p, k, 105, 0, 0, 0);
  EXPECT_EQ(JointDepth(p, t), BilinearDepth(p.depth, 192, 0));
  EXPECT_EQ(BilinearDepth(p.depth, 192, 0), (10 * 64 + 200 * 192 + 128) >> 8);
  // Chroma counts in quarters: |V - V_k| + |U - U_k| = 16 at weight 2 adds 8
  // (inside the range kernel), at weight 3 adds 12 (outside).
  for (int k : {0, 2}) SetSample(&p, k, 100, 8, 8, 255);
  for (int k : {1, 3}) SetSample(&p, k, 150, 0, 0, 255);
  t.chroma_weight = 2;
  EXPECT_EQ(JointDepth(p, t), 10);
  t.chroma_weight = 3;
  EXPECT_EQ(JointDepth(p, t), BilinearDepth(p.depth, 192, 0));
  t.flat_spread = 190;  // the samples span 190: bilinear without the guide
  t.chroma_weight = 2;
  EXPECT_EQ(RefinedDepth(p, t), BilinearDepth(p.depth, 192, 0));
}

// --- DofraRefineWeightMap ---

std::vector<uint8_t> DepthBlock() {
  std::vector<uint8_t> block(DOFRA_DEPTH_HEADER_SIZE + kDW * kDH, 0);
  const int32_t a = 1572864000, b = 65536;
  const uint16_t m = 1280, n = 320;
  memcpy(&block[16], &a, 4);
  memcpy(&block[20], &b, 4);
  memcpy(&block[60], &m, 2);
  memcpy(&block[64], &n, 2);
  // A near disc on a far wall, with a slope below.
  for (int i = 0; i < kDH; ++i)
    for (int j = 0; j < kDW; ++j) {
      const int dx = j - 9, dy = i - 7;
      block[DOFRA_DEPTH_HEADER_SIZE + i * kDW + j] =
          static_cast<uint8_t>(dx * dx + dy * dy < 20 ? 120
                               : i > 11               ? 40 + 6 * i
                                                      : 40);
    }
  return block;
}

// The guide: the disc bright, the wall a darker texture.
std::vector<uint8_t> Guide() {
  std::vector<uint8_t> nv21(kW * kH * 3 / 2);
  std::mt19937 rng(3);
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x) {
      const double dx = x - 38.5, dy = y - 30.5;
      nv21[y * kW + x] =
          static_cast<uint8_t>(dx * dx + dy * dy < 330 ? 200 + rng() % 20 : rng() % 90);
    }
  for (int i = kW * kH; i < kW * kH * 3 / 2; ++i) nv21[i] = static_cast<uint8_t>(128 + rng() % 9);
  return nv21;
}

// A DofraInit handle with a weight context from weight_init on it.
struct Refiner {
  DofraHandle* handle = nullptr;
  std::vector<uint8_t> block = DepthBlock();
  std::vector<uint8_t> nv21 = Guide();
  WeightParams request{1, 38, 30, reinterpret_cast<DepthData*>(block.data())};
  DofraGuide guide{nv21.data(), kW, kH};
  explicit Refiner(int dw = kDW, int dh = kDH) {
    DofraParams params = {kW, kH, dw, dh, 5, 0, 4, 5};
    EXPECT_EQ(DofraInit(&handle, &params), 0);
    EXPECT_EQ(weight_deinit(handle), 0);  // the blank record
    EXPECT_EQ(weight_init(&params, handle), 0);
  }
  ~Refiner() {
    weight_deinit(handle);
    handle->weight = nullptr;
    DofraDeinit(handle);
  }
  std::vector<uint16_t> Refine(const DofraRefineTuning* tuning = nullptr) {
    std::vector<uint16_t> out(kW * kH, 0xBEEF);
    EXPECT_EQ(DofraRefineWeightMap(&request, handle, &guide, tuning, out.data()), 0);
    return out;
  }
};

// The map of the fixed scene, per tuning, the same at every instruction-set
// level; the focus pixel is sharp.
TEST(RefineMap, Digests) {
  const struct {
    DofraRefineTuning tuning;
    uint64_t digest;
  } cases[] = {{{12, 4, 2, 2}, 5391286299612398068ull},
               {{5, 1, 0, 0}, 2786564590390667026ull},
               {{64, 64, 8, 255}, 17144313378441740371ull}};
  const SimdLevel restore = ActiveSimdLevel();
  for (SimdLevel level : kSimdLevels) {
    if (!ForceSimdLevel(level)) continue;
    for (const auto& c : cases) {
      Refiner r;
      LogCapture log;
      const std::vector<uint16_t> out = r.Refine(&c.tuning);
      EXPECT_TRUE(log.Texts().empty());
      EXPECT_EQ(WeightMapDigest(out), c.digest)
          << SimdLevelName(level) << " " << c.tuning.range_sigma;
      EXPECT_EQ(out[30 * kW + 38], 0);
      EXPECT_EQ(out[5 * kW + 90], 1024) << "the far wall";
    }
  }
  ForceSimdLevel(restore);
  Refiner r;
  const DofraRefineTuning defaults = {12, 4, 2, 2};
  EXPECT_EQ(r.Refine(nullptr), r.Refine(&defaults));
}

// The scratch comes with the first call, outside buffer_total, and stays for
// later calls; the plain map and its context are as they were.
TEST(RefineMap, ScratchOnFirstUseAndThePlainPathUntouched) {
  Refiner r;
  std::vector<uint16_t> plain(kW * kH), again(kW * kH);
  ASSERT_EQ(weight_async_process(&r.request, r.handle, plain.data()), 0);
  const int32_t total = r.handle->buffer_total;
  const WeightContext before = *r.handle->weight;
  EXPECT_EQ(r.handle->blur->refine, nullptr);
  r.Refine();
  RefineState* state = r.handle->blur->refine;
  EXPECT_NE(state, nullptr);
  r.Refine();
  EXPECT_EQ(r.handle->blur->refine, state);
  EXPECT_EQ(r.handle->buffer_total, total);
  EXPECT_EQ(memcmp(&before, r.handle->weight, sizeof(before)), 0);
  ASSERT_EQ(weight_async_process(&r.request, r.handle, again.data()), 0);
  EXPECT_EQ(plain, again);
}

struct Refusal {
  void (*spoil)(Refiner&, DofraHandle**, const DofraGuide**, DofraRefineTuning*, uint16_t**);
  int line;
  const char* message;
};

TEST(RefineMap, RefusalsLogReturnOneAndWriteNothing) {
  using H = DofraHandle**;
  using G = const DofraGuide**;
  using T = DofraRefineTuning*;
  using O = uint16_t**;
  static DofraHandle plain_record{};
  static const std::vector<uint8_t> small_pixels = Guide();
  static const DofraGuide small_guide{small_pixels.data(), kW, kH - 2};
  const Refusal cases[] = {
      {[](Refiner& r, H, G, T, O) { r.request.level = 21; }, 32, "invalid level 21"},
      {[](Refiner& r, H, G, T, O) { r.request.focus_y = kH; }, 34, "focus (38, 64) outside 96x64"},
      {[](Refiner& r, H, G, T, O) { r.request.depth = nullptr; }, 28, "invalid DepthData"},
      {[](Refiner&, H h, G, T, O) { *h = nullptr; }, 22, "invalid handle"},
      {[](Refiner&, H, G, T, O o) { *o = nullptr; }, 30, "invalid output weight map"},
      {[](Refiner& r, H, G, T, O) {
         free(r.handle->weight->SmoothDisparity);
         r.handle->weight->SmoothDisparity = nullptr;
       },
       26, "weight context not initialised"},
      {[](Refiner&, H h, G, T, O) {
         DofraParams p = {kW, kH, kDW, kDH, 5, 0, 4, 5};
         weight_init(&p, &plain_record);
         *h = &plain_record;
       },
       44, "handle not made by DofraInit"},
      {[](Refiner&, H, G g, T, O) { *g = nullptr; }, 46, "invalid guide frame"},
      {[](Refiner& r, H, G, T, O) { r.guide.nv21 = nullptr; }, 46, "invalid guide frame"},
      {[](Refiner&, H, G g, T, O) { *g = &small_guide; }, 48, "guide 96x62 is not the frame 96x64"},
      {[](Refiner& r, H, G, T, O) { r.handle->weight->width = 48; }, 50,
       "weight context 48x64 is not the frame 96x64"},
      {[](Refiner& r, H, G, T, O) { r.handle->weight->disparity_height = kH + 1; }, 52,
       "disparity 24x65 larger than the frame"},
      {[](Refiner&, H, G, T t, O) { t->range_sigma = 0; }, 54,
       "tuning out of range: range_sigma 0, purity_scale 4, chroma_weight 2, flat_spread 2"},
      {[](Refiner&, H, G, T t, O) { t->purity_scale = 65; }, 54,
       "tuning out of range: range_sigma 12, purity_scale 65, chroma_weight 2, flat_spread 2"},
      {[](Refiner&, H, G, T t, O) { t->chroma_weight = -1; }, 54,
       "tuning out of range: range_sigma 12, purity_scale 4, chroma_weight -1, flat_spread 2"},
      {[](Refiner&, H, G, T t, O) { t->flat_spread = 256; }, 54,
       "tuning out of range: range_sigma 12, purity_scale 4, chroma_weight 2, flat_spread 256"},
  };
  for (const Refusal& c : cases) {
    Refiner r;
    std::vector<uint16_t> out(kW * kH, 0x5A5A);
    DofraHandle* handle = r.handle;
    const DofraGuide* guide = &r.guide;
    DofraRefineTuning tuning = {12, 4, 2, 2};
    uint16_t* target = out.data();
    c.spoil(r, &handle, &guide, &tuning, &target);
    LogCapture log;
    EXPECT_EQ(DofraRefineWeightMap(&r.request, handle, guide, &tuning, target), 1) << c.message;
    EXPECT_EQ(log.Texts(), std::vector<std::string>{"L " + std::to_string(c.line) +
                                                    ", DofraRefineWeightMap: " + c.message + "\n"});
    EXPECT_EQ(out, std::vector<uint16_t>(kW * kH, 0x5A5A));
    EXPECT_EQ(r.handle->blur->refine, nullptr) << "nothing allocated";
  }
  weight_deinit(&plain_record);
  LogCapture log;
  std::vector<uint16_t> out(kW * kH);
  EXPECT_EQ(DofraRefineWeightMap(nullptr, nullptr, nullptr, nullptr, out.data()), 1);
  EXPECT_EQ(log.Texts(), std::vector<std::string>{"L 20, DofraRefineWeightMap: invalid request\n"});
}

// A new disparity size gets new scratch; sizes with samples that no pixel
// reaches as its first sample (dW close to W) still give weights in range.
TEST(RefineMap, DisparitySizes) {
  for (const int dw : {1, 7, 95, 96}) {
    Refiner r(dw, kH - 1);
    std::vector<uint8_t> block(DOFRA_DEPTH_HEADER_SIZE + dw * (kH - 1), 60);
    memcpy(block.data(), r.block.data(), DOFRA_DEPTH_HEADER_SIZE);
    for (size_t i = DOFRA_DEPTH_HEADER_SIZE; i < block.size(); i += 3) block[i] = 140;
    r.request.depth = reinterpret_cast<DepthData*>(block.data());
    for (uint16_t w : r.Refine()) ASSERT_LE(w, 1024) << dw;
  }
}

// An odd height: the last luma row reads the last chroma row, not past the
// guide (whose exact size lets the sanitizers see a read beyond it).
TEST(RefineMap, OddHeightStaysInsideTheGuide) {
  constexpr int kW2 = 64, kH2 = 49;
  DofraParams params = {kW2, kH2, 8, 6, 5, 0, 4, 5};
  DofraHandle* handle = nullptr;
  ASSERT_EQ(DofraInit(&handle, &params), 0);
  weight_deinit(handle);
  ASSERT_EQ(weight_init(&params, handle), 0);
  std::vector<uint8_t> block = DepthBlock();
  block.resize(DOFRA_DEPTH_HEADER_SIZE + 8 * 6);
  std::vector<uint8_t> nv21(kW2 * kH2 + kH2 / 2 * kW2, 77);
  for (size_t i = DOFRA_DEPTH_HEADER_SIZE; i < block.size(); i += 5) block[i] = 200;
  WeightParams request{1, 3, kH2 - 1, reinterpret_cast<DepthData*>(block.data())};
  const DofraGuide guide{nv21.data(), kW2, kH2};
  std::vector<uint16_t> out(kW2 * kH2, 0xBEEF);
  EXPECT_EQ(DofraRefineWeightMap(&request, handle, &guide, nullptr, out.data()), 0);
  for (uint16_t w : out) EXPECT_LE(w, 1024);
  weight_deinit(handle);
  handle->weight = nullptr;
  DofraDeinit(handle);
}

}  // namespace
