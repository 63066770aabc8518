#include <algorithm>
#include <utility>

#include <hyl/sampling_messages.h>

#include "hub_state.h"
#include "sensor_list.h"

namespace hyl::v2::host {
namespace {

class StatusReply : public SamplingStatusResp {
 public:
  explicit StatusReply(uint32_t request_type) : type_(static_cast<uint8_t>(request_type)) {}
  uint8_t Type() const override { return type_; }
  uint8_t Status() const override { return 0; }

 private:
  const uint8_t type_;
};

constexpr int64_t kNsPerUs = 1000;

bool IsOnChange(uint32_t handle) {
  return handle == kRearOnChangeHandle || handle == kFrontOnChangeHandle;
}

/// Why this request cannot be served by that sensor.
HylErr NotServed(uint32_t handle) {
  return IsListedSensor(handle) ? HylErr::kInvalidArgument : HylErr::kNotFound;
}

}  // namespace

HylErr HubState::Invoke(Call call, const Request& request) {
  if (!call.callbacks) {
    return HylErr::kNullPointer;
  }
  switch (static_cast<RequestType>(call.request_type)) {
    case RequestType::kStartOnChangeSampling:
      return StartOnChange(std::move(call), request);
    case RequestType::kStartContinuousSampling:
      return StartContinuous(std::move(call), request);
    case RequestType::kStopSampling:
      return StopSampling(std::move(call), request);
    case RequestType::kRlsMsgAccess:
      return AccessSetting(std::move(call), request);
  }
  return HylErr::kInvalidArgument;
}

HylErr HubState::StartOnChange(Call call, const Request& request) {
  const auto* const start = dynamic_cast<const StartOnChangeSamplingReq*>(&request);
  if (start == nullptr) {
    return HylErr::kInvalidArgument;
  }
  constexpr uint64_t kPeriodNs = kDefaultSamplingPeriodUs * kNsPerUs;
  return StartSampling(std::move(call), {Reporting::kOnChange, start->ClientId(), kPeriodNs});
}

HylErr HubState::StartContinuous(Call call, const Request& request) {
  const auto* const start = dynamic_cast<const StartContinuousSamplingReq*>(&request);
  if (start == nullptr) {
    return HylErr::kInvalidArgument;
  }
  return StartSampling(std::move(call),
                       {Reporting::kContinuous, start->ClientId(), start->Period()});
}

HylErr HubState::StartSampling(Call call, const Start& start) {
  SensorStream* const stream = StreamOf(call.handle);
  if (stream == nullptr || IsOnChange(call.handle) != (start.reporting == Reporting::kOnChange)) {
    return NotServed(call.handle);
  }
  EndedSubscriptions ended;
  const std::lock_guard lock(core_.mutex);
  if (!CanReply(*call.connection)) {
    return HylErr::kFailed;
  }
  stream->EndHandle(*call.connection, call.handle, ended);
  const HylErr err = stream->Add(std::shared_ptr<Subscription>(
      new Subscription{call.connection, call.handle, start.client_id, call.callbacks,
                       MakeSource(call.handle), MakeSchedule(call.handle, start)}));
  if (err == HylErr::kOk) {
    const uint32_t type = call.request_type;
    PushReply(std::move(call), std::make_unique<StatusReply>(type));
  }
  return err;
}

HylErr HubState::StopSampling(Call call, const Request& request) {
  const auto* const stop = dynamic_cast<const StopSamplingReq*>(&request);
  if (stop == nullptr) {
    return HylErr::kInvalidArgument;
  }
  SensorStream* const stream = StreamOf(call.handle);
  if (stream == nullptr) {
    return NotServed(call.handle);
  }
  EndedSubscriptions ended;
  const std::lock_guard lock(core_.mutex);
  if (!CanReply(*call.connection)) {
    return HylErr::kFailed;
  }
  const HylErr err = stream->EndRequest(*call.connection, call.handle, stop->ClientId(), ended);
  if (err == HylErr::kOk) {
    const uint32_t type = call.request_type;
    PushReply(std::move(call), std::make_unique<StatusReply>(type));
  }
  return err;
}

HylErr HubState::AccessSetting(Call call, const Request& request) {
  const auto* const access = dynamic_cast<const RlsMsgAccessReq*>(&request);
  if (access == nullptr) {
    return HylErr::kInvalidArgument;
  }
  if (call.handle != kSettingsHandle) {
    return NotServed(call.handle);
  }
  auto reply = std::make_unique<SettingReply>();
  const std::lock_guard lock(core_.mutex);
  if (!CanReply(*call.connection)) {
    return HylErr::kFailed;
  }
  const HylErr err = ApplySetting(*access, *reply);
  const bool answered = access->access == RlsAccess::kRead || !replies_.Faults().ignore_writes;
  if (err == HylErr::kOk && answered) {
    PushReply(std::move(call), std::move(reply));
  }
  return err;
}

HylErr HubState::ApplySetting(const RlsMsgAccessReq& request, SettingReply& reply) {
  const auto period_before = settings_.SamplingPeriodUs();
  const HylErr err = settings_.Access(request, core_.conditions, reply);
  if (const auto period = settings_.SamplingPeriodUs(); period && period != period_before) {
    rear_.SetPeriod(*period * kNsPerUs);
    front_.SetPeriod(*period * kNsPerUs);
  }
  return err;
}

bool HubState::CanReply(const Connection& connection) const {
  return connection.open && !replies_.IsFull();
}

void HubState::PushReply(Call call, std::unique_ptr<Message> message) {
  replies_.Push({.connection = std::move(call.connection),
                 .callbacks = std::move(call.callbacks),
                 .message = std::move(message)});
}

SensorStream* HubState::StreamOf(uint32_t handle) {
  switch (handle) {
    case kRearOnChangeHandle:
    case kRearContinuousHandle:
      return &rear_;
    case kFrontOnChangeHandle:
    case kFrontContinuousHandle:
      return &front_;
    case kFlickerHandle:
      return &flicker_;
    default:
      return nullptr;
  }
}

std::unique_ptr<SensorSource> HubState::MakeSource(uint32_t handle) {
  if (handle == kFlickerHandle) {
    last_flicker_run_ =
        std::make_shared<FlickerRun>(core_.conditions.scene, packing_, flicker_faults_);
    return std::make_unique<FlickerSource>(last_flicker_run_);
  }
  const AlsPlace place = StreamOf(handle) == &rear_ ? AlsPlace::kRear : AlsPlace::kFront;
  const Reporting reporting = IsOnChange(handle) ? Reporting::kOnChange : Reporting::kContinuous;
  return std::make_unique<AlsSource>(place, reporting);
}

/// The flicker sensor keeps to its own pace, whatever period is asked for.
Schedule HubState::MakeSchedule(uint32_t handle, const Start& start) const {
  const int64_t now = core_.clock.Now();
  if (handle == kFlickerHandle) {
    return Schedule(now, kFlickerChunkNs, kFlickerBacklog);
  }
  const uint64_t asked_us = start.period_ns / kNsPerUs;
  const uint64_t period_us = settings_.SamplingPeriodUs().value_or(static_cast<uint32_t>(
      std::clamp<uint64_t>(asked_us, kMinSamplingPeriodUs, kMaxSamplingPeriodUs)));
  return Schedule(now, static_cast<int64_t>(period_us) * kNsPerUs, 0);
}

}  // namespace hyl::v2::host
