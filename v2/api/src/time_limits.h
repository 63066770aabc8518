#pragma once

#include <chrono>

// For how long the library waits for the framework.

/// The fuzzers' build shortens all waits alike, so that lost replies and missing sensors do not
/// take up its time.
#ifndef HYL_TIME_LIMIT_DIVISOR
#define HYL_TIME_LIMIT_DIVISOR 1
#endif

namespace hyl::v2::spectral {

using TimeLimit = std::chrono::microseconds;

/// For the reply to a settings request.
inline constexpr TimeLimit kReplyTimeLimit = TimeLimit{5'000'000} / HYL_TIME_LIMIT_DIVISOR;
/// For the replies to other settings requests.
inline constexpr TimeLimit kOwedReplyTimeLimit = TimeLimit{100'000} / HYL_TIME_LIMIT_DIVISOR;
/// Between two attempts to discover the sensors.
inline constexpr TimeLimit kDiscoveryInterval = TimeLimit{100'000} / HYL_TIME_LIMIT_DIVISOR;

}  // namespace hyl::v2::spectral
