#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace hyl::v2::host {

/// The hub's time: the machine's, or a virtual one. Guarded by the hub mutex.
class HubClock {
 public:
  HubClock() { UseRealTime(); }

  void UseRealTime();
  /// Stands still at 0 but for Advance.
  void UseVirtual();
  bool IsVirtual() const { return is_virtual_; }

  /// Nanoseconds.
  int64_t Now() const;
  /// Nanoseconds from the clock's start to `time`.
  int64_t Elapsed(int64_t time) const { return time - start_; }

  /// Moves the virtual clock on. Negative steps count as zero; far too long ones are cut down.
  void Advance(std::chrono::nanoseconds step);

  /// Waits for `wake`, no longer than until `time`; on the virtual clock, whose steps must be
  /// signalled, for `wake` alone.
  void WaitUntil(int64_t time, std::condition_variable& wake,
                 std::unique_lock<std::mutex>& hub_lock) const;

 private:
  bool is_virtual_ = false;
  int64_t start_ = 0;
  int64_t virtual_now_ = 0;
};

}  // namespace hyl::v2::host
