#pragma once

#include <ctime>

#include "comparison.h"

namespace hyl::v2::bench {

inline double NowNs(Clock clock) {
  timespec now{};
  clock_gettime(clock == Clock::kWall ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID, &now);
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
