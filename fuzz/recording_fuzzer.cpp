// SPDX-License-Identifier: Apache-2.0
// A recording of any bytes, replayed to a client through the library.

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include <android-base/logging.h>
#include <hyl/host/replay.h>
#include <hyl/spectral_client.h>

namespace {

using namespace hyl::v2;

/// Runs the first sensor of each kind, if there is one.
void ReplayAll(const std::string& file) {
  host::Replay replay(file);
  SpectralClient client({});
  std::unique_ptr<AmbientLightSession> light;
  std::unique_ptr<FlickerSession> flicker;
  (void)client.EnableAmbientLight("", SensorReportingMode::kContinuous, light);
  (void)client.EnableFlicker("", 16, 12, flicker);
  while (replay.NextDue() != host::Replay::kNever) {
    replay.Step();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  android::base::SetMinimumLogSeverity(android::base::FATAL);
  const int file = memfd_create("recording", MFD_CLOEXEC);
  if (write(file, data, size) == static_cast<ssize_t>(size)) {
    try {
      ReplayAll("/proc/self/fd/" + std::to_string(file));
    } catch (const std::runtime_error&) {  // what is wrong with it
    }
  }
  close(file);
  return 0;
}
