// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include <hyl/host/scripted_framework.h>
#include <hyl/host/sensors.h>
#include <hyl/spectral_instance.h>

namespace hyl::v2::bench {

/// What has been delivered to clients on this thread.
inline thread_local int64_t t_deliveries = 0;

/// A client that does as little as possible. Safe on any thread.
class CountingClient final : public HylSpectralApiCallbackInterface {
 public:
  void OnSpectralData(uint32_t, uint32_t, const Vector<float>& values, int64_t) override {
    benchmark::DoNotOptimize(values[0]);
    ++t_deliveries;
  }
  void OnFlickerData(uint32_t, const FlickerSampleBlock* block) override {
    benchmark::DoNotOptimize(block->samples[0]);
    ++t_deliveries;
  }
};

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

/// An instance of the library on a framework that accepts every request.
class RunningInstance {
 public:
  explicit RunningInstance(std::vector<SensorListEntry> sensors) {
    framework_.SetSensorList(std::move(sensors));
    framework_.SetRecording(false);
    api_ = MakeInstance(&client_);
  }

  HylSpectralApi& api() { return *api_; }
  host::ScriptedFramework& framework() { return framework_; }

  /// Each enables a sensor and returns what delivers to it.
  /// @{
  std::shared_ptr<Service::AsyncCallbacks> EnableAmbientLight(uint32_t index) {
    const std::string name = "ALS " + std::to_string(index);
    uint32_t id = 0;
    Require(api_->EnableAmbientLightSensor(name.c_str(), id, SensorReportingMode::kContinuous));
    return framework_.CallbacksOf(host::kRearContinuous + index);
  }
  std::shared_ptr<Service::AsyncCallbacks> EnableFlicker(std::vector<int32_t>& buffer,
                                                         uint8_t out_bits) {
    uint32_t id = 0;
    Require(api_->EnableFlickerSensor("Flicker", buffer.data(), buffer.size(), out_bits, id));
    return framework_.CallbacksOf(host::kFlicker);
  }
  /// @}

 private:
  static void Require(HylErr result) {
    if (result != HylErr::kOk) {
      throw std::runtime_error("the library refused a call that sets a benchmark up");
    }
  }

  host::ScriptedFramework framework_;
  CountingClient client_;
  SpectralInstance api_;
};

}  // namespace hyl::v2::bench
