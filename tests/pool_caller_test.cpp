// The caller's share of a batch: with the only worker busy, pool_run_queued
// runs the queued tasks on the caller in FIFO order under the exact
// completion count, and leaves a stopping pool's queue to pool_destroy.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "pool/thread_pool.h"

using namespace dofra;  // the library's internal names

namespace {

constexpr int kTasks = 16;
CThread_pool* g_pool = nullptr;
std::atomic<int> g_runs{0};
int g_order[kTasks];  // task ids in the order they ran
std::atomic<bool> g_held{false}, g_open{false};

void* Record(void* id) {
  g_order[g_runs++] = *static_cast<int*>(id);
  one_thread_done(g_pool);
  return nullptr;
}

void* Hold(void*) {
  g_held = true;
  while (!g_open) std::this_thread::yield();
  return nullptr;
}

TEST(PoolCallerTest, CallerRunsTheQueueInOrderUnlessThePoolIsStopping) {
  ASSERT_EQ(pool_init(&g_pool, 1), 0);
  pool_add_worker(g_pool, Hold, nullptr);
  while (!g_held) std::this_thread::yield();
  reset_thread_done(g_pool);
  int ids[kTasks];
  for (int i = 0; i < kTasks; ++i) pool_queue_task(g_pool, Record, &(ids[i] = i));

  g_pool->shutdown = 1;  // unlocked: the only worker is inside Hold
  pool_run_queued(g_pool, true);
  EXPECT_EQ(g_runs, 0);

  g_pool->shutdown = 0;
  pool_run_queued(g_pool, true);  // returns only once the queue is empty
  EXPECT_EQ(g_pool->done_count, kTasks);
  for (int i = 0; i < kTasks; ++i) EXPECT_EQ(g_order[i], i);
  g_open = true;
  EXPECT_EQ(pool_destroy(g_pool), 0);
}

}  // namespace
