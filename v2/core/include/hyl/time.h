#pragma once

#include <cstdint>

namespace hyl::v2 {

/// The framework's clock arithmetic.
class __attribute__((visibility("default"))) Time {
 public:
  /// Converts a time in platform ticks to nanoseconds. Safe on any thread.
  static uint64_t PlatformTicksToNs(uint64_t ticks);
};

}  // namespace hyl::v2
