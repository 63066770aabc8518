#pragma once

#include <cstdint>

namespace hyl::v2 {

#pragma GCC visibility push(default)

/// The framework's clock arithmetic.
class Time {
 public:
  /// Converts a time in platform ticks to nanoseconds. Safe on any thread.
  static uint64_t PlatformTicksToNs(uint64_t ticks);
};

#pragma GCC visibility pop

}  // namespace hyl::v2
