// SPDX-License-Identifier: Apache-2.0
// Loads the library at run time and uses its exported interface, as a client does that must also
// start where the library is missing. It is linked with nothing of it.
#include <dlfcn.h>

#include <chrono>
#include <cstdio>
#include <future>

#include <hyl/hyl_spectral_api.h>

using namespace hyl::v2;

using CreateFunction = decltype(HylSpectralApi::Create);
using DestroyFunction = decltype(HylSpectralApi::Destroy);

/// Keeps the number of values of the first sample.
struct FirstSample : HylSpectralApiCallbackInterface {
  void OnSpectralData(uint32_t, uint32_t, const Vector<float>& values, int64_t) override {
    if (!taken) {
      size.set_value(values.size());
    }
    taken = true;
  }
  void OnFlickerData(uint32_t, const FlickerSampleBlock*) override {}

  bool taken = false;  // only the sensor's thread uses it
  std::promise<size_t> size;
};

/// 0 when a sample has come.
int TakeOneSample(HylSpectralApi& api, FirstSample& sample) {
  uint32_t session = 0;
  const HylErr err =
      api.EnableAmbientLightSensor("rear", session, SensorReportingMode::kContinuous);
  if (err != HylErr::kOk) {
    std::fprintf(stderr, "cannot start the sensor (%s): %s\n", NameOf(err), AdviceOf(err));
    return 1;
  }
  auto size = sample.size.get_future();
  const bool came = size.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
  api.DisableAmbientLightSensor(session);
  if (!came) {
    std::fprintf(stderr, "the sensor is silent\n");
    return 1;
  }
  std::printf("a sample of %zu values\n", size.get());
  return 0;
}

int main() {
  void* const library = dlopen("hyl_v2_spectral_api.so", RTLD_NOW);
  if (library == nullptr) {
    const char* const reason = dlerror();  // NOLINT(concurrency-mt-unsafe): one thread here
    std::fprintf(stderr, "cannot load the library: %s\n", reason);
    return 1;
  }
  auto* const create = reinterpret_cast<CreateFunction*>(
      dlsym(library,
            "_ZN3hyl2v214HylSpectralApi6CreateEPPS1_PNS0_31HylSpectralApiCallbackInterfaceENS0_"
            "11HylLogLevelE"));
  auto* const destroy = reinterpret_cast<DestroyFunction*>(
      dlsym(library, "_ZN3hyl2v214HylSpectralApi7DestroyEPPS1_"));
  if (create == nullptr || destroy == nullptr) {
    std::fprintf(stderr, "hyl_v2_spectral_api.so lacks the functions that this client needs\n");
    return 1;
  }
  FirstSample sample;  // outlives the instance
  HylSpectralApi* api = nullptr;
  if (const HylErr err = create(&api, &sample, HylLogLevel::kWarning); err != HylErr::kOk) {
    std::fprintf(stderr, "cannot make an instance (%s): %s\n", NameOf(err), AdviceOf(err));
    return 1;
  }
  const int status = TakeOneSample(*api, sample);
  destroy(&api);
  return status;  // the library stays loaded, whatever dlclose says
}
