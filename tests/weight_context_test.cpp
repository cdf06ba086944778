// weight_init / weight_deinit: sizes, kernel, ownership and refusals.
#include "weight/weight_context.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "dofra_depth.h"
#include "support/log_capture.h"

namespace {

struct SizeCase {
  int W, H, dW, dH, k;
  int r;
  int32_t growth;
  uint16_t entry;
};
class WeightInitSizes : public ::testing::TestWithParam<SizeCase> {};
TEST_P(WeightInitSizes, BuffersKernelAndTotal) {
  const SizeCase c = GetParam();
  DofraParams params = {c.W, c.H, c.dW, c.dH, 9, 1234, 4, c.k};
  DofraHandle handle{};
  handle.buffer_total = 1000;
  LogCapture log;
  ASSERT_EQ(weight_init(&params, &handle), 0);
  EXPECT_TRUE(log.Texts().empty());
  EXPECT_EQ(handle.buffer_total, 1000 + c.growth);
  const WeightContext* ctx = handle.weight;
  ASSERT_NE(ctx, nullptr);
  EXPECT_EQ(ctx->kernel_size, c.k);
  for (int i = 0; i < c.k; ++i) EXPECT_EQ(ctx->kernel_weights[i], c.entry);
  EXPECT_EQ(ctx->weight_extra, 1234);
  EXPECT_EQ(ctx->hist_ratio, 3);
  EXPECT_EQ(ctx->min_range, 4);
  EXPECT_EQ(ctx->width, c.W);
  EXPECT_EQ(ctx->disparity_height, c.dH);
  for (const void* p :
       {static_cast<const void*>(ctx->weight_map), static_cast<const void*>(ctx->RangedDisparity),
        static_cast<const void*>(ctx->ExpandDisparity),
        static_cast<const void*>(ctx->TempimDisparity),
        static_cast<const void*>(ctx->SmoothDisparity)})
    EXPECT_NE(p, nullptr);
  // Touch the last byte of each scratch buffer (ASan checks the sizes).
  const int pw = c.dW + 2 * c.r, ph = c.dH + 2 * c.r;
  ctx->ExpandDisparity[pw * ph - 1] = 1;
  reinterpret_cast<uint32_t*>(ctx->TempimDisparity)[pw * (ph + 1) - 1] = 1;
  EXPECT_EQ(weight_deinit(&handle), 0);
  EXPECT_EQ(handle.weight, ctx) << "the handle's field is left as it is";
  EXPECT_EQ(handle.buffer_total, 1000 + c.growth) << "not reduced";
}
INSTANTIATE_TEST_SUITE_P(Kernels, WeightInitSizes,
                         ::testing::Values(
                             // 4147200 + 32400 + 33916 + 136640 + 32400.
                             SizeCase{1920, 1080, 240, 135, 5, 2, 4382556, 204},
                             SizeCase{1920, 1080, 240, 135, 4, 2, 4382556, 256},
                             // k = 1: r = 0, expanded dW x dH, integral dW x (dH + 1).
                             SizeCase{64, 48, 16, 12, 1, 0, 6144 + 192 + 192 + 16 * 13 * 4 + 192,
                                      1024},
                             SizeCase{3, 1, 1, 1, 3, 1, 6 + 1 + 9 + 3 * 4 * 4 + 1, 341}));

TEST(WeightInit, ReplacesTheHandlesRecordAndDeinitFreesTheHostMap) {
  DofraParams params = {32, 16, 8, 4, 5, 0, 4, 5};
  DofraHandle handle{};
  WeightContext blank{};  // stands for the record DofraInit attaches
  handle.weight = &blank;
  ASSERT_EQ(weight_init(&params, &handle), 0);
  EXPECT_NE(handle.weight, &blank);
  // A host map installed on the context is what weight_deinit releases; the
  // one weight_init allocated is then the host's to lose (ASan would report
  // a leak of the host map if it were not freed).
  uint16_t* own = handle.weight->weight_map;
  handle.weight->weight_map = static_cast<uint16_t*>(malloc(32 * 16 * 2));
  EXPECT_EQ(weight_deinit(&handle), 0);
  free(own);
}

struct InitRefusal {
  const char* name;
  DofraParams params;
  int32_t buffer_total;
  const char* message;
};
class WeightInitRefusals : public ::testing::TestWithParam<InitRefusal> {};
TEST_P(WeightInitRefusals, LogAndLeaveTheHandleAlone) {
  InitRefusal c = GetParam();
  WeightContext marker{};
  DofraHandle handle{};
  handle.buffer_total = c.buffer_total;
  handle.weight = &marker;
  LogCapture log;
  EXPECT_EQ(weight_init(&c.params, &handle), 1);
  const auto texts = log.Texts();
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_EQ(texts[0].rfind("L ", 0), 0u);
  EXPECT_NE(texts[0].find(", weight_init: "), std::string::npos) << texts[0];
  EXPECT_NE(texts[0].find(c.message), std::string::npos) << texts[0];
  EXPECT_EQ(handle.weight, &marker);
  EXPECT_EQ(handle.buffer_total, c.buffer_total);
}
INSTANTIATE_TEST_SUITE_P(
    Cases, WeightInitRefusals,
    ::testing::Values(
        InitRefusal{"zero_width", {0, 1080, 240, 135, 5, 0, 4, 5}, 0, "invalid size"},
        InitRefusal{"negative_height", {1920, -1, 240, 135, 5, 0, 4, 5}, 0, "invalid size"},
        InitRefusal{"zero_disparity_width", {1920, 1080, 0, 135, 5, 0, 4, 5}, 0, "invalid size"},
        InitRefusal{
            "negative_disparity_height", {1920, 1080, 240, -3, 5, 0, 4, 5}, 0, "invalid size"},
        InitRefusal{"kernel_0", {1920, 1080, 240, 135, 5, 0, 4, 0}, 0, "invalid kernel size 0"},
        InitRefusal{
            "kernel_negative", {1920, 1080, 240, 135, 5, 0, 4, -5}, 0, "invalid kernel size -5"},
        // W x H x 2 = 2^31.
        InitRefusal{"map_overflow", {32768, 32768, 4, 4, 5, 0, 4, 5}, 0, "overflow"},
        // (dW + 2r) x (dH + 2r + 1) x 4 leaves int32 while dW x dH does not.
        InitRefusal{"tempim_overflow", {16, 16, 20000, 20000, 5, 0, 4, 5}, 0, "overflow"},
        // dW + 2r itself overflows.
        InitRefusal{"radius_overflow", {16, 16, 4, 4, 5, 0, 4, INT32_MAX}, 0, "overflow"},
        // Each size fits, the sum does not.
        InitRefusal{"sum_overflow", {32767, 32767, 200, 200, 5, 0, 4, 5}, 0, "overflow"},
        // The handle's running total would leave int32.
        InitRefusal{
            "total_overflow", {1920, 1080, 240, 135, 5, 0, 4, 5}, INT32_MAX - 4382555, "overflow"}),
    [](const ::testing::TestParamInfo<InitRefusal>& info) { return std::string(info.param.name); });

TEST(WeightInit, NullArgumentsRefused) {
  DofraParams params = {32, 16, 8, 4, 5, 0, 4, 5};
  DofraHandle handle{};
  LogCapture log;
  EXPECT_EQ(weight_init(nullptr, &handle), 1);
  EXPECT_EQ(weight_init(&params, nullptr), 1);
  EXPECT_EQ(weight_deinit(nullptr), 1);
  EXPECT_EQ(weight_deinit(&handle), 1);
  EXPECT_EQ(log.Texts().size(), 4u);
  EXPECT_EQ(handle.weight, nullptr);
}

}  // namespace
