// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pthread.h>

#if defined(__clang__)  // for its thread-safety analysis
#define HYL_MUTEX_ATTRIBUTE(x) __attribute__((x))
#else
#define HYL_MUTEX_ATTRIBUTE(x)
#endif

namespace hyl::v2 {

/// The framework's mutex. Meets the standard's Lockable requirements; not recursive.
class __attribute__((visibility("default"))) HYL_MUTEX_ATTRIBUTE(capability("mutex")) Mutex {
 public:
  Mutex();
  ~Mutex();
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  /// Blocks until the calling thread owns the mutex.
  void lock() HYL_MUTEX_ATTRIBUTE(acquire_capability());
  /// Gives the mutex up; the calling thread must own it.
  void unlock() HYL_MUTEX_ATTRIBUTE(release_capability());
  /// Takes the mutex if it is free; never blocks.
  bool try_lock() HYL_MUTEX_ATTRIBUTE(try_acquire_capability(true));

 private:
  pthread_mutex_t native_;
};

}  // namespace hyl::v2

#undef HYL_MUTEX_ATTRIBUTE
