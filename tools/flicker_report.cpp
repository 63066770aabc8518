#include "flicker_report.h"

#include <cmath>

namespace hyl::v2::tool {

FlickerReport MakeFlickerReport(const FlickerRecorder& recorder, uint32_t sample_rate_hz,
                                int bits) {
  const std::span<const int32_t> samples = recorder.Stretch();
  const auto peak = DominantPeak(SpectrumOf(samples, sample_rate_hz));
  return {static_cast<double>(recorder.samples()) / sample_rate_hz,
          sample_rate_hz,
          samples,
          std::ldexp(1.0, bits - 1),
          LevelsOf(samples),
          peak ? std::optional(peak->hz) : std::nullopt,
          recorder.gaps(),
          recorder.lost_samples(),
          recorder.steps_back()};
}

double LevelPercent(const FlickerReport& report) {
  return 100 * report.levels.mean / report.full_scale;
}

}  // namespace hyl::v2::tool
