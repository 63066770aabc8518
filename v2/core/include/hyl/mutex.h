#pragma once

#include <pthread.h>

namespace hyl::v2 {

#pragma GCC visibility push(default)

/// The framework's mutex. Meets the standard's Lockable requirements; not recursive.
class
#if defined(__clang__)
    __attribute__((capability("mutex")))
#endif
    Mutex {
 public:
  Mutex();
  ~Mutex();
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  /// Blocks until the calling thread owns the mutex.
  void lock()
#if defined(__clang__)
      __attribute__((acquire_capability()))
#endif
      ;
  /// Gives the mutex up; the calling thread must own it.
  void unlock()
#if defined(__clang__)
      __attribute__((release_capability()))
#endif
      ;
  /// Takes the mutex if it is free; never blocks.
  bool try_lock()
#if defined(__clang__)
      __attribute__((try_acquire_capability(true)))
#endif
      ;

 private:
  pthread_mutex_t native_;
};

#pragma GCC visibility pop

}  // namespace hyl::v2
