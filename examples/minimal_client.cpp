// SPDX-License-Identifier: Apache-2.0
// Prints what the rear ambient-light sensor sees, for two seconds.
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>

#include <hyl/spectral_client.h>

using namespace hyl::v2;

int main() {
  SpectralClient client({.ambient_light = [](auto values, auto time) {
    std::printf("%.3f s:", std::chrono::duration<double>(time).count());
    for (const double value : values) {
      std::printf(" %.1f", value);
    }
    std::printf("\n");
  }});
  std::unique_ptr<AmbientLightSession> rear;
  const HylErr err = client.EnableAmbientLight("rear", SensorReportingMode::kContinuous, rear);
  if (err != HylErr::kOk) {
    std::fprintf(stderr, "cannot start the sensor (%s): %s\n", NameOf(err), AdviceOf(err));
    return 1;
  }
  std::this_thread::sleep_for(std::chrono::seconds(2));
}
