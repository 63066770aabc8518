// SPDX-License-Identifier: Apache-2.0
#include <hyl/host/light_measures.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <functional>
#include <numbers>
#include <vector>

#include <kissfft/kissfft.hh>

namespace hyl::v2::host {
namespace {

constexpr size_t kLastHz = 2000;

double StroboscopicVisibility(std::span<const int32_t> second) {
  const auto magnitudes = FourierMagnitudes(std::vector<double>(second.begin(), second.end()));
  double sum = 0;
  for (size_t entry = 80; entry <= kLastHz; ++entry) {
    const double amplitude = 2 * magnitudes[entry] / magnitudes[0];  // as a fraction of the mean
    const auto hz = static_cast<double>(entry);
    const double threshold = 1 / (1 + std::exp(-0.00518 * (hz - 306.6))) + 20 * std::exp(-hz / 10);
    sum += std::pow(amplitude / threshold, 3.7);
  }
  return std::pow(sum, 1 / 3.7);
}

}  // namespace

FlickerLevels LevelsOf(std::span<const int32_t> samples) {
  const auto [min, max] = std::minmax_element(samples.begin(), samples.end());
  double sum = 0;
  double light = 0;  // the sum of the samples above darkness
  for (const int32_t sample : samples) {
    sum += sample;
    light += std::max(0, sample);
  }
  const double mean = sum / static_cast<double>(samples.size());
  FlickerLevels levels = {mean, static_cast<double>(*min), static_cast<double>(*max), {}, {}};
  if (mean <= 0 || -levels.min >= mean) {
    return levels;
  }
  const double darkest = std::max(0.0, levels.min);
  levels.modulation_percent = 100 * (levels.max - darkest) / (levels.max + darkest);
  double above = 0;
  for (const int32_t sample : samples) {
    above += std::max(0.0, sample - mean);
  }
  levels.flicker_index = above / light;
  return levels;
}

// A convolution with a chirp, whose length is a power of two (L. I. Bluestein, "A linear filtering
// approach to the computation of discrete Fourier transform", IEEE Trans. Audio Electroacoust. 18,
// 1970). The last factor of each entry has the magnitude 1 and is omitted.
std::vector<double> FourierMagnitudes(const std::vector<double>& values) {
  const size_t count = values.size();
  const size_t length = std::bit_ceil(2 * count);
  std::vector<std::complex<double>> signal(length);
  std::vector<std::complex<double>> chirp(length);
  for (size_t i = 0; i < count; ++i) {
    // Without whole turns, since small angles are more exact.
    const auto angle = static_cast<double>(uint64_t{i} * i % (2 * count));
    chirp[i] = std::polar(1.0, std::numbers::pi * angle / static_cast<double>(count));
    chirp[(length - i) % length] = chirp[i];
    signal[i] = values[i] * std::conj(chirp[i]);
  }
  const kissfft<double> transform(length, false);
  std::vector<std::complex<double>> product(length);
  transform.transform(signal.data(), product.data());
  transform.transform(chirp.data(), signal.data());
  std::transform(product.begin(), product.end(), signal.begin(), product.begin(),
                 std::multiplies());
  kissfft<double>(length, true).transform(product.data(), signal.data());
  std::vector<double> magnitudes;
  for (size_t i = 0; i < count / 2 + 1; ++i) {
    magnitudes.push_back(std::abs(signal[i]) / static_cast<double>(length));
  }
  return magnitudes;
}

LightMeasures MeasuresOf(std::span<const int32_t> samples, uint32_t sample_rate_hz,
                         std::optional<double> dominant_hz) {
  if (sample_rate_hz <= 2 * kLastHz) {
    return {{}, {}, "too few samples a second"};
  }
  if (samples.size() < sample_rate_hz) {
    return {{}, {}, "less than a second in a row"};
  }
  const auto second = samples.last(sample_rate_hz);
  const FlickerLevels levels = LevelsOf(second);
  if (!levels.modulation_percent) {
    return {{}, {}, "no light"};
  }
  const double visibility = StroboscopicVisibility(second);
  if (!dominant_hz) {
    return {visibility, {}, "no frequency stands out"};
  }
  return {visibility, RiskOf(*levels.modulation_percent, *dominant_hz)};
}

std::string_view RiskOf(double modulation_percent, double hz) {
  const bool slow = hz < 90;
  if (hz > 3000 || modulation_percent <= (slow ? 0.01 : 0.0333) * hz) {
    return "no effect";
  }
  return hz > 1250 || modulation_percent <= (slow ? 0.025 : 0.08) * hz ? "low" : "high";
}

double BandFreeStepMs(double dominant_hz) {
  const double lamp_hz = dominant_hz < 110 ? 100 : 120;  // on the nearer mains
  return 1000 / (std::abs(dominant_hz / lamp_hz - 1) <= 0.01 ? lamp_hz : dominant_hz);
}

}  // namespace hyl::v2::host
