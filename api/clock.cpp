#include "api/clock.h"

#include <cstdint>
#include <ctime>

double getTime() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  // Whole nanoseconds first, as the timing logs have always been computed.
  const double ns = static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
  return static_cast<double>(static_cast<int64_t>(ns)) / 1e9;
}
