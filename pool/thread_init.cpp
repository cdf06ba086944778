#include <cstdlib>

#include "api/log.h"
#include "dofra_depth.h"
#include "pool/band_task.h"
#include "pool/thread_pool.h"

namespace {

// Fixed lines of the log, with the names they log under.
constexpr const char* kInitName = "thread_init";
constexpr int kLineBandAlloc = 15;
constexpr int kLinePoolInit = 21;

constexpr int32_t kBandCount = 2;
// Both workers are started whatever band_count says; the buffers are sized
// for exactly two bands.
constexpr int32_t kPoolWorkers = 2;
}  // namespace

int thread_init(DofraHandle* handle) {
  handle->buffer_total = 0;
  handle->band_count = kBandCount;
  handle->pThreadArg = static_cast<BandTask*>(malloc(sizeof(BandTask) * 2 * handle->band_count));
  if (handle->pThreadArg == nullptr) {
    DOFRA_LOG(kLineBandAlloc, kInitName, "pThreadArg malloc error\n");
    return 1;
  }
  if (pool_init(&handle->pool, kPoolWorkers) != 0) {
    // pool_init leaves the released record's address behind; drop it so the
    // teardown that follows does not touch it.
    handle->pool = nullptr;
    DOFRA_LOG(kLinePoolInit, kInitName, "pool_init error\n");
    return 1;
  }
  return 0;
}

int thread_deinit(DofraHandle* handle) {
  if (handle->pool != nullptr) pool_destroy(handle->pool);
  if (handle->pThreadArg != nullptr) {
    free(handle->pThreadArg);
    handle->pThreadArg = nullptr;
  }
  return 0;
}
