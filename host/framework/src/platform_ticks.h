#pragma once

#include <cstdint>

namespace hyl::v2 {

// The platform counter runs at 19.2 MHz: 12 ticks are 625 ns.
inline constexpr uint64_t kTicksPerUnit = 12;
inline constexpr uint64_t kNsPerUnit = 625;

/// The last tick that is not later than `ns`; `ns` must be below 2^60.
constexpr uint64_t NsToPlatformTicks(uint64_t ns) {
  return ns * kTicksPerUnit / kNsPerUnit;
}

}  // namespace hyl::v2
