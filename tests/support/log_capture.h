// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <cstring>
#include <mutex>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <android-base/logging.h>

#include "gate.h"

namespace hyl::v2::test {

struct LogEntry {
  android::base::LogSeverity severity;
  std::string message;

  bool operator==(const LogEntry&) const = default;
  friend std::ostream& operator<<(std::ostream& out, const LogEntry& entry) {
    return out << "severity " << entry.severity << " \"" << entry.message << '"';
  }
};

// The entries that the library writes for `text`, which follows what all entries begin with.
inline LogEntry Error(const std::string& text) {
  return {android::base::ERROR, "HYL: HYL_SpAPI: " + text};
}
inline LogEntry Warning(const std::string& text) {
  return {android::base::WARNING, "HYL: HYL_SpAPI: " + text};
}
inline LogEntry Info(const std::string& text) {
  return {android::base::INFO, "HYL: HYL_SpAPI: " + text};
}

/// printf into a string, for expected messages.
template <typename... Args>
std::string Text(const char* format, Args... args) {
  char text[512];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  std::snprintf(text, sizeof(text), format, args...);
#pragma GCC diagnostic pop
  return text;
}

/// Takes all log entries of the process while it lives. Safe on any thread.
class LogCapture {
 public:
  LogCapture() : minimum_(android::base::SetMinimumLogSeverity(android::base::VERBOSE)) {
    previous_ =
        android::base::SetLogger([this](android::base::LogId, android::base::LogSeverity severity,
                                        const char*, const char*, unsigned, const char* message) {
          const std::lock_guard lock(mutex_);
          entries_.push_back({severity, message});
        });
  }
  ~LogCapture() {
    android::base::SetLogger(std::move(previous_));
    android::base::SetMinimumLogSeverity(minimum_);
  }

  /// The entries since the last call, oldest first.
  std::vector<LogEntry> Take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(entries_, {});
  }

 private:
  std::mutex mutex_;
  std::vector<LogEntry> entries_;  // guarded by mutex_
  android::base::LogSeverity minimum_;
  android::base::LogFunction previous_;
};

/// Holds a thread where it logs a message with `part`, while this lives.
class HoldAtLog : public HoldPoint {
 public:
  explicit HoldAtLog(const char* part) {
    previous_ =
        android::base::SetLogger([this, part](auto, auto, auto, auto, auto, const char* message) {
          if (std::strstr(message, part) != nullptr) {
            Arrive();
          }
        });
  }
  ~HoldAtLog() { android::base::SetLogger(std::move(previous_)); }

 private:
  android::base::LogFunction previous_;
};

}  // namespace hyl::v2::test
