#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include <hyl/host/simulated_hub.h>
#include <hyl/message.h>
#include <hyl/service.h>

#include "hub_core.h"

namespace hyl::v2::host {

/// A reply on its way to a client.
struct Reply {
  std::shared_ptr<Connection> connection;
  std::shared_ptr<Service::AsyncCallbacks> callbacks;
  std::unique_ptr<Message> message;
  uint64_t number = 0;  ///< in order of the requests; given by the queue
};

/// Replies taken out of the queue; to be let go without the hub mutex, as EndedSubscriptions.
using DroppedReplies = std::vector<Reply>;

/// The replies that wait, and the thread that delivers them. The caller of every operation holds
/// the hub mutex.
class ReplyQueue {
 public:
  explicit ReplyQueue(HubCore& core) : core_(core) {}

  bool IsFull() const;
  /// The queue must not be full. Starts the thread on first use.
  void Push(Reply reply);
  void DropConnection(const Connection& connection, DroppedReplies& dropped);
  void DropAll(DroppedReplies& dropped);

  void SetFaults(const ReplyFaults& faults);
  const ReplyFaults& Faults() const { return faults_; }

  /// The number of the latest reply, 0 before the first.
  uint64_t Latest() const { return latest_; }
  /// Whether the replies up to this number have been delivered or dropped.
  bool IsDone(uint64_t number) const;

 private:
  using RealTime = std::chrono::steady_clock::time_point;

  RealTime DueTime() const;
  void Run();
  void Serve(Reply reply, std::unique_lock<std::mutex>& lock);

  HubCore& core_;
  std::condition_variable wake_;
  std::multimap<RealTime, Reply> waiting_;  // by due time; equal ones in order of arrival
  std::optional<uint64_t> in_delivery_;     // its number
  ReplyFaults faults_;
  uint64_t latest_ = 0;
  bool started_ = false;
};

}  // namespace hyl::v2::host
