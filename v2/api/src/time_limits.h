// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

// The fuzzers' build divides all time limits alike, so that lost replies and missing sensors do not
// slow it down. So does a build for the host, where its variable of the same name says so.
#ifndef HYL_TIME_LIMIT_DIVISOR
#define HYL_TIME_LIMIT_DIVISOR 1
#endif

namespace hyl::v2::spectral {

/// A time limit as this build keeps it.
constexpr std::chrono::microseconds Scaled(std::chrono::microseconds limit) {
  return limit / HYL_TIME_LIMIT_DIVISOR;
}

}  // namespace hyl::v2::spectral
