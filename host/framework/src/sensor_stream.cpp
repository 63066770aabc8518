#include "sensor_stream.h"

#include <algorithm>
#include <utility>

#include "hub_thread.h"

namespace hyl::v2::host {
namespace {

/// Bounds what clients that never stop their requests can use up.
constexpr size_t kMaxSubscriptions = 64;

}  // namespace

HylErr SensorStream::Add(std::shared_ptr<Subscription> subscription) {
  if (subscriptions_.size() >= kMaxSubscriptions) {
    return HylErr::kFailed;
  }
  if (!started_) {
    StartHubThread([this] { Run(); });
    started_ = true;
  }
  subscriptions_.push_back(std::move(subscription));
  wake_.notify_one();
  return HylErr::kOk;
}

template <typename Predicate>
void SensorStream::EndIf(Predicate matches, EndedSubscriptions& ended) {
  const auto kept = std::stable_partition(
      subscriptions_.begin(), subscriptions_.end(),
      [&matches](const std::shared_ptr<Subscription>& candidate) { return !matches(*candidate); });
  for (auto it = kept; it != subscriptions_.end(); ++it) {
    (*it)->active = false;
    ended.push_back(std::move(*it));
  }
  subscriptions_.erase(kept, subscriptions_.end());
  core_.settled.notify_all();
}

void SensorStream::EndHandle(const Connection& connection, uint32_t handle,
                             EndedSubscriptions& ended) {
  EndIf(
      [&](const Subscription& s) {
        return s.connection.get() == &connection && s.handle == handle;
      },
      ended);
}

HylErr SensorStream::EndRequest(const Connection& connection, uint32_t handle, uint32_t client_id,
                                EndedSubscriptions& ended) {
  const size_t before = subscriptions_.size();
  EndIf(
      [&](const Subscription& s) {
        return s.connection.get() == &connection && s.handle == handle && s.client_id == client_id;
      },
      ended);
  return subscriptions_.size() < before ? HylErr::kOk : HylErr::kNotFound;
}

void SensorStream::EndConnection(const Connection& connection, EndedSubscriptions& ended) {
  EndIf([&](const Subscription& s) { return s.connection.get() == &connection; }, ended);
}

void SensorStream::EndAll(EndedSubscriptions& ended) {
  EndIf([](const Subscription&) { return true; }, ended);
}

void SensorStream::SetPeriod(int64_t period) {
  for (const auto& subscription : subscriptions_) {
    subscription->schedule.SetPeriod(period, core_.clock.Now());
  }
  wake_.notify_one();
}

void SensorStream::RestartSchedules() {
  for (const auto& subscription : subscriptions_) {
    subscription->schedule.Restart(core_.clock.Now());
  }
  wake_.notify_one();
}

bool SensorStream::IsQuiet() const {
  const auto earliest = Earliest();
  return !delivering_ && (!earliest || earliest->schedule.NextDue() > core_.clock.Now());
}

void SensorStream::AppendRunning(std::vector<RunningRequest>& running) const {
  for (const auto& subscription : subscriptions_) {
    running.push_back({subscription->handle, subscription->client_id});
  }
}

std::shared_ptr<Subscription> SensorStream::Earliest() const {
  const auto earliest = std::min_element(
      subscriptions_.begin(), subscriptions_.end(), [](const auto& left, const auto& right) {
        return left->schedule.NextDue() < right->schedule.NextDue();
      });
  return earliest != subscriptions_.end() ? *earliest : nullptr;
}

void SensorStream::Run() {
  std::unique_lock lock(core_.mutex);
  for (;;) {
    std::shared_ptr<Subscription> earliest = Earliest();
    if (!earliest) {
      wake_.wait(lock);
    } else if (const int64_t due = earliest->schedule.NextDue(); due > core_.clock.Now()) {
      earliest.reset();
      core_.clock.WaitUntil(due, wake_, lock);
    } else {
      Serve(std::move(earliest), lock);
    }
  }
}

void SensorStream::Serve(std::shared_ptr<Subscription> due, std::unique_lock<std::mutex>& lock) {
  const Tick tick = due->schedule.Take(core_.clock.Now(), !core_.clock.IsVirtual());
  const Measurement measurement{tick, core_.clock.Elapsed(tick.time_ns), core_.conditions};
  const std::shared_ptr<Connection> connection = due->connection;
  ++connection->deliveries;
  delivering_ = true;
  lock.unlock();
  due->source->OnTick(measurement, [&](const Message& message) { DeliverMessage(*due, message); });
  due.reset();  // may be the last reference to the client's callback object
  lock.lock();
  delivering_ = false;
  --connection->deliveries;
  core_.settled.notify_all();
}

void SensorStream::DeliverMessage(const Subscription& subscription, const Message& message) {
  {
    const std::lock_guard lock(core_.mutex);
    if (!subscription.active) {
      return;
    }
  }
  subscription.callbacks->OnResponse(&message);
}

}  // namespace hyl::v2::host
