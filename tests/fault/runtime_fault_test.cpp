// Runtime failure paths forced at link time: every buffer of the blur
// context, the band records, every step of pool_init, and worker creation.
// ASan's leak check at exit covers the teardown of each failure path.
#include <gtest/gtest.h>
#include <ui/GraphicBuffer.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "dofra_depth.h"
#include "fault/fault_injection.h"
#include "pool/thread_pool.h"
#include "support/log_capture.h"

namespace {

// DofraInit's allocations in order: handle, pThreadArg, pool, threadid,
// thread_creatflag, BlurContext, kernel_weights, eight buffers, WeightContext.
constexpr int kPThreadArgAlloc = 2;
constexpr int kPoolAlloc = 3;
constexpr int kThreadIdAlloc = 4;
constexpr int kCreatFlagAlloc = 5;
constexpr int kFirstBufferAlloc = 8;
constexpr int kInitAllocations = 16;

DofraParams Params1080(int scale) { return DofraParams{1920, 1080, 240, 135, 5, 0, scale, 5}; }

// Log lines after the build-time line.
std::vector<std::string> AfterBuildLine(const LogCapture& log) {
  std::vector<std::string> texts = log.Texts();
  EXPECT_FALSE(texts.empty());
  if (!texts.empty()) {
    EXPECT_EQ(texts[0].rfind("L 16, DofraInit: build time ", 0), 0u);
    texts.erase(texts.begin());
  }
  return texts;
}

TEST(RuntimeFaultTest, CleanInitMakesExactlyTheListedAllocations) {
  fault::Guard guard;
  DofraParams params = Params1080(4);
  DofraHandle* handle = nullptr;
  fault::FailAllocation(0);
  ASSERT_EQ(DofraInit(&handle, &params), 0);
  EXPECT_EQ(fault::AllocationCount(), kInitAllocations);
  EXPECT_EQ(DofraDeinit(handle), 0);
}

// The nth allocation of DofraInit fails: the listed lines are logged after
// the build-time line, 1 is returned and the host keeps the released address.
// ASan's leak check covers the teardown.
struct InitFault {
  int nth;
  std::vector<std::string> expected;
};

class InitFaultTest : public ::testing::TestWithParam<InitFault> {};

TEST_P(InitFaultTest, LogsTheStepAndTearsDownCleanly) {
  fault::Guard guard;
  LogCapture log;
  DofraParams params = Params1080(4);
  DofraHandle* handle = nullptr;
  fault::FailAllocation(GetParam().nth);
  EXPECT_EQ(DofraInit(&handle, &params), 1);
  EXPECT_NE(handle, nullptr);
  EXPECT_EQ(AfterBuildLine(log), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    ThreadInitSteps, InitFaultTest,
    ::testing::Values(InitFault{kPThreadArgAlloc, {"L 15, thread_init: pThreadArg malloc error\n"}},
                      InitFault{kPoolAlloc,
                                {"L 98, pool_init: can't alloc thread pool\n",
                                 "L 21, thread_init: pool_init error\n"}},
                      InitFault{kThreadIdAlloc,
                                {"L 140, pool_init: can't malloc threadid\n",
                                 "L 21, thread_init: pool_init error\n"}},
                      InitFault{kCreatFlagAlloc,
                                {"L 146, pool_init: can't malloc thread_creatflag\n",
                                 "L 21, thread_init: pool_init error\n"}}));

INSTANTIATE_TEST_SUITE_P(
    BlurBuffers, InitFaultTest,
    ::testing::Values(
        InitFault{kFirstBufferAlloc - 2, {"L 36, blur_init: BlurContext malloc error\n"}},
        InitFault{kFirstBufferAlloc - 1, {"L 43, blur_init: kernel_weights malloc error\n"}},
        InitFault{kFirstBufferAlloc + 0, {"L 47, blur_init: Src_copy malloc error\n"}},
        InitFault{kFirstBufferAlloc + 1, {"L 54, blur_init: XInterp_image malloc error\n"}},
        InitFault{kFirstBufferAlloc + 2, {"L 61, blur_init: scale_img malloc error\n"}},
        InitFault{kFirstBufferAlloc + 3, {"L 68, blur_init: input_tmp_y malloc error\n"}},
        InitFault{kFirstBufferAlloc + 4, {"L 75, blur_init: input_tmp_uv malloc error\n"}},
        InitFault{kFirstBufferAlloc + 5, {"L 82, blur_init: tempim_y malloc error\n"}},
        InitFault{kFirstBufferAlloc + 6, {"L 89, blur_init: tempim_uv malloc error\n"}},
        InitFault{kFirstBufferAlloc + 7, {"L 100, blur_init: smooth_img malloc error\n"}}));

TEST(RuntimeFaultTest, PoolRecordFailureLeavesTheCallersPointer) {
  fault::Guard guard;
  LogCapture log;
  CThread_pool* const kUntouched = reinterpret_cast<CThread_pool*>(0x1234);
  CThread_pool* pool = kUntouched;
  fault::FailAllocation(1);
  EXPECT_EQ(pool_init(&pool, 2), -1);
  EXPECT_EQ(pool, kUntouched);
  EXPECT_EQ(log.Texts(), std::vector<std::string>{"L 98, pool_init: can't alloc thread pool\n"});
}

struct Ordered {
  std::mutex mutex;
  std::vector<int> order;
  CThread_pool* pool = nullptr;
};
struct OrderedArg {
  Ordered* ordered;
  int id;
};
void* Record(void* p) {
  auto* arg = static_cast<OrderedArg*>(p);
  {
    std::lock_guard<std::mutex> lock(arg->ordered->mutex);
    arg->ordered->order.push_back(arg->id);
  }
  one_thread_done(arg->ordered->pool);
  return nullptr;
}

TEST(RuntimeFaultTest, OneWorkerFailingLeavesTheOtherRunningEverythingInOrder) {
  fault::Guard guard;
  LogCapture log;
  CThread_pool* pool = nullptr;
  fault::FailThreadCreate(1, EAGAIN);
  ASSERT_EQ(pool_init(&pool, 2), 0);
  EXPECT_EQ(pool->thread_creatflag[0], 0);
  EXPECT_EQ(pool->thread_creatflag[1], 1);
  EXPECT_EQ(log.Texts(), std::vector<std::string>{"L 160, pool_init: can't create thread: " +
                                                  std::string(strerror(EAGAIN)) + "\n"});

  Ordered ordered;
  ordered.pool = pool;
  constexpr int kTasks = 32;
  std::vector<OrderedArg> args(kTasks);
  reset_thread_done(pool);
  for (int i = 0; i < kTasks; ++i) {
    args[i] = {&ordered, i};
    pool_add_worker(pool, Record, &args[i]);
  }
  sync_thread_done(pool, kTasks);
  for (int i = 0; i < kTasks; ++i) EXPECT_EQ(ordered.order[i], i);
  EXPECT_EQ(pool_destroy(pool), 0);  // joins only the worker that started
}

TEST(RuntimeFaultTest, InitSucceedsWithOneWorkerAndTearsDown) {
  fault::Guard guard;
  DofraParams params = Params1080(4);
  DofraHandle* handle = nullptr;
  fault::FailThreadCreate(2, EAGAIN);
  ASSERT_EQ(DofraInit(&handle, &params), 0);
  EXPECT_EQ(handle->pool->thread_creatflag[1], 0);
  EXPECT_EQ(DofraDeinit(handle), 0);
}

// A 1080p handle at factor 4 with a uniform weight map, and its frames.
struct BlurSetup {
  explicit BlurSetup(uint16_t weight) : weights(1920 * 1080, weight) {
    EXPECT_EQ(DofraInit(&handle, &params), 0);
    DofraWeightMapInfo info{{0, 0, 0}, weights.data()};
    EXPECT_EQ(DofraCreateWeightMap(handle, &info), 0);
  }
  ~BlurSetup() { EXPECT_EQ(DofraDeinit(handle), 0); }
  static std::unique_ptr<android::GraphicBuffer> Frame() {
    return std::make_unique<android::GraphicBuffer>(1920, 1080,
                                                    android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33);
  }
  DofraParams params = Params1080(4);
  DofraHandle* handle = nullptr;
  std::vector<uint16_t> weights;
};

TEST(RuntimeFaultTest, AFrameAllocatesOnlyItsFourTaskRecords) {
  fault::Guard guard;
  BlurSetup setup(512);
  auto src = BlurSetup::Frame();
  auto dst = BlurSetup::Frame();
  for (android::GraphicBuffer* out : {dst.get(), src.get()}) {
    fault::FailAllocation(0);  // counts only
    ASSERT_EQ(DofraBlurImage(setup.handle, src.get(), out), 0);
    EXPECT_EQ(fault::AllocationCount(), 4);
  }
}

TEST(RuntimeFaultTest, HandleAllocationFailureIsRefused) {
  fault::Guard guard;
  LogCapture log;
  DofraParams params = Params1080(4);
  DofraHandle* handle = reinterpret_cast<DofraHandle*>(&params);
  fault::FailAllocation(1);
  EXPECT_EQ(DofraInit(&handle, &params), 1);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(AfterBuildLine(log), std::vector<std::string>{"L 22, DofraInit: can't alloc handle\n"});
}

TEST(RuntimeFaultTest, ATaskRecordFailureRunsTheBandOnTheCallerAndFinishesTheFrame) {
  fault::Guard guard;
  BlurSetup setup(1024);
  auto src = BlurSetup::Frame();
  auto expected = BlurSetup::Frame();
  auto dst = BlurSetup::Frame();
  for (size_t i = 0; i < src->hostSize(); ++i) src->hostData()[i] = static_cast<uint8_t>(i * 7 / 3);
  ASSERT_EQ(DofraBlurImage(setup.handle, src.get(), expected.get()), 0);

  LogCapture log;
  fault::FailAllocation(2);  // the second luma band's record
  ASSERT_EQ(DofraBlurImage(setup.handle, src.get(), dst.get()), 0);
  EXPECT_EQ(memcmp(dst->hostData(), expected->hostData(), dst->hostSize()), 0);
  EXPECT_EQ(log.Texts().front(),
            "L 183, pool_add_worker: can't alloc task, running it on the caller\n");
}

}  // namespace
