#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace hyl::v2::tool {

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
};

/// `samples` must not be empty.
FlickerLevels LevelsOf(std::span<const int32_t> samples);

/// Amplitudes of the sine waves that the samples are made of.
struct FlickerSpectrum {
  double bin_hz;                   ///< distance of two entries
  double drift;                    ///< the linear drift that is left out, from end to end
  std::vector<double> amplitudes;  ///< from 0 Hz on, in units of a sample
};

/// The spectrum, free of mean and linear drift, through a Hann window (F. J. Harris, "On the use of
/// windows for harmonic analysis with the discrete Fourier transform", Proc. IEEE 66, 1978). Empty
/// for less than two samples.
FlickerSpectrum SpectrumOf(std::span<const int32_t> samples, double sample_rate_hz);

struct SpectrumPeak {
  double hz;
  double amplitude;  ///< 4 % too high at worst, half-way between two entries
};

/// The highest entry that is a peak: higher than the entries around it, and well above the noise.
/// Its place is interpolated by a parabola through the logarithms of three entries (J. O. Smith,
/// "Spectral Audio Signal Processing", chapter "Quadratic interpolation of spectral peaks"). None
/// where there is no such entry.
std::optional<SpectrumPeak> DominantPeak(const FlickerSpectrum& spectrum);

}  // namespace hyl::v2::tool
