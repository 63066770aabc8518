// SPDX-License-Identifier: Apache-2.0
#include "ambient_light.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>

namespace hyl::v2::host {
namespace {

constexpr double kElectronsPerCount = 50;  // at gain 1
constexpr double kDarkElectronsPerMs = 0.5;
constexpr double kConverterNoiseCounts = 0.6;
constexpr double kAutoGainTarget = 0.6;  // of full scale, on the brightest channel
constexpr double kNoticeableChange = 0.03;
constexpr double kNoticeableCountsPerMs = 0.002;
constexpr size_t kEventsPerChain = 4;
/// One chain in this many ends with an event of the kind that clients ignore.
constexpr uint64_t kChainsPerIgnoredEvent = 3;

constexpr Channels kFactoryFactors = {1.062, 0.981, 1.014, 0.993, 1.027, 0.968,
                                      1.008, 1.035, 0.974, 1.051, 0.988, 1.003};
constexpr Channels kOtpFactors = {0.952, 1.019, 0.987, 1.008, 0.994, 1.022,
                                  0.979, 0.991, 1.033, 0.966, 1.011, 0.997};

/// The largest gain that keeps the brightest channel well inside the converter's range.
double GainInUse(const Channels& light, const SpectralSettings& settings, double exposure_ms) {
  if (!settings.auto_gain) {
    return settings.gain;
  }
  const double brightest = *std::max_element(light.begin(), light.end());
  const double counts_at_gain_1 =
      (brightest + kDarkElectronsPerMs / kElectronsPerCount) * exposure_ms;
  double gain = kMaxGain;
  while (gain > kMinGain && gain * counts_at_gain_1 > kAutoGainTarget * kSpectralFullScale) {
    gain /= 2;
  }
  return gain;
}

/// What the sensor reports for this light.
std::vector<float> Measure(const Channels& light, const SpectralSettings& settings,
                           NoiseEngine noise) {
  const double exposure_ms = settings.exposure_us / 1000.0;
  const double gain = GainInUse(light, settings, exposure_ms);
  std::normal_distribution<double> converter_noise(0, kConverterNoiseCounts);
  std::vector<float> values;
  values.reserve(light.size());
  for (size_t i = 0; i < light.size(); ++i) {
    const double mean = (light[i] * kElectronsPerCount + kDarkElectronsPerMs) * exposure_ms;
    // As good as their Poisson distribution, whose generator writes a global variable.
    std::normal_distribution<double> photons(mean, std::sqrt(mean));
    const double electrons = std::max(0.0, std::round(photons(noise)));
    const double counts =
        std::round(electrons / kElectronsPerCount * gain + converter_noise(noise));
    double value = std::clamp(counts, 0.0, kSpectralFullScale);
    value *= settings.factory_calibration ? kFactoryFactors[i] : 1;
    value *= settings.otp_calibration ? kOtpFactors[i] : 1;
    values.push_back(static_cast<float>(value));
  }
  return values;
}

bool NoticeablyDifferent(const Channels& light, const Channels& reported) {
  for (size_t i = 0; i < light.size(); ++i) {
    const double change = std::abs(light[i] - reported[i]);
    if (change > kNoticeableChange * reported[i] + kNoticeableCountsPerMs) {
      return true;
    }
  }
  return false;
}

int64_t InTicks(int64_t time_ns) {
  return static_cast<int64_t>(NsToPlatformTicks(static_cast<uint64_t>(time_ns)) | kTicksFlag);
}

}  // namespace

void AmbientLightSensor::OnTick(const Measurement& measurement, const Deliver& deliver) {
  const Conditions& conditions = measurement.conditions;
  const Channels light = LightOnChannels(conditions, side_, measurement.elapsed_ns);
  if (!IsWorthReporting(light)) {
    return;
  }
  const int64_t time_ns = measurement.tick.time_ns;
  std::vector<float> values = Measure(
      light, conditions.settings.spectral,
      MakeNoise(conditions.scene.seed, static_cast<uint32_t>(side_), measurement.tick.index));
  if (side_ == Side::kRear) {
    deliver(SpectralMessage(values, time_ns));
    return;
  }
  Collect(time_ns, std::move(values));
  if (on_change_ || collected_.size() >= kEventsPerChain) {
    DeliverChain(deliver);
  }
}

bool AmbientLightSensor::IsWorthReporting(const Channels& light) {
  if (!on_change_) {
    return true;
  }
  if (reported_ && !NoticeablyDifferent(light, *reported_)) {
    return false;
  }
  reported_ = light;
  return true;
}

/// Every second event has its time in ticks.
void AmbientLightSensor::Collect(int64_t time_ns, std::vector<float> values) {
  const bool in_ticks = event_count_++ % 2 == 1;
  collected_.push_back(
      {.values = std::move(values), .timestamp = in_ticks ? InTicks(time_ns) : time_ns});
}

void AmbientLightSensor::DeliverChain(const Deliver& deliver) {
  if (++chain_count_ % kChainsPerIgnoredEvent == 0) {
    collected_.push_back(
        {.type = SensorEventType::kIgnored, .timestamp = collected_.back().timestamp});
  }
  deliver(EventChainMessage(std::exchange(collected_, {})));
}

}  // namespace hyl::v2::host
