// weight_init under allocation failures: each failing allocation logs its
// message, returns 1, keeps what was allocated before and the total as it was.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dofra_depth.h"
#include "fault/fault_injection.h"
#include "support/log_capture.h"
#include "weight/weight_context.h"

namespace {

// Allocation order: context, kernel weights, then the five buffers. Each
// failure logs its line, returns 1, keeps the buffers allocated before it
// (for weight_deinit) and the handle's total as it was.
TEST(WeightInitAllocFailure, LogsAndKeepsEarlierBuffers) {
  const struct {
    int nth;
    const char* line;
  } cases[] = {{1, "L 44, weight_init: WeightContext calloc error\n"},
               {3, "L 48, weight_init: WeightMap malloc error\n"},
               {4, "L 55, weight_init: RangedDisparity malloc error\n"},
               {5, "L 62, weight_init: ExpandDisparity malloc error\n"},
               {6, "L 69, weight_init: TempimDisparity malloc error\n"},
               {7, "L 76, weight_init: SmoothDisparity malloc error\n"}};
  for (const auto& c : cases) {
    DofraParams params = {64, 32, 16, 8, 5, 0, 4, 5};
    DofraHandle handle{};
    handle.buffer_total = 777;
    LogCapture log;
    {
      fault::Guard guard;
      fault::FailAllocation(c.nth);
      EXPECT_EQ(weight_init(&params, &handle), 1);
    }
    EXPECT_EQ(log.Texts(), std::vector<std::string>{c.line});
    EXPECT_EQ(handle.buffer_total, 777);
    WeightContext* ctx = handle.weight;
    EXPECT_EQ(ctx == nullptr, c.nth == 1);
    if (ctx == nullptr) continue;
    const void* buffers[5] = {ctx->weight_map, ctx->RangedDisparity, ctx->ExpandDisparity,
                              ctx->TempimDisparity, ctx->SmoothDisparity};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(buffers[i] != nullptr, i < c.nth - 3) << c.line << i;
    EXPECT_EQ(weight_deinit(&handle), 0);
  }
}

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
  EXPECT_EQ(log.Texts(), std::vector<std::string>{
                             "L 316, weight_async_process: weight context not initialised\n"});
  EXPECT_EQ(weight_deinit(&handle), 0);
}

}  // namespace
