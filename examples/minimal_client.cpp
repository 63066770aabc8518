// Prints the samples of the rear ambient-light sensor for two seconds.
#include <hyl/hyl_spectral_api.h>

#include <chrono>
#include <cstdio>
#include <thread>

using namespace hyl::v2;

struct Printer : HylSpectralApiCallbackInterface {
  void OnSpectralData(uint32_t, uint32_t session_id, const Vector<float>& values,
                      int64_t timestamp) override {
    std::printf("session %u, %.3f s:", session_id, static_cast<double>(timestamp) / 1e9);
    for (const float value : values) {
      std::printf(" %.1f", static_cast<double>(value));
    }
    std::printf("\n");
  }
  void OnFlickerData(uint32_t, const FlickerSampleBlock*) override {}
};

int main() {
  Printer printer;  // outlives the instance
  HylSpectralApi* api = nullptr;
  HylSpectralApi::Create(&api, &printer, HylLogLevel::kWarning);
  uint32_t session = 0;
  const HylErr err =
      api->EnableAmbientLightSensor("rear", session, SensorReportingMode::kContinuous);
  if (err == HylErr::kOk) {
    std::this_thread::sleep_for(std::chrono::seconds(2));
    api->DisableAmbientLightSensor(session);
  }
  HylSpectralApi::Destroy(&api);
  return static_cast<int>(err);
}
