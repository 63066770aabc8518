// SPDX-License-Identifier: Apache-2.0
#include "delivery.h"

#include <algorithm>
#include <thread>
#include <utility>

namespace hyl::v2::host {
namespace {

thread_local bool t_is_hub_thread = false;

}  // namespace

bool DeliveryThread::IsCurrent() {
  return t_is_hub_thread;
}

void DeliveryThread::Add(Job job) {
  if (!started_) {
    std::thread([this] { Run(); }).detach();
    started_ = true;
  }
  jobs_.push_back(std::make_shared<Job>(std::move(job)));
  jobs_.back()->number = ++latest_;
  wake_.notify_one();
}

size_t DeliveryThread::End(const std::function<bool(const Job&)>& matches, EndedJobs& ended) {
  ended.reserve(ended.size() + jobs_.size());  // if this throws, nothing has changed
  const size_t count = std::erase_if(jobs_, [&](const std::shared_ptr<Job>& job) {
    const bool matching = matches(*job);
    if (matching) {
      job->active = false;
      ended.push_back(job);
    }
    return matching;
  });
  core_.settled.notify_all();
  return count;
}

void DeliveryThread::SetPeriod(int64_t period) {
  for (const auto& job : jobs_) {
    job->schedule.SetPeriod(period, clock_.Now());
  }
  wake_.notify_one();
}

void DeliveryThread::RestartSchedules() {
  for (const auto& job : jobs_) {
    job->schedule.Restart(clock_.Now());
  }
  wake_.notify_one();
}

bool DeliveryThread::IsQuiet() const {
  const auto earliest = Earliest();
  return in_delivery_ == 0 && (!earliest || earliest->schedule.NextDue() > clock_.Now());
}

bool DeliveryThread::IsDone(uint64_t number) const {
  const bool delivering = in_delivery_ != 0 && in_delivery_ <= number;
  return !delivering && std::none_of(jobs_.begin(), jobs_.end(),
                                     [number](const auto& job) { return job->number <= number; });
}

/// The job that is due first. If several are due at the same time, the one that was added first.
std::shared_ptr<Job> DeliveryThread::Earliest() const {
  const auto earliest =
      std::min_element(jobs_.begin(), jobs_.end(), [](const auto& left, const auto& right) {
        return left->schedule.NextDue() < right->schedule.NextDue();
      });
  return earliest != jobs_.end() ? *earliest : nullptr;
}

void DeliveryThread::Run() {
  t_is_hub_thread = true;
  std::unique_lock lock(core_.mutex);
  for (;;) {
    std::shared_ptr<Job> earliest = Earliest();
    if (!earliest) {
      wake_.wait(lock);
    } else if (const int64_t due = earliest->schedule.NextDue(); due > clock_.Now()) {
      earliest.reset();
      clock_.WaitUntil(due, wake_, lock);
    } else {
      Serve(std::move(earliest), lock);
    }
  }
}

void DeliveryThread::Serve(std::shared_ptr<Job> due, std::unique_lock<std::mutex>& lock) {
  const Tick tick = due->schedule.Take(clock_.Now(), !clock_.IsVirtual());
  const Measurement measurement{tick, clock_.Elapsed(tick.time_ns), core_.conditions};
  const std::shared_ptr<Connection> connection = due->connection;
  ++connection->deliveries;
  in_delivery_ = due->number;
  if (due->once) {
    std::erase(jobs_, due);
  }
  lock.unlock();
  due->make_messages(measurement, [&](const Message& message) { DeliverMessage(*due, message); });
  due.reset();  // may be the last reference to the client's callback object
  lock.lock();
  in_delivery_ = 0;
  --connection->deliveries;
  core_.settled.notify_all();
}

void DeliveryThread::DeliverMessage(const Job& job, const Message& message) {
  {
    const std::lock_guard lock(core_.mutex);
    if (!job.active) {
      return;
    }
  }
  job.callbacks->OnResponse(&message);
}

}  // namespace hyl::v2::host
