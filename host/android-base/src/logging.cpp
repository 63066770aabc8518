// SPDX-License-Identifier: Apache-2.0
#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <errno.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace android::base {
namespace {

char SeverityLetter(LogSeverity severity) {
  constexpr std::string_view kLetters = "VDIWEFF";
  const auto index = static_cast<std::size_t>(severity);
  return index < kLetters.size() ? kLetters[index] : '?';
}

const char* BaseName(const char* path) {
  const char* slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

std::string TimeOfDay() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  return StringPrintf("%02d-%02d %02d:%02d:%02d.%03ld", local.tm_mon + 1, local.tm_mday,
                      local.tm_hour, local.tm_min, local.tm_sec, now.tv_nsec / 1'000'000);
}

/// `message` without the line ends that it ends with. Others are written as `\n`.
std::string OnOneLine(std::string_view message) {
  const std::size_t last = message.find_last_not_of('\n');
  message = message.substr(0, last == std::string_view::npos ? 0 : last + 1);
  std::string line;
  for (const char c : message) {
    if (c == '\n') {
      line += "\\n";
    } else {
      line += c;
    }
  }
  return line;
}

/// Writes the whole text in one call, so that the lines of several threads do not mix.
void WriteToStderr(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return;  // There is nowhere left to report to.
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

void LogToStderr(LogId /*id*/, LogSeverity severity, const char* tag, const char* file,
                 unsigned int line, const char* message) {
  std::string text =
      StringPrintf("%s %c %s %d %d %s:%u] ", tag, SeverityLetter(severity), TimeOfDay().c_str(),
                   static_cast<int>(getpid()), static_cast<int>(gettid()), BaseName(file), line);
  text += OnOneLine(message);
  text += '\n';
  WriteToStderr(text);
}

/// The severity that HYL_LOG names, or INFO. Reports a wrong value on standard error. Takes no
/// memory from the heap: the first entry may be logged when there is none.
LogSeverity InitialSeverity() {
  constexpr std::string_view kNames[] = {"verbose", "debug", "info", "warning", "error", "fatal"};
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing here changes the environment
  const char* const wanted = std::getenv("HYL_LOG");
  if (wanted == nullptr || *wanted == '\0') {
    return INFO;
  }
  for (int severity = VERBOSE; severity <= FATAL_WITHOUT_ABORT; ++severity) {
    if (wanted == kNames[severity]) {
      return static_cast<LogSeverity>(severity);
    }
  }
  dprintf(
      STDERR_FILENO,
      "HYL_LOG: '%s' is no severity; it must be verbose, debug, info, warning, error or fatal\n",
      wanted);
  return INFO;
}

struct LoggerState {
  std::mutex mutex;
  std::shared_ptr<const LogFunction> logger;  // guarded by mutex; null for LogToStderr
  std::atomic<LogSeverity> minimum_severity = InitialSeverity();
};

/// Never destroyed, so that threads and static destructors can log until the process ends. Takes no
/// memory from the heap.
LoggerState& State() {
  alignas(LoggerState) static std::byte place[sizeof(LoggerState)];
  static LoggerState* const state = ::new (place) LoggerState;
  return *state;
}

void CallLogger(LogSeverity severity, const char* tag, const char* file, unsigned int line,
                const char* message) {
  std::shared_ptr<const LogFunction> logger;
  {
    const std::lock_guard lock(State().mutex);
    logger = State().logger;
  }
  if (logger != nullptr) {
    (*logger)(DEFAULT, severity, tag, file, line, message);
  } else {
    LogToStderr(DEFAULT, severity, tag, file, line, message);
  }
}

}  // namespace

LogFunction SetLogger(LogFunction&& logger) {
  auto next = logger ? std::make_shared<const LogFunction>(std::move(logger)) : nullptr;
  {
    const std::lock_guard lock(State().mutex);
    State().logger.swap(next);
  }
  if (next == nullptr) {
    return LogToStderr;
  }
  return *next;  // a copy: another thread may be calling it at this moment
}

LogSeverity SetMinimumLogSeverity(LogSeverity severity) {
  return State().minimum_severity.exchange(severity);
}

LogSeverity GetMinimumLogSeverity() {
  return State().minimum_severity.load();
}

bool ShouldLog(LogSeverity severity, const char* /*tag*/) {
  return severity >= FATAL || severity >= GetMinimumLogSeverity();
}

LogMessage::LogMessage(const char* file, unsigned int line, LogSeverity severity, const char* tag,
                       int error)
    : file_(file == nullptr ? "" : file),
      line_(line),
      severity_(severity),
      tag_(tag == nullptr ? program_invocation_short_name : tag),
      error_(error) {}

LogMessage::~LogMessage() {
  if (ShouldLog(severity_, tag_)) {
    try {
      Write();
    } catch (const std::bad_alloc&) {  // the entry is lost
    }
  }
  if (severity_ >= FATAL) {
    std::abort();
  }
}

void LogMessage::Write() {
  char buffer[256];
  if (error_ != -1) {
    text_ << ": " << strerror_r(error_, buffer, sizeof(buffer));
  }
  if (text_.bad()) {
    return;  // there was no memory for the whole text
  }
  CallLogger(severity_, tag_, file_, line_, text_.str().c_str());
}

std::ostream& LogMessage::stream() {
  return text_;
}

}  // namespace android::base
