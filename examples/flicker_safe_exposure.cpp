// Measures the flicker of the light and says which exposure times give pictures without bands.
#include <chrono>
#include <complex>
#include <cstdio>
#include <future>
#include <numbers>
#include <vector>

#include <hyl/host/simulated_hub.h>
#include <hyl/hyl_spectral_api.h>

using namespace hyl::v2;

/// Amplitude of the ripple of that frequency over a tenth of a second, as a part of the mean.
double Ripple(const std::vector<int>& samples, double hz, double rate_hz) {
  std::complex<double> sum = 0;
  double mean = 0;
  for (size_t i = 0; i < static_cast<size_t>(rate_hz / 10); ++i) {
    const double sample = samples[i];
    sum += sample * std::polar(1.0, -2 * std::numbers::pi * hz * static_cast<double>(i) / rate_hz);
    mean += sample;
  }
  return mean > 0 ? 2 * std::abs(sum) / mean : 0;
}

/// Gathers a tenth of a second at least: whole periods of 100 Hz and of 120 Hz.
struct Recorder : HylSpectralApiCallbackInterface {
  void OnSpectralData(uint32_t, uint32_t, const Vector<float>&, int64_t) override {}
  void OnFlickerData(uint32_t, const FlickerSampleBlock* block) override {
    const size_t wanted = block->format_param / 10;
    if (samples.size() >= wanted) {
      return;
    }
    samples.insert(samples.end(), block->samples, block->samples + block->num_samples);
    if (samples.size() >= wanted) {
      rate_hz.set_value(block->format_param);
    }
  }
  std::vector<int> samples;  // the main thread reads it once rate_hz is there
  std::promise<double> rate_hz;
};

int main() {
  host::SimulatedHub::Instance().SetScene({.kind = host::LightKind::kFluorescent});  // host only
  std::vector<int> buffer(4096);
  Recorder recorder;
  HylSpectralApi* api = nullptr;
  if (HylSpectralApi::Create(&api, &recorder, HylLogLevel::kWarning) != HylErr::kOk) {
    return 1;
  }
  uint32_t session = 0;
  api->SetFlickerAutoGainEnabled(nullptr, false);  // a change of gain would look like flicker
  if (api->EnableFlickerSensor("", buffer.data(), buffer.size(), 16, session) != HylErr::kOk) {
    HylSpectralApi::Destroy(&api);
    return 1;
  }
  auto rate = recorder.rate_hz.get_future();
  const auto result = rate.wait_for(std::chrono::seconds(5));
  api->DisableFlickerSensor(session);
  HylSpectralApi::Destroy(&api);
  if (result != std::future_status::ready) {
    return 1;
  }
  const double rate_hz = rate.get();
  for (const double hz : {100.0, 120.0}) {
    const double ripple = 100 * Ripple(recorder.samples, hz, rate_hz);
    std::printf("ripple of %.0f Hz: %.1f %%; %s %.3f ms\n", hz, ripple,
                ripple < 2 ? "no need for" : "expose for multiples of", 1000 / hz);
  }
}
