#include "run.h"

#include <algorithm>
#include <utility>

#include "stopwatch.h"

namespace hyl::v2::bench {
namespace {

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return values.empty() ? 0 : *middle;
}

}  // namespace

Runner::Runner(Comparison comparison)
    : comparison_(std::move(comparison)), ns_per_unit_(comparison_.contenders.size()) {}

double Runner::Round() {
  double first = 0;
  for (size_t i = 0; i < comparison_.contenders.size(); ++i) {
    const Contender& contender = comparison_.contenders[i];
    ClearUpperHalves();
    const double start = NowNs(comparison_.clock);
    contender.pass();
    const double elapsed = NowNs(comparison_.clock) - start;
    ns_per_unit_[i].push_back(elapsed / contender.units);
    first = i == 0 ? elapsed : first;
  }
  return first;
}

void Runner::Forget() {
  for (auto& times : ns_per_unit_) {
    times.clear();
  }
}

double Runner::Ratio(size_t contender, size_t round) const {
  const double ours = ns_per_unit_[0][round];
  const double other = ns_per_unit_[contender][round];
  return comparison_.contenders[contender].measure == Measure::kTimesFaster ? other / ours
                                                                            : ours / other;
}

ComparisonResult Runner::Result() const {
  ComparisonResult result{comparison_.work, comparison_.unit, {}};
  for (size_t i = 0; i < comparison_.contenders.size(); ++i) {
    const Contender& contender = comparison_.contenders[i];
    std::vector<double> ratios;
    for (size_t round = 0; round < ns_per_unit_[i].size(); ++round) {
      ratios.push_back(Ratio(i, round));
    }
    result.contenders.push_back({contender.name, Median(ns_per_unit_[i]), Median(ratios),
                                 contender.measure, contender.target});
  }
  return result;
}

}  // namespace hyl::v2::bench
