#include "flicker_waveform.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace hyl::v2::host {
namespace {

constexpr double kDarkLux = 0.02;
constexpr double kMaxLux = 1e6;
/// Time in which the LED goes on or off, in seconds.
constexpr double kPwmEdge = 20e-6;
constexpr double kMinDuty = 0.001;
constexpr double kReadNoiseVariance = 0.01;      // lux^2
constexpr double kPhotonVariancePerLux = 0.005;  // lux

/// `value` limited to `low`..`high`; not-a-number counts as `low`.
double Limit(double value, double low, double high) {
  return value >= low ? std::min(value, high) : low;
}

double Sine(double turns) {
  return std::sin(2 * std::numbers::pi * turns);
}

/// Moves a phase on by one sample.
void Advance(double& phase, double hz) {
  phase += Limit(hz, 0, kFlickerSampleRateHz) / kFlickerSampleRateHz;
  phase -= std::floor(phase);
}

double DriftFactor(const LightScene& scene, double& phase) {
  if (!(scene.drift_period_s > 0)) return 1;
  Advance(phase, 1 / scene.drift_period_s);
  return 1 + Limit(scene.drift_depth, 0, 1) * Sine(phase);
}

/// The tube follows the mains' power: twice its frequency, and the harmonics of that.
double FluorescentFactor(double phase) {
  return 1 + 0.25 * Sine(phase) + 0.08 * Sine(2 * phase + 0.1) + 0.03 * Sine(3 * phase + 0.3);
}

/// A square wave with sloping edges. Its mean is 1, whatever the duty.
double PwmFactor(const LightScene& scene, double phase) {
  const double duty = Limit(scene.pwm_duty, kMinDuty, 1);
  const double edge =
      std::min({Limit(scene.pwm_hz, 0, kFlickerSampleRateHz) * kPwmEdge, duty, 1 - duty});
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

}  // namespace

double FlickerWaveform::Next(const LightScene& scene) {
  Advance(mains_phase_, 2 * scene.mains_hz);
  Advance(pwm_phase_, scene.pwm_hz);
  const double level = Limit(scene.illuminance_lux, 0, kMaxLux) * DriftFactor(scene, drift_phase_);
  switch (scene.kind) {
    case LightKind::kDaylight:
      return level;
    case LightKind::kWarmLed:
      return level * PwmFactor(scene, pwm_phase_);
    case LightKind::kFluorescent:
      return level * FluorescentFactor(mains_phase_);
    case LightKind::kDark:
      break;
  }
  return kDarkLux;
}

double NoiseDeviation(double lux) {
  return std::sqrt(kReadNoiseVariance + kPhotonVariancePerLux * std::max(lux, 0.0));
}

}  // namespace hyl::v2::host
