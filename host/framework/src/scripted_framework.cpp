// SPDX-License-Identifier: Apache-2.0
#include <hyl/host/scripted_framework.h>

#include <atomic>
#include <stdexcept>
#include <string>

#include <hyl/host/messages.h>
#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>

namespace hyl::v2::host {
namespace {

std::atomic<ScriptedFramework*> latest{nullptr};
thread_local ScriptedFramework* t_own = nullptr;

FrameworkCall::Record CopyOf(const Request& request) {
  if (const auto* stop = dynamic_cast<const StopSamplingReq*>(&request)) {
    return *stop;
  }
  if (const auto* start = dynamic_cast<const StartOnChangeSamplingReq*>(&request)) {
    return *start;
  }
  if (const auto* start = dynamic_cast<const StartContinuousSamplingReq*>(&request)) {
    return *start;
  }
  if (const auto* access = dynamic_cast<const RlsMsgAccessReq*>(&request)) {
    return *access;
  }
  return {};
}

std::unique_ptr<Message> EchoSetting(const RlsMsgAccessReq& request) {
  auto reply = std::make_unique<SettingReply>(request.access, request.command);
  reply->param_a = request.param_a;
  reply->gain = request.gain;
  reply->value8 = request.value8;
  reply->value32 = request.value32;
  reply->reg_addr = request.reg_addr;
  reply->cal_enabled = request.cal_enabled;
  reply->torch_on = request.torch_on;
  reply->spectral_auto_gain = request.spectral_auto_gain;
  reply->flicker_auto_gain = request.flicker_auto_gain;
  reply->param_b = request.param_b;
  return reply;
}

}  // namespace

uint32_t FrameworkCall::ClientId() const {
  return std::visit(
      [](const auto& record) {
        if constexpr (requires { record.client_id; }) {
          return record.client_id;
        } else {
          return uint32_t{0};
        }
      },
      request);
}

std::vector<SensorListEntry> DefaultSensors() {
  return {MakeEntry(kListMarker, "marker"),         MakeEntry(1U << 16, "accelerometer"),
          MakeEntry(kRearOnChange, "Rear ALS"),     MakeEntry(kRearContinuous, "Rear ALS"),
          MakeEntry(270U << 16, "not optical"),     MakeEntry(kFrontOnChange, "Front ALS"),
          MakeEntry(kFrontContinuous, "Front ALS"), MakeEntry(kFlicker, "Flicker")};
}

/// The client's connection to the framework.
class ScriptedFramework::Connection final : public Api {
 public:
  Connection(ScriptedFramework& framework, int number, std::unique_ptr<Api> hub)
      : framework_(framework), number_(number), hub_(std::move(hub)) {}
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() override { framework_.Destroyed(number_); }

  std::vector<SensorListEntry> GetSensorList() override {
    return framework_.GetSensorList(number_);
  }

  HylErr InvokeAsyncServiceCall(uint32_t handle, uint32_t type, const Request& request,
                                Callbacks callbacks) override {
    FrameworkCall call{.kind = FrameworkCall::Kind::kInvoke,
                       .api = number_,
                       .handle = handle,
                       .type = type,
                       .request = CopyOf(request),
                       .callbacks = callbacks.get()};
    call.result = framework_.NextResult(call);
    framework_.Note(call);
    if (call.result == HylErr::kOk && hub_ != nullptr) {
      call.result = hub_->InvokeAsyncServiceCall(handle, type, request, callbacks);
    }
    if (call.result == HylErr::kOk) {
      framework_.Accept(call, callbacks);
    }
    return call.result;
  }

 private:
  ScriptedFramework& framework_;
  const int number_;
  const std::unique_ptr<Api> hub_;  // null without UseSimulatedHub
};

ScriptedFramework::ScriptedFramework() {
  SetSensorList(DefaultSensors());
  t_own = this;
  latest = this;
}

ScriptedFramework::~ScriptedFramework() {
  t_own = nullptr;
  ScriptedFramework* self = this;
  latest.compare_exchange_strong(self, nullptr);
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    changed_.notify_all();
  }
  if (answer_thread_.joinable()) {
    answer_thread_.join();
  }
}

