// A small FIFO pool of pinned worker threads with a per-frame completion
// counter. Two locks: queue_lock guards the queue, the shutdown flag and the
// workers' idle flags, pro_lock guards done_count; no path holds both.
#ifndef DOFRA_POOL_THREAD_POOL_H
#define DOFRA_POOL_THREAD_POOL_H

#include <pthread.h>

#include <cstdint>

struct DofraHandle;
struct CThread_pool;

using PoolProcess = void* (*)(void* arg);

struct PoolTask {
  PoolProcess process;  // result ignored
  void* arg;
  PoolTask* next;  // null at the tail
};

struct ThreadArg {
  int32_t index;  // worker index from 0, also the CPU it is pinned to
  CThread_pool* pool;
  // Each worker sleeps on its own condition, so that a frame wakes only the
  // workers it needs. idle: asleep and not yet woken.
  pthread_cond_t wake;
  int32_t idle;
};

// The record holds four worker slots; a pool must never ask for more workers.
constexpr int kPoolMaxWorkers = 4;

struct CThread_pool {
  pthread_mutex_t queue_lock;
  pthread_cond_t queue_ready;  // made and destroyed with the pool; workers sleep on their own
  pthread_mutex_t pro_lock;
  pthread_cond_t pro_ready;
  PoolTask* queue_head;
  int32_t shutdown;  // 0 running, 1 stopping
  pthread_t* threadid;
  int32_t* thread_creatflag;  // 1 when the worker started
  int32_t thread_num;
  int32_t queue_size;
  int32_t done_count;
  ThreadArg thread_args[kPoolMaxWorkers];
};

// 0, or -1 (logged). On a failure after the record was allocated *out keeps
// the released address; callers must not use it.
int pool_init(CThread_pool** out, int32_t thread_num);
// Queues process(arg) behind every queued task and wakes one sleeping worker.
// Always 0. Without a task record it runs process(arg) on the caller (logged).
int pool_add_worker(void* pool, PoolProcess process, void* arg);
namespace dofra {
// pool_add_worker without the wake-up, for a batch that pool_run_queued starts.
int pool_queue_task(CThread_pool* pool, PoolProcess process, void* arg);
// Wakes the sleeping workers (none when wake_workers is false) except the
// one pinned to the caller's CPU, which would only preempt the caller; then
// runs queued tasks on the caller, in the same FIFO order, until the queue is
// empty or the pool is stopping. Call sync_thread_done afterwards: workers
// may still be running their tasks.
void pool_run_queued(CThread_pool* pool, bool wake_workers);
}  // namespace dofra
// Stops the workers (a running task finishes first), joins them, drops the
// queued tasks and releases the pool. -1 when a join failed, or at once when
// the pool is already shutting down.
int pool_destroy(CThread_pool* pool);
// The worker body; ends with pthread_exit.
void* thread_routine(void* thread_arg);

void reset_thread_done(CThread_pool* pool);
// The last action of every task.
void one_thread_done(CThread_pool* pool);
// Returns once done_count is exactly `expected`; polls briefly before it
// sleeps on pro_ready.
void sync_thread_done(CThread_pool* pool, int32_t expected);

// Handle-level: band records and a pool of two workers. 0 or 1 (logged).
int thread_init(DofraHandle* handle);
// Destroys the pool (a null pool is skipped) and the band records. Always 0.
int thread_deinit(DofraHandle* handle);

#endif  // DOFRA_POOL_THREAD_POOL_H
