// SPDX-License-Identifier: Apache-2.0
// Measures the flicker of the light and says which exposure times give pictures without bands.
#include <chrono>
#include <complex>
#include <cstdio>
#include <future>
#include <memory>
#include <numbers>
#include <span>
#include <vector>

#include <hyl/spectral_client.h>

using namespace hyl::v2;

/// Amplitude of the ripple of that frequency in the samples, as a part of their mean.
double Ripple(const std::vector<int>& samples, double hz, double rate_hz) {
  std::complex<double> sum = 0;
  double mean = 0;
  for (size_t i = 0; i < samples.size(); ++i) {
    const double sample = samples[i];
    sum += sample * std::polar(1.0, -2 * std::numbers::pi * hz * static_cast<double>(i) / rate_hz);
    mean += sample;
  }
  return mean > 0 ? 2 * std::abs(sum) / mean : 0;
}

/// Gathers a tenth of a second without gaps: whole periods of 100 Hz and of 120 Hz.
class Recorder {
 public:
  void Take(std::span<const int> chunk, const FlickerSampleBlock& block) {
    if (complete) {
      return;
    }
    if (block.seq_num != next || block.format_param != rate_hz) {
      samples.clear();
    }
    next = block.seq_num + block.num_samples;
    rate_hz = block.format_param;
    samples.insert(samples.end(), chunk.begin(), chunk.end());
    if (rate_hz > 0 && samples.size() >= rate_hz / 10) {
      samples.resize(rate_hz / 10);
      complete = true;
      done.set_value();
    }
  }

  std::promise<void> done;  // the main thread reads the others then
  uint32_t rate_hz = 0;
  std::vector<int> samples;

 private:
  bool complete = false;
  uint32_t next = 0;  // sequence number
};

int Fail(const char* what, HylErr err) {
  std::fprintf(stderr, "cannot %s (%s): %s\n", what, NameOf(err), AdviceOf(err));
  return 1;
}

int main() {
  Recorder recorder;
  SpectralClient client(
      {.flicker = [&](auto chunk, const auto& block) { recorder.Take(chunk, block); }});
  // A change of gain would look like flicker.
  if (const HylErr err = client.api().SetFlickerAutoGainEnabled(nullptr, false);
      err != HylErr::kOk) {
    return Fail("fix the gain", err);
  }
  std::unique_ptr<FlickerSession> session;
  if (const HylErr err = client.EnableFlicker("", 4096, 16, session); err != HylErr::kOk) {
    return Fail("start the sensor", err);
  }
  if (recorder.done.get_future().wait_for(std::chrono::seconds(5)) != std::future_status::ready) {
    std::fprintf(stderr, "%s has not sent enough samples\n", session->name().c_str());
    return 1;
  }
  for (const double hz : {100.0, 120.0}) {
    const double ripple = 100 * Ripple(recorder.samples, hz, recorder.rate_hz);
    std::printf("ripple of %.0f Hz: %.1f %%; %s %.3f ms\n", hz, ripple,
                ripple < 2 ? "no need for" : "expose for multiples of", 1000 / hz);
  }
}
