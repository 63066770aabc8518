#include "reply_queue.h"

#include <algorithm>
#include <utility>

#include "hub_thread.h"
#include "noise.h"

namespace hyl::v2::host {
namespace {

constexpr size_t kMaxWaiting = 256;

}  // namespace

bool ReplyQueue::IsFull() const {
  return waiting_.size() >= kMaxWaiting;
}

void ReplyQueue::Push(Reply reply) {
  if (!started_) {
    StartHubThread([this] { Run(); });
    started_ = true;
  }
  reply.number = ++latest_;
  waiting_.emplace(DueTime(), std::move(reply));
  wake_.notify_one();
}

ReplyQueue::RealTime ReplyQueue::DueTime() const {
  RealTime due = std::chrono::steady_clock::now();
  if (faults_.max_delay.count() > 0) {
    const double part = NoiseSource(faults_.seed, 0, latest_).Uniform();
    due += std::chrono::duration_cast<std::chrono::nanoseconds>(part * faults_.max_delay);
  }
  if (!faults_.reorder && !waiting_.empty()) {
    due = std::max(due, waiting_.rbegin()->first);
  }
  return due;
}

void ReplyQueue::DropConnection(const Connection& connection, DroppedReplies& dropped) {
  for (auto it = waiting_.begin(); it != waiting_.end();) {
    if (it->second.connection.get() == &connection) {
      dropped.push_back(std::move(it->second));
      it = waiting_.erase(it);
    } else {
      ++it;
    }
  }
  core_.settled.notify_all();
}

void ReplyQueue::DropAll(DroppedReplies& dropped) {
  for (auto& [due, reply] : waiting_) {
    dropped.push_back(std::move(reply));
  }
  waiting_.clear();
  core_.settled.notify_all();
}

void ReplyQueue::SetFaults(const ReplyFaults& faults) {
  constexpr std::chrono::microseconds kLongestDelay = std::chrono::minutes(1);
  faults_ = faults;
  faults_.max_delay = std::clamp(faults.max_delay, std::chrono::microseconds(0), kLongestDelay);
}

bool ReplyQueue::IsDone(uint64_t number) const {
  if (in_delivery_ && *in_delivery_ <= number) {
    return false;
  }
  return std::none_of(waiting_.begin(), waiting_.end(),
                      [number](const auto& entry) { return entry.second.number <= number; });
}

void ReplyQueue::Run() {
  std::unique_lock lock(core_.mutex);
  for (;;) {
    if (waiting_.empty()) {
      wake_.wait(lock);
    } else if (const RealTime due = waiting_.begin()->first;
               due > std::chrono::steady_clock::now()) {
      wake_.wait_until(lock, due);
    } else {
      Serve(std::move(waiting_.extract(waiting_.begin()).mapped()), lock);
    }
  }
}

void ReplyQueue::Serve(Reply reply, std::unique_lock<std::mutex>& lock) {
  const std::shared_ptr<Connection> connection = reply.connection;
  in_delivery_ = reply.number;
  ++connection->deliveries;
  lock.unlock();
  reply.callbacks->OnResponse(reply.message.get());
  reply = Reply{};  // may hold the last reference to the client's callback object
  lock.lock();
  in_delivery_.reset();
  --connection->deliveries;
  core_.settled.notify_all();
}

}  // namespace hyl::v2::host
