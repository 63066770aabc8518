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

/// What the hub's threads share. All of it, and all state of the hub that does not say otherwise,
/// is guarded by `mutex`, "the hub mutex"; it is never held while a client is called or a client's
/// object may be destroyed.
struct HubCore {
  std::mutex mutex;
  std::condition_variable settled;  ///< signalled after each delivery and when jobs end
  HubClock clock;
  Conditions conditions;
};

/// One Api's connection to the hub.
struct Connection {
  bool open = true;         ///< false once the Api is being deleted: nothing more is delivered
  uint32_t deliveries = 0;  ///< deliveries in progress, on any hub thread
};

/// Everything that a measurement at one tick depends on.
struct Measurement {
  Tick tick;
  int64_t elapsed_ns;  ///< from the start of the hub's clock to the tick
  Conditions conditions;
};

/// Hands a message to the client, unless its job has ended. Blocks for as long as the client takes.
using Deliver = std::function<void(const Message&)>;
/// Makes the messages of a job when it is due. Called by one thread at a time, without the hub
/// mutex.
using MakeMessages = std::function<void(const Measurement&, const Deliver&)>;

/// Messages for a client: those of a running request, or one reply. Guarded by the hub mutex, but
/// for what never changes.
struct Job {
  const std::shared_ptr<Connection> connection;
  const std::shared_ptr<Service::AsyncCallbacks> callbacks;
  const MakeMessages make_messages;
  Schedule schedule;
  const bool once = false;
  const uint32_t handle = 0;     ///< of a running request
  const uint32_t client_id = 0;  ///< of a running request
  bool active = true;
  uint64_t number = 0;  ///< in order of Add, from 1
};

/// Jobs that have ended. They hold clients' callback objects, so they must be freed without the hub
/// mutex: declare one before the lock.
using EndedJobs = std::vector<std::shared_ptr<Job>>;

/// One of the hub's threads, with its jobs. The caller of every operation holds the hub mutex.
class DeliveryThread {
 public:
  /// `clock` is what the jobs' schedules go by; there may be `max_jobs` of them.
  DeliveryThread(HubCore& core, const HubClock& clock, size_t max_jobs)
      : core_(core), clock_(clock), max_jobs_(max_jobs) {}

  /// Whether the calling thread is one of the hub's, which means: inside a callback.
  static bool IsCurrent();

  bool IsFull() const { return jobs_.size() >= max_jobs_; }
  /// There must be room for the job. Starts the thread on first use.
  void Add(Job job);
  /// Ends the jobs that match, and returns how many they were.
  size_t End(const std::function<bool(const Job&)>& matches, EndedJobs& ended);
  const std::vector<std::shared_ptr<Job>>& Jobs() const { return jobs_; }

  /// Gives all jobs this period, in nanoseconds.
  void SetPeriod(int64_t period);
  /// To be called when the clock has been changed for another.
  void RestartSchedules();
  /// To be called when the virtual clock has moved.
  void Wake() { wake_.notify_one(); }

  /// Whether nothing is being delivered and nothing is due.
  bool IsQuiet() const;
  /// The number of the latest job, 0 before the first.
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
  uint64_t in_delivery_ = 0;  // the number of the job; 0 for none
};

}  // namespace hyl::v2::host
