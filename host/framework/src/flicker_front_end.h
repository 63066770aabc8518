#pragma once

#include <cstdint>

namespace hyl::v2::host {

/// Settings of the flicker sensor's front end.
struct FlickerFrontEnd {
  float gain = 1;        ///< at 1, the converter's full scale is 2000 lx
  uint8_t pedestal = 0;  ///< taken off before conversion, in 1/256 of full scale
  bool auto_gain = false;
  double extra_lux = 0;  ///< steady light besides the scene's, as from the torch
};

/// Amplifies and digitises the light. The caller hands samples in order; with automatic gain, the
/// gain changes between chunks only.
class FlickerAdc {
 public:
  /// `bits`: width of the samples, 1 to 32.
  explicit FlickerAdc(int bits);

  /// Takes over the gain for the chunk that begins: the one set or, with automatic gain, one that
  /// starts there and follows the light in steps of two.
  void BeginChunk(const FlickerFrontEnd& settings);
  /// The sample, limited to the converter's range.
  int32_t Convert(double lux);

  /// The gain in force.
  float Gain() const { return static_cast<float>(gain_); }
  /// Samples of the present chunk that met the limits of the range.
  int Saturated() const { return saturated_; }

 private:
  void FollowLight();

  const double full_scale_;  // 2^(bits - 1)
  double gain_ = 1;
  double pedestal_ = 0;  // of full scale
  bool automatic_ = false;
  double peak_ = 0;  // highest of the present chunk, in units of full scale
  int saturated_ = 0;
};

}  // namespace hyl::v2::host
