#pragma once

#include <cstdint>

namespace hyl::v2 {

/// Result of a framework or library call. Zero is success.
///
/// The framework may return values that have no name here; they are passed through unchanged, so a
/// switch over a HylErr always needs a default branch.
enum class HylErr : uint8_t {
  kOk = 0,
  kFailed = 2,
  kNotFound = 7,
  kInvalidArgument = 9,
  kNullPointer = 15,
  kNoSession = 17,
  kAlreadyRunning = 19,
};

}  // namespace hyl::v2