HylErr ScriptedFramework::Results::Next() {
  const auto planned = planned_.find(++count_);
  return planned != planned_.end() ? planned->second : of_others_;
}

void ScriptedFramework::Results::Plan(int n, HylErr result) {
  if (n == kEvery) {
    of_others_ = result;
  } else {
    planned_[count_ + n] = result;
  }
}

void ScriptedFramework::FailCreate(int n) {
  const std::lock_guard lock(mutex_);
  creates_.Plan(n, HylErr::kFailed);
}

void ScriptedFramework::RefuseInvoke(int n, HylErr result) {
  const std::lock_guard lock(mutex_);
  invokes_.Plan(n, result);
}

void ScriptedFramework::RefuseIf(std::function<HylErr(const FrameworkCall&)> judge) {
  const std::lock_guard lock(mutex_);
  judge_ = std::move(judge);
}

void ScriptedFramework::UseSimulatedHub() {
  SetSensorList(SimulatedHub::Instance().Connect(ClientType::kSpectral)->GetSensorList());
  const std::lock_guard lock(mutex_);
  use_hub_ = true;
}

void ScriptedFramework::SetSensorList(std::vector<SensorListEntry> list) {
  SetSensorList([list = std::move(list)](int) { return list; });
}

void ScriptedFramework::SetSensorList(std::function<std::vector<SensorListEntry>(int)> list) {
  const std::lock_guard lock(mutex_);
  list_ = std::move(list);
}

void ScriptedFramework::SetHook(Hook hook) {
  const std::lock_guard lock(mutex_);
  hook_ = std::move(hook);
}

void ScriptedFramework::AnswerWith(Answer answer) {
  const std::lock_guard lock(mutex_);
  answer_ = std::move(answer);
  if (!answer_thread_.joinable()) {
    answer_thread_ = std::thread([this] { DeliverHeld(); });
  }
}

ScriptedFramework::Messages ScriptedFramework::Echo(const FrameworkCall& call) {
  Messages messages;
  if (const auto* setting = call.As<RlsMsgAccessReq>()) {
    messages.push_back(EchoSetting(*setting));
  } else {
    messages.push_back(std::make_unique<StatusReply>(call.type));
  }
  return messages;
}

void ScriptedFramework::HoldAnswers() {
  const std::lock_guard lock(mutex_);
  answers_held_ = true;
}

void ScriptedFramework::ReleaseAnswers() {
  const std::lock_guard lock(mutex_);
  answers_held_ = false;
  changed_.notify_all();
}

void ScriptedFramework::AwaitAnswers() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return held_.empty() && !answering_; });
}

void ScriptedFramework::SetRecording(bool on) {
  const std::lock_guard lock(mutex_);
  recording_ = on;
}

std::vector<FrameworkCall> ScriptedFramework::Take() {
  const std::lock_guard lock(mutex_);
  return std::exchange(calls_, {});
}

std::vector<FrameworkCall> ScriptedFramework::TakeInvokes() {
  std::vector<FrameworkCall> calls = Take();
  std::erase_if(
      calls, [](const FrameworkCall& call) { return call.kind != FrameworkCall::Kind::kInvoke; });
  return calls;
}

std::set<std::pair<uint32_t, uint32_t>> ScriptedFramework::Running() {
  const std::lock_guard lock(mutex_);
  return {running_.begin(), running_.end()};
}

ScriptedFramework::Callbacks ScriptedFramework::CallbacksOf(uint32_t handle) {
  const std::lock_guard lock(mutex_);
  const auto found = callbacks_.find(handle);
  return found != callbacks_.end() ? found->second : nullptr;
}

void ScriptedFramework::DropCallbacks() {
  std::map<uint32_t, Callbacks> dropped;  // freed without the lock
  const std::lock_guard lock(mutex_);
  dropped.swap(callbacks_);
}

