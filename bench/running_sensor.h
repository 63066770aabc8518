#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include <hyl/host/messages.h>
#include <hyl/host/scripted_framework.h>
#include <hyl/host/sensors.h>
#include <hyl/hyl_spectral_api.h>

#include "bench_client.h"

namespace hyl::v2::bench {

inline constexpr size_t kChannels = 12;

inline std::vector<float> ChannelValues() {
  std::vector<float> values(kChannels);
  std::iota(values.begin(), values.end(), 1.0F);
  return values;
}

/// A chain of samples of kChannels values.
inline host::EventChainMessage MakeChain(size_t count) {
  return host::EventChainMessage(
      std::vector<host::SensorEvent>(count, {.values = ChannelValues(), .timestamp = 1}));
}

/// `count` ambient-light sensors "ALS 0", "ALS 1", ... for continuous reporting, one flicker sensor
/// "Flicker", and as many others as make the list `list_size` long, its marker included.
inline std::vector<SensorListEntry> MakeSensors(uint32_t count, size_t list_size = 0) {
  std::vector<SensorListEntry> sensors = {host::MakeEntry(host::kFlicker, "Flicker"),
                                          host::MakeEntry(host::kListMarker, "Marker")};
  for (uint32_t i = 0; i < count; ++i) {
    sensors.push_back(host::MakeEntry(host::kRearContinuous + i, "ALS " + std::to_string(i)));
  }
  while (sensors.size() < list_size) {
    const auto number = static_cast<uint32_t>(sensors.size());
    sensors.push_back(host::MakeEntry((1U << 16U) + number, "Other " + std::to_string(number)));
  }
  return sensors;
}

/// A framework that records nothing, and answers soundly if it answers at all.
class Framework : public host::ScriptedFramework {
 public:
  explicit Framework(std::vector<SensorListEntry> sensors) {
    SetSensorList(std::move(sensors));
    SetRecording(false);
  }
};

/// An instance of the library on a framework. Deliveries are up to the benchmark.
class Running {
 public:
  explicit Running(std::vector<SensorListEntry> sensors) : framework_(std::move(sensors)) {
    HylSpectralApi::Create(&api_, &client_, HylLogLevel{});
  }
  ~Running() { HylSpectralApi::Destroy(&api_); }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  HylSpectralApi& api() { return *api_; }
  Framework& framework() { return framework_; }
  BenchClient& client() { return client_; }

  /// Enables "ALS `index`"; what delivers to it.
  std::shared_ptr<Service::AsyncCallbacks> EnableAmbientLight(uint32_t index) {
    uint32_t id = 0;
    api_->EnableAmbientLightSensor(("ALS " + std::to_string(index)).c_str(), id,
                                   SensorReportingMode::kContinuous);
    return framework_.CallbacksOf(host::kRearContinuous + index);
  }

 private:
  Framework framework_;
  BenchClient client_;
  HylSpectralApi* api_ = nullptr;
};

}  // namespace hyl::v2::bench
