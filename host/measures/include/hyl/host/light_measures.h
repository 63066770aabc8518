// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace hyl::v2::host {

/// Levels of the light in a stretch of samples.
///
/// Modulation and flicker index are those of IEEE Std 1789-2015, clause 3 ("percent flicker" and
/// "flicker index"). They compare light with darkness. Only noise produces a sample below 0, which
/// therefore counts as darkness. If noise reaches as far below 0 as the mean is above it, there is
/// no light, and both are empty.
struct FlickerLevels {
  double mean;
  double min;
  double max;
  /// (max - min) / (max + min), in percent.
  std::optional<double> modulation_percent;
  /// The area above the mean as a fraction of the whole area, 0 to 1.
  std::optional<double> flicker_index;

  bool operator==(const FlickerLevels&) const = default;
};

/// `samples` must not be empty.
FlickerLevels LevelsOf(std::span<const int32_t> samples);

/// Magnitudes of the discrete Fourier transform, from 0 Hz to half the sample rate. It is fast for
/// any number of values, even a prime number. There must be at least one.
std::vector<double> FourierMagnitudes(const std::vector<double>& values);

/// Measures of a second of light, as lighting engineers use them.
struct LightMeasures {
  /// Stroboscopic visibility measure by CIE TN 006:2016, "Visual aspects of time-modulated lighting
  /// systems". At 1, an average observer sees the stroboscopic effect half of the time. The steps
  /// of its spectrum are 1 Hz apart; a wave between two of them loses up to 23 %.
  std::optional<double> visibility;
  std::optional<std::string_view> risk;         ///< of RiskOf, at the dominant frequency
  std::optional<std::string_view> absent = {};  ///< why the risk or both are empty
};

/// The measures of the newest second. Both are empty if there is less than a second or no light,
/// and at 4000 samples a second or fewer, which cannot show 2 kHz. Without a dominant frequency,
/// the risk is empty.
LightMeasures MeasuresOf(std::span<const int32_t> samples, uint32_t sample_rate_hz,
                         std::optional<double> dominant_hz);

/// By IEEE Std 1789-2015, clause 8: "no effect" is within recommended practice 2, "low" is within
/// recommended practice 1, "high" is within neither.
std::string_view RiskOf(double modulation_percent, double hz);

/// The shortest exposure time without bands, in milliseconds; its multiples have none, either. In
/// such a time, each line of a picture gathers whole periods: of the flicker or, within 1 % of 100
/// or 120 Hz, of twice the mains frequency.
double BandFreeStepMs(double dominant_hz);

}  // namespace hyl::v2::host
