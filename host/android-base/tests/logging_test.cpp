// SPDX-License-Identifier: Apache-2.0
#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace {

constexpr int kUnlimited = -1;
thread_local int t_allocations_left = kUnlimited;  // with 0, memory has run out for this thread

}  // namespace

// Not inlined, so that g++ does not take a delete here for one that does not match its new.
[[gnu::noinline]] void* operator new(size_t size) {
  if (t_allocations_left == 0) {
    throw std::bad_alloc();
  }
  t_allocations_left -= t_allocations_left > 0 ? 1 : 0;
  return std::malloc(size);
}
[[gnu::noinline]] void operator delete(void* place) noexcept {
  std::free(place);
}
[[gnu::noinline]] void operator delete(void* place, size_t) noexcept {
  std::free(place);
}

namespace android::base {
namespace {

void Log(LogSeverity severity, const std::string& text, int error = -1) {
  LogMessage("dir/file.cpp", 12, severity, "TAG", error).stream() << text;
}

// --- a logger of the program's own ---

struct Entry {
  LogSeverity severity;
  std::string tag;
  std::string file;
  unsigned line;
  std::string message;

  bool operator==(const Entry&) const = default;
};

/// Collects what is logged, and puts the logger and the minimum severity back at the end.
class LoggingTest : public testing::Test {
 protected:
  LoggingTest() {
    previous_ = SetLogger([this](LogId, LogSeverity severity, const char* tag, const char* file,
                                 unsigned int line, const char* message) {
      entries_.push_back({severity, tag, file, line, message});
    });
  }
  ~LoggingTest() override {
    SetLogger(std::move(previous_));
    SetMinimumLogSeverity(INFO);
  }

  std::vector<Entry> entries_;

 private:
  LogFunction previous_;
};

TEST_F(LoggingTest, HandsEveryFieldAndTheWholeTextToTheLogger) {
  SetMinimumLogSeverity(WARNING);
  Log(INFO, "not severe enough");
  Log(WARNING, "one\ntwo\n\n");
  EXPECT_EQ(SetMinimumLogSeverity(INFO), WARNING);
  Log(ERROR, "open", ENOENT);
  LogMessage("file.cpp", 1, INFO, nullptr, -1).stream() << "text " << 3;  // the program's name
  const std::vector<Entry> expected = {
      {WARNING, "TAG", "dir/file.cpp", 12, "one\ntwo\n\n"},
      {ERROR, "TAG", "dir/file.cpp", 12, "open: No such file or directory"},
      {INFO, "base_tests", "file.cpp", 1, "text 3"}};
  EXPECT_EQ(entries_, expected);
}

/// With room for no allocation, then for one, and so on until the entry is written.
TEST_F(LoggingTest, AnEntryWithoutMemoryIsLostAlone) {
  const std::string text(700, 'x');
  int lost = 0;
  for (; entries_.empty() && lost < 100; ++lost) {
    t_allocations_left = lost;
    { LogMessage("f", 1, ERROR, "TAG", ENOENT).stream() << text << text; }
    t_allocations_left = kUnlimited;
  }
  EXPECT_LT(3, lost);
  ASSERT_EQ(1U, entries_.size());
  EXPECT_EQ(text + text + ": No such file or directory", entries_[0].message);
}

TEST_F(LoggingTest, LoggerIsReplacedWhileOthersLog) {
  constexpr int kEntries = 500;
  std::atomic<int> count = 0;
  const auto log_and_replace = [&count] {
    for (int entry = 0; entry < kEntries; ++entry) {
      SetLogger([&count](auto&&...) { ++count; });
      Log(ERROR, "entry");
    }
  };
  std::thread other(log_and_replace);
  log_and_replace();
  other.join();
  EXPECT_EQ(count, 2 * kEntries);
}

// --- the default logger ---

TEST(DefaultLoggerDeathTest, WritesEachEntryAsOneLine) {
  const std::string long_text(5'000, 'x');
  const std::tuple<LogSeverity, std::string, std::string> cases[] = {
      {ERROR, "text\n\n", "^TAG E .* file.cpp:12] text\n$"},
      {INFO, "one\ntwo\n", "^TAG I .* file.cpp:12] one\\\\ntwo\n$"},
      {WARNING, long_text, "^TAG W .* file.cpp:12] " + long_text + "\n$"},
      {FATAL_WITHOUT_ABORT, "\n", "^TAG F .* file.cpp:12] \n$"}};
  for (const auto& [severity, text, written] : cases) {
    const auto log_and_exit = [severity = severity, text = text] {
      Log(severity, text);
      close(STDERR_FILENO);
      Log(severity, "nobody reads this");
      std::exit(0);  // NOLINT(concurrency-mt-unsafe): the only thread of the child process.
    };
    EXPECT_EXIT(log_and_exit(), testing::ExitedWithCode(0), written);
  }
}

struct LogsWhenDestroyed {
  LogsWhenDestroyed() = default;
  LogsWhenDestroyed(const LogsWhenDestroyed&) = delete;
  LogsWhenDestroyed& operator=(const LogsWhenDestroyed&) = delete;
  ~LogsWhenDestroyed() { Log(WARNING, "at exit"); }
};

void ExitWithLoggingDestructor() {
  static const LogsWhenDestroyed before_first_use;
  Log(INFO, "first use");
  std::exit(0);  // NOLINT(concurrency-mt-unsafe): the only thread of the test's child process.
}

TEST(DefaultLoggerDeathTest, LogsToTheEnd) {
  EXPECT_EXIT(ExitWithLoggingDestructor(), testing::ExitedWithCode(0), "first use(.|\n)*at exit");
  const auto die_when_nothing_is_logged = [] {
    SetMinimumLogSeverity(static_cast<LogSeverity>(FATAL + 1));
    Log(FATAL, "last words");
  };
  EXPECT_DEATH(die_when_nothing_is_logged(), " F .*last words");
}

TEST(DefaultLoggerDeathTest, HylLogNamesTheLowestSeverity) {
  const std::tuple<const char*, LogSeverity, const char*> cases[] = {
      {"verbose", VERBOSE, "^$"},
      {"warning", WARNING, "^$"},
      {"fatal", FATAL_WITHOUT_ABORT, "^$"},
      {"", INFO, "^$"},
      {"Error", INFO, "HYL_LOG: 'Error' is no severity; it must be verbose,"}};
#ifndef HYL_EMULATED                               // there, a program cannot start itself again
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // each case in a program that starts with it
#endif
  for (const auto& [value, severity, printed] : cases) {
    // NOLINTBEGIN(concurrency-mt-unsafe): the only thread
    setenv("HYL_LOG", value, 1);
    EXPECT_EXIT(std::exit(GetMinimumLogSeverity()), testing::ExitedWithCode(severity), printed);
    // NOLINTEND(concurrency-mt-unsafe)
  }
}

TEST(StringPrintfTest, FormatsTextOfAnyLength) {
  const std::string long_text(100'000, 'x');
  EXPECT_EQ(StringPrintf("<%s>%d", long_text.c_str(), -12), "<" + long_text + ">-12");
}

}  // namespace
}  // namespace android::base
