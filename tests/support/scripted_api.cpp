#include "scripted_api.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <gtest/gtest.h>
#include <hyl/host/api_factory.h>
#include <hyl/request.h>
#include <hyl/rls_msg_access.h>

#include "gate.h"

namespace hyl::v2::test {
namespace {

std::mutex live_mutex;           // guards `live` and the framework's factory
std::vector<ScriptedApi*> live;  // the latest last
thread_local ScriptedApi* t_own = nullptr;

size_t SizeOf(uint32_t request_type) {
  switch (static_cast<RequestType>(request_type)) {
    case RequestType::kStartOnChangeSampling:
      return sizeof(StartOnChangeSamplingReq);
    case RequestType::kStartContinuousSampling:
      return sizeof(StartContinuousSamplingReq);
    case RequestType::kStopSampling:
      return sizeof(StopSamplingReq);
    case RequestType::kRlsMsgAccess:
      return sizeof(RlsMsgAccessReq);
  }
  ADD_FAILURE() << "request of unknown type " << request_type;
  return sizeof(Request);
}

std::vector<uint8_t> BytesOf(const Request& request, uint32_t type) {
  const auto* const bytes = reinterpret_cast<const uint8_t*>(&request);
  return {bytes + sizeof(Request), bytes + SizeOf(type)};
}

/// The reply's arguments stand where the request's do.
std::unique_ptr<Message> EchoSettings(const FrameworkCall& call) {
  const auto byte = [&](size_t offset) { return call.bytes.at(offset - sizeof(Request)); };
  auto reply = std::make_unique<SettingsReply>(static_cast<RlsAccess>(byte(9)),
                                               static_cast<RlsCommand>(byte(10)));
  reply->param_a = byte(20);
  const uint32_t gain_bits = call.U32(24);
  std::memcpy(&reply->gain, &gain_bits, sizeof(gain_bits));
  reply->value8 = byte(29);
  reply->value32 = call.U32(36);
  reply->reg_addr = byte(40);
  reply->cal_enabled = byte(56);
  reply->torch_on = byte(57);
  reply->spectral_auto_gain = byte(58);
  reply->flicker_auto_gain = byte(59);
  reply->param_b = byte(60);
  return reply;
}

}  // namespace

uint32_t FrameworkCall::U32(size_t offset) const {
  uint32_t value = 0;
  for (size_t i = 4; i-- > 0;) {
    value = value << 8 | bytes.at(offset - sizeof(Request) + i);
  }
  return value;
}

std::ostream& operator<<(std::ostream& out, const FrameworkCall& call) {
  constexpr const char* kNames[] = {"Create", "GetSensorList", "Invoke", "Destroy"};
  out << kNames[static_cast<int>(call.kind)] << " by api " << call.api;
  if (call.kind == FrameworkCall::Kind::kInvoke) {
    out << std::hex << " handle 0x" << call.handle << std::dec << " type " << call.type;
  }
  return out << " -> " << int{static_cast<uint8_t>(call.result)};
}

SensorListEntry MakeEntry(uint32_t handle, const std::string& name) {
  SensorListEntry entry{};
  entry.handle = handle;
  std::memcpy(entry.name, name.data(), std::min(name.size(), sizeof(entry.name)));
  return entry;
}

std::vector<SensorListEntry> DefaultSensors() {
  return {MakeEntry(kListMarker, "marker"),         MakeEntry(1U << 16, "accelerometer"),
          MakeEntry(kRearOnChange, "Rear ALS"),     MakeEntry(kRearContinuous, "Rear ALS"),
          MakeEntry(270U << 16, "not optical"),     MakeEntry(kFrontOnChange, "Front ALS"),
          MakeEntry(kFrontContinuous, "Front ALS"), MakeEntry(kFlicker, "Flicker")};
}

/// What Api::Create gives to the library.
class ScriptedApi::Connection final : public Api {
 public:
  Connection(ScriptedApi& framework, int number) : framework_(framework), number_(number) {}
  ~Connection() override { framework_.Destroyed(number_); }

