#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "ambient_light.h"

namespace hyl::v2::host {

inline constexpr uint32_t kFlickerSampleRateHz = 24000;
inline constexpr size_t kFlickerSamplesPerChunk = kFlickerSampleRateHz / 100;

/// What the flicker sensor measures: the light with noise, amplified and digitised.
class FlickerSignal {
 public:
  /// `bits`: width of the samples, 1 to 32.
  FlickerSignal(uint64_t seed, int bits);

  /// The samples of the next 10 ms. The gain is the one set or, with automatic gain, one that
  /// starts there and follows the light in steps of two, from chunk to chunk.
  std::vector<int32_t> NextChunk(const Conditions& conditions);

  /// The gain in force.
  double Gain() const { return gain_; }
  /// Samples of the latest chunk that met the limits of the converter's range.
  int Saturated() const { return saturated_; }

 private:
  void SetGain(const Conditions& conditions);
  int32_t Convert(double lux, double pedestal);

  const double full_scale_;  // 2^(bits - 1)
  uint64_t sample_count_ = 0;
  NoiseEngine noise_;
  std::normal_distribution<double> normal_;
  double gain_ = 1;  // at 1, the converter's full scale is 2000 lx
  bool automatic_ = false;
  double peak_ = 0;  // highest of the latest chunk, in units of full scale
  int saturated_ = 0;
};

/// What the flicker sensor finds out about the light by itself.
struct FlickerMetrics {
  uint16_t frequency_hz = 0;         ///< of the strongest component; 0 for steady light
  uint16_t second_frequency_hz = 0;  ///< of its strongest harmonic; 0 for steady light
  uint8_t depth_percent = 0;         ///< (max - min) / (max + min)
  uint16_t saturated_permille = 0;   ///< clipped samples
};

FlickerMetrics MeasureFlickerMetrics(const Conditions& conditions);

}  // namespace hyl::v2::host
