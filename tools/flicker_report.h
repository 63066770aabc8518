#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "flicker_analysis.h"
#include "flicker_recorder.h"

namespace hyl::v2::tool {

/// What is known of a flicker run at one moment.
struct FlickerReport {
  double seconds;  ///< of samples received since the gain has settled
  uint32_t sample_rate_hz;
  std::span<const int32_t> samples;  ///< the stretch that the values below describe; not empty
  double full_scale;                 ///< of a sample
  FlickerLevels levels;
  std::optional<double> frequency_hz;
  uint64_t gaps;
  uint64_t lost_samples;
  uint64_t steps_back;
};

/// The report on the recorder's stretch, which must not be empty and is lent to the report.
FlickerReport MakeFlickerReport(const FlickerRecorder& recorder, uint32_t sample_rate_hz, int bits);

/// The mean level in percent of full scale.
double LevelPercent(const FlickerReport& report);

}  // namespace hyl::v2::tool
