// Lists the ambient-light sensors, then prints the samples of the rear one for two seconds.
#include <chrono>
#include <cstdio>
#include <thread>

#include <hyl/hyl_spectral_api.h>

using namespace hyl::v2;

struct Printer : HylSpectralApiCallbackInterface {
  void OnSpectralData(uint32_t, uint32_t, const Vector<float>& values, int64_t ns) override {
    std::printf("%.3f s:", static_cast<double>(ns) / 1e9);
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
  if (HylSpectralApi::Create(&api, &printer, HylLogLevel::kWarning) != HylErr::kOk) {
    return 1;
  }
  for (const HylString& name : api->GetAmbientLightSensorNames()) {
    std::printf("%s\n", name.c_str());
  }
  uint32_t id = 0;
  const HylErr err = api->EnableAmbientLightSensor("rear", id, SensorReportingMode::kContinuous);
  if (err == HylErr::kOk) {
    std::this_thread::sleep_for(std::chrono::seconds(2));
    api->DisableAmbientLightSensor(id);
  }
  HylSpectralApi::Destroy(&api);
  return static_cast<int>(err);
}
