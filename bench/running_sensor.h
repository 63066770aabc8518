#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <hyl/hyl_spectral_api.h>

#include "bench_client.h"
#include "bench_framework.h"

namespace hyl::v2::bench {

/// An instance of the library on a framework of its own. Deliveries are up to the benchmark.
class Running {
 public:
  explicit Running(std::vector<SensorListEntry> sensors, Answering answering = Answering::kNever)
      : framework_(std::move(sensors), answering) {
    HylSpectralApi::Create(&api_, &client_, HylLogLevel{});
  }
  ~Running() { HylSpectralApi::Destroy(&api_); }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  HylSpectralApi& api() { return *api_; }
  BenchFramework& framework() { return framework_; }
  BenchClient& client() { return client_; }

  /// Enables "ALS `index`"; what delivers to it.
  std::shared_ptr<Service::AsyncCallbacks> EnableAmbientLight(uint32_t index) {
    uint32_t id = 0;
    api_->EnableAmbientLightSensor(("ALS " + std::to_string(index)).c_str(), id,
                                   SensorReportingMode::kContinuous);
    return framework_.CallbacksOf(kRearHandle + index);
  }

 private:
  BenchFramework framework_;
  BenchClient client_;
  HylSpectralApi* api_ = nullptr;
};

}  // namespace hyl::v2::bench
