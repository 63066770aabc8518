// Fails unless an ambient-light sensor and the flicker sensor of the simulated hub deliver.
#include <hyl/host/simulated_hub.h>
#include <hyl/hyl_spectral_api.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>

using namespace hyl::v2;

class Counter : public HylSpectralApiCallbackInterface {
 public:
  std::atomic<int> samples = 0;
  std::atomic<unsigned> flicker_samples = 0;

 private:
  void OnSpectralData(uint32_t, uint32_t, const Vector<float>& values, int64_t) override {
    samples += values.empty() ? 0 : 1;
  }
  void OnFlickerData(uint32_t, const FlickerSampleBlock* block) override {
    flicker_samples += block->num_samples;
  }
};

static bool StartBoth(HylSpectralApi& api, std::array<int, 4096>& buffer) {
  uint32_t light = 0;
  uint32_t flicker = 0;
  return api.EnableAmbientLightSensor("rear", light, SensorReportingMode::kContinuous) ==
             HylErr::kOk &&
         api.EnableFlickerSensor("flicker", buffer.data(), buffer.size(), 16, flicker) ==
             HylErr::kOk;
}

int main() {
  host::SimulatedHub& hub = host::SimulatedHub::Instance();
  hub.UseVirtualClock();
  Counter counter;
  std::array<int, 4096> buffer;
  HylSpectralApi* api = nullptr;
  const bool started =
      HylSpectralApi::Create(&api, &counter, HylLogLevel::kWarning) == HylErr::kOk &&
      StartBoth(*api, buffer);
  hub.Advance(std::chrono::seconds(1));
  HylSpectralApi::Destroy(&api);
  std::printf("%d spectral samples, %u flicker samples\n", counter.samples.load(),
              counter.flicker_samples.load());
  return started && counter.samples > 0 && counter.flicker_samples > 0 ? 0 : 1;
}
