#include "fault/fault_injection.h"

#include <pthread.h>

#include <atomic>
#include <cstddef>

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*start)(void*),
                          void* arg);
}

namespace {
std::atomic<int> g_alloc_countdown{0};
std::atomic<int> g_alloc_seen{0};
std::atomic<int> g_thread_countdown{0};
std::atomic<int> g_thread_error{0};

// True when this call is the armed one.
bool Trips(std::atomic<int>& countdown) {
  int left = countdown.load();
  while (left > 0) {
    if (countdown.compare_exchange_weak(left, left - 1)) return left == 1;
  }
  return false;
}
}  // namespace

extern "C" {
void* __wrap_malloc(size_t size) {
  g_alloc_seen++;
  return Trips(g_alloc_countdown) ? nullptr : __real_malloc(size);
}

void* __wrap_calloc(size_t count, size_t size) {
  g_alloc_seen++;
  return Trips(g_alloc_countdown) ? nullptr : __real_calloc(count, size);
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*start)(void*),
                          void* arg) {
  if (Trips(g_thread_countdown)) return g_thread_error.load();
  return __real_pthread_create(thread, attr, start, arg);
}
}

namespace fault {

void FailAllocation(int nth) {
  g_alloc_seen = 0;
  g_alloc_countdown = nth;
}

void FailThreadCreate(int nth, int error) {
  g_thread_error = error;
  g_thread_countdown = nth;
}

void Reset() {
  g_alloc_countdown = 0;
  g_thread_countdown = 0;
  g_alloc_seen = 0;
}

int AllocationCount() { return g_alloc_seen.load(); }

}  // namespace fault
