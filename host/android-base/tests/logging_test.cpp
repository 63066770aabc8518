#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <latch>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr int kUnlimited = -1;
thread_local int t_allocations_left = kUnlimited;  // with 0, memory has run out for this thread

}  // namespace

// Not inlined, so that g++ does not take a delete here for one that does not match its new.
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (t_allocations_left == 0) {
    throw std::bad_alloc();
  }
  if (t_allocations_left > 0) {
    --t_allocations_left;
  }
  void* const place = std::malloc(size);
  if (place == nullptr) {
    throw std::bad_alloc();
  }
  return place;
}
[[gnu::noinline]] void operator delete(void* place) noexcept {
  std::free(place);
}
[[gnu::noinline]] void operator delete(void* place, std::size_t) noexcept {
  std::free(place);
}

namespace android::base {
namespace {

void Log(LogSeverity severity, const char* text) {
  LogMessage("f", 1, severity, "TAG", -1).stream() << text;
}

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
  { LogMessage("dir/file.cpp", 12, WARNING, "TAG", -1).stream() << "one\ntwo " << 3 << "\n\n"; }
  { LogMessage("file.cpp", 13, ERROR, "TAG", ENOENT).stream() << "open"; }
  const std::vector<Entry> expected = {
      {WARNING, "TAG", "dir/file.cpp", 12, "one\ntwo 3\n\n"},
      {ERROR, "TAG", "file.cpp", 13, "open: No such file or directory"}};
  EXPECT_EQ(entries_, expected);
}

TEST_F(LoggingTest, NullTagStandsForTheProgram) {
  { LogMessage("file.cpp", 1, INFO, nullptr, -1).stream() << "text"; }
  ASSERT_EQ(entries_.size(), 1U);
  EXPECT_EQ(entries_[0].tag, "base_tests");
}

TEST_F(LoggingTest, MinimumSeverityDecidesWhatIsLogged) {
  for (int minimum = VERBOSE; minimum <= FATAL; ++minimum) {
    SetMinimumLogSeverity(static_cast<LogSeverity>(minimum));
    EXPECT_EQ(GetMinimumLogSeverity(), minimum);
    for (int severity = VERBOSE; severity < FATAL; ++severity) {
      entries_.clear();
      Log(static_cast<LogSeverity>(severity), "text");
      EXPECT_EQ(entries_.size(), severity >= minimum ? 1U : 0U) << severity << " of " << minimum;
      EXPECT_EQ(ShouldLog(static_cast<LogSeverity>(severity), "TAG"), severity >= minimum);
    }
    EXPECT_TRUE(ShouldLog(FATAL, "TAG"));
  }
}

TEST_F(LoggingTest, LoggerMayLogAndReplaceItself) {
  std::vector<std::string> seen;
  SetLogger([&seen](LogId, LogSeverity, const char*, const char*, unsigned, const char* message) {
    seen.emplace_back(message);
    if (seen.size() == 1) {
      Log(INFO, "from within");
    }
    if (seen.size() == 2) {
      SetLogger([](auto&&...) {});
    }
  });
  Log(INFO, "first");
  Log(INFO, "into the void");
  EXPECT_EQ(seen, (std::vector<std::string>{"first", "from within"}));
}

/// Logs an entry that needs memory more than once, with that many allocations until it runs out.
void LogWithAllocations(int allocations, const std::string& text) {
  t_allocations_left = allocations;
  { LogMessage("f", 1, ERROR, "TAG", ENOENT).stream() << text << text << text; }
  t_allocations_left = kUnlimited;
}

TEST(LoggingWithoutMemory, LosesTheEntryBeforeAnyOther) {
  LogWithAllocations(0, "lost");
}

TEST_F(LoggingTest, AnEntryWithoutMemoryIsLostAlone) {
  const std::string text(700, 'x');
  const std::string whole = text + text + text + ": No such file or directory";
  int lost = 0;
  for (; entries_.empty(); ++lost) {
    ASSERT_LT(lost, 100);
    LogWithAllocations(lost, text);
  }
  EXPECT_EQ(entries_, (std::vector<Entry>{{ERROR, "TAG", "f", 1, whole}}));
  EXPECT_GT(lost, 3);
  Log(INFO, "next");
  EXPECT_EQ(entries_.back().message, "next");
}

TEST_F(LoggingTest, LoggerIsReplacedWhileOthersLog) {
  constexpr int kThreads = 4;
  constexpr int kEntries = 500;
  std::atomic<int> count = 0;
  const auto counting_logger = [&count](auto&&...) { ++count; };
  SetLogger(counting_logger);
  std::latch start(kThreads);
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      start.arrive_and_wait();
      for (int entry = 0; entry < kEntries; ++entry) {
        if (entry % 7 == 0) {
          SetLogger(counting_logger);
        }
        Log(ERROR, "entry");
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(count, kThreads * kEntries);
}

TEST(StringPrintfTest, FormatsTextOfAnyLength) {
  EXPECT_EQ(StringPrintf("%s", ""), "");
  EXPECT_EQ(StringPrintf("%s%d:%u", "rear", -12, 34U), "rear-12:34");
  const std::string long_text(100'000, 'x');
  EXPECT_EQ(StringPrintf("<%s>", long_text.c_str()), "<" + long_text + ">");
}

}  // namespace
}  // namespace android::base
