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
  /// A copy of the request; empty for a record of an unknown kind.
  using Record = std::variant<std::monostate, StopSamplingReq, StartOnChangeSamplingReq,
                              StartContinuousSamplingReq, RlsMsgAccessReq>;

  Kind kind;
  int api = 0;          ///< the Api concerned: 1 for the first that was made; 0 for a failed Create
  uint32_t handle = 0;  ///< of the sensor
  uint32_t type = 0;    ///< of the request; of a Create, its ClientType
  Record request = {};
  const void* callbacks = nullptr;  ///< the object that was passed
  HylErr result = HylErr::kOk;

  /// The request's fields if it is a `Req`; null otherwise.
  template <typename Req>
  const Req* As() const {
    return std::get_if<Req>(&request);
  }
  /// Of a start or stop request; 0 otherwise.
  uint32_t client_id() const;
};

/// The marker of a complete list; "Rear ALS" and "Front ALS", each in both types; "Flicker"; and
/// two sensors that are not optical.
std::vector<SensorListEntry> DefaultSensors();

/// A framework that does as it is told, behind Api::Create while it lives: for the thread that
/// makes it, and, while it is the latest, for threads that have made none. At first it has
/// DefaultSensors(), accepts every request and answers none; AnswerWith(Echo) makes it a sound one.
/// Sensors deliver what the test delivers.
///
/// Must outlive the clients' instances. All operations are safe on any thread, and inside its hook.
class ScriptedFramework {
 public:
  using Callbacks = std::shared_ptr<Service::AsyncCallbacks>;
  using Messages = std::vector<std::unique_ptr<Message>>;
  using Hook = std::function<void(const FrameworkCall&)>;
  /// Makes the messages that answer an accepted request, in the order of their delivery. Must not
  /// call the framework.
  using Answer = std::function<Messages(const FrameworkCall&)>;

  ScriptedFramework();
  /// Drops the answers that are still held.
  ~ScriptedFramework();
  ScriptedFramework(const ScriptedFramework&) = delete;
  ScriptedFramework& operator=(const ScriptedFramework&) = delete;

  /// \name Script
  /// @{

  /// In place of a number below: every call that no number names.
  static constexpr int kEvery = 0;
  /// Lets the n-th Create from now on (1 is the next one) fail.
  void FailCreate(int n);
  /// Refuses the n-th request from now on with `result`.
  void RefuseInvoke(int n, HylErr result);
  /// Refuses every request for which `judge` returns another result than kOk; empty ends this.
  void RefuseIf(std::function<HylErr(const FrameworkCall&)> judge);
  /// Gives Apis that are made from now on the simulated hub's sensors: accepted requests go there.
  void UseSimulatedHub();
  void SetSensorList(std::vector<SensorListEntry> list);
  /// `list` is asked with the number of the query, from 1 on.
  void SetSensorList(std::function<std::vector<SensorListEntry>(int)> list);
  /// Runs on the calling thread at the start of every framework call, without a lock held. May
  /// block, and may call into the library as far as the library's locks allow.
  void SetHook(Hook hook);
  /// From now on answers accepted requests, on a thread of the framework. An empty function answers
  /// none.
  void AnswerWith(Answer answer);
  /// One sound answer: a status reply, or the setting's reply with the request's arguments.
  static Messages Echo(const FrameworkCall& call);
  /// Holds up answers, and releases them again.
  void HoldAnswers();
  void ReleaseAnswers();
  /// Returns when all answers have been delivered. They must not be held.
  void AwaitAnswers();
  /// Stops recording calls, which otherwise pile up until Take, or resumes it. Without recording
  /// and answers, a request of a known kind takes no memory.
  void SetRecording(bool on);
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
  /// Api objects that have not been deleted.
  int live_apis();
  /// @}

  /// Delivers a message to the sensor's callback object on the calling thread, which must not be
  /// inside a framework call. Throws std::logic_error when no request to the sensor was accepted.
  void Deliver(uint32_t handle, const Message& message);

  /// A connection to the framework, as Api::Create makes it; empty where FailCreate says so.
  std::unique_ptr<Api> Connect(ClientType type);

 private:
  class Connection;
  /// The results that are planned for the calls of one kind.
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

  std::mutex mutex_;  // guards all below; answer_thread_ is joined without it
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

/// From now on asks `fails` whenever a framework vector is to become longer: true makes that Resize
/// fail and leaves the vector as it was. An empty function ends this. For the whole process.
///
/// Safe on any thread. `fails` runs on the threads that resize, several at once if they do, without
/// a lock held.
void FailVectorGrowth(std::function<bool()> fails);

#pragma GCC visibility pop

}  // namespace hyl::v2::host
