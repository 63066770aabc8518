// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

namespace hyl::v2::spectral {

inline constexpr char kLogTag[] = "HYL";

/// Writes one entry: what all entries of the library begin with, and `message`.
[[gnu::noinline]] inline void WriteLog(const char* file, unsigned line,
                                       android::base::LogSeverity severity,
                                       const std::string& message) {
  android::base::LogMessage(file, line, severity, kLogTag, -1).stream()
      << kLogTag << ": HYL_SpAPI: " << message;
}

}  // namespace hyl::v2::spectral

/// Logs a message, formatted as by printf, at a severity named as in android::base::LogSeverity.
/// The arguments are evaluated only if the platform logger wants the entry.
#define HYL_LOG(severity, ...)                                                             \
  do {                                                                                     \
    if (android::base::ShouldLog(android::base::severity, ::hyl::v2::spectral::kLogTag)) { \
      ::hyl::v2::spectral::WriteLog(__FILE__, __LINE__, android::base::severity,           \
                                    android::base::StringPrintf(__VA_ARGS__));             \
    }                                                                                      \
  } while (false)
