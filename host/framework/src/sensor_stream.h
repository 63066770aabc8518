#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include <hyl/host/simulated_hub.h>
#include <hyl/hyl_err.h>
#include <hyl/service.h>

#include "hub_core.h"
#include "schedule.h"
#include "sensor_source.h"

namespace hyl::v2::host {

/// A request that has a sensor running. Guarded by the hub mutex, but for what never changes and
/// the source, which only the stream's thread uses.
struct Subscription {
  const std::shared_ptr<Connection> connection;
  const uint32_t handle;
  const uint32_t client_id;
  const std::shared_ptr<Service::AsyncCallbacks> callbacks;
  const std::unique_ptr<SensorSource> source;
  Schedule schedule;
  bool active = true;
};

/// Requests that have been taken out of the tables. They hold the clients' callback objects, so
/// they must be let go without the hub mutex: declare one before the lock.
using EndedSubscriptions = std::vector<std::shared_ptr<Subscription>>;

/// One sensor: its running requests, and the thread that measures for them and delivers. The
/// caller of every operation holds the hub mutex.
class SensorStream {
 public:
  explicit SensorStream(HubCore& core) : core_(core) {}

  /// kFailed when too many requests run already. Starts the thread on first use.
  HylErr Add(std::shared_ptr<Subscription> subscription);
  /// Ends what `connection` has running under `handle`.
  void EndHandle(const Connection& connection, uint32_t handle, EndedSubscriptions& ended);
  /// Ends one request; kNotFound when it does not run.
  HylErr EndRequest(const Connection& connection, uint32_t handle, uint32_t client_id,
                    EndedSubscriptions& ended);
  void EndConnection(const Connection& connection, EndedSubscriptions& ended);
  void EndAll(EndedSubscriptions& ended);

  /// Gives all running requests this period, in nanoseconds.
  void SetPeriod(int64_t period);
  /// To be called when the clock has been changed for another.
  void RestartSchedules();
  /// To be called when the virtual clock has moved.
  void Wake() { wake_.notify_one(); }
  /// Whether nothing is being delivered and nothing is due.
  bool IsQuiet() const;

  void AppendRunning(std::vector<RunningRequest>& running) const;

 private:
  void Run();
  std::shared_ptr<Subscription> Earliest() const;
  void Serve(std::shared_ptr<Subscription> due, std::unique_lock<std::mutex>& lock);
  void DeliverMessage(const Subscription& subscription, const Message& message);
  template <typename Predicate>
  void EndIf(Predicate matches, EndedSubscriptions& ended);

  HubCore& core_;
  std::condition_variable wake_;
  std::vector<std::shared_ptr<Subscription>> subscriptions_;
  bool started_ = false;
  bool delivering_ = false;
};

}  // namespace hyl::v2::host
