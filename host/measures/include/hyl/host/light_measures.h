#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace hyl::v2::host {

/// What the light does in a stretch of samples.
///
/// Modulation and flicker index are those of IEEE Std 1789-2015, clause 3 ("percent flicker" and
/// "flicker index"). They compare light with darkness: a sample below 0, which only noise brings
/// about, counts as darkness, and where such noise reaches as far down as the mean is high, there
/// is no light to speak of and they have no value.
struct FlickerLevels {
  double mean;
  double min;
  double max;
  /// (max - min) / (max + min), in percent.
  std::optional<double> modulation_percent;
  /// The area above the mean as a part of the whole area, 0 to 1.
  std::optional<double> flicker_index;

  bool operator==(const FlickerLevels&) const = default;
};

/// `samples` must not be empty.
FlickerLevels LevelsOf(std::span<const int32_t> samples);

/// Magnitudes of the discrete Fourier transform, from 0 Hz to half the sample rate. Any number of
/// values is fast, a prime one too; there must be one at least.
std::vector<double> FourierMagnitudes(const std::vector<double>& values);

/// What lighting engineers read off a second of light.
struct LightMeasures {
  /// Stroboscopic visibility measure by CIE TN 006:2016, "Visual aspects of time-modulated lighting
  /// systems": at 1, an average observer sees the stroboscopic effect half of the time. A wave that
  /// lies between two steps of its spectrum, which are 1 Hz apart, loses up to 23 %.
  std::optional<double> visibility;
  std::optional<std::string_view> risk;         ///< as by RiskOf, at the dominant frequency
  std::optional<std::string_view> absent = {};  ///< why the risk, or both, are absent
};

/// Of the newest second. Neither is there for less than a second, for 4000 samples a second or
/// less, which cannot have 2 kHz, and without light; there is no risk without a dominant frequency.
LightMeasures MeasuresOf(std::span<const int32_t> samples, uint32_t sample_rate_hz,
                         std::optional<double> dominant_hz);

/// By IEEE Std 1789-2015, clause 8: "no effect" is within recommended practice 2, "low" is within
/// recommended practice 1, "high" is within neither.
std::string_view RiskOf(double modulation_percent, double hz);

/// Pictures that are exposed for a multiple of it have no bands, since each line gathers whole
/// periods: those of the flicker or, within 1 % of 100 or 120 Hz, half those of the mains.
double BandFreeStepMs(double dominant_hz);

}  // namespace hyl::v2::host
