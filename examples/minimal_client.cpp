// Lists the ambient-light sensors and prints the samples of the first for two seconds.
#include <hyl/hyl_spectral_api.h>

#include <chrono>
#include <cstdio>
#include <thread>

using namespace hyl::v2;

class Printer : public HylSpectralApiCallbackInterface {
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
  const auto names = api->GetAmbientLightSensorNames();
  for (const HylString& name : names) {
    std::printf("sensor %s\n", name.c_str());
  }
  uint32_t session = 0;
  const char* const first = names.empty() ? "" : names[0].c_str();
  const HylErr result =
      api->EnableAmbientLightSensor(first, session, SensorReportingMode::kContinuous);
  if (result == HylErr::kOk) {
    std::this_thread::sleep_for(std::chrono::seconds(2));
    api->DisableAmbientLightSensor(session);
  }
  HylSpectralApi::Destroy(&api);
  return static_cast<int>(result);
}
