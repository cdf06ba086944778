// weight_init under allocation failures: each failing allocation logs its
// message, returns 1, keeps what was allocated before and the total as it was.
#include <gtest/gtest.h>

#include <string>

#include "dofra_depth.h"
#include "fault/fault_injection.h"
#include "support/log_capture.h"
#include "weight/weight_context.h"

namespace {

// Allocation order: context, kernel weights, then the five buffers.
struct AllocFailure {
  int nth;
  const char* expected;  // the one log line, or "" for none
  int buffers_before;    // buffers allocated before the failing one
};
class WeightInitAllocFailure : public ::testing::TestWithParam<AllocFailure> {};

TEST_P(WeightInitAllocFailure, LogsAndKeepsEarlierBuffers) {
  const AllocFailure c = GetParam();
  DofraParams params = {64, 32, 16, 8, 5, 0, 4, 5};
  DofraHandle handle{};
  handle.buffer_total = 777;
  LogCapture log;
  int result;
  {
    fault::Guard guard;
    fault::FailAllocation(c.nth);
    result = weight_init(&params, &handle);
  }
  const auto texts = log.Texts();
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_EQ(texts[0], c.expected);
  EXPECT_EQ(result, 1);
  EXPECT_EQ(handle.buffer_total, 777);
  if (c.nth == 1) {
    EXPECT_EQ(handle.weight, nullptr);
    return;
  }
  WeightContext* ctx = handle.weight;
  ASSERT_NE(ctx, nullptr);
  const void* buffers[5] = {ctx->weight_map, ctx->RangedDisparity, ctx->ExpandDisparity,
                            ctx->TempimDisparity, ctx->SmoothDisparity};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(buffers[i] != nullptr, i < c.buffers_before) << i;
  EXPECT_EQ(weight_deinit(&handle), 0);  // releases what is there
}
INSTANTIATE_TEST_SUITE_P(
    Allocations, WeightInitAllocFailure,
    ::testing::Values(AllocFailure{1, "L 44, weight_init: WeightContext calloc error\n", 0},
                      AllocFailure{3, "L 48, weight_init: WeightMap malloc error\n", 0},
                      AllocFailure{4, "L 55, weight_init: RangedDisparity malloc error\n", 1},
                      AllocFailure{5, "L 62, weight_init: ExpandDisparity malloc error\n", 2},
                      AllocFailure{6, "L 69, weight_init: TempimDisparity malloc error\n", 3},
                      AllocFailure{7, "L 76, weight_init: SmoothDisparity malloc error\n", 4}));

// A failed kernel-weight allocation goes unreported by weight_init; the
// computation then refuses the context instead of reading through null.
TEST(WeightInitAllocFailure, KernelWeightsFailureIsRefusedLater) {
  DofraParams params = {64, 32, 16, 8, 5, 0, 4, 5};
  DofraHandle handle{};
  LogCapture log;
  {
    fault::Guard guard;
    fault::FailAllocation(2);
    ASSERT_EQ(weight_init(&params, &handle), 0);
  }
  EXPECT_TRUE(log.Texts().empty());
  EXPECT_EQ(handle.weight->kernel_weights, nullptr);
  EXPECT_EQ(handle.buffer_total, 4096 + 128 + 240 + 20 * 13 * 4 + 128);
  uint8_t block[DOFRA_DEPTH_HEADER_SIZE + 16 * 8] = {};
  WeightParams request = {1, 0, 0, reinterpret_cast<DepthData*>(block)};
  uint16_t out[64 * 32] = {};
  EXPECT_EQ(weight_async_process(&request, &handle, out), 1);
  ASSERT_EQ(log.Texts().size(), 1u);
  EXPECT_NE(log.Texts()[0].find("not initialised"), std::string::npos);
  EXPECT_EQ(weight_deinit(&handle), 0);
}

}  // namespace
