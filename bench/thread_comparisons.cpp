#include <memory>
#include <thread>

#include <benchmark/benchmark.h>

#include "comparison.h"
#include "running_sensor.h"
#include "vector_delivery.h"

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
    rear = framework.CallbacksOf(host::kRearContinuous);
    front = framework.CallbacksOf(host::kFrontContinuous);
  }
  ~TwoSensors() { HylSpectralApi::Destroy(&api); }
  TwoSensors(const TwoSensors&) = delete;
  TwoSensors& operator=(const TwoSensors&) = delete;

  void First() { Deliver(*rear); }
  void Second() { Deliver(*front); }

  static void Deliver(Service::AsyncCallbacks& callbacks) {
    const host::SpectralMessage sample{ChannelValues(), 1};
    for (size_t i = 0; i < kSamplesPerPass; ++i) {
      callbacks.OnResponse(&sample);
    }
  }

  Framework framework{MakeSensors(2)};
  SharedClient client;
  HylSpectralApi* api = nullptr;
  std::shared_ptr<Service::AsyncCallbacks> rear;
  std::shared_ptr<Service::AsyncCallbacks> front;
};

/// Shows how far two threads get on this machine where nothing of the library is in their way.
struct TwoVectors {
  void First() { Deliver(); }
  void Second() { Deliver(); }

  void Deliver() {
    HylSpectralApiCallbackInterface* to = &client;
    benchmark::DoNotOptimize(to);
    const auto values = ChannelValues();
    for (size_t i = 0; i < kSamplesPerPass; ++i) {
      DeliverInVector(*to, values.data(), values.size(), 1);
    }
  }

  SharedClient client;
};

/// Two threads that each run their work, against one that runs its own, by the given clock. A
/// processor time counts as half: that is what passes where each thread has a processor to itself.
template <typename Work>
Comparison TwoThreads(const char* work, Clock clock, double target) {
  const auto works = std::make_shared<Work>();
  const auto two = [works] {
    std::thread other([&] { works->Second(); });
    works->First();
    other.join();
  };
  const auto one = [works] { works->First(); };
  const double threads_per_time = clock == Clock::kProcessCpu ? 2 : 1;
  return {work,
          "sample",
          {{"two threads", two, 2 * threads_per_time * kSamplesPerPass},
           {"one thread", one, kSamplesPerPass, Measure::kTimesFaster, target}},
          clock};
}

}  // namespace

std::vector<ComparisonMaker> ThreadComparisons() {
  return {{"threads/time",
           [] { return TwoThreads<TwoSensors>("two threads, two sensors", Clock::kWall, 1.8); }},
          {"threads/processor time",
           [] {
             return TwoThreads<TwoSensors>("two threads, by processor time", Clock::kProcessCpu, 0);
           }},
          {"threads/vector alone",
           [] { return TwoThreads<TwoVectors>("two threads, vector and call", Clock::kWall, 0); }}};
}

}  // namespace hyl::v2::bench