  std::vector<SensorListEntry> GetSensorList() override {
    return framework_.GetSensorList(number_);
  }
  HylErr InvokeAsyncServiceCall(uint32_t handle, uint32_t type, const Request& request,
                                Callbacks callbacks) override {
    return framework_.Invoke(number_, handle, type, request, std::move(callbacks));
  }

 private:
  ScriptedApi& framework_;
  const int number_;
};

ScriptedApi::ScriptedApi() {
  SetSensorList(DefaultSensors());
  t_own = this;
  {
    const std::lock_guard lock(live_mutex);
    live.push_back(this);
    host::SetApiFactory(CreateForThisThread);
  }
}

ScriptedApi::~ScriptedApi() {
  t_own = nullptr;
  {
    const std::lock_guard lock(live_mutex);
    std::erase(live, this);
    if (live.empty()) {
      host::SetApiFactory({});
    }
  }
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    changed_.notify_all();
  }
  if (answer_thread_.joinable()) {
    answer_thread_.join();
  }
}

std::unique_ptr<Api> ScriptedApi::CreateForThisThread(ClientType type) {
  EXPECT_EQ(ClientType::kSpectral, type);
  ScriptedApi* framework = t_own;
  if (framework == nullptr) {
    const std::lock_guard lock(live_mutex);
    framework = live.back();
  }
  return framework->Create();
}

void ScriptedApi::FailCreate(int n) {
  const std::lock_guard lock(mutex_);
  failing_creates_.insert(creates_ + n);
}

void ScriptedApi::FailAllCreates() {
  const std::lock_guard lock(mutex_);
  all_creates_fail_ = true;
}

void ScriptedApi::RefuseInvoke(int n, HylErr result) {
  const std::lock_guard lock(mutex_);
  refused_invokes_[invokes_ + n] = result;
}

void ScriptedApi::SetSensorList(std::vector<SensorListEntry> list) {
  SetSensorList([list = std::move(list)](int) { return list; });
}

void ScriptedApi::SetSensorList(std::function<std::vector<SensorListEntry>(int)> list) {
  const std::lock_guard lock(mutex_);
  list_ = std::move(list);
}

void ScriptedApi::SetHook(Hook hook) {
  const std::lock_guard lock(mutex_);
  hook_ = std::move(hook);
}

void ScriptedApi::AnswerWith(Answer answer) {
  const std::lock_guard lock(mutex_);
  answer_ = std::move(answer);
  if (!answer_thread_.joinable()) {
    answer_thread_ = std::thread([this] { DeliverAnswers(); });
  }
}

std::vector<std::unique_ptr<Message>> ScriptedApi::Echo(const FrameworkCall& call) {
  std::vector<std::unique_ptr<Message>> messages;
  if (call.type == static_cast<uint32_t>(RequestType::kRlsMsgAccess)) {
    messages.push_back(EchoSettings(call));
  } else {
    messages.push_back(std::make_unique<StatusReply>(call.type, uint8_t{0}));
  }
  return messages;
}

void ScriptedApi::HoldAnswers() {
  const std::lock_guard lock(mutex_);
  answers_held_ = true;
}

void ScriptedApi::ReleaseAnswers() {
  const std::lock_guard lock(mutex_);
  answers_held_ = false;
  changed_.notify_all();
}

void ScriptedApi::AwaitAnswers() {
  std::unique_lock lock(mutex_);
  EXPECT_TRUE(changed_.wait_for(lock, kPatience, [&] { return answers_.empty() && !answering_; }));
}

std::vector<FrameworkCall> ScriptedApi::Take() {
  const std::lock_guard lock(mutex_);
  return std::exchange(calls_, {});
}

std::vector<FrameworkCall> ScriptedApi::TakeInvokes() {
  std::vector<FrameworkCall> calls = Take();
  std::erase_if(
      calls, [](const FrameworkCall& call) { return call.kind != FrameworkCall::Kind::kInvoke; });
  return calls;
}

std::set<std::pair<uint32_t, uint32_t>> ScriptedApi::Running() {
  const std::lock_guard lock(mutex_);
  return running_;
}

