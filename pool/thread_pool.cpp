#include "pool/thread_pool.h"

#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>

#include "api/log.h"

namespace {

// Fixed lines of the log, with the names they log under.
constexpr const char* kRoutineName = "thread_routine";
constexpr const char* kInitName = "pool_init";
constexpr const char* kAddName = "pool_add_worker";
constexpr const char* kDestroyName = "pool_destroy";
constexpr int kLineAffinity = 47;
constexpr int kLineTooManyWorkers = 96;
constexpr int kLinePoolAlloc = 98;
constexpr int kLineQueueLock = 108;
constexpr int kLineQueueReady = 114;
constexpr int kLineProLock = 121;
constexpr int kLineProReady = 128;
constexpr int kLineThreadIds = 140;
constexpr int kLineCreateFlags = 146;
constexpr int kLineCreateThread = 160;
constexpr int kLineNoThread = 169;
constexpr int kLineTaskAlloc = 183;
constexpr int kLineJoin = 239;

constexpr int kWorkerPriority = -8;
constexpr int kCpuSetBits = 1024;  // 128-byte affinity mask
constexpr int kMaxWorkers = 4;     // thread_args slots inside the pool record
constexpr int kNoCpu = -1;         // skip no worker when waking
// How long a waiting caller polls the count before it sleeps. The last band
// usually ends well within it, and a caller that slept is woken tens of
// microseconds late when that band ends on another CPU (measured on a
// virtualised 2-CPU host).
constexpr std::chrono::microseconds kDonePoll{100};
static_assert(sizeof(cpu_set_t) * 8 == kCpuSetBits, "affinity mask is 1024 CPUs");

pid_t CurrentThreadId() { return static_cast<pid_t>(syscall(SYS_gettid)); }

// Pins the calling worker to the CPU numbered like its index; an index past
// the mask leaves it empty, which the system refuses (logged, runs unpinned).
void PinToCpu(int index) {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (index < kCpuSetBits) CPU_SET(index, &set);
  if (sched_setaffinity(0, sizeof(set), &set) != 0) {
    DOFRA_LOG(kLineAffinity, kRoutineName, "sched_setaffinity failed");
  }
}

// Releases what pool_init allocated; initialised locks are left as they are.
int PoolInitFail(CThread_pool* pool) {
  if (pool->threadid != nullptr) free(pool->threadid);
  if (pool->thread_creatflag != nullptr) free(pool->thread_creatflag);
  free(pool);
  return -1;
}

// Unlinks the head task; queue_lock held, queue not empty.
PoolTask* TakeHead(CThread_pool* pool) {
  --pool->queue_size;
  PoolTask* task = pool->queue_head;
  pool->queue_head = task->next;
  return task;
}

inline void CpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield");
#endif
}

bool AllDone(CThread_pool* pool, int32_t expected) {
  pthread_mutex_lock(&pool->pro_lock);
  const bool done = pool->done_count == expected;
  pthread_mutex_unlock(&pool->pro_lock);
  return done;
}

// Marks up to `limit` sleeping workers as woken, skipping the one pinned to
// `skip_cpu`, and returns how many it put in `out`; queue_lock held. They are
// signalled after the unlock.
int TakeSleepers(CThread_pool* pool, int limit, int skip_cpu, ThreadArg** out) {
  int n = 0;
  for (int i = 0; i < pool->thread_num && n < limit; ++i) {
    ThreadArg* worker = &pool->thread_args[i];
    if (worker->idle == 0 || worker->index == skip_cpu) continue;
    worker->idle = 0;
    out[n++] = worker;
  }
  return n;
}

void WakeSleepers(CThread_pool* pool, int limit, int skip_cpu) {
  ThreadArg* woken[kMaxWorkers];
  pthread_mutex_lock(&pool->queue_lock);
  const int n = TakeSleepers(pool, limit, skip_cpu, woken);
  pthread_mutex_unlock(&pool->queue_lock);
  for (int i = 0; i < n; ++i) pthread_cond_signal(&woken[i]->wake);
}

void RunTask(PoolTask* task) {
  task->process(task->arg);
  free(task);
}

}  // namespace

