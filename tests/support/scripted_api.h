#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <hyl/api.h>

#include "messages.h"

namespace hyl::v2::test {

/// One call of the library into the framework.
struct FrameworkCall {
  enum class Kind { kCreate, kGetSensorList, kInvoke, kDestroy };

  Kind kind;
  int api = 0;  ///< the Api concerned: 1 for the first that was made; 0 for a failed Create
  uint32_t handle = 0;
  uint32_t type = 0;
  std::vector<uint8_t> bytes = {};  ///< of the request, after its table pointer
  const void* callbacks = nullptr;  ///< the object that was passed
  HylErr result = HylErr::kOk;

  /// Little-endian 32-bit field at `offset` of the request, counted from its table pointer.
  uint32_t U32(size_t offset) const;
  uint32_t client_id() const { return U32(12); }
};

std::ostream& operator<<(std::ostream& out, const FrameworkCall& call);

/// Handles of the sensors in DefaultSensors().
inline constexpr uint32_t kRearContinuous = 0x04F40000;
inline constexpr uint32_t kRearOnChange = 0x010C0000;
inline constexpr uint32_t kFrontContinuous = 0x04F40001;
inline constexpr uint32_t kFrontOnChange = 0x010C0001;
inline constexpr uint32_t kFlicker = 0x010D0000;
inline constexpr uint32_t kListMarker = 21U << 16;

SensorListEntry MakeEntry(uint32_t handle, const std::string& name);

/// The list's marker; "Rear ALS" and "Front ALS" (index 1), each in both types; "Flicker"; and two
/// sensors that are not optical.
std::vector<SensorListEntry> DefaultSensors();

/// A framework that does as it is told, behind Api::Create for as long as it lives: for the thread
/// that makes it, and, while it is the latest, for those that have made none. Must outlive the
/// instances. All operations are safe on any thread, and inside its own hook.
class ScriptedApi {
 public:
  using Callbacks = std::shared_ptr<Service::AsyncCallbacks>;
  using Hook = std::function<void(const FrameworkCall&)>;
  /// Makes the messages that answer an accepted request, in the order of their delivery.
  using Answer = std::function<std::vector<std::unique_ptr<Message>>(const FrameworkCall&)>;

  ScriptedApi();
  /// Drops the answers that are still held.
  ~ScriptedApi();
  ScriptedApi(const ScriptedApi&) = delete;
  ScriptedApi& operator=(const ScriptedApi&) = delete;

  /// \name Script
  /// @{

  /// Lets the n-th Create from now on (1 is the next one), or every one, fail.
  void FailCreate(int n);
  void FailAllCreates();
  /// Refuses the n-th request from now on with `result`.
  void RefuseInvoke(int n, HylErr result);
  void SetSensorList(std::vector<SensorListEntry> list);
  /// `list` is asked with the number of the query, from 1 on.
  void SetSensorList(std::function<std::vector<SensorListEntry>(int)> list);
  /// Runs on the calling thread at the start of every framework call, without a lock held. May
  /// block, and may call into the library as far as the library's locks allow.
  void SetHook(Hook hook);
  /// From now on answers accepted requests, on a thread of the framework's own. AnswerWith(Echo) is
  /// what a sound framework does.
  void AnswerWith(Answer answer);
  /// A status reply, or the setting's reply with the request's arguments.
  static std::vector<std::unique_ptr<Message>> Echo(const FrameworkCall& call);
  /// Holds up answers, and lets them go again.
  void HoldAnswers();
  void ReleaseAnswers();
  /// Returns when all answers have been delivered. They must not be held.
  void AwaitAnswers();
  /// @}

  /// \name What happened
  /// @{

  /// All calls since the last Take, in their order.
  std::vector<FrameworkCall> Take();
  /// Take, requests only.
  std::vector<FrameworkCall> TakeInvokes();
  /// (handle, client id) of the requests that have been started and not been stopped.
  std::set<std::pair<uint32_t, uint32_t>> Running();
  /// The callback object of the latest accepted request to a sensor; null when there was none.
  Callbacks CallbacksOf(uint32_t handle);
  /// Drops every copy of a callback object that the framework holds.
  void DropCallbacks();
  int live_apis();
  /// @}

  /// Delivers a message to the sensor's callback object on the calling thread.
  void Deliver(uint32_t handle, const Message& message);

 private:
  class Connection;
  struct Held {
    Callbacks callbacks;
    std::unique_ptr<Message> message;
  };

  static std::unique_ptr<Api> CreateForThisThread(ClientType type);
  std::unique_ptr<Api> Create();
  std::vector<SensorListEntry> GetSensorList(int api);
  HylErr Invoke(int api, uint32_t handle, uint32_t type, const Request& request,
                Callbacks callbacks);
  void Destroyed(int api);

  /// Runs the hook and records the call.
  void Record(const FrameworkCall& call);
  void NoteAccepted_locked(const FrameworkCall& call, Callbacks callbacks);
  void DeliverAnswers();

  std::mutex mutex_;  // guards all below; answer_thread_ is joined without it
  std::condition_variable changed_;
  std::vector<FrameworkCall> calls_;
  std::map<uint32_t, Callbacks> callbacks_;
  std::set<std::pair<uint32_t, uint32_t>> running_;
  int creates_ = 0;
  int invokes_ = 0;
  int list_queries_ = 0;
  int apis_ = 0;
  int live_apis_ = 0;
  std::set<int> failing_creates_;
  bool all_creates_fail_ = false;
  std::map<int, HylErr> refused_invokes_;
  std::function<std::vector<SensorListEntry>(int)> list_;
  Hook hook_;
  Answer answer_;
  std::deque<Held> answers_;
  bool answers_held_ = false;
  bool answering_ = false;
  bool ended_ = false;
  std::thread answer_thread_;
};

}  // namespace hyl::v2::test
