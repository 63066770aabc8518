// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

namespace hyl::v2::test {

/// Longest wait for another thread: a test that would hang fails instead.
inline constexpr std::chrono::seconds kPatience{20};

/// Closed at first; opened once. All waits are bounded.
class Gate {
 public:
  void Open() {
    const std::lock_guard lock(mutex_);
    open_ = true;
    opened_.notify_all();
  }

  /// False, and a failed test, when the gate stays closed for too long.
  bool Pass() {
    const bool passed = OpensWithin(kPatience);
    EXPECT_TRUE(passed) << "gate stayed closed";
    return passed;
  }

  /// Whether the gate is opened in time; to show that something does not happen.
  bool OpensWithin(std::chrono::milliseconds time) {
    std::unique_lock lock(mutex_);
    return opened_.wait_for(lock, time, [this] { return open_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable opened_;
  bool open_ = false;
};

/// Holds a thread at a chosen point: the held thread calls Arrive there, the test AwaitArrival and,
/// when it has done its own part, Release.
class HoldPoint {
 public:
  void Arrive() {
    arrived_.Open();
    released_.Pass();
  }
  bool AwaitArrival() { return arrived_.Pass(); }
  void Release() { released_.Open(); }

 private:
  Gate arrived_;
  Gate released_;
};

/// Runs `work` on a separate thread and ends the process when it does not return: a blocked
/// thread could not be joined.
inline void ReturnsInTime(const char* what, std::function<void()> work,
                          std::chrono::milliseconds limit = kPatience) {
  std::packaged_task<void()> task(std::move(work));
  auto done = task.get_future();
  std::thread thread(std::move(task));
  if (done.wait_for(limit) != std::future_status::ready) {
    std::fprintf(stderr, "%s did not return\n", what);
    std::abort();
  }
  thread.join();
}

}  // namespace hyl::v2::test
