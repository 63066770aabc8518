// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <ostream>
#include <sstream>

namespace android::base {

enum LogSeverity {
  VERBOSE,
  DEBUG,
  INFO,
  WARNING,
  ERROR,
  FATAL_WITHOUT_ABORT,
  FATAL,
};

/// The buffers of the device's log.
enum LogId {
  DEFAULT,
  MAIN,
  SYSTEM,
  RADIO,
  CRASH,
};

/// Receives every entry that is logged. `message` is its whole text, including line ends. Like
/// `tag` and `file`, it is valid only during the call. The call comes on the thread that logs, and
/// on several threads at once if several log. No lock of the logging is held, so the function may
/// log and may call SetLogger. It must not call the code that logs, which may hold locks: a logger
/// that calls the sensor library hangs while the library logs its sensor list.
using LogFunction = std::function<void(LogId, LogSeverity, const char* tag, const char* file,
                                       unsigned int line, const char* message)>;

/// Replaces the logger and returns the previous one. An entry that another thread is writing may
/// still reach the previous logger after the return. An empty function restores the default logger,
/// which writes each entry to standard error as one line.
LogFunction SetLogger(LogFunction&& logger);

/// Sets the lowest severity that is logged and returns the previous one. The initial one is in the
/// environment variable HYL_LOG (verbose, debug, info, warning, error or fatal); without it, INFO.
LogSeverity SetMinimumLogSeverity(LogSeverity severity);
LogSeverity GetMinimumLogSeverity();

/// Whether an entry of that severity and tag is logged. FATAL always is.
bool ShouldLog(LogSeverity severity, const char* tag);

/// One entry. Write its text to `stream()`; the destructor passes it to the logger if its severity
/// is logged. An entry is lost when memory runs out, in the logger too. An entry of severity FATAL
/// then ends the process.
class LogMessage {
 public:
  /// `file` and `tag` must outlive the object. A null tag means the program's name. The description
  /// of `error`, an errno value, is appended to the text; -1 means none.
  LogMessage(const char* file, unsigned int line, LogSeverity severity, const char* tag, int error);
  LogMessage(const LogMessage&) = delete;
  LogMessage& operator=(const LogMessage&) = delete;
  ~LogMessage();

  /// The stream for the entry's text. Valid while the entry lives, for one thread at a time.
  std::ostream& stream();

 private:
  void Write();

  std::ostringstream text_;
  const char* file_;
  unsigned int line_;
  LogSeverity severity_;
  const char* tag_;
  int error_;
};

}  // namespace android::base
