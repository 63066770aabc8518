#pragma once

#include <cstdint>

namespace hyl::v2::host {

/// Repeatable random numbers: the same three arguments give the same sequence.
class NoiseSource {
 public:
  NoiseSource(uint64_t seed, uint64_t stream, uint64_t index);

  uint64_t Bits();
  /// Evenly distributed over (0, 1].
  double Uniform();
  /// Mean 0, standard deviation 1.
  double Normal();
  /// A count with the given mean, as of photons.
  double Poisson(double mean);

 private:
  uint64_t state_;
};

}  // namespace hyl::v2::host
