// The monotonic clock in nanoseconds: deadlines, back-offs and the ages that
// the dump reports. Any thread, the real-time ones included (no system call
// beyond the vDSO's clock_gettime, no lock).
#pragma once

#include <time.h>

#include <cstdint>

namespace lumx {

inline int64_t MonotonicNowNs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

}  // namespace lumx