int ScriptedFramework::LiveApis() {
  const std::lock_guard lock(mutex_);
  return live_apis_;
}

void ScriptedFramework::Deliver(uint32_t handle, const Message& message) {
  const Callbacks callbacks = CallbacksOf(handle);
  if (callbacks == nullptr) {
    throw std::logic_error("ScriptedFramework: no request was accepted for sensor " +
                           std::to_string(handle));
  }
  callbacks->OnResponse(&message);
}

std::unique_ptr<Api> ScriptedFramework::Connect(ClientType type) {
  FrameworkCall call{.kind = FrameworkCall::Kind::kCreate, .type = static_cast<uint32_t>(type)};
  bool use_hub = false;
  {
    const std::lock_guard lock(mutex_);
    use_hub = use_hub_;
    if (creates_.Next() == HylErr::kOk) {
      call.api = ++apis_;
      ++live_apis_;
    }
  }
  Note(call);
  if (call.api == 0) {
    return nullptr;
  }
  auto hub = use_hub ? SimulatedHub::Instance().Connect(type) : nullptr;
  return std::make_unique<Connection>(*this, call.api, std::move(hub));
}

std::vector<SensorListEntry> ScriptedFramework::GetSensorList(int api) {
  Note({.kind = FrameworkCall::Kind::kGetSensorList, .api = api});
  std::function<std::vector<SensorListEntry>(int)> list;
  int query = 0;
  {
    const std::lock_guard lock(mutex_);
    list = list_;
    query = ++list_queries_;
  }
  return list(query);
}

HylErr ScriptedFramework::NextResult(const FrameworkCall& call) {
  std::function<HylErr(const FrameworkCall&)> judge;
  HylErr planned = HylErr::kOk;
  {
    const std::lock_guard lock(mutex_);
    planned = invokes_.Next();
    judge = judge_;
  }
  return planned == HylErr::kOk && judge ? judge(call) : planned;
}

void ScriptedFramework::Accept(const FrameworkCall& call, const Callbacks& callbacks) {
  Callbacks replaced = callbacks;  // freed without the lock
  const std::lock_guard lock(mutex_);
  callbacks_[call.handle].swap(replaced);
  if (call.As<RlsMsgAccessReq>() == nullptr) {
    const std::pair request(call.handle, call.ClientId());
    std::erase(running_, request);
    if (call.As<StopSamplingReq>() == nullptr) {
      running_.push_back(request);
    }
  }
  for (auto& message : answer_&& callbacks != nullptr ? answer_(call) : Messages()) {
    held_.push_back({callbacks, std::move(message)});
  }
  changed_.notify_all();
}

void ScriptedFramework::Destroyed(int api) {
  Note({.kind = FrameworkCall::Kind::kDestroy, .api = api});
  const std::lock_guard lock(mutex_);
  --live_apis_;
}

void ScriptedFramework::Note(const FrameworkCall& call) {
  Hook hook;
  {
    const std::lock_guard lock(mutex_);
    if (recording_) {
      calls_.push_back(call);
    }
    hook = hook_;
  }
  if (hook) {
    hook(call);
  }
}

void ScriptedFramework::DeliverHeld() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [&] { return ended_ || (!answers_held_ && !held_.empty()); });
    if (ended_) {
      return;
    }
    {
      const Held next = std::move(held_.front());
      held_.pop_front();
      answering_ = true;
      lock.unlock();
      next.callbacks->OnResponse(next.message.get());
    }  // releases the callbacks without the lock
    lock.lock();
    answering_ = false;
    changed_.notify_all();
  }
}

}  // namespace hyl::v2::host

std::unique_ptr<hyl::v2::Api> hyl::v2::Api::Create(ClientType type) {
  host::ScriptedFramework* const own = host::t_own;
  host::ScriptedFramework* const framework = own != nullptr ? own : host::latest.load();
  return framework != nullptr ? framework->Connect(type)
                              : host::SimulatedHub::Instance().Connect(type);
}
