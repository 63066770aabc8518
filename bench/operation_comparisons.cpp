#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

#include <hyl/request.h>
#include <hyl/rls_msg_access.h>

#include "comparison.h"
#include "running_sensor.h"

namespace hyl::v2::bench {
namespace {

constexpr int kOperationsPerPass = 200;
constexpr uint32_t kRequestId = 0x0A0003F4;
constexpr double kTarget = 1.5;

/// Waits for a reply as simply as can be.
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

using Answering = host::ScriptedFramework::Delivery;

/// The library and a bare client of the same framework.
struct Operations {
  explicit Operations(Answering answering) {
    running.framework().AnswerWith(host::ScriptedFramework::Echo, answering);
  }

  /// Until the framework has answered what was sent.
  void Settle() { running.framework().AwaitAnswers(); }
  void Send(RequestType type, const Request& request) {
    (void)bare->InvokeAsyncServiceCall(host::kRearContinuous, static_cast<uint32_t>(type), request,
                                       callbacks);
  }
  void SendConfig(RlsAccess access, RlsCommand command) {
    RlsMsgAccessReq request;
    request.lead_byte = 1;
    request.access = access;
    request.command = command;
    Send(RequestType::kRlsMsgAccess, request);
  }

  Running running{MakeSensors(1)};
  std::unique_ptr<Api> bare = Api::Create(ClientType::kSpectral);
  std::shared_ptr<BareCallbacks> callbacks = std::make_shared<BareCallbacks>();
};

void EnableAndDisable(Operations& operations) {
  uint32_t id = 0;
  operations.running.api().EnableAmbientLightSensor("ALS 0", id, SensorReportingMode::kContinuous);
  operations.Settle();
  operations.running.api().DisableAmbientLightSensor(id);
  operations.Settle();
}

void EnableAndDisableBarely(Operations& operations) {
  StartContinuousSamplingReq start;
  start.lead_byte = 1;
  start.client_id = kRequestId;
  start.period = 100'000'000;
  start.option_flag = 1;
  start.is_wake_up = true;
  operations.Send(RequestType::kStartContinuousSampling, start);
  operations.Settle();
  StopSamplingReq stop;
  stop.lead_byte = 1;
  stop.client_id = kRequestId;
  operations.Send(RequestType::kStopSampling, stop);
  operations.Settle();
}

void Get(Operations& operations) {
  uint16_t saturation = 0;
  operations.running.api().GetFlickerSaturation("", &saturation);
}

void GetBarely(Operations& operations) {
  operations.SendConfig(RlsAccess::kRead, RlsCommand::kFlickerSaturation);
  operations.callbacks->WaitForReply();
}

void SetAndWait(Operations& operations) {
  uint32_t applied = 0;
  operations.running.api().SetExposureTime("", 1, &applied);
}

void SetAndWaitBarely(Operations& operations) {
  operations.SendConfig(RlsAccess::kWrite, RlsCommand::kExposureTime);
  operations.callbacks->WaitForReply();
}

void Set(Operations& operations) {
  operations.running.api().SetTorchLightState("", true);
  operations.Settle();
}

void SetBarely(Operations& operations) {
  operations.SendConfig(RlsAccess::kWrite, RlsCommand::kTorchLight);
  operations.Settle();
}

struct Row {
  const char* name;
  void (*library)(Operations&);
  void (*bare)(Operations&);
};

constexpr Row kRows[] = {{"enable+disable", EnableAndDisable, EnableAndDisableBarely},
                         {"Get", Get, GetBarely},
                         {"Set that waits", SetAndWait, SetAndWaitBarely},
                         {"Set", Set, SetBarely}};

Comparison Compare(const Row& row, Answering answering) {
  const auto operations = std::make_shared<Operations>(answering);
  const auto repeat = [operations](void (*operation)(Operations&)) {
    return [operations, operation] {
      for (int i = 0; i < kOperationsPerPass; ++i) {
        operation(*operations);
      }
    };
  };
  const bool on_thread = answering == Answering::kOnThread;
  return {std::string(row.name) + (on_thread ? "" : ", answered within the call"),
          "call",
          {{"library", repeat(row.library), kOperationsPerPass},
           {"bare framework calls", repeat(row.bare), kOperationsPerPass, Measure::kTimesCost,
            on_thread ? kTarget : 0}},
          on_thread ? Clock::kWall : Clock::kThreadCpu};
}

}  // namespace

std::vector<ComparisonMaker> OperationComparisons() {
  std::vector<ComparisonMaker> makers;
  for (const Answering answering : {Answering::kOnThread, Answering::kWithinCall}) {
    for (const Row& row : kRows) {
      makers.push_back({std::string("operations/") + row.name +
                            (answering == Answering::kOnThread ? "" : "/within the call"),
                        [&row, answering] { return Compare(row, answering); }});
    }
  }
  return makers;
}

}  // namespace hyl::v2::bench
