// Runtime failure paths forced at link time: every allocation of DofraInit and
// weight_init, every step of pool_init, worker creation and a frame's task
// records; and a frame refused before its buffers.
// ASan's leak check at exit covers the teardown of each failure path.
#include <gtest/gtest.h>
#include <ui/GraphicBuffer.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "blur/blur_context.h"
#include "dofra_depth.h"
#include "dofra_quality.h"
#include "fault/fault_injection.h"
#include "pool/thread_pool.h"
#include "support/log_capture.h"
#include "weight/weight_context.h"

namespace {

DofraParams Params1080() { return DofraParams{1920, 1080, 240, 135, 5, 0, 4, 5}; }

// A 1080p handle blurring under `weights` (borrowed: they must outlive it).
void InitWithMap(const std::vector<uint16_t>& weights, DofraHandle** handle) {
  DofraParams params = Params1080();
  ASSERT_EQ(DofraInit(handle, &params), 0);
  DofraWeightMapInfo info{{0, 0, 0}, const_cast<uint16_t*>(weights.data())};
  ASSERT_EQ(DofraCreateWeightMap(*handle, &info), 0);
}

// The nth allocation of DofraInit fails (0: none, and exactly 16 are made):
// 1 is returned, the lines are logged after the build-time line, and the
// host keeps the released address except when the handle itself failed.
TEST(RuntimeFaultTest, EveryInitAllocationFailureLogsItsStep) {
  const struct {
    int nth;
    std::vector<std::string> lines;
  } cases[] = {
      {1, {"L 22, DofraInit: can't alloc handle\n"}},
      {2, {"L 15, thread_init: pThreadArg malloc error\n"}},
      {3, {"L 98, pool_init: can't alloc thread pool\n", "L 21, thread_init: pool_init error\n"}},
      {4, {"L 140, pool_init: can't malloc threadid\n", "L 21, thread_init: pool_init error\n"}},
      {5,
       {"L 146, pool_init: can't malloc thread_creatflag\n",
        "L 21, thread_init: pool_init error\n"}},
      {6, {"L 36, blur_init: BlurContext malloc error\n"}},
      {7, {"L 43, blur_init: kernel_weights malloc error\n"}},
      {8, {"L 47, blur_init: Src_copy malloc error\n"}},
      {9, {"L 54, blur_init: XInterp_image malloc error\n"}},
      {10, {"L 61, blur_init: scale_img malloc error\n"}},
      {11, {"L 68, blur_init: input_tmp_y malloc error\n"}},
      {12, {"L 75, blur_init: input_tmp_uv malloc error\n"}},
      {13, {"L 82, blur_init: tempim_y malloc error\n"}},
      {14, {"L 89, blur_init: tempim_uv malloc error\n"}},
      {15, {"L 100, blur_init: smooth_img malloc error\n"}},
  };
  for (const auto& c : cases) {
    fault::Guard guard;
    LogCapture log;
    DofraParams params = Params1080();
    DofraHandle* handle = reinterpret_cast<DofraHandle*>(&params);
    fault::FailAllocation(c.nth);
    EXPECT_EQ(DofraInit(&handle, &params), 1);
    EXPECT_EQ(handle == nullptr, c.nth == 1);
    std::vector<std::string> texts = log.Texts();
    ASSERT_FALSE(texts.empty());
    EXPECT_EQ(texts[0].rfind("L 16, DofraInit: build time ", 0), 0u);
    EXPECT_EQ(std::vector<std::string>(texts.begin() + 1, texts.end()), c.lines) << c.nth;
  }
  fault::Guard guard;
  DofraParams params = Params1080();
  DofraHandle* handle = nullptr;
  fault::FailAllocation(0);
  ASSERT_EQ(DofraInit(&handle, &params), 0);
  EXPECT_EQ(fault::AllocationCount(), 16);
  EXPECT_EQ(DofraDeinit(handle), 0);
}

// A frame whose buffer sizes overflow 32 bits is refused by the size check
// itself: after the handle, band records and pool, before the blur context
// or any frame buffer (a wrapped size would fail only at its allocation).
TEST(RuntimeFaultTest, OverflowingFrameIsRefusedBeforeItsBuffers) {
  fault::Guard guard;
  LogCapture log;
  DofraParams params = {24000, 30000, 3000, 3750, 5, 0, 4, 5};
  DofraHandle* handle = nullptr;
  fault::FailAllocation(0);
  EXPECT_EQ(DofraInit(&handle, &params), 1);
  EXPECT_EQ(fault::AllocationCount(), 5);
  const std::vector<std::string> texts = log.Texts();
  ASSERT_EQ(texts.size(), 2u);
  EXPECT_EQ(texts[1],
            "L 40, blur_init: refusing 24000x30000 at scale 4: buffer sizes overflow 32 bits\n");
}

// Tasks append their index; one worker runs them all, so no lock is needed.
std::vector<int> g_order;
CThread_pool* g_pool = nullptr;
void* Record(void* index) {
  g_order.push_back(*static_cast<int*>(index));
  one_thread_done(g_pool);
  return nullptr;
}

// The remaining worker takes every task in posting order; destroy joins it
// alone. DofraInit, too, goes on with one worker.
TEST(RuntimeFaultTest, OneWorkerFailingLeavesTheOtherRunningEverythingInOrder) {
  fault::Guard guard;
  LogCapture log;
  fault::FailThreadCreate(1, EAGAIN);
  ASSERT_EQ(pool_init(&g_pool, 2), 0);
  EXPECT_EQ(g_pool->thread_creatflag[0], 0);
  EXPECT_EQ(g_pool->thread_creatflag[1], 1);
  EXPECT_EQ(log.Texts(), std::vector<std::string>{"L 160, pool_init: can't create thread: " +
                                                  std::string(strerror(EAGAIN)) + "\n"});
  std::vector<int> index(32);
  reset_thread_done(g_pool);
  for (int i = 0; i < 32; ++i) pool_add_worker(g_pool, Record, &(index[i] = i));
  sync_thread_done(g_pool, 32);
  EXPECT_EQ(g_order, index);
  EXPECT_EQ(pool_destroy(g_pool), 0);

  DofraParams params = Params1080();
  DofraHandle* handle = nullptr;
  fault::FailThreadCreate(2, EAGAIN);
  ASSERT_EQ(DofraInit(&handle, &params), 0);
  EXPECT_EQ(handle->pool->thread_creatflag[1], 0);
  EXPECT_EQ(DofraDeinit(handle), 0);
}

// A frame allocates only its four task records; when one fails, its band
// runs on the caller and the frame still comes out whole.
TEST(RuntimeFaultTest, TaskRecordsOfAFrame) {
  fault::Guard guard;
  const std::vector<uint16_t> weights(1920 * 1080, 1024);
  DofraHandle* handle = nullptr;
  ASSERT_NO_FATAL_FAILURE(InitWithMap(weights, &handle));
  auto frame = [] {
    return std::make_unique<android::GraphicBuffer>(1920, 1080,
                                                    android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33);
  };
  auto src = frame(), expected = frame(), dst = frame();
  for (size_t i = 0; i < src->hostSize(); ++i) src->hostData()[i] = static_cast<uint8_t>(i * 7 / 3);
  for (android::GraphicBuffer* out : {expected.get(), dst.get()}) {  // then in place
    if (out == dst.get()) memcpy(dst->hostData(), src->hostData(), src->hostSize());
    fault::FailAllocation(0);  // counts only
    ASSERT_EQ(DofraBlurImage(handle, out == dst.get() ? dst.get() : src.get(), out), 0);
    EXPECT_EQ(fault::AllocationCount(), 4);
  }
  LogCapture log;
  fault::FailAllocation(2);  // the second luma band's record
  ASSERT_EQ(DofraBlurImage(handle, src.get(), dst.get()), 0);
  EXPECT_EQ(memcmp(dst->hostData(), expected->hostData(), dst->hostSize()), 0);
  EXPECT_EQ(log.Texts().front(),
            "L 183, pool_add_worker: can't alloc task, running it on the caller\n");
  EXPECT_EQ(DofraDeinit(handle), 0);
}

// The no-glow blur allocates its record and its block when first switched
// on; either failing is refused with one line and leaves the handle as it
// was. Once on, a frame allocates only its four task records.
TEST(RuntimeFaultTest, NoBleedScratchOnceAndNothingPerFrame) {
  fault::Guard guard;
  const std::vector<uint16_t> weights(1920 * 1080, 1024);
  DofraHandle* handle = nullptr;
  ASSERT_NO_FATAL_FAILURE(InitWithMap(weights, &handle));
  const DofraNoBleed on = {1, 1, 2, DOFRA_NO_BLEED_THRESHOLD_DEFAULT};
  for (int nth : {1, 2}) {
    LogCapture log;
    fault::FailAllocation(nth);
    EXPECT_EQ(DofraSetNoBleed(handle, &on), 1);
    EXPECT_EQ(log.Texts(), std::vector<std::string>{
                               "L 84, DofraSetNoBleed: scratch of 799936 bytes malloc error\n"});
    EXPECT_EQ(handle->blur->no_bleed, nullptr);
  }
  fault::FailAllocation(0);  // counts only
  ASSERT_EQ(DofraSetNoBleed(handle, &on), 0);
  EXPECT_EQ(fault::AllocationCount(), 2);
  android::GraphicBuffer frame(1920, 1080, android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33);
  fault::FailAllocation(0);
  ASSERT_EQ(DofraBlurImage(handle, &frame, &frame), 0);
  EXPECT_EQ(fault::AllocationCount(), 4);
  EXPECT_EQ(DofraDeinit(handle), 0);
}

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
