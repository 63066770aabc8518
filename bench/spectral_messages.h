#pragma once

#include <array>
#include <cstddef>
#include <numeric>
#include <span>
#include <utility>

#include <hyl/host/sensor_event.h>
#include <hyl/sampling_messages.h>

namespace hyl::v2::bench {

inline constexpr size_t kChannels = 12;

inline std::array<float, kChannels> ChannelValues() {
  std::array<float, kChannels> values{};
  std::iota(values.begin(), values.end(), 1.0F);
  return values;
}

/// A sample of kChannels values.
class BenchSample final : public SampleMessage {
 public:
  BenchSample() {
    const auto values = ChannelValues();
    std::copy(values.begin(), values.end(), sample_.values);
    sample_.value_count = kChannels;
    sample_.timestamp = 1;
  }
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kSample); }
  SpectralSample Sample() const override { return sample_; }

 private:
  SpectralSample sample_{};
};

/// A chain of samples of kChannels values.
class BenchEvents final : public EventMessage {
 public:
  explicit BenchEvents(size_t count) {
    const auto values = ChannelValues();
    for (size_t i = 0; i < count; ++i) {
      events = host::MakeSensorEvent(SensorEventType::kSpectralSample, 1, values, events);
    }
    event_count = count;
  }
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kEvents); }
};

}  // namespace hyl::v2::bench