int pool_init(CThread_pool** out, int32_t thread_num) {
  // Each worker's start argument lives in one of the record's fixed slots.
  if (thread_num > kMaxWorkers) {
    DOFRA_LOG(kLineTooManyWorkers, kInitName, "can't start %d workers, at most %d\n", thread_num,
              kMaxWorkers);
    return -1;
  }
  CThread_pool* pool = static_cast<CThread_pool*>(malloc(sizeof(CThread_pool)));
  if (pool == nullptr) {
    DOFRA_LOG(kLinePoolAlloc, kInitName, "can't alloc thread pool\n");
    return -1;
  }
  *out = pool;
  memset(pool, 0, sizeof(*pool));

  int err = pthread_mutex_init(&pool->queue_lock, nullptr);
  if (err != 0) {
    DOFRA_LOG(kLineQueueLock, kInitName, "can't init pool->queue_lock err:%d\n", err);
    return PoolInitFail(pool);
  }
  err = pthread_cond_init(&pool->queue_ready, nullptr);
  if (err != 0) {
    DOFRA_LOG(kLineQueueReady, kInitName, "can't init pool->queue_ready err:%d\n", err);
    return PoolInitFail(pool);
  }
  err = pthread_mutex_init(&pool->pro_lock, nullptr);
  if (err != 0) {
    DOFRA_LOG(kLineProLock, kInitName, "can't init pool->pro_lock err:%d\n", err);
    return PoolInitFail(pool);
  }
  err = pthread_cond_init(&pool->pro_ready, nullptr);
  if (err != 0) {
    DOFRA_LOG(kLineProReady, kInitName, "can't init pool->pro_ready err:%d\n", err);
    return PoolInitFail(pool);
  }

  pool->queue_head = nullptr;
  pool->thread_num = thread_num;
  pool->queue_size = 0;
  pool->shutdown = 0;

  pool->threadid = static_cast<pthread_t*>(malloc(sizeof(pthread_t) * thread_num));
  if (pool->threadid == nullptr) {
    DOFRA_LOG(kLineThreadIds, kInitName, "can't malloc threadid\n");
    return PoolInitFail(pool);
  }
  pool->thread_creatflag = static_cast<int32_t*>(malloc(sizeof(int32_t) * thread_num));
  if (pool->thread_creatflag == nullptr) {
    DOFRA_LOG(kLineCreateFlags, kInitName, "can't malloc thread_creatflag\n");
    return PoolInitFail(pool);
  }
  memset(pool->threadid, 0, sizeof(pthread_t) * thread_num);
  memset(pool->thread_creatflag, 0, sizeof(int32_t) * thread_num);

  int failures = 0;
  for (int i = 0; i < thread_num; ++i) {
    ThreadArg* slot = &pool->thread_args[i];
    slot->index = i;
    slot->pool = pool;
    err = pthread_cond_init(&slot->wake, nullptr);
    if (err == 0) {
      err = pthread_create(&pool->threadid[i], nullptr, thread_routine, slot);
      if (err != 0) pthread_cond_destroy(&slot->wake);
    }
    if (err != 0) {
      DOFRA_LOG(kLineCreateThread, kInitName, "can't create thread: %s\n", strerror(err));
      pool->thread_creatflag[i] = 0;
      ++failures;
    } else {
      pool->thread_creatflag[i] = 1;
    }
  }
  // A partial start is not reported: the pool serves with the workers it has.
  if (failures != thread_num) return 0;

  DOFRA_LOG(kLineNoThread, kInitName, "all LTM thread create failed.\n");
  return PoolInitFail(pool);
}

namespace dofra {

int pool_queue_task(CThread_pool* pool, PoolProcess process, void* arg) {
  PoolTask* task = static_cast<PoolTask*>(malloc(sizeof(PoolTask)));
  if (task == nullptr) {
    // Without a record the task cannot be queued; running it here keeps the
    // frame's completion count exact instead of losing the band.
    DOFRA_LOG(kLineTaskAlloc, kAddName, "can't alloc task, running it on the caller\n");
    process(arg);
    return 0;
  }
  task->process = process;
  task->arg = arg;
  task->next = nullptr;

  pthread_mutex_lock(&pool->queue_lock);
  PoolTask** link = &pool->queue_head;
  while (*link != nullptr) link = &(*link)->next;
  *link = task;
  ++pool->queue_size;
  pthread_mutex_unlock(&pool->queue_lock);
  return 0;
}

}  // namespace dofra

int pool_add_worker(void* pool_arg, PoolProcess process, void* arg) {
  CThread_pool* pool = static_cast<CThread_pool*>(pool_arg);
  dofra::pool_queue_task(pool, process, arg);
  WakeSleepers(pool, 1, kNoCpu);
  return 0;
}

