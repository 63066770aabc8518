// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <utility>
#include <variant>
#include <vector>

#include <hyl/api.h>
#include <hyl/rls_msg_access.h>

namespace hyl::v2::host {

#pragma GCC visibility push(default)

/// One call into the framework.
struct FrameworkCall {
  enum class Kind { kCreate, kGetSensorList, kInvoke, kDestroy };
  /// A copy of the request; empty for an unknown kind of record.
  using Record = std::variant<std::monostate, StopSamplingReq, StartOnChangeSamplingReq,
                              StartContinuousSamplingReq, RlsMsgAccessReq>;

  Kind kind;
  int api = 0;          ///< the Api's number, from 1 in order of creation; 0 for a failed Create
  uint32_t handle = 0;  ///< of the sensor
  uint32_t type = 0;    ///< of the request; for a Create, its ClientType
  Record request = {};
  const void* callbacks = nullptr;  ///< the callback object that came with the request
  HylErr result = HylErr::kOk;

  /// The request's fields if it is a `Req`; null otherwise.
  template <typename Req>
  const Req* As() const {
    return std::get_if<Req>(&request);
  }
  /// The client id of a start or stop request; 0 otherwise.
  uint32_t ClientId() const;
};

/// A complete sensor list: "Rear ALS" and "Front ALS", each in both types; "Flicker"; two sensors
/// that are not optical; and the marker.
std::vector<SensorListEntry> DefaultSensors();

/// A framework that a test controls. While it lives, it is behind Api::Create for the thread that
/// made it and, if it is the latest one, for all threads that have made none. Initially it has
/// DefaultSensors(), accepts every request and answers none. AnswerWith(Echo) makes it answer like
/// a sound framework. Its sensors deliver only what the test delivers.
///
/// It must outlive the clients' instances. All operations are safe on any thread and in the hook.
class ScriptedFramework {
 public:
  using Callbacks = std::shared_ptr<Service::AsyncCallbacks>;
  using Messages = std::vector<std::unique_ptr<Message>>;
  using Hook = std::function<void(const FrameworkCall&)>;
  /// Makes the messages that answer an accepted request, in order of delivery. Must not call the
  /// framework.
  using Answer = std::function<Messages(const FrameworkCall&)>;

  ScriptedFramework();
  /// Drops answers that are still held.
  ~ScriptedFramework();
  ScriptedFramework(const ScriptedFramework&) = delete;
  ScriptedFramework& operator=(const ScriptedFramework&) = delete;

  /// \name Script
  /// @{

  /// Instead of a number below: every call for which no number is planned.
  static constexpr int kEvery = 0;
  /// Makes the n-th Create from now on fail; 1 is the next one.
  void FailCreate(int n);
  /// Refuses the n-th request from now on with `result`.
  void RefuseInvoke(int n, HylErr result);
  /// Refuses every request for which `judge` returns a result other than kOk, with that result. It
  /// runs on the calling thread, without a lock of the framework held. An empty function ends this.
  void RefuseIf(std::function<HylErr(const FrameworkCall&)> judge);
  /// Connects each Api made from now on to the simulated hub, which receives its accepted requests.
  void UseSimulatedHub();
  void SetSensorList(std::vector<SensorListEntry> list);
  /// `list` makes the list for each query, given the query's number, from 1.
  void SetSensorList(std::function<std::vector<SensorListEntry>(int)> list);
  /// `hook` runs on the calling thread at the start of every framework call, without a lock of the
  /// framework held. It may block. It may call the library where the library's own locks permit it.
  void SetHook(Hook hook);
  /// Answers accepted requests from now on, on a thread of the framework. An empty function answers
  /// none.
  void AnswerWith(Answer answer);
  /// The answer of a sound framework: a status reply, or a setting's reply with the request's
  /// arguments.
  static Messages Echo(const FrameworkCall& call);
  /// Keeps answers back until ReleaseAnswers().
  void HoldAnswers();
  void ReleaseAnswers();
  /// Waits until all answers have been delivered. They must not be held.
  void AwaitAnswers();
  /// Stops or resumes the recording of calls, which accumulate until Take. Without recording and
  /// answers, a request of a known kind allocates no memory.
  void SetRecording(bool on);
  /// @}

  /// \name What happened
  /// @{

  /// All calls since the last Take, in order.
  std::vector<FrameworkCall> Take();
  /// The same, without the calls that are not requests.
  std::vector<FrameworkCall> TakeInvokes();
  /// Handle and client id of each request that has been started and not stopped.
  std::set<std::pair<uint32_t, uint32_t>> Running();
  /// The callback object of the latest accepted request to a sensor; null if there was none.
  Callbacks CallbacksOf(uint32_t handle);
  /// Releases all callback objects that the framework holds.
  void DropCallbacks();
  /// The number of Api objects that have not been deleted.
  int LiveApis();
  /// @}

  /// Delivers a message to the sensor's callback object on the calling thread, which must not be in
  /// a framework call. Throws std::logic_error if no request to the sensor has been accepted.
  void Deliver(uint32_t handle, const Message& message);

  /// A connection to the framework, as Api::Create returns it; null if FailCreate says so.
  std::unique_ptr<Api> Connect(ClientType type);

 private:
  class Connection;
  /// The planned results of one kind of call.
  class Results {
   public:
    HylErr Next();
    void Plan(int n, HylErr result);

   private:
    int count_ = 0;  // of calls so far
    std::map<int, HylErr> planned_;
    HylErr of_others_ = HylErr::kOk;
  };
  struct Held {
    Callbacks callbacks;
    std::unique_ptr<Message> message;
  };

  std::vector<SensorListEntry> GetSensorList(int api);
  HylErr NextResult(const FrameworkCall& call);
  void Accept(const FrameworkCall& call, const Callbacks& callbacks);
  void Destroyed(int api);
  /// Records the call and runs the hook.
  void Note(const FrameworkCall& call);
  void DeliverHeld();

  std::mutex mutex_;  // guards all members below; answer_thread_ is joined without it
  std::condition_variable changed_;
  bool recording_ = true;
  std::vector<FrameworkCall> calls_;
  std::map<uint32_t, Callbacks> callbacks_;
  std::vector<std::pair<uint32_t, uint32_t>> running_;
  Results creates_;
  Results invokes_;
  std::function<HylErr(const FrameworkCall&)> judge_;
  int list_queries_ = 0;
  int apis_ = 0;
  int live_apis_ = 0;
  std::function<std::vector<SensorListEntry>(int)> list_;
  bool use_hub_ = false;
  Hook hook_;
  Answer answer_;
  std::deque<Held> held_;
  bool answers_held_ = false;
  bool answering_ = false;
  bool ended_ = false;
  std::thread answer_thread_;
};

/// From now on, and in the whole process, `fails` decides whether a framework vector can grow: true
/// makes Resize fail and leaves the vector unchanged. An empty function ends this.
///
/// Safe on any thread. `fails` runs on the thread that resizes, without a lock held, and on several
/// threads at once if several resize.
void FailVectorGrowth(std::function<bool()> fails);

#pragma GCC visibility pop

}  // namespace hyl::v2::host
