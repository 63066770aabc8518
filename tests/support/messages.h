#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>
#include <vector>

#include <hyl/flicker_messages.h>
#include <hyl/host/sensor_event.h>
#include <hyl/rls_msg_access.h>
#include <hyl/sampling_messages.h>

// The framework's messages, as a test makes them.
namespace hyl::v2::test {

/// A message of any type that carries nothing.
class BareMessage final : public Message {
 public:
  explicit BareMessage(int type) : type_(static_cast<uint8_t>(type)) {}
  uint8_t Type() const override { return type_; }

 private:
  uint8_t type_;
};

/// Reply to a start or stop request, `type` being the request's.
class StatusReply final : public SamplingStatusResp {
 public:
  StatusReply(uint32_t type, uint8_t status) : type_(static_cast<uint8_t>(type)), status_(status) {}
  uint8_t Type() const override { return type_; }
  uint8_t Status() const override { return status_; }

 private:
  uint8_t type_;
  uint8_t status_;
};

class SampleMsg final : public SampleMessage {
 public:
  explicit SampleMsg(const std::vector<float>& values, int64_t timestamp = 0) {
    sample.value_count = static_cast<uint32_t>(values.size());
    std::copy_n(values.begin(), std::min(values.size(), std::size(sample.values)), sample.values);
    sample.timestamp = timestamp;
  }
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kSample); }
  SpectralSample Sample() const override { return sample; }

  SpectralSample sample{};
};

class Events final : public EventMessage {
 public:
  Events(host::SensorEventPtr first, uint64_t count) {
    events = std::move(first);
    event_count = count;
  }
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kEvents); }
};

struct Event {
  int type = 1;
  std::vector<float> values = {};
  int64_t timestamp = 0;
};

/// A chain of the given events, in their order.
inline host::SensorEventPtr Chain(const std::vector<Event>& events) {
  host::SensorEventPtr chain;
  for (auto event = events.rbegin(); event != events.rend(); ++event) {
    chain = host::MakeSensorEvent(static_cast<SensorEventType>(event->type), event->timestamp,
                                  event->values, chain);
  }
  return chain;
}

class SettingsReply final : public RlsMsgAccessResp {
 public:
  SettingsReply(RlsAccess of_access, RlsCommand of_command) {
    access = of_access;
    command = of_command;
  }
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kRlsMsgAccessResp); }
};

class FlickerFormat final : public FlickerFormatResp {
 public:
  explicit FlickerFormat(FlickerFormatSampleWidth sample_width, bool is_little_endian = true) {
    width = sample_width;
    little_endian = is_little_endian ? 1 : 0;
  }
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kFlickerFormat); }
};

/// A data message over `bytes`, of which it keeps a copy.
class FlickerData final : public FlickerDataResp {
 public:
  explicit FlickerData(std::vector<uint8_t> bytes, uint32_t at_offset = 0, uint8_t with_restart = 0)
      : bytes_(std::move(bytes)) {
    data = bytes_.data();
    size = bytes_.size();
    offset = at_offset;
    restart = with_restart;
  }
  FlickerData(const FlickerData&) = delete;
  FlickerData& operator=(const FlickerData&) = delete;
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kFlickerData); }

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace hyl::v2::test
