#include "flicker_signal.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace hyl::v2::host {
namespace {

/// Tells this sensor's noise from that of the ambient-light sensors.
constexpr uint32_t kNoiseStream = 2;
constexpr double kDarkLux = 0.02;
/// Time that the LED takes to switch, in seconds.
constexpr double kPwmEdge = 20e-6;
constexpr double kMinDuty = 0.001;
constexpr double kReadNoiseVariance = 0.01;      // lux^2
constexpr double kPhotonVariancePerLux = 0.005;  // lux

constexpr double kFullScaleLux = 2000;  // at gain 1
constexpr double kMinAutoGain = 1.0 / 1024;
constexpr double kMaxAutoGain = 1024;
constexpr double kTooBright = 0.9;  // of full scale
constexpr double kTooDim = 0.3;

constexpr double kSteadyPercent = 0.5;
/// Automatic gain settles within as many chunks.
constexpr int kSettlingChunks = 12;

double Sine(double turns) {
  return std::sin(2 * std::numbers::pi * turns);
}

/// The tube follows the mains' power: twice its frequency, and the harmonics of that.
double FluorescentFactor(double phase) {
  return 1 + 0.25 * Sine(phase) + 0.08 * Sine(2 * phase + 0.1) + 0.03 * Sine(3 * phase + 0.3);
}

/// A square wave with sloping edges. Its mean is 1, whatever the duty.
double PwmFactor(const LightScene& scene, double phase) {
  const double duty = std::max(scene.pwm_duty, kMinDuty);
  const double edge = std::min({scene.pwm_hz * kPwmEdge, duty, 1 - duty});
  phase -= std::floor(phase);
  double on = 0;
  if (phase < edge) {
    on = phase / edge;
  } else if (phase < duty) {
    on = 1;
  } else if (phase < duty + edge) {
    on = 1 - (phase - duty) / edge;
  }
  return on / duty;
}

/// The light at a sample, in lux, without noise. Samples are counted from 0 at the sensor's start.
double LuxAt(const LightScene& scene, uint64_t sample) {
  const double seconds = static_cast<double>(sample + 1) / kFlickerSampleRateHz;
  const double level = scene.illuminance_lux * DriftFactor(scene, seconds);
  switch (scene.kind) {
    case LightKind::kDaylight:
      return level;
    case LightKind::kWarmLed:
      return level * PwmFactor(scene, scene.pwm_hz * seconds);
    case LightKind::kFluorescent:
      return level * FluorescentFactor(2 * scene.mains_hz * seconds);
    case LightKind::kDark:
      break;
  }
  return kDarkLux;
}

/// Standard deviation of a sample's noise under that much light, in lux. Its variance grows with
/// the light, as that of counted photons does.
double NoiseDeviation(double lux) {
  return std::sqrt(kReadNoiseVariance + kPhotonVariancePerLux * lux);
}

double TorchLux(const Conditions& conditions) {
  return conditions.settings.torch ? kTorchLux : 0;
}

double DepthPercent(const Conditions& conditions) {
  constexpr uint64_t kSamples = kFlickerSampleRateHz / 10;
  LightScene scene = conditions.scene;
  scene.drift_period_s = 0;  // drift is not flicker
  double low = std::numeric_limits<double>::max();
  double high = 0;
  for (uint64_t sample = 0; sample < kSamples; ++sample) {
    const double lux = LuxAt(scene, sample) + TorchLux(conditions);
    low = std::min(low, lux);
    high = std::max(high, lux);
  }
  return high > 0 ? 100 * (high - low) / (high + low) : 0;
}

uint16_t SaturatedPermille(const Conditions& conditions) {
  constexpr int kBits = 12;
  FlickerSignal signal(conditions.scene.seed, kBits);
  for (int i = 0; i < kSettlingChunks; ++i) {
    signal.NextChunk(conditions);
  }
  return static_cast<uint16_t>(1000 * signal.Saturated() /
                               static_cast<int>(kFlickerSamplesPerChunk));
}

/// The harmonic, 2 or 3, that is stronger in a square wave of this duty.
int StrongerHarmonic(double duty) {
  const auto strength = [duty](int n) {
    return std::abs(std::sin(std::numbers::pi * n * duty)) / n;
  };
  return strength(2) >= strength(3) ? 2 : 3;
}

uint16_t Hertz(double hz) {
  return static_cast<uint16_t>(std::clamp(std::round(hz), 0.0, 65535.0));
}

}  // namespace

FlickerSignal::FlickerSignal(uint64_t seed, int bits)
    : full_scale_(std::exp2(bits - 1)), noise_(MakeNoise(seed, kNoiseStream, 0)) {}

std::vector<int32_t> FlickerSignal::NextChunk(const Conditions& conditions) {
  SetGain(conditions);
  peak_ = -1;
  saturated_ = 0;
  const double pedestal = conditions.settings.flicker.pedestal / 256.0;
  std::vector<int32_t> samples(kFlickerSamplesPerChunk);
  for (int32_t& sample : samples) {
    const double lux = LuxAt(conditions.scene, sample_count_++) + TorchLux(conditions);
    sample = Convert(lux + normal_(noise_) * NoiseDeviation(lux), pedestal);
  }
  return samples;
}

void FlickerSignal::SetGain(const Conditions& conditions) {
  const FlickerSettings& settings = conditions.settings.flicker;
  if (!settings.auto_gain || !automatic_) {
    gain_ = settings.gain * ShareOfChannel(conditions.scene.kind, settings.channel);
  } else if (peak_ > kTooBright && gain_ > kMinAutoGain) {
    gain_ /= 2;
  } else if (peak_ < kTooDim && gain_ < kMaxAutoGain) {
    gain_ *= 2;
  }
  automatic_ = settings.auto_gain;
}

int32_t FlickerSignal::Convert(double lux, double pedestal) {
  const double level = lux / kFullScaleLux * gain_ - pedestal;
  const double value = std::floor(level * full_scale_);
  const double limited = std::clamp(value, -full_scale_, full_scale_ - 1);
  if (value != limited) {
    ++saturated_;
  }
  peak_ = std::max(peak_, level);
  return static_cast<int32_t>(limited);
}

FlickerMetrics MeasureFlickerMetrics(const Conditions& conditions) {
  const LightScene& scene = conditions.scene;
  const double depth = DepthPercent(conditions);
  FlickerMetrics metrics;
  metrics.depth_percent = static_cast<uint8_t>(std::lround(depth));
  metrics.saturated_permille = SaturatedPermille(conditions);
  if (depth > kSteadyPercent && scene.kind == LightKind::kFluorescent) {
    metrics.frequency_hz = Hertz(2 * scene.mains_hz);
    metrics.second_frequency_hz = Hertz(4 * scene.mains_hz);
  } else if (depth > kSteadyPercent && scene.kind == LightKind::kWarmLed) {
    metrics.frequency_hz = Hertz(scene.pwm_hz);
    metrics.second_frequency_hz = Hertz(StrongerHarmonic(scene.pwm_duty) * scene.pwm_hz);
  }
  return metrics;
}

}  // namespace hyl::v2::host
