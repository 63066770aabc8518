#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include <hyl/message.h>
#include <hyl/service.h>

#include "hub_clock.h"
#include "settings.h"

namespace hyl::v2::host {

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
  /// The jobs must not be full. Starts the thread on first use.
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
