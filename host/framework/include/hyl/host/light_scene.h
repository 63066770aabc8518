#pragma once

#include <cstdint>

namespace hyl::v2::host {

/// Kinds of light. Each has a spectrum and a flicker of its own.
enum class LightKind {
  kDaylight,     ///< steady
  kWarmLed,      ///< phosphor LED, dimmed by pulse width at a few kilohertz
  kFluorescent,  ///< line spectrum; ripples at twice the mains frequency, with harmonics
  kDark,         ///< nearly nothing but sensor noise
};

/// What the simulated sensors look at.
struct LightScene {
  LightKind kind = LightKind::kDaylight;
  double illuminance_lux = 500;
  double drift_period_s = 20;  ///< period of a slow change of level; 0 for none
  double drift_depth = 0.05;   ///< its amplitude, as a part of the level
  double mains_hz = 50;        ///< 50 or 60
  double pwm_hz = 2000;        ///< of the warm LED
  double pwm_duty = 0.5;       ///< of the warm LED, 0 to 1
  uint64_t seed = 1;           ///< of the noise; the same seed gives the same data

  bool operator==(const LightScene&) const = default;
};

}  // namespace hyl::v2::host
