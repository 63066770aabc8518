// SPDX-License-Identifier: Apache-2.0
#include <sched.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

#include <benchmark/benchmark.h>

#include <hyl/request.h>
#include <hyl/rls_msg_access.h>

#include "benchmarks.h"
#include "running_instance.h"

namespace hyl::v2::bench {
namespace {

constexpr uint32_t kRequestId = 0x0A0003F4;

/// Waits for a reply in the plainest way.
class BareCallbacks final : public Service::AsyncCallbacks {
 public:
  void OnResponse(const Message*) override {
    {
      const std::lock_guard lock(mutex_);
      replied_ = true;
    }
    reply_.notify_one();
  }
  void OnError(HylErr) override {}

  void WaitForReply() {
    std::unique_lock lock(mutex_);
    reply_.wait(lock, [this] { return replied_; });
    replied_ = false;
  }

 private:
  std::mutex mutex_;  // guards replied_
  std::condition_variable reply_;
  bool replied_ = false;
};

/// The library and a bare client of one framework, which answers on its own thread.
class Clients {
 public:
  Clients() { instance_.framework().AnswerWith(host::ScriptedFramework::Echo); }

  HylSpectralApi& api() { return instance_.api(); }
  bool failed() const { return failed_; }

  void Check(HylErr result) { failed_ |= result != HylErr::kOk; }
  /// Waits until the framework has answered all requests.
  void Settle() { instance_.framework().AwaitAnswers(); }
  /// Waits for the reply to the bare client's request.
  void WaitForReply() { callbacks_->WaitForReply(); }

  void BareRequest(RequestType type, const Request& request) {
    Check(bare_->InvokeAsyncServiceCall(host::kRearContinuous, static_cast<uint32_t>(type), request,
                                        callbacks_));
  }
  void BareAccess(RlsAccess access, RlsCommand command) {
    RlsMsgAccessReq request;
    request.lead_byte = 1;
    request.access = access;
    request.command = command;
    BareRequest(RequestType::kRlsMsgAccess, request);
  }

 private:
  RunningInstance instance_{MakeSensors(1)};
  std::unique_ptr<Api> bare_ = Api::Create(ClientType::kSpectral);
  std::shared_ptr<BareCallbacks> callbacks_ = std::make_shared<BareCallbacks>();
  bool failed_ = false;
};

void EnableAndDisable(Clients& clients) {
  constexpr auto kContinuous = SensorReportingMode::kContinuous;
  uint32_t id = 0;
  clients.Check(clients.api().EnableAmbientLightSensor("ALS 0", id, kContinuous));
  clients.Settle();
  clients.Check(clients.api().DisableAmbientLightSensor(id));
  clients.Settle();
}

void BareEnableAndDisable(Clients& clients) {
  StartContinuousSamplingReq start;
  start.lead_byte = 1;
  start.client_id = kRequestId;
  start.period = 100'000'000;
  start.option_flag = 1;
  start.is_wake_up = true;
  clients.BareRequest(RequestType::kStartContinuousSampling, start);
  clients.Settle();
  StopSamplingReq stop;
  stop.lead_byte = 1;
  stop.client_id = kRequestId;
  clients.BareRequest(RequestType::kStopSampling, stop);
  clients.Settle();
}

void Get(Clients& clients) {
  uint16_t saturation = 0;
  clients.Check(clients.api().GetFlickerSaturation("", &saturation));
}

void BareGet(Clients& clients) {
  clients.BareAccess(RlsAccess::kRead, RlsCommand::kFlickerSaturation);
  clients.WaitForReply();
}

void SetAndWait(Clients& clients) {
  uint32_t applied = 0;
  clients.Check(clients.api().SetExposureTime("", 1, &applied));
}

void BareSetAndWait(Clients& clients) {
  clients.BareAccess(RlsAccess::kWrite, RlsCommand::kExposureTime);
  clients.WaitForReply();
}

void Set(Clients& clients) {
  clients.Check(clients.api().SetTorchLightState("", true));
  clients.Settle();
}

void BareSet(Clients& clients) {
  clients.BareAccess(RlsAccess::kWrite, RlsCommand::kTorchLight);
  clients.Settle();
}

/// Keeps this thread, and the threads that it starts, on one processor. Otherwise most of the time
/// is that of waking another processor, which varies more than tenfold.
class OnOneProcessor {
 public:
  OnOneProcessor() {
    sched_getaffinity(0, sizeof(before_), &before_);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
    sched_setaffinity(0, sizeof(one), &one);
  }
  ~OnOneProcessor() { sched_setaffinity(0, sizeof(before_), &before_); }
  OnOneProcessor(const OnOneProcessor&) = delete;
  OnOneProcessor& operator=(const OnOneProcessor&) = delete;

 private:
  cpu_set_t before_{};
};

void MeasureOperation(benchmark::State& state, void (*operation)(Clients&)) {
  const OnOneProcessor pinned;
  Clients clients;
  Measure(state, 1, [&] { operation(clients); });
  if (clients.failed()) {
    state.SkipWithError("an operation failed");
  }
}

}  // namespace

void RegisterOperations() {
  const auto add = [](const char* name, void (*operation)(Clients&)) {
    // The processor time of both threads, so that other programs do not count.
    benchmark::RegisterBenchmark(name, MeasureOperation, operation)->MeasureProcessCPUTime();
  };
  add("enable and disable/library", EnableAndDisable);
  add("enable and disable/bare calls", BareEnableAndDisable);
  add("Get/library", Get);
  add("Get/bare calls", BareGet);
  add("Set that waits/library", SetAndWait);
  add("Set that waits/bare calls", BareSetAndWait);
  add("Set/library", Set);
  add("Set/bare calls", BareSet);
}

}  // namespace hyl::v2::bench
