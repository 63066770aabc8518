#include "flicker_metrics.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "flicker_generator.h"
#include "flicker_source.h"

namespace hyl::v2::host {
namespace {

constexpr double kSteadyPercent = 0.5;
/// Automatic gain settles within as many chunks.
constexpr int kSettlingChunks = 12;

double DepthPercent(const Conditions& conditions) {
  constexpr int kSamples = kFlickerSampleRateHz / 10;
  LightScene scene = conditions.scene;
  scene.drift_period_s = 0;  // drift is not flicker
  FlickerWaveform waveform;
  double low = std::numeric_limits<double>::max();
  double high = 0;
  for (int i = 0; i < kSamples; ++i) {
    const double lux = waveform.Next(scene) + (conditions.torch ? kTorchLux : 0);
    low = std::min(low, lux);
    high = std::max(high, lux);
  }
  return high > 0 ? 100 * (high - low) / (high + low) : 0;
}

uint16_t SaturatedPermille(const Conditions& conditions) {
  FlickerGenerator generator(conditions.scene, FlickerPacking{}, FlickerFaults{});
  const FlickerFrontEnd front_end = FlickerFrontEndFor(conditions);
  int saturated = 0;
  for (int i = 0; i < kSettlingChunks; ++i) {
    if (const auto chunk = generator.Next(conditions.scene, front_end)) {
      saturated = chunk->saturated;
    }
  }
  return static_cast<uint16_t>(1000 * saturated /
                               static_cast<int>(FlickerGenerator::kSamplesPerChunk));
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

void FillFrequencies(const LightScene& scene, FlickerMetrics& metrics) {
  if (scene.kind == LightKind::kFluorescent) {
    metrics.frequency_hz = Hertz(2 * scene.mains_hz);
    metrics.second_frequency_hz = Hertz(4 * scene.mains_hz);
  } else if (scene.kind == LightKind::kWarmLed) {
    metrics.frequency_hz = Hertz(scene.pwm_hz);
    metrics.second_frequency_hz = Hertz(StrongerHarmonic(scene.pwm_duty) * scene.pwm_hz);
  }
}

}  // namespace

FlickerMetrics MeasureFlickerMetrics(const Conditions& conditions) {
  FlickerMetrics metrics;
  const double depth = DepthPercent(conditions);
  metrics.depth_percent = static_cast<uint8_t>(std::lround(depth));
  metrics.saturated_permille = SaturatedPermille(conditions);
  if (depth > kSteadyPercent) {
    FillFrequencies(conditions.scene, metrics);
  }
  return metrics;
}

}  // namespace hyl::v2::host
