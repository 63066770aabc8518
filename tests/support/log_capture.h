#pragma once

#include <cstdio>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <android-base/logging.h>

namespace hyl::v2::test {

struct LogEntry {
  android::base::LogSeverity severity;
  std::string message;

  bool operator==(const LogEntry&) const = default;
  friend std::ostream& operator<<(std::ostream& out, const LogEntry& entry) {
    return out << "severity " << entry.severity << " \"" << entry.message << '"';
  }
};

/// The entry that the library writes for `text`, which follows the common beginning.
inline LogEntry Entry(android::base::LogSeverity severity, const std::string& text) {
  return {severity, "HYL: HYL_SpAPI: " + text};
}
inline LogEntry Error(const std::string& text) {
  return Entry(android::base::ERROR, text);
}
inline LogEntry Warning(const std::string& text) {
  return Entry(android::base::WARNING, text);
}
inline LogEntry Info(const std::string& text) {
  return Entry(android::base::INFO, text);
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

/// Where this thread's problems go instead, if anywhere. Belongs to a test that has many threads.
inline thread_local std::vector<LogEntry>* t_problems = nullptr;

/// Takes all log entries of the process while it lives. Safe on any thread.
class LogCapture {
 public:
  LogCapture() : minimum_(android::base::SetMinimumLogSeverity(android::base::VERBOSE)) {
    previous_ = android::base::SetLogger(
        [kept = kept_](android::base::LogId, android::base::LogSeverity severity, const char*,
                       const char*, unsigned, const char* message) {
          if (t_problems != nullptr && severity > android::base::INFO) {
            t_problems->push_back({severity, message});
            return;
          }
          const std::lock_guard lock(kept->mutex);
          if (kept->entries.size() < kMaxEntries) {
            kept->entries.push_back({severity, message});
          }
        });
  }
  ~LogCapture() {
    android::base::SetLogger(std::move(previous_));
    android::base::SetMinimumLogSeverity(minimum_);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// The entries since the last call, oldest first.
  std::vector<LogEntry> Take() {
    const std::lock_guard lock(kept_->mutex);
    return std::exchange(kept_->entries, {});
  }

  /// Take, without the entries of severity INFO.
  std::vector<LogEntry> TakeProblems() {
    std::vector<LogEntry> entries = Take();
    std::erase_if(entries,
                  [](const LogEntry& entry) { return entry.severity <= android::base::INFO; });
    return entries;
  }

 private:
  static constexpr size_t kMaxEntries = 10000;  // of a test that floods the log

  struct Kept {
    std::mutex mutex;
    std::vector<LogEntry> entries;  // guarded by mutex
  };

  std::shared_ptr<Kept> kept_ = std::make_shared<Kept>();
  android::base::LogSeverity minimum_;
  android::base::LogFunction previous_;
};

}  // namespace hyl::v2::test
