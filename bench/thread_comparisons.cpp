#include <memory>
#include <thread>

#include <benchmark/benchmark.h>

#include "comparison.h"
#include "running_sensor.h"
#include "spectral_messages.h"

namespace hyl::v2::bench {
namespace {

/// Enough that starting a thread does not count.
constexpr size_t kSamplesPerPass = 100'000;

/// Takes samples on any number of threads.
class SharedClient final : public HylSpectralApiCallbackInterface {
 public:
  void OnSpectralData(uint32_t, uint32_t, const Vector<float>& values, int64_t) override {
    benchmark::DoNotOptimize(values[0]);
  }
  void OnFlickerData(uint32_t, const FlickerSampleBlock*) override {}
};

struct TwoSensors {
  TwoSensors() {
    HylSpectralApi::Create(&api, &client, HylLogLevel{});
    uint32_t id = 0;
    api->EnableAmbientLightSensor("ALS 0", id, SensorReportingMode::kContinuous);
    api->EnableAmbientLightSensor("ALS 1", id, SensorReportingMode::kContinuous);
    rear = framework.CallbacksOf(kRearHandle);
    front = framework.CallbacksOf(kFrontHandle);
  }
  ~TwoSensors() { HylSpectralApi::Destroy(&api); }
  TwoSensors(const TwoSensors&) = delete;
  TwoSensors& operator=(const TwoSensors&) = delete;

  static void Deliver(Service::AsyncCallbacks& callbacks) {
    const BenchSample sample;
    for (size_t i = 0; i < kSamplesPerPass; ++i) {
      callbacks.OnResponse(&sample);
    }
  }

  BenchFramework framework{MakeSensors(2), Answering::kNever};
  SharedClient client;
  HylSpectralApi* api = nullptr;
  std::shared_ptr<Service::AsyncCallbacks> rear;
  std::shared_ptr<Service::AsyncCallbacks> front;
};

Comparison TwoThreads() {
  const auto sensors = std::make_shared<TwoSensors>();
  const auto two = [sensors] {
    std::thread other([&] { TwoSensors::Deliver(*sensors->front); });
    TwoSensors::Deliver(*sensors->rear);
    other.join();
  };
  const auto one = [sensors] { TwoSensors::Deliver(*sensors->rear); };
  return {"two threads delivering for two sensors",
          "sample",
          {{"two threads", two, 2 * kSamplesPerPass},
           {"one thread", one, kSamplesPerPass, Measure::kTimesFaster, 1.8}},
          Clock::kWall};
}

}  // namespace

std::vector<ComparisonMaker> ThreadComparisons() {
  return {{"threads/two", TwoThreads}};
}

}  // namespace hyl::v2::bench
