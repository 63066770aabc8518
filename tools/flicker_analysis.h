// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <hyl/host/light_measures.h>

namespace hyl::v2::tool {

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

struct FlickerCounts {
  uint64_t samples = 0;     ///< received since the latest ForgetSamples
  uint64_t gaps = 0;        ///< places where samples are missing
  uint64_t lost = 0;        ///< samples that are missing there, as far as the sequence numbers tell
  uint64_t steps_back = 0;  ///< places at which the sequence numbers went back

  bool operator==(const FlickerCounts&) const = default;
};

/// Joins blocks of flicker samples to unbroken stretches, and counts what is missing between them.
class FlickerRecorder {
 public:
  /// Keeps the newest `window` samples of a stretch; `window` is not 0.
  explicit FlickerRecorder(size_t window) : window_(window) {}

  /// Takes the next block. `seq_num` is the sequence number of its first sample; `restart` tells
  /// that the decoder of compressed-1 has been reset. After a loss the levels of compressed-1 are
  /// off by a constant until then, so that the reset ends the stretch in which the loss left them.
  void Add(uint32_t seq_num, bool restart, std::span<const int32_t> samples);

  /// Drops the samples so far, and their count; what is known of gaps stays.
  void ForgetSamples();

  /// The longest unbroken stretch, at most the window, that has been added to since the latest
  /// BeginPeriod.
  std::span<const int32_t> Stretch() const;
  void BeginPeriod() { longest_.clear(); }

  const FlickerCounts& counts() const { return counts_; }

 private:
  bool Continues(uint32_t seq_num, size_t count);

  size_t window_;
  std::vector<int32_t> current_;  // the newest samples of the present stretch are at its end
  std::vector<int32_t> longest_;  // of the stretches that have ended
  FlickerCounts counts_;
  std::optional<uint32_t> next_seq_num_;  // none before the first block
  bool unnumbered_ = false;               // the latest block had no number to rely on
  bool levels_shifted_ = true;  // since the latest restart, samples may have been lost or repeated
};

/// What is known of a flicker run at one moment.
struct FlickerReport {
  uint32_t sample_rate_hz;
  double full_scale;  ///< of a sample
  FlickerCounts counts;
  std::span<const int32_t> samples;  ///< the stretch that the values below describe; not empty
  host::FlickerLevels levels;
  std::optional<double> frequency_hz;
  host::LightMeasures measures;

  double Seconds() const { return static_cast<double>(counts.samples) / sample_rate_hz; }
  /// The samples of so many seconds, or as many as there are.
  std::span<const int32_t> Newest(double seconds) const {
    return samples.last(std::min(static_cast<size_t>(seconds * sample_rate_hz), samples.size()));
  }
  /// A level in percent of full scale.
  double Percent(double level) const { return 100 * level / full_scale; }
};

std::string MeasuresText(const FlickerReport& report);
std::string ExposureAdvice(const FlickerReport& report);

}  // namespace hyl::v2::tool
