#pragma once

#include <ctime>

#include "comparison.h"

namespace hyl::v2::bench {

inline clockid_t SystemClock(Clock clock) {
  switch (clock) {
    case Clock::kThreadCpu:
      return CLOCK_THREAD_CPUTIME_ID;
    case Clock::kProcessCpu:
      return CLOCK_PROCESS_CPUTIME_ID;
    default:
      return CLOCK_MONOTONIC;
  }
}

inline double NowNs(Clock clock) {
  timespec now{};
  clock_gettime(SystemClock(clock), &now);
  return 1e9 * static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec);
}

/// Undoes what an earlier routine with wide registers may have left behind: on some processors it
/// makes the instructions of narrower ones several times slower.
inline void ClearUpperHalves() {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx")) {
    asm volatile("vzeroupper" ::: "memory");
  }
#endif
}

}  // namespace hyl::v2::bench