namespace dofra {

void pool_run_queued(CThread_pool* pool, bool wake_workers) {
  // One wake-up per worker for the whole batch. The worker pinned to the
  // caller's CPU stays asleep: woken, it would preempt the caller (it runs at
  // a higher priority) and the frame would lose the switches.
  if (wake_workers) WakeSleepers(pool, kMaxWorkers, sched_getcpu());
  for (;;) {
    pthread_mutex_lock(&pool->queue_lock);
    // A stopping pool leaves its queue to pool_destroy, as the workers do.
    if (pool->queue_size == 0 || pool->shutdown) {
      pthread_mutex_unlock(&pool->queue_lock);
      return;
    }
    PoolTask* task = TakeHead(pool);
    pthread_mutex_unlock(&pool->queue_lock);
    RunTask(task);
  }
}

}  // namespace dofra

void* thread_routine(void* thread_arg) {
  ThreadArg* self = static_cast<ThreadArg*>(thread_arg);
  CThread_pool* pool = self->pool;
  PinToCpu(self->index);
  setpriority(PRIO_PROCESS, static_cast<id_t>(CurrentThreadId()), kWorkerPriority);

  for (;;) {
    pthread_mutex_lock(&pool->queue_lock);
    while (pool->queue_size == 0) {
      if (pool->shutdown) {
        pthread_mutex_unlock(&pool->queue_lock);
        pthread_exit(nullptr);
      }
      self->idle = 1;
      pthread_cond_wait(&self->wake, &pool->queue_lock);
      self->idle = 0;
    }
    // Shutdown abandons queued tasks; pool_destroy releases them.
    if (pool->shutdown) {
      pthread_mutex_unlock(&pool->queue_lock);
      pthread_exit(nullptr);
    }
    PoolTask* task = TakeHead(pool);
    pthread_mutex_unlock(&pool->queue_lock);
    RunTask(task);
  }
}

int pool_destroy(CThread_pool* pool) {
  if (pool->shutdown) return -1;

  pthread_mutex_lock(&pool->queue_lock);
  pool->shutdown = 1;
  pthread_mutex_unlock(&pool->queue_lock);
  for (int i = 0; i < pool->thread_num; ++i) {
    if (pool->thread_creatflag[i] == 1) pthread_cond_broadcast(&pool->thread_args[i].wake);
  }

  int result = 0;
  for (int i = 0; i < pool->thread_num; ++i) {
    if (pool->thread_creatflag[i] != 1) continue;
    const int err = pthread_join(pool->threadid[i], nullptr);
    if (err != 0) {
      DOFRA_LOG(kLineJoin, kDestroyName, "pthread_join fail: %s , i:%d , threadid:%d\n",
                strerror(err), i, static_cast<int>(pool->threadid[i]));
      result = -1;
    }
  }
  for (int i = 0; i < pool->thread_num; ++i) {
    if (pool->thread_creatflag[i] == 1) pthread_cond_destroy(&pool->thread_args[i].wake);
  }
  free(pool->threadid);
  free(pool->thread_creatflag);

  PoolTask* task = pool->queue_head;
  while (task != nullptr) {
    PoolTask* next = task->next;
    free(task);
    task = next;
  }

  pthread_mutex_destroy(&pool->queue_lock);
  pthread_cond_destroy(&pool->queue_ready);
  pthread_mutex_destroy(&pool->pro_lock);
  pthread_cond_destroy(&pool->pro_ready);
  free(pool);
  return result;
}

void reset_thread_done(CThread_pool* pool) {
  pthread_mutex_lock(&pool->pro_lock);
  pool->done_count = 0;
  pthread_mutex_unlock(&pool->pro_lock);
}

void one_thread_done(CThread_pool* pool) {
  pthread_mutex_lock(&pool->pro_lock);
  ++pool->done_count;
  pthread_mutex_unlock(&pool->pro_lock);
  pthread_cond_signal(&pool->pro_ready);
}

void sync_thread_done(CThread_pool* pool, int32_t expected) {
  const auto poll_end = std::chrono::steady_clock::now() + kDonePoll;
  while (std::chrono::steady_clock::now() < poll_end) {
    if (AllDone(pool, expected)) return;
    CpuRelax();
  }
  pthread_mutex_lock(&pool->pro_lock);
  // Equality, not a lower bound: exactly `expected` tasks follow each reset.
  while (pool->done_count != expected) pthread_cond_wait(&pool->pro_ready, &pool->pro_lock);
  pthread_mutex_unlock(&pool->pro_lock);
}
