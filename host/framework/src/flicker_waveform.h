#pragma once

#include <cstdint>

#include <hyl/host/light_scene.h>

namespace hyl::v2::host {

inline constexpr uint32_t kFlickerSampleRateHz = 24000;

/// The light of a scene as it changes from one flicker sample to the next. Its phases run on when
/// the scene changes, so that the light never jumps by more than the scene does.
class FlickerWaveform {
 public:
  /// The light at the next sample, in lux, without noise. Never negative, and finite for any scene:
  /// values that make no sense count as the nearest that do.
  double Next(const LightScene& scene);

 private:
  // Each in turns, 0 to 1.
  double drift_phase_ = 0;
  double mains_phase_ = 0;
  double pwm_phase_ = 0;
};

/// Standard deviation of a sample's noise under that much light, in lux. Its variance grows with
/// the light, as that of counted photons does.
double NoiseDeviation(double lux);

}  // namespace hyl::v2::host
