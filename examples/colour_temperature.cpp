// Measures the colour temperature of the light from the spectral channels of the rear sensor.
#include <chrono>
#include <cstdio>
#include <future>

#include <hyl/host/simulated_hub.h>
#include <hyl/hyl_spectral_api.h>

using namespace hyl::v2;

struct Band {
  double width_nm;
  double x, y, z;  // CIE 1931 colour matching functions at the band's centre
};

// The first nine channels: bands at 400, 435, ... 680 nm.
constexpr Band kBands[] = {
    {28, 0.0143, 0.0004, 0.0679}, {30, 0.3285, 0.0168, 1.6230}, {33, 0.1954, 0.0910, 1.2876},
    {35, 0.0024, 0.4073, 0.2123}, {37, 0.2904, 0.9540, 0.0203}, {39, 0.8425, 0.9154, 0.0018},
    {42, 1.0026, 0.5030, 0.0003}, {46, 0.3608, 0.1382, 0.0000}, {50, 0.0468, 0.0170, 0.0000}};

/// McCamy's formula: kelvins, good from 2000 K to 12500 K.
double ColourTemperature(const Vector<float>& values) {
  double x = 0, y = 0, z = 0;
  for (size_t i = 0; i < std::size(kBands) && i < values.size(); ++i) {
    const double power = static_cast<double>(values[i]) / kBands[i].width_nm;
    x += power * kBands[i].x;
    y += power * kBands[i].y;
    z += power * kBands[i].z;
  }
  const double n = (x / (x + y + z) - 0.3320) / (0.1858 - y / (x + y + z));
  return ((449 * n + 3525) * n + 6823.3) * n + 5520.33;
}

struct FirstSample : HylSpectralApiCallbackInterface {
  void OnSpectralData(uint32_t, uint32_t, const Vector<float>& values, int64_t) override {
    if (!taken) {
      temperature.set_value(ColourTemperature(values));
    }
    taken = true;
  }
  void OnFlickerData(uint32_t, const FlickerSampleBlock*) override {}
  bool taken = false;  // only the one sensor's thread calls
  std::promise<double> temperature;
};

int main() {
  host::SimulatedHub::Instance().SetScene({.kind = host::LightKind::kWarmLed});  // not on a device
  FirstSample sample;
  HylSpectralApi* api = nullptr;
  if (HylSpectralApi::Create(&api, &sample, HylLogLevel::kWarning) != HylErr::kOk) {
    return 1;
  }
  auto measured = sample.temperature.get_future();
  uint32_t session = 0;
  const HylErr err =
      api->EnableAmbientLightSensor("rear", session, SensorReportingMode::kContinuous);
  const bool came =
      err == HylErr::kOk && measured.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
  if (came) {
    std::printf("colour temperature: %.0f K\n", measured.get());
  }
  api->DisableAmbientLightSensor(session);
  HylSpectralApi::Destroy(&api);
  return came ? 0 : 1;
}
