// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include <hyl/api.h>
#include <hyl/message.h>

#include "settings.h"

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

  /// Moves the virtual clock. A negative step counts as zero. A step that is too long is cut.
  void Advance(std::chrono::nanoseconds step) {
    virtual_now_ += std::clamp<int64_t>(step.count(), 0, kEndOfTime - virtual_now_);
  }

  /// Waits for `wake`, at most until `time`. On the virtual clock it waits for `wake` alone, which
  /// Advance's caller must notify.
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

/// A moment at which a sensor measures.
struct Tick {
  int64_t time_ns;
  uint64_t index;  ///< from 0 at the start; skipped ticks count
};

/// When a job is due: once a period, first one period after its start.
class Schedule {
 public:
  /// `period` is in nanoseconds, above 0. At most `max_backlog` late ticks are kept.
  Schedule(int64_t start, int64_t period, uint64_t max_backlog)
      : period_(period), max_backlog_(max_backlog), next_due_(start + period) {}

  int64_t NextDue() const { return next_due_; }
  /// Takes the tick at NextDue(), which must not be after `now`. With `may_skip`, first drops the
  /// oldest late ticks that exceed the backlog.
  Tick Take(int64_t now, bool may_skip) {
    const auto late = static_cast<uint64_t>((now - next_due_) / period_);
    const uint64_t skipped = may_skip && late > max_backlog_ ? late - max_backlog_ : 0;
    const Tick tick{.time_ns = next_due_ + static_cast<int64_t>(skipped) * period_,
                    .index = next_index_ + skipped};
    next_due_ = tick.time_ns + period_;
    next_index_ = tick.index + 1;
    return tick;
  }

  /// Changes the period, counted from the last tick.
  void SetPeriod(int64_t period, int64_t now) {
    next_due_ = std::max(next_due_ - period_ + period, now);
    period_ = period;
  }
  /// Continues from `now` on another clock.
  void Restart(int64_t now) { next_due_ = now + period_; }

 private:
  int64_t period_;
  uint64_t max_backlog_;
  int64_t next_due_;
  uint64_t next_index_ = 0;
};

/// What the hub's threads share. `mutex`, "the hub mutex", guards all of it, and all state of the
/// hub that does not say otherwise. It is never held while a client is called, or while a client's
/// object may be destroyed.
struct HubCore {
  std::mutex mutex;
  std::condition_variable settled;  ///< notified after each delivery and when jobs end
  HubClock clock;
  Conditions conditions;
};

/// One Api's connection to the hub.
struct Connection {
  bool open = true;         ///< false once the Api is being deleted; then nothing is delivered
  uint32_t deliveries = 0;  ///< deliveries in progress, on any hub thread
};

/// Everything that a measurement at one tick depends on.
struct Measurement {
  Tick tick;
  int64_t elapsed_ns;  ///< from the start of the hub's clock to the tick
  Conditions conditions;
};

/// Passes a message to the client, unless its job has ended. Blocks until the client returns.
using Deliver = std::function<void(const Message&)>;
/// Makes the messages of a job that is due. Called on one thread at a time, without the hub mutex.
using MakeMessages = std::function<void(const Measurement&, const Deliver&)>;

/// The messages of a running request, or one reply. The hub mutex guards what is not const.
struct Job {
  const std::shared_ptr<Connection> connection;
  const std::shared_ptr<Service::AsyncCallbacks> callbacks;
  const MakeMessages make_messages;
  Schedule schedule;
  const bool once = false;
  const uint32_t handle = 0;     ///< of a running request
  const uint32_t client_id = 0;  ///< of a running request
  bool active = true;
  uint64_t number = 0;  ///< from 1, in order of Add
};

/// Jobs that have ended. They hold clients' callback objects, so they must be freed without the hub
/// mutex: declare the vector before the lock.
using EndedJobs = std::vector<std::shared_ptr<Job>>;

/// One of the hub's threads, with its jobs. All operations require the hub mutex.
class DeliveryThread {
 public:
  /// `clock` is the clock of the jobs' schedules. There may be `max_jobs` jobs.
  DeliveryThread(HubCore& core, const HubClock& clock, size_t max_jobs)
      : core_(core), clock_(clock), max_jobs_(max_jobs) {}

  /// Whether the calling thread is one of the hub's, that is, inside a callback.
  static bool IsCurrent();

  bool IsFull() const { return jobs_.size() >= max_jobs_; }
  /// There must be room for the job. Starts the thread on first use.
  void Add(Job job);
  /// Ends the jobs that match, and returns their number.
  size_t End(const std::function<bool(const Job&)>& matches, EndedJobs& ended);
  const std::vector<std::shared_ptr<Job>>& Jobs() const { return jobs_; }

  /// Gives all jobs this period, in nanoseconds.
  void SetPeriod(int64_t period);
  /// Call this when the clock has been replaced.
  void RestartSchedules();
  /// Call this when the virtual clock has moved.
  void Wake() { wake_.notify_one(); }

  /// Whether nothing is being delivered and nothing is due.
  bool IsQuiet() const;
  /// The number of the latest job; 0 before the first.
  uint64_t Latest() const { return latest_; }
  /// Whether the jobs up to this number have ended.
  bool IsDone(uint64_t number) const;

 private:
  void Run();
  std::shared_ptr<Job> Earliest() const;
  void Serve(std::shared_ptr<Job> due, std::unique_lock<std::mutex>& lock);
  void DeliverMessage(const Job& job, const Message& message);

  HubCore& core_;
  const HubClock& clock_;
  const size_t max_jobs_;
  std::condition_variable wake_;
  std::vector<std::shared_ptr<Job>> jobs_;
  bool started_ = false;
  uint64_t latest_ = 0;
  uint64_t in_delivery_ = 0;  // the number of the job that is being delivered; 0 for none
};

}  // namespace hyl::v2::host
