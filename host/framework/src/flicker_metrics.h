#pragma once

#include <cstdint>

#include "conditions.h"

namespace hyl::v2::host {

/// What the flicker sensor finds out about the light by itself.
struct FlickerMetrics {
  uint16_t frequency_hz = 0;         ///< of the strongest component; 0 for steady light
  uint16_t second_frequency_hz = 0;  ///< of its strongest harmonic; 0 for steady light
  uint8_t depth_percent = 0;         ///< (max - min) / (max + min)
  uint16_t saturated_permille = 0;   ///< clipped samples
};

FlickerMetrics MeasureFlickerMetrics(const Conditions& conditions);

}  // namespace hyl::v2::host
