#include "noise.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace hyl::v2::host {
namespace {

// SplitMix64: an even step, then a mix of the bits.
constexpr uint64_t kStep = 0x9E3779B97F4A7C15U;

constexpr uint64_t Mix(uint64_t z) {
  z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
  z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
  return z ^ (z >> 31U);
}

/// Above this mean a normal distribution is near enough.
constexpr double kNormalFromMean = 30;

}  // namespace

NoiseSource::NoiseSource(uint64_t seed, uint64_t stream, uint64_t index)
    : state_(Mix(Mix(Mix(seed + kStep) + stream + kStep) + index + kStep)) {}

uint64_t NoiseSource::Bits() {
  state_ += kStep;
  return Mix(state_);
}

double NoiseSource::Uniform() {
  return (static_cast<double>(Bits() >> 11U) + 1.0) * 0x1p-53;
}

double NoiseSource::Normal() {
  const double radius = std::sqrt(-2.0 * std::log(Uniform()));
  return radius * std::cos(2.0 * std::numbers::pi * Uniform());
}

double NoiseSource::Poisson(double mean) {
  if (!(mean > 0)) {
    return 0;
  }
  if (mean > kNormalFromMean) {
    return std::max(0.0, std::round(mean + std::sqrt(mean) * Normal()));
  }
  const double limit = std::exp(-mean);
  double product = Uniform();
  int count = 0;
  while (product > limit) {
    product *= Uniform();
    ++count;
  }
  return count;
}

}  // namespace hyl::v2::host
