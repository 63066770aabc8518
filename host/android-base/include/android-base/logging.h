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

/// The buffer of the device's log that an entry goes to.
enum LogId {
  DEFAULT,
  MAIN,
  SYSTEM,
  RADIO,
  CRASH,
};

/// Receives every entry that is logged: `message` is its whole text, line ends included, and is
/// valid during the call only, as `tag` and `file` are. Called on the thread that logs, by several
/// threads at once if several log, and with no lock of the logging held: it may log and may call
/// SetLogger. It must not call the code that logs, which may hold locks: a logger that calls the
/// sensor library hangs while that logs its sensor list.
using LogFunction = std::function<void(LogId, LogSeverity, const char* tag, const char* file,
                                       unsigned int line, const char* message)>;

/// Replaces the logger and returns the one before it. Entries that other threads have begun to
/// write may still reach the old logger after the return. An empty function means the default
/// logger, which writes each entry to standard error as one line.
LogFunction SetLogger(LogFunction&& logger);

/// Sets the lowest severity that is logged and returns the one before it. At first that is the one
/// that the environment variable HYL_LOG names (verbose, debug, info, warning, error or fatal), or
/// INFO.
LogSeverity SetMinimumLogSeverity(LogSeverity severity);
LogSeverity GetMinimumLogSeverity();

/// Tells whether an entry of that severity and tag is logged. FATAL always is.
bool ShouldLog(LogSeverity severity, const char* tag);

/// One entry: text is put into `stream()`, and the destructor hands it to the logger if it should
/// be logged. An entry for which memory runs out, in the logger too, is lost. An entry of severity
/// FATAL then ends the process.
class LogMessage {
 public:
  /// `file` and `tag` must outlive the object. A null tag means the program's name. An `error`
  /// other than -1 is an errno value, whose description is appended to the text.
  LogMessage(const char* file, unsigned int line, LogSeverity severity, const char* tag, int error);
  LogMessage(const LogMessage&) = delete;
  LogMessage& operator=(const LogMessage&) = delete;
  ~LogMessage();

  /// Where the entry's text goes. Valid while the entry lives; one thread at a time.
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
