// Worker pool: the exact completion count, shutdown with queued tasks, refused
// sizes, pinning, the wake-up of a posted task and a second destroy (FIFO
// order and failures are in the fault tests).
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "dofra_depth.h"
#include "pool/thread_pool.h"
#include "support/log_capture.h"

namespace {

// A task that blocks until released, so a test controls what is running;
// tasks without the gate only count.
struct Gate {
  std::atomic<bool> started{false}, open{false};
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

// The pool's shutdown flag, read under its lock.
int Shutdown(CThread_pool* pool) {
  pthread_mutex_lock(&pool->queue_lock);
  const int now = pool->shutdown;
  pthread_mutex_unlock(&pool->queue_lock);
  return now;
}

TEST(PoolTest, SyncWaitsForExactlyTheExpectedCount) {
  Gate gate;
  ASSERT_EQ(pool_init(&gate.pool, 2), 0);
  CThread_pool* pool = gate.pool;
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
  Gate gate;
  ASSERT_EQ(pool_init(&gate.pool, 1), 0);
  CThread_pool* pool = gate.pool;
  reset_thread_done(pool);
  pool_add_worker(pool, WaitAtGate, &gate);
  while (!gate.started) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  for (int i = 0; i < 5; ++i) pool_add_worker(pool, CountAndDone, &gate);

  std::atomic<int> result{1};
  std::thread destroyer([&] { result = pool_destroy(pool); });
  // Released only once shutdown is set, so the queued five are never taken.
  while (Shutdown(pool) == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  gate.open = true;
  destroyer.join();
  EXPECT_EQ(result.load(), 0);
  EXPECT_EQ(gate.ran.load(), 1);  // the queued tasks were released unrun (ASan: no leak)
}

// Zero workers start none (the caller keeps the released record); more than
// the argument slots are refused before anything is allocated.
TEST(PoolTest, RefusedWorkerCounts) {
  const struct {
    int workers;
    bool keeps_record;
    const char* line;
  } cases[] = {{0, true, "L 169, pool_init: all LTM thread create failed.\n"},
               {5, false, "L 96, pool_init: can't start 5 workers, at most 4\n"}};
  for (const auto& c : cases) {
    LogCapture log;
    CThread_pool* pool = nullptr;
    EXPECT_EQ(pool_init(&pool, c.workers), -1);
    EXPECT_EQ(pool != nullptr, c.keeps_record);
    EXPECT_EQ(log.Texts(), std::vector<std::string>{c.line});
  }
}

// Waits up to 10 s for `done` (a hang fails the test instead of stalling
// the run); true when it came.
template <typename Done>
bool Within10s(Done done) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!done()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// Every started worker is asleep on its own condition (pinned by then).
bool AllAsleep(CThread_pool* pool) {
  pthread_mutex_lock(&pool->queue_lock);
  bool asleep = true;
  for (int i = 0; i < pool->thread_num; ++i) asleep = asleep && pool->thread_args[i].idle;
  pthread_mutex_unlock(&pool->queue_lock);
  return asleep;
}

// Read back from the running threads: worker i alone on CPU i.
TEST(PoolTest, EachWorkerIsPinnedToTheCpuOfItsIndex) {
  cpu_set_t allowed;
  ASSERT_EQ(sched_getaffinity(0, sizeof(allowed), &allowed), 0);
  if (!CPU_ISSET(0, &allowed) || !CPU_ISSET(1, &allowed)) GTEST_SKIP() << "needs CPUs 0 and 1";
  CThread_pool* pool = nullptr;
  ASSERT_EQ(pool_init(&pool, 2), 0);
  ASSERT_TRUE(Within10s([&] { return AllAsleep(pool); }));
  for (int i = 0; i < 2; ++i) {
    cpu_set_t mask;
    ASSERT_EQ(pthread_getaffinity_np(pool->threadid[i], sizeof(mask), &mask), 0);
    const bool alone_on_cpu_i = CPU_COUNT(&mask) == 1 && CPU_ISSET(i, &mask);
    EXPECT_TRUE(alone_on_cpu_i) << "worker " << i;
  }
  EXPECT_EQ(pool_destroy(pool), 0);
}

// A task posted while every worker sleeps wakes one of them; without the
// wake-up it would wait in the queue for ever.
TEST(PoolTest, APostedTaskWakesASleepingWorker) {
  Gate gate;
  ASSERT_EQ(pool_init(&gate.pool, 2), 0);
  reset_thread_done(gate.pool);
  for (int posted = 1; posted <= 3; ++posted) {
    ASSERT_TRUE(Within10s([&] { return AllAsleep(gate.pool); }));
    pool_add_worker(gate.pool, CountAndDone, &gate);
    EXPECT_TRUE(Within10s([&] { return gate.ran == posted; })) << "task " << posted << " never ran";
  }
  EXPECT_EQ(pool_destroy(gate.pool), 0);
}

// A pool already shutting down is refused and keeps everything: its workers
// are joined and its records released only by the destroy that follows.
TEST(PoolTest, DestroyOfAStoppingPoolReleasesNothing) {
  CThread_pool* pool = nullptr;
  ASSERT_EQ(pool_init(&pool, 2), 0);
  ASSERT_TRUE(Within10s([&] { return AllAsleep(pool); }));
  auto set_shutdown = [pool](int value) {
    pthread_mutex_lock(&pool->queue_lock);
    pool->shutdown = value;  // the workers sleep on: nothing wakes them
    pthread_mutex_unlock(&pool->queue_lock);
  };
  set_shutdown(1);
  EXPECT_EQ(pool_destroy(pool), -1);
  // A released record is read after free here (ASan); joined workers would
  // fail the next destroy's joins.
  for (int i = 0; i < 2; ++i) EXPECT_EQ(pool->thread_creatflag[i], 1);
  set_shutdown(0);
  EXPECT_EQ(pool_destroy(pool), 0);
}

}  // namespace
