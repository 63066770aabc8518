// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>
#include <vector>

#include <hyl/flicker_messages.h>
#include <hyl/ref_counted_sensor_event.h>
#include <hyl/reffed_ptr.h>
#include <hyl/rls_msg_access.h>
#include <hyl/sampling_messages.h>

// The framework's messages, for tests to make and deliver. Their fields are public, so a test can
// set them to anything.
namespace hyl::v2::host {

/// Reply to a start or stop request of the same type. With another type, a message that no client
/// knows.
class StatusReply final : public SamplingStatusResp {
 public:
  explicit StatusReply(uint32_t type, uint8_t status = 0)
      : type_(static_cast<uint8_t>(type)), status_(status) {}
  uint8_t Type() const override { return type_; }
  uint8_t Status() const override { return status_; }

 private:
  uint8_t type_;
  uint8_t status_;
};

/// Reply to a read or write of a setting. Its value is in the field that the setting uses.
class SettingReply final : public RlsMsgAccessResp {
 public:
  SettingReply(RlsAccess of_access, RlsCommand of_command) {
    access = of_access;
    command = of_command;
  }
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kRlsMsgAccessResp); }
};

/// One sample of an ambient-light sensor. The record holds only the first 16 values.
class SpectralMessage final : public SampleMessage {
 public:
  explicit SpectralMessage(const std::vector<float>& values, int64_t timestamp = 0) {
    sample.value_count = static_cast<uint32_t>(values.size());
    std::copy_n(values.begin(), std::min(values.size(), std::size(sample.values)), sample.values);
    sample.timestamp = timestamp;
  }
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kSample); }
  SpectralSample Sample() const override { return sample; }

  SpectralSample sample{};
};

// The platform counter runs at 19.2 MHz: 12 ticks are 625 ns. A timestamp may count its ticks.
inline constexpr uint64_t kTicksPerUnit = 12;
inline constexpr uint64_t kNsPerUnit = 625;
/// Marks a timestamp that counts ticks.
inline constexpr uint64_t kTicksFlag = uint64_t{1} << 63U;

/// The last tick that is not later than `ns`, which must be below 2^60.
constexpr uint64_t NsToPlatformTicks(uint64_t ns) {
  return ns * kTicksPerUnit / kNsPerUnit;
}

using SensorEventPtr = refcount::reffed_ptr<const RefCountedSensorEvent>;

/// The contents of one event of a chain. Only the first 255 values are kept.
struct SensorEvent {
  SensorEventType type = SensorEventType::kSpectralSample;
  std::vector<float> values = {};
  int64_t timestamp = 0;
};

/// A chain of the given events, in order, on the heap. Each event holds a reference to the next and
/// frees itself with its own last reference.
[[gnu::visibility("default")]] SensorEventPtr MakeEventChain(
    const std::vector<SensorEvent>& events);

/// Carries a chain. `count` is the length that the message claims.
class EventChainMessage final : public EventMessage {
 public:
  EventChainMessage(SensorEventPtr first, uint64_t count) {
    events = std::move(first);
    event_count = count;
  }
  explicit EventChainMessage(const std::vector<SensorEvent>& chain)
      : EventChainMessage(MakeEventChain(chain), chain.size()) {}
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kEvents); }
};

/// Announces the packing of flicker data.
class FlickerFormatMessage final : public FlickerFormatResp {
 public:
  explicit FlickerFormatMessage(FlickerFormatSampleWidth sample_width,
                                bool is_little_endian = true) {
    width = sample_width;
    little_endian = is_little_endian ? 1 : 0;
  }
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kFlickerFormat); }
};

/// A chunk of packed flicker samples. The message owns the bytes.
class FlickerDataMessage final : public FlickerDataResp {
 public:
  explicit FlickerDataMessage(std::vector<uint8_t> bytes, uint32_t at_offset = 0,
                              uint8_t with_restart = 0)
      : bytes_(std::move(bytes)) {
    data = bytes_.data();
    size = bytes_.size();
    offset = at_offset;
    restart = with_restart;
  }
  FlickerDataMessage(const FlickerDataMessage&) = delete;
  FlickerDataMessage& operator=(const FlickerDataMessage&) = delete;
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kFlickerData); }

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace hyl::v2::host
