// SPDX-License-Identifier: Apache-2.0
// Measures the colour temperature of the light from the spectral channels of the rear sensor.
#include <chrono>
#include <cstdio>
#include <future>
#include <memory>
#include <span>

#include <hyl/spectral_client.h>

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

/// McCamy's formula: kelvins, good from 2000 K to 12500 K. 0 where the bands are missing or dark.
double ColourTemperature(std::span<const float> values) {
  if (values.size() < std::size(kBands)) {
    return 0;
  }
  double x = 0, y = 0, z = 0;
  for (size_t i = 0; i < std::size(kBands); ++i) {
    const double power = static_cast<double>(values[i]) / kBands[i].width_nm;
    x += power * kBands[i].x;
    y += power * kBands[i].y;
    z += power * kBands[i].z;
  }
  if (y <= 0) {
    return 0;
  }
  const double n = (x / (x + y + z) - 0.3320) / (0.1858 - y / (x + y + z));
  return ((449 * n + 3525) * n + 6823.3) * n + 5520.33;
}

/// 0 where the sensor is silent for five seconds.
double Measure(std::future<double> first) {
  return first.wait_for(std::chrono::seconds(5)) == std::future_status::ready ? first.get() : 0;
}

int main() {
  std::promise<double> first;
  bool taken = false;  // only the sensor's thread uses it
  SpectralClient client({.ambient_light = [&](std::span<const float> values, auto) {
    if (!taken) {
      first.set_value(ColourTemperature(values));
    }
    taken = true;
  }});
  std::unique_ptr<AmbientLightSession> session;
  const HylErr err = client.EnableAmbientLight("rear", SensorReportingMode::kContinuous, session);
  if (err != HylErr::kOk) {
    std::fprintf(stderr, "cannot start the sensor (%s): %s\n", NameOf(err), AdviceOf(err));
    return 1;
  }
  const double kelvins = Measure(first.get_future());
  if (!(kelvins > 0)) {
    std::fprintf(stderr, "%s: no sample with light in its nine bands\n", session->name().c_str());
    return 1;
  }
  std::printf("colour temperature: %.0f K\n", kelvins);
}