ScriptedApi::Callbacks ScriptedApi::CallbacksOf(uint32_t handle) {
  const std::lock_guard lock(mutex_);
  const auto found = callbacks_.find(handle);
  return found != callbacks_.end() ? found->second : nullptr;
}

void ScriptedApi::DropCallbacks() {
  std::map<uint32_t, Callbacks> dropped;  // freed without the lock
  const std::lock_guard lock(mutex_);
  dropped.swap(callbacks_);
}

int ScriptedApi::live_apis() {
  const std::lock_guard lock(mutex_);
  return live_apis_;
}

void ScriptedApi::Deliver(uint32_t handle, const Message& message) {
  const Callbacks callbacks = CallbacksOf(handle);
  ASSERT_NE(nullptr, callbacks) << "no request was accepted for handle " << handle;
  callbacks->OnResponse(&message);
}

std::unique_ptr<Api> ScriptedApi::Create() {
  FrameworkCall call{.kind = FrameworkCall::Kind::kCreate};
  {
    const std::lock_guard lock(mutex_);
    ++creates_;
    if (!all_creates_fail_ && failing_creates_.count(creates_) == 0) {
      call.api = ++apis_;
      ++live_apis_;
    }
  }
  const int number = call.api;
  Record(call);
  return number != 0 ? std::make_unique<Connection>(*this, number) : nullptr;
}

std::vector<SensorListEntry> ScriptedApi::GetSensorList(int api) {
  Record({.kind = FrameworkCall::Kind::kGetSensorList, .api = api});
  std::function<std::vector<SensorListEntry>(int)> list;
  int query = 0;
  {
    const std::lock_guard lock(mutex_);
    list = list_;
    query = ++list_queries_;
  }
  return list(query);
}

HylErr ScriptedApi::Invoke(int api, uint32_t handle, uint32_t type, const Request& request,
                           Callbacks callbacks) {
  FrameworkCall call{.kind = FrameworkCall::Kind::kInvoke,
                     .api = api,
                     .handle = handle,
                     .type = type,
                     .bytes = BytesOf(request, type),
                     .callbacks = callbacks.get()};
  {
    const std::lock_guard lock(mutex_);
    const auto refused = refused_invokes_.find(++invokes_);
    call.result = refused != refused_invokes_.end() ? refused->second : HylErr::kOk;
  }
  Record(call);
  if (call.result == HylErr::kOk) {
    const std::lock_guard lock(mutex_);
    NoteAccepted_locked(call, std::move(callbacks));
  }
  return call.result;
}

void ScriptedApi::NoteAccepted_locked(const FrameworkCall& call, Callbacks callbacks) {
  if (answer_) {
    for (auto& message : answer_(call)) {
      answers_.push_back({callbacks, std::move(message)});
    }
    changed_.notify_all();
  }
  callbacks_[call.handle] = std::move(callbacks);
  switch (static_cast<RequestType>(call.type)) {
    case RequestType::kStartOnChangeSampling:
    case RequestType::kStartContinuousSampling:
      running_.insert({call.handle, call.client_id()});
      break;
    case RequestType::kStopSampling:
      running_.erase({call.handle, call.client_id()});
      break;
    case RequestType::kRlsMsgAccess:
      break;
  }
}

void ScriptedApi::Destroyed(int api) {
  Record({.kind = FrameworkCall::Kind::kDestroy, .api = api});
  const std::lock_guard lock(mutex_);
  --live_apis_;
}

void ScriptedApi::Record(const FrameworkCall& call) {
  Hook hook;
  {
    const std::lock_guard lock(mutex_);
    calls_.push_back(call);
    hook = hook_;
  }
  if (hook) {
    hook(call);
  }
}

void ScriptedApi::DeliverAnswers() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [&] { return ended_ || (!answers_held_ && !answers_.empty()); });
    if (ended_) {
      return;
    }
    {
      const Held next = std::move(answers_.front());
      answers_.pop_front();
      answering_ = true;
      lock.unlock();
      next.callbacks->OnResponse(next.message.get());
    }  // the callbacks are given back without the lock
    lock.lock();
    answering_ = false;
    changed_.notify_all();
  }
}

}  // namespace hyl::v2::test
