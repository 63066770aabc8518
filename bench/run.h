#pragma once

#include <cstddef>

#include "comparison.h"

namespace hyl::v2::bench {

inline constexpr int kRounds = 31;

/// Times the contenders in turn, `rounds` times over after one round to warm up.
class Runner {
 public:
  explicit Runner(Comparison comparison);

  /// One pass of each contender; returns the time of the first, in ns.
  double Round();
  void Forget();
  ComparisonResult Result() const;

 private:
  double Ratio(size_t contender, size_t round) const;

  Comparison comparison_;
  std::vector<std::vector<double>> ns_per_unit_;  // by contender, then by round
};

}  // namespace hyl::v2::bench
