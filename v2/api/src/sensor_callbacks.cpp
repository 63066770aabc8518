// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdint>
#include <span>

#include <hyl/hyl_spectral_impl.h>
#include <hyl/internal/sensor_callbacks.h>

#include "log.h"

namespace hyl::v2::spectral {
namespace {

int64_t TimestampToNs(int64_t timestamp) {
  constexpr uint64_t kIsPlatformTicks = uint64_t{1} << 63;
  const auto bits = static_cast<uint64_t>(timestamp);
  return (bits & kIsPlatformTicks) == 0
             ? timestamp
             : static_cast<int64_t>(Time::PlatformTicksToNs(bits & ~kIsPlatformTicks));
}

/// Appends all values at once, or, when there is no memory for that, as many as there is memory
/// for.
void Append(Vector<float>& vector, std::span<const float> values) {
  if (vector.Resize(values.size()) == HylErr::kOk) {
    std::copy(values.begin(), values.end(), vector.data());
    return;
  }
  for (const float value : values) {
    if (vector.Resize(vector.size() + 1) == HylErr::kOk) {
      vector[vector.size() - 1] = value;
    }
  }
}

void Deliver(HylSpectralApiCallbackInterface& client, uint32_t session_id,
             std::span<const float> values, int64_t timestamp) {
  constexpr uint32_t kKind = 0;
  Vector<float> vector;
  Append(vector, values);
  client.OnSpectralData(kKind, session_id, vector, TimestampToNs(timestamp));
}

}  // namespace

void SensorCallbacks::OnResponse(const Message* message) {
  const Delivery delivery(gate);
  if (message != nullptr && delivery.open()) {
    Handle(*message, delivery);
  }
}

void SpectralCallbacks::Handle(const Message& message, const Delivery& delivery) {
  const uint8_t type = message.Type();
  switch (static_cast<MessageType>(type)) {
    case MessageType::kStartOnChangeSamplingResp:
    case MessageType::kStartContinuousSamplingResp:
    case MessageType::kStopSamplingResp:
      last_status_ = static_cast<const SamplingStatusResp&>(message).Status();
      return;
    case MessageType::kSample:
      HandleSample(static_cast<const SampleMessage&>(message));
      return;
    case MessageType::kEvents:
      HandleEvents(static_cast<const EventMessage&>(message), delivery);
      return;
    case MessageType::kRlsMsgAccessResp:
      if (HandleConfigReply(static_cast<const RlsMsgAccessResp&>(message))) {
        return;
      }
      break;
    default:
      break;
  }
  HYL_LOG(ERROR, "Unsupported request type:%d\n", type);
}

uint32_t SpectralCallbacks::FindSession() const {
  const uint64_t current = cookie;
  const uint32_t session_id = instance_.FindSessionId(current);
  if (session_id == 0) {
    HYL_LOG(ERROR, "Can't find session for cookie:%lx to handle spectral msg!", current);
  }
  return session_id;
}

void SpectralCallbacks::HandleSample(const SampleMessage& message) {
  const SpectralSample sample = message.Sample();
  if (client_ == nullptr) {
    return;
  }
  const uint32_t session_id = FindSession();
  if (session_id == 0) {
    return;
  }
  const size_t count = std::min<size_t>(sample.value_count, std::size(sample.values));
  Deliver(*client_, session_id, {sample.values, count}, sample.timestamp);
}

void SpectralCallbacks::HandleEvents(const EventMessage& message, const Delivery& delivery) {
  if (message.event_count == 0) {
    return;
  }
  refcount::reffed_ptr<const RefCountedSensorEvent> event = message.events;
  for (uint64_t left = message.event_count; left > 0 && event; --left) {
    if (!HandleEvent(*event) || !delivery.open()) {
      return;
    }
    event = refcount::reffed_ptr<const RefCountedSensorEvent>(left > 1 ? event->next : nullptr);
  }
}

bool SpectralCallbacks::HandleEvent(const RefCountedSensorEvent& event) {
  if (event.event_type == SensorEventType::kIgnored) {
    return true;
  }
  if (event.event_type != SensorEventType::kSpectralSample) {
    HYL_LOG(WARNING, "Unknown Sensor Event type:%d\n", static_cast<int>(event.event_type));
    return true;
  }
  const uint32_t session_id = FindSession();
  if (session_id == 0) {
    return false;
  }
  if (client_ != nullptr) {
    Deliver(*client_, session_id, {event.values(), event.value_count}, event.timestamp);
  }
  return true;
}

bool RearSpectralCallbacks::HandleConfigReply(const RlsMsgAccessResp& reply) {
  instance_.StoreConfigReply(reply);
  return true;
}

void FlickerSensorCallbacks::Handle(const Message& message, const Delivery&) {
  switch (static_cast<MessageType>(message.Type())) {
    case MessageType::kFlickerFormat:
      instance_.FlickerFormatMsg(cookie, static_cast<const FlickerFormatResp*>(&message));
      return;
    case MessageType::kFlickerData:
      instance_.FlickerDataMsg(cookie, static_cast<const FlickerDataResp*>(&message));
      return;
    default:
      return;
  }
}

}  // namespace hyl::v2::spectral
