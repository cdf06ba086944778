// The band pipeline against the kernels run in one band per plane, the band
// arithmetic, the two kernel tables against each other, and several handles
// blurring at once (the ThreadSanitizer run).
#include <gtest/gtest.h>
#include <ui/GraphicBuffer.h>

#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "blur/blur_context.h"
#include "blur/dispatch.h"
#include "blur/frame_check.h"
#include "dofra_depth.h"
#include "support/test_image.h"

namespace {

using android::GraphicBuffer;

constexpr int kKernel = 5;
constexpr int kRadius = kKernel / 2;

struct Size {
  int width, height;
};

// One band per plane: every small row shrunk and smoothed, and blended the
// rows that two equal bands cover (x2 clamps on a band's last two rows, so
// the band must end where the pipeline's last band ends).
void BlurOneBandPerPlane(const BlurKernelTable& table, int scale, const uint8_t* src, int W, int H,
                         const uint16_t* weights, uint8_t* dst) {
  const int sw = W / scale, sh = H / scale, shc = sh / 2, r = kRadius, i = scale - 2;
  const std::vector<uint16_t> kernel(kKernel, 1024 / kKernel);
  std::vector<uint8_t> tmp(static_cast<size_t>(H) * sw), small(static_cast<size_t>(sw) * sh),
      smooth(small.size()), pad(static_cast<size_t>(sw + 2 * r) * (sh + 2 * r)),
      integral(static_cast<size_t>(sw + 2 * r) * (sh + 2 * r + 1) * 4);
  table.shrink_y[i](src, small.data(), tmp.data(), W, H, sw, sh, 0, sh - 1);
  table.smooth_y(small.data(), pad.data(), smooth.data(), sw, sh, kernel.data(), r, r,
                 integral.data(), 0, sh - 1);
  table.blend_y[i](src, W, H, sw, sh, weights, smooth.data(), dst, 0, H / 2 * 2 - 1);

  const size_t luma = static_cast<size_t>(W) * H;
  std::vector<uint8_t> tmp_uv(static_cast<size_t>(H / 2) * sw),
      small_uv(static_cast<size_t>(sw) * shc), smooth_uv(small_uv.size()),
      pad_uv(static_cast<size_t>(sw + 4 * r) * (shc + 2 * r)),
      integral_uv(static_cast<size_t>(sw + 4 * r) * (shc + 2 * r + 1) * 4);
  table.shrink_uv[i](src + luma, small_uv.data(), tmp_uv.data(), W, H / 2, sw, shc, 0, shc - 1);
  table.smooth_uv(small_uv.data(), pad_uv.data(), smooth_uv.data(), sw, shc, kernel.data(), r, r,
                  integral_uv.data(), 0, shc - 1);
  table.blend_uv[i](src + luma, W, H / 2, sw, shc, weights, smooth_uv.data(), dst + luma, 0,
                    H / 2 / 2 * 2 - 1);
}

struct Input {
  Input(int w, int h, uint32_t seed)
      : width(w), height(h), frame(size_t(w) * h * 3 / 2), weights(size_t(w) * h) {
    std::mt19937 rng(seed);
    FillRandom(frame.data(), frame.size(), rng);
    FillRandomWeights(weights.data(), weights.size(), rng);
  }
  int width, height;
  std::vector<uint8_t> frame;
  std::vector<uint16_t> weights;
};

struct Handle {
  Handle(int w, int h, int scale, uint16_t* weights) {
    DofraParams params{w, h, w / 8, h / 8, 5, 0, scale, 5};
    EXPECT_EQ(DofraInit(&handle, &params), 0);
    DofraWeightMapInfo info{{0, 0, 0}, weights};
    EXPECT_EQ(DofraCreateWeightMap(handle, &info), 0);
  }
  ~Handle() { DofraDeinit(handle); }
  DofraHandle* handle = nullptr;
};

std::unique_ptr<GraphicBuffer> Buffer(const Input& in, const uint8_t* bytes, uint8_t fill) {
  auto buffer = std::make_unique<GraphicBuffer>(in.width, in.height,
                                                android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33);
  if (bytes != nullptr) {
    std::copy(bytes, bytes + in.frame.size(), buffer->hostData());
  } else {
    std::fill(buffer->hostData(), buffer->hostData() + buffer->hostSize(), fill);
  }
  return buffer;
}

std::vector<uint8_t> Bytes(GraphicBuffer& buffer) {
  return std::vector<uint8_t>(buffer.hostData(), buffer.hostData() + buffer.hostSize());
}

// Rows past two equal bands of a plane are never written by the pipeline.
std::vector<uint8_t> BandedRowsOnly(std::vector<uint8_t> frame, int W, int H, uint8_t fill) {
  const size_t luma = static_cast<size_t>(W) * H;
  const size_t luma_rows = static_cast<size_t>(H / 2 * 2);
  const size_t chroma_rows = static_cast<size_t>(H / 2 / 2 * 2);
  std::fill(frame.begin() + luma_rows * W, frame.begin() + luma, fill);
  std::fill(frame.begin() + luma + chroma_rows * W, frame.end(), fill);
  return frame;
}

const Size kCandidates[] = {{1920, 1080}, {1280, 720}, {640, 480}, {384, 216},
                            {200, 150},   {96, 64},    {64, 38}};

class PipelineTest : public ::testing::TestWithParam<int> {};

TEST_P(PipelineTest, BandsEqualOneBandPerPlaneInAndOutOfPlace) {
  const int scale = GetParam();
  int accepted = 0;
  for (const Size size : kCandidates) {
    if (blur_frame_refusal(size.width, size.height, scale, kKernel) != nullptr) continue;
    ++accepted;
    SCOPED_TRACE(testing::Message() << size.width << "x" << size.height << " x" << scale);
    Input in(size.width, size.height, 17u * scale + size.width);
    const uint8_t kFill = 101;
    std::vector<uint8_t> expected(in.frame.size(), kFill);
    BlurOneBandPerPlane(kBlurKernels, scale, in.frame.data(), in.width, in.height,
                        in.weights.data(), expected.data());
    expected = BandedRowsOnly(expected, in.width, in.height, kFill);

    Handle h(in.width, in.height, scale, in.weights.data());
    auto src = Buffer(in, in.frame.data(), 0);
    auto dst = Buffer(in, nullptr, kFill);
    ASSERT_EQ(DofraBlurImage(h.handle, src.get(), dst.get()), 0);
    EXPECT_TRUE(Bytes(*dst) == expected);
    // In place: the bands read each other's source rows, so the copy matters.
    auto both = Buffer(in, in.frame.data(), 0);
    ASSERT_EQ(DofraBlurImage(h.handle, both.get(), both.get()), 0);
    EXPECT_TRUE(BandedRowsOnly(Bytes(*both), in.width, in.height, kFill) == expected);
  }
  EXPECT_GT(accepted, 1);
}

TEST_P(PipelineTest, VectorisedTableEqualsScalarTable) {
  const int scale = GetParam();
  for (const Size size : kCandidates) {
    if (blur_frame_refusal(size.width, size.height, scale, kKernel) != nullptr) continue;
    SCOPED_TRACE(testing::Message() << size.width << "x" << size.height << " x" << scale);
    Input in(size.width, size.height, 5u * scale + size.height);
    std::vector<uint8_t> fast(in.frame.size(), 1), plain(in.frame.size(), 101);
    BlurOneBandPerPlane(kBlurKernels, scale, in.frame.data(), in.width, in.height,
                        in.weights.data(), fast.data());
    BlurOneBandPerPlane(kBlurKernelsC, scale, in.frame.data(), in.width, in.height,
                        in.weights.data(), plain.data());
    EXPECT_TRUE(BandedRowsOnly(fast, in.width, in.height, 0) ==
                BandedRowsOnly(plain, in.width, in.height, 0));
  }
}

INSTANTIATE_TEST_SUITE_P(Factors, PipelineTest, ::testing::Values(2, 4, 6, 8));

TEST(PipelineTableTest, OddFactorsRunTheFactorTwoRoutines) {
  for (const BlurKernelTable* table : {&kBlurKernels, &kBlurKernelsC}) {
    for (int scale : {3, 5, 7}) {
      const int i = scale - kMinScaleFactor;
      EXPECT_EQ(table->shrink_y[i], table->shrink_y[0]);
      EXPECT_EQ(table->shrink_uv[i], table->shrink_uv[0]);
      EXPECT_EQ(table->blend_y[i], table->blend_y[0]);
      EXPECT_EQ(table->blend_uv[i], table->blend_uv[0]);
    }
  }
  EXPECT_EQ(kBlurKernels.shrink_y[2], &__BiLinearInterp_Y_x4_neon);
  EXPECT_EQ(kBlurKernels.shrink_uv[2], &__BiLinearInterp_UV_x4);
  EXPECT_EQ(kBlurKernels.shrink_y[4], &__BiLinearInterp_Y_x6);
  EXPECT_EQ(kBlurKernels.blend_uv[6], &__CreateOutputImage_UV_x8_neon);
}

TEST(PipelineBandsTest, BandsOfA1080pFrameAtFactorFour) {
  Input in(1920, 1080, 1);
  Handle h(1920, 1080, 4, in.weights.data());
  auto src = Buffer(in, in.frame.data(), 0);
  ASSERT_EQ(DofraBlurImage(h.handle, src.get(), src.get()), 0);
  const BlurContext* ctx = h.handle->blur;
  const BandTask* t = h.handle->pThreadArg;
  struct Rows {
    int first, last, small_first, small_last, height, small_height;
  };
  const Rows expected[] = {{0, 539, 0, 135, 1080, 270},
                           {540, 1079, 134, 269, 1080, 270},
                           {0, 269, 0, 68, 540, 135},
                           {270, 539, 66, 134, 540, 135}};
  for (int b = 0; b < 4; ++b) {
    SCOPED_TRACE(b);
    EXPECT_EQ(t[b].band_index, b % 2);
    EXPECT_EQ(t[b].first_row, expected[b].first);
    EXPECT_EQ(t[b].last_row, expected[b].last);
    EXPECT_EQ(t[b].small_first_row, expected[b].small_first);
    EXPECT_EQ(t[b].small_last_row, expected[b].small_last);
    EXPECT_EQ(t[b].height, expected[b].height);
    EXPECT_EQ(t[b].small_height, expected[b].small_height);
    EXPECT_EQ(t[b].small_width, 480);
    EXPECT_EQ(t[b].kernel_size, 5);
    EXPECT_EQ(t[b].weight_map, in.weights.data());
  }
  EXPECT_EQ(t[1].integral_scratch - ctx->tempim_y, 532400);
  EXPECT_EQ(t[3].integral_scratch - ctx->tempim_uv, 273280);
  EXPECT_EQ(t[2].small_plane - ctx->scale_img, 480 * 270);
  EXPECT_EQ(t[2].shrink_tmp - ctx->XInterp_image, 1080 * 480);
  EXPECT_EQ(t[0].source, ctx->Src_copy);  // in place
  EXPECT_EQ(t[2].source, ctx->Src_copy + 1920 * 1080);
  EXPECT_EQ(ctx->kernel_weights[0], 204);
  EXPECT_EQ(h.handle->buffer_total, 6088608);
}

TEST(PipelineConcurrencyTest, SeveralHandlesBlurAtOnce) {
  constexpr int kHandles = 3;
  constexpr int kFrames = 3;
  const int scales[kHandles] = {2, 4, 8};
  std::vector<std::unique_ptr<Input>> inputs;
  std::vector<std::vector<uint8_t>> expected;
  for (int i = 0; i < kHandles; ++i) {
    inputs.push_back(std::make_unique<Input>(384, 216, 40u + i));
    expected.emplace_back(inputs[i]->frame.size());
    BlurOneBandPerPlane(kBlurKernels, scales[i], inputs[i]->frame.data(), 384, 216,
                        inputs[i]->weights.data(), expected[i].data());
  }
  std::vector<std::thread> hosts;
  std::vector<int> mismatches(kHandles, 0);
  for (int i = 0; i < kHandles; ++i) {
    hosts.emplace_back([&, i] {
      Input& in = *inputs[i];
      Handle h(in.width, in.height, scales[i], in.weights.data());
      for (int f = 0; f < kFrames; ++f) {
        auto src = Buffer(in, in.frame.data(), 0);
        auto dst = Buffer(in, nullptr, 0);
        GraphicBuffer* out = (f % 2 == 0) ? dst.get() : src.get();
        if (DofraBlurImage(h.handle, src.get(), out) != 0 || Bytes(*out) != expected[i]) {
          ++mismatches[i];
        }
      }
    });
  }
  for (std::thread& t : hosts) t.join();
  for (int i = 0; i < kHandles; ++i) EXPECT_EQ(mismatches[i], 0) << "handle " << i;
}

}  // namespace
