// Worker pool: FIFO order, the exact completion count, shutdown with queued
// tasks, refused sizes, a second destroy, pinning, and the handle-level pair.
#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "dofra_depth.h"
#include "pool/thread_pool.h"
#include "support/log_capture.h"

namespace {

struct Recorder {
  std::mutex mutex;
  std::vector<int> order;
  CThread_pool* pool = nullptr;
};

struct RecordArg {
  Recorder* recorder;
  int id;
};

void* RecordAndDone(void* p) {
  auto* arg = static_cast<RecordArg*>(p);
  {
    std::lock_guard<std::mutex> lock(arg->recorder->mutex);
    arg->recorder->order.push_back(arg->id);
  }
  one_thread_done(arg->recorder->pool);
  return nullptr;
}

// A task that blocks until released, so a test controls what is running.
struct Gate {
  std::atomic<bool> started{false};
  std::atomic<bool> open{false};
  std::atomic<int> ran{0};
  CThread_pool* pool = nullptr;
};

void* WaitAtGate(void* p) {
  auto* gate = static_cast<Gate*>(p);
  gate->started = true;
  while (!gate->open) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  gate->ran++;
  one_thread_done(gate->pool);
  return nullptr;
}

void* CountAndDone(void* p) {
  auto* gate = static_cast<Gate*>(p);
  gate->ran++;
  one_thread_done(gate->pool);
  return nullptr;
}

void SetShutdown(CThread_pool* pool, int value) {
  pthread_mutex_lock(&pool->queue_lock);
  pool->shutdown = value;
  pthread_mutex_unlock(&pool->queue_lock);
}

int ReadShutdown(CThread_pool* pool) {
  pthread_mutex_lock(&pool->queue_lock);
  const int value = pool->shutdown;
  pthread_mutex_unlock(&pool->queue_lock);
  return value;
}

TEST(PoolTest, TasksRunInPostingOrderAndCountExactly) {
  for (int workers : {1, 2}) {
    CThread_pool* pool = nullptr;
    ASSERT_EQ(pool_init(&pool, workers), 0);
    EXPECT_EQ(pool->thread_num, workers);
    Recorder recorder;
    recorder.pool = pool;
    constexpr int kTasks = 64;
    std::vector<RecordArg> args(kTasks);
    reset_thread_done(pool);
    for (int i = 0; i < kTasks; ++i) {
      args[i] = {&recorder, i};
      EXPECT_EQ(pool_add_worker(pool, RecordAndDone, &args[i]), 0);
    }
    sync_thread_done(pool, kTasks);
    EXPECT_EQ(pool->done_count, kTasks);
    ASSERT_EQ(recorder.order.size(), static_cast<size_t>(kTasks));
    // One worker runs strictly FIFO; two take tasks in FIFO order but may
    // record out of order, so only the set is compared there.
    std::vector<int> sorted = recorder.order;
    std::sort(sorted.begin(), sorted.end());
    for (int i = 0; i < kTasks; ++i) {
      EXPECT_EQ(sorted[i], i);
      if (workers == 1) {
        EXPECT_EQ(recorder.order[i], i);
      }
    }
    EXPECT_EQ(pool_destroy(pool), 0);
  }
}

TEST(PoolTest, SyncWaitsForExactlyTheExpectedCount) {
  CThread_pool* pool = nullptr;
  ASSERT_EQ(pool_init(&pool, 2), 0);
  Gate gate;
  gate.pool = pool;
  reset_thread_done(pool);
  for (int i = 0; i < 3; ++i) pool_add_worker(pool, CountAndDone, &gate);
  pool_add_worker(pool, WaitAtGate, &gate);

  std::atomic<bool> returned{false};
  std::thread waiter([&] {
    sync_thread_done(pool, 4);
    returned = true;
  });
  while (!gate.started) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_FALSE(returned) << "returned after three of four tasks";
  gate.open = true;
  waiter.join();
  EXPECT_EQ(gate.ran.load(), 4);

  // A new frame starts from zero.
  reset_thread_done(pool);
  EXPECT_EQ(pool->done_count, 0);
  EXPECT_EQ(pool_destroy(pool), 0);
}

TEST(PoolTest, ShutdownFinishesTheRunningTaskAndDropsTheQueue) {
  CThread_pool* pool = nullptr;
  ASSERT_EQ(pool_init(&pool, 1), 0);
  Gate gate;
  gate.pool = pool;
  reset_thread_done(pool);
  pool_add_worker(pool, WaitAtGate, &gate);
  while (!gate.started) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  for (int i = 0; i < 5; ++i) pool_add_worker(pool, CountAndDone, &gate);

  std::atomic<int> result{1};
  std::thread destroyer([&] { result = pool_destroy(pool); });
  // Released only once shutdown is set, so the queued five are never taken.
  while (ReadShutdown(pool) == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  gate.open = true;
  destroyer.join();
  EXPECT_EQ(result.load(), 0);
  EXPECT_EQ(gate.ran.load(), 1);  // the queued tasks were released unrun (ASan: no leak)
}

TEST(PoolTest, ZeroWorkersAreRefused) {
  LogCapture log;
  CThread_pool* pool = nullptr;
  EXPECT_EQ(pool_init(&pool, 0), -1);
  EXPECT_NE(pool, nullptr);  // holds the released record, as specified
  EXPECT_EQ(log.Texts(),
            std::vector<std::string>{"L 169, pool_init: all LTM thread create failed.\n"});
}

TEST(PoolTest, MoreWorkersThanArgumentSlotsAreRefused) {
  LogCapture log;
  CThread_pool* pool = nullptr;
  EXPECT_EQ(pool_init(&pool, 5), -1);
  EXPECT_EQ(pool, nullptr);
  EXPECT_EQ(log.Texts(),
            std::vector<std::string>{"L 96, pool_init: can't start 5 workers, at most 4\n"});
}

TEST(PoolTest, DestroyOnAPoolAlreadyShuttingDownReleasesNothing) {
  CThread_pool* pool = nullptr;
  ASSERT_EQ(pool_init(&pool, 2), 0);
  SetShutdown(pool, 1);
  EXPECT_EQ(pool_destroy(pool), -1);
  // Still intact: the workers are waiting and the pool can be torn down.
  EXPECT_NE(pool->threadid, nullptr);
  SetShutdown(pool, 0);
  EXPECT_EQ(pool_destroy(pool), 0);
}

void* RecordCpuMask(void* p) {
  auto* mask = static_cast<cpu_set_t*>(p);
  sched_getaffinity(0, sizeof(*mask), mask);
  return nullptr;
}

TEST(PoolTest, EachWorkerIsPinnedToTheCpuOfItsIndex) {
  cpu_set_t allowed;
  ASSERT_EQ(sched_getaffinity(0, sizeof(allowed), &allowed), 0);
  if (!CPU_ISSET(0, &allowed)) GTEST_SKIP() << "CPU 0 not available to this process";
  CThread_pool* pool = nullptr;
  ASSERT_EQ(pool_init(&pool, 1), 0);
  cpu_set_t seen;
  CPU_ZERO(&seen);
  Recorder recorder;
  recorder.pool = pool;
  reset_thread_done(pool);
  pool_add_worker(pool, RecordCpuMask, &seen);
  RecordArg done{&recorder, 0};
  pool_add_worker(pool, RecordAndDone, &done);
  sync_thread_done(pool, 1);
  EXPECT_EQ(CPU_COUNT(&seen), 1);
  EXPECT_TRUE(CPU_ISSET(0, &seen));
  EXPECT_EQ(pool_destroy(pool), 0);
}

TEST(PoolTest, WorkerIndexPastTheMaskRunsUnpinnedAndLogs) {
  // A bare record already shutting down: the worker pins, then exits at once.
  CThread_pool pool;
  memset(&pool, 0, sizeof(pool));
  pthread_mutex_init(&pool.queue_lock, nullptr);
  pthread_cond_init(&pool.queue_ready, nullptr);
  pool.shutdown = 1;
  ThreadArg arg{1024, &pool};
  LogCapture log;
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, nullptr, thread_routine, &arg), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  EXPECT_EQ(log.Texts(),
            std::vector<std::string>{"L 47, thread_routine: sched_setaffinity failed"});
  pthread_mutex_destroy(&pool.queue_lock);
  pthread_cond_destroy(&pool.queue_ready);
}

TEST(PoolTest, ThreadInitAndDeinitManageTheHandlesPoolAndBands) {
  DofraHandle handle;
  memset(&handle, 0, sizeof(handle));
  handle.buffer_total = 77;
  ASSERT_EQ(thread_init(&handle), 0);
  EXPECT_EQ(handle.buffer_total, 0);
  EXPECT_EQ(handle.band_count, 2);
  ASSERT_NE(handle.pool, nullptr);
  EXPECT_EQ(handle.pool->thread_num, 2);
  EXPECT_NE(handle.pThreadArg, nullptr);
  EXPECT_EQ(thread_deinit(&handle), 0);
  EXPECT_EQ(handle.pThreadArg, nullptr);
  EXPECT_NE(handle.pool, nullptr);  // not cleared, as specified
}

}  // namespace
