// SPDX-License-Identifier: Apache-2.0
#include "flicker_analysis.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>

#include <fmt/format.h>

#include "text.h"

namespace hyl::v2::tool {
namespace {

// The window spreads what is left of the mean over the first entries.
constexpr size_t kFirstPeakEntry = 3;
// Of 10^5 entries of noise, the highest is about 4 times the median; of 10^9, about 5.5 times.
constexpr double kPeakOverNoise = 6;
// Smaller amplitudes, in units of a sample, are rounding errors.
constexpr double kLeastAmplitude = 1e-3;
// What the window leaves of a large slow change, far from its place, is smaller.
constexpr double kLeastOfLargest = 1e-2;

double HannWeight(size_t index, size_t count) {
  return 0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(index) /
                              static_cast<double>(count));
}

/// The straight line of least squares through samples.
struct Trend {
  double center;
  double mean = 0;
  double slope = 0;

  double At(size_t index) const { return mean + slope * (static_cast<double>(index) - center); }
};

Trend TrendOf(std::span<const int32_t> samples) {
  const auto count = static_cast<double>(samples.size());
  Trend trend = {(count - 1) / 2};
  for (size_t i = 0; i < samples.size(); ++i) {
    trend.mean += samples[i] / count;
    // The squares of the distances from the centre add up to count * (count^2 - 1) / 12.
    trend.slope +=
        (static_cast<double>(i) - trend.center) * samples[i] * 12 / (count * (count * count - 1));
  }
  return trend;
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// Whether the entry is the top of a rise: twice as high as the lowest entries that lie downhill
/// from it, on both sides. Ripples on the slope of a higher peak are not.
bool IsPeak(const std::vector<double>& amplitudes, size_t entry) {
  size_t left = entry;
  while (left > 0 && amplitudes[left - 1] <= amplitudes[left]) {
    --left;
  }
  size_t right = entry;
  while (right + 1 < amplitudes.size() && amplitudes[right + 1] <= amplitudes[right]) {
    ++right;
  }
  return amplitudes[entry] >= 2 * std::max(amplitudes[left], amplitudes[right]);
}

/// The top of the parabola through the logarithms of the amplitudes around `entry`.
SpectrumPeak Interpolate(const FlickerSpectrum& spectrum, size_t entry) {
  const double at = std::log(spectrum.amplitudes[entry]);
  const double before = std::log(spectrum.amplitudes[entry - 1]);
  const double after = std::log(spectrum.amplitudes[entry + 1]);
  const double bend = before - 2 * at + after;
  // A neighbour of 0 has no logarithm: the peak is on its entry then.
  const double offset = std::isfinite(bend) && bend < 0 ? (before - after) / (2 * bend) : 0;
  const double rise = offset != 0 ? (before - after) * offset / 4 : 0;
  return {(static_cast<double>(entry) + offset) * spectrum.bin_hz, std::exp(at - rise)};
}

}  // namespace

FlickerSpectrum SpectrumOf(std::span<const int32_t> samples, double sample_rate_hz) {
  if (samples.size() < 2) {
    return {sample_rate_hz, 0, {}};
  }
  const size_t count = samples.size();
  const Trend trend = TrendOf(samples);
  std::vector<double> windowed(count);
  for (size_t i = 0; i < count; ++i) {
    windowed[i] = (samples[i] - trend.At(i)) * HannWeight(i, count);
  }
  FlickerSpectrum spectrum = {sample_rate_hz / static_cast<double>(count),
                              std::abs(trend.At(count) - trend.At(0)),
                              host::FourierMagnitudes(windowed)};
  // The window's weights add up to half the count, and a sine wave has half its amplitude here.
  for (double& amplitude : spectrum.amplitudes) {
    amplitude *= 4 / static_cast<double>(count);
  }
  return spectrum;
}

std::optional<SpectrumPeak> DominantPeak(const FlickerSpectrum& spectrum) {
  const std::vector<double>& amplitudes = spectrum.amplitudes;
  if (amplitudes.size() < kFirstPeakEntry + 2) {
    return std::nullopt;
  }
  const double largest =
      std::max(spectrum.drift, *std::max_element(amplitudes.begin(), amplitudes.end()));
  double least =
      std::max({kLeastAmplitude, kLeastOfLargest * largest, kPeakOverNoise * Median(amplitudes)});
  size_t highest = 0;
  // The last entry has no neighbour above it.
  for (size_t entry = kFirstPeakEntry; entry + 1 < amplitudes.size(); ++entry) {
    if (amplitudes[entry] >= least && IsPeak(amplitudes, entry)) {
      least = amplitudes[entry];
      highest = entry;
    }
  }
  return highest > 0 ? std::optional(Interpolate(spectrum, highest)) : std::nullopt;
}

void FlickerRecorder::Add(uint32_t seq_num, bool restart, std::span<const int32_t> samples) {
  const bool continues = !next_seq_num_ || Continues(seq_num, samples.size());
  if (!continues || (restart && levels_shifted_)) {
    if (current_.size() > longest_.size()) {
      longest_.swap(current_);
    }
    current_.clear();
  }
  levels_shifted_ = !restart && (levels_shifted_ || !continues);
  current_.insert(current_.end(), samples.begin(), samples.end());
  if (current_.size() > 2 * window_) {
    current_.erase(current_.begin(), current_.end() - static_cast<std::ptrdiff_t>(window_));
  }
  counts_.samples += samples.size();
  next_seq_num_ = seq_num + static_cast<uint32_t>(samples.size());
}

std::span<const int32_t> FlickerRecorder::Stretch() const {
  const std::span<const int32_t> longer = longest_.size() > current_.size() ? longest_ : current_;
  return longer.last(std::min(window_, longer.size()));
}

void FlickerRecorder::ForgetSamples() {
  current_.clear();
  longest_.clear();
  counts_.samples = 0;
}

bool FlickerRecorder::Continues(uint32_t seq_num, size_t count) {
  const auto step = static_cast<int32_t>(seq_num - *next_seq_num_);  // the numbers wrap
  // Where samples vary in length, numbers after a loss are estimates, which move a little from
  // block to block. A lost block is a larger step.
  if (static_cast<size_t>(std::abs(int64_t{step})) <= count / 8) {
    return true;
  }
  if (step > 0) {
    ++counts_.gaps;
    counts_.lost += static_cast<uint32_t>(step);
    return false;
  }
  // Blocks that cannot be numbered any more all have the number 0.
  const bool still_unnumbered = unnumbered_ && seq_num == 0;
  unnumbered_ = seq_num == 0;
  counts_.steps_back += still_unnumbered ? 0 : 1;
  return still_unnumbered;
}

std::string MeasuresText(const FlickerReport& report) {
  const auto& [visibility, risk, absent] = report.measures;
  return fmt::format("SVM {}, risk {}", FixedText(visibility, 2, ""),
                     risk ? *risk : fmt::format("unknown: {}", absent.value_or("")));
}

std::string ExposureAdvice(const FlickerReport& report) {
  const auto& hz = report.frequency_hz;
  return "exposures without bands: " +
         (hz ? fmt::format("multiples of {:.3f} ms", host::BandFreeStepMs(*hz)) : "all");
}

}  // namespace hyl::v2::tool
