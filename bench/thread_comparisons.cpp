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

/// Two threads that each deliver as much as one does alone, by the given clock. A processor time
/// counts as half: that is what passes where each thread has a processor to itself.
Comparison TwoThreads(const char* work, Clock clock, double target) {
  const auto sensors = std::make_shared<TwoSensors>();
  const auto two = [sensors] {
    std::thread other([&] { TwoSensors::Deliver(*sensors->front); });
    TwoSensors::Deliver(*sensors->rear);
    other.join();
  };
  const auto one = [sensors] { TwoSensors::Deliver(*sensors->rear); };
  const double threads_per_time = clock == Clock::kProcessCpu ? 2 : 1;
  return {work,
          "sample",
          {{"two threads", two, 2 * threads_per_time * kSamplesPerPass},
           {"one thread", one, kSamplesPerPass, Measure::kTimesFaster, target}},
          clock};
}

}  // namespace

std::vector<ComparisonMaker> ThreadComparisons() {
  return {
      {"threads/time", [] { return TwoThreads("two threads, two sensors", Clock::kWall, 1.8); }},
      {"threads/processor time",
       [] { return TwoThreads("two threads, by processor time", Clock::kProcessCpu, 0); }}};
}

}  // namespace hyl::v2::bench
