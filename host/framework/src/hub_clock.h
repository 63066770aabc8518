#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace hyl::v2::host {

/// The machine's time, or a virtual one. Guarded by the hub mutex.
class HubClock {
 public:
  HubClock() { UseRealTime(); }

  void UseRealTime() {
    is_virtual_ = false;
    start_ = RealNow();
  }
  /// Starts at 0; only Advance moves it.
  void UseVirtual() {
    is_virtual_ = true;
    start_ = 0;
    virtual_now_ = 0;
  }
  bool IsVirtual() const { return is_virtual_; }

  /// Nanoseconds.
  int64_t Now() const { return is_virtual_ ? virtual_now_ : RealNow(); }
  /// Nanoseconds from the clock's start to `time`.
  int64_t Elapsed(int64_t time) const { return time - start_; }

  /// Moves the virtual clock. Negative steps count as zero; far too long ones are cut down.
  void Advance(std::chrono::nanoseconds step) {
    virtual_now_ += std::clamp<int64_t>(step.count(), 0, kEndOfTime - virtual_now_);
  }

  /// Waits for `wake`, no longer than until `time`; on the virtual clock, whose steps must be
  /// signalled, for `wake` alone.
  void WaitUntil(int64_t time, std::condition_variable& wake,
                 std::unique_lock<std::mutex>& hub_lock) const {
    if (is_virtual_) {
      wake.wait(hub_lock);
    } else {
      wake.wait_until(hub_lock, RealClock::time_point(std::chrono::nanoseconds(time)));
    }
  }

 private:
  using RealClock = std::chrono::steady_clock;

  /// Leaves room to add periods without overflow.
  static constexpr int64_t kEndOfTime = int64_t{1} << 60;

  static int64_t RealNow() {
    return std::chrono::nanoseconds(RealClock::now().time_since_epoch()).count();
  }

  bool is_virtual_ = false;
  int64_t start_ = 0;
  int64_t virtual_now_ = 0;
};

/// One moment at which a sensor measures.
struct Tick {
  int64_t time_ns;
  uint64_t index;  ///< counts from 0 at the start, skipped ones included
};

/// When something is due: once a period, first one period after its start.
class Schedule {
 public:
  /// At most `max_backlog` ticks that are late are made up for. `period` is in ns, above 0.
  Schedule(int64_t start, int64_t period, uint64_t max_backlog)
      : period_(period), max_backlog_(max_backlog), next_due_(start + period) {}

  int64_t NextDue() const { return next_due_; }
  /// Takes the tick at NextDue(), which must not be later than `now`. With `may_skip` leaves out
  /// those that are later than the backlog allows.
  Tick Take(int64_t now, bool may_skip) {
    const auto late = static_cast<uint64_t>((now - next_due_) / period_);
    const uint64_t skipped = may_skip && late > max_backlog_ ? late - max_backlog_ : 0;
    const Tick tick{.time_ns = next_due_ + static_cast<int64_t>(skipped) * period_,
                    .index = next_index_ + skipped};
    next_due_ = tick.time_ns + period_;
    next_index_ = tick.index + 1;
    return tick;
  }

  /// Continues with this period, counted from the last tick.
  void SetPeriod(int64_t period, int64_t now) {
    next_due_ = std::max(next_due_ - period_ + period, now);
    period_ = period;
  }
  /// Continues from `now` of another clock.
  void Restart(int64_t now) { next_due_ = now + period_; }

 private:
  int64_t period_;
  uint64_t max_backlog_;
  int64_t next_due_;
  uint64_t next_index_ = 0;
};

}  // namespace hyl::v2::host
