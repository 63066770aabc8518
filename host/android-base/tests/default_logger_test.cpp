#include <android-base/logging.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <utility>

namespace android::base {
namespace {

void Log(LogSeverity severity, const char* text) {
  LogMessage("dir/file.cpp", 12, severity, "TAG", -1).stream() << text;
}

/// Puts a packet socket in the place of standard error, so that each write is one packet.
class StderrPackets {
 public:
  StderrPackets() : saved_stderr_(dup(STDERR_FILENO)) {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, sockets_.data()), 0);
    EXPECT_EQ(dup2(sockets_[1], STDERR_FILENO), STDERR_FILENO);
  }
  StderrPackets(const StderrPackets&) = delete;
  StderrPackets& operator=(const StderrPackets&) = delete;
  ~StderrPackets() {
    dup2(saved_stderr_, STDERR_FILENO);
    for (const int descriptor : {saved_stderr_, sockets_[0], sockets_[1]}) {
      close(descriptor);
    }
  }

  /// The next packet, or nothing if there is none.
  std::string Next() {
    std::string packet(16'384, '\0');
    const ssize_t size = recv(sockets_[0], packet.data(), packet.size(), MSG_DONTWAIT);
    packet.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return packet;
  }

 private:
  int saved_stderr_;
  std::array<int, 2> sockets_{};
};

class DefaultLoggerTest : public testing::Test {
 protected:
  DefaultLoggerTest() : previous_(SetLogger({})) {}
  ~DefaultLoggerTest() override { SetLogger(std::move(previous_)); }

 private:
  LogFunction previous_;
};

TEST_F(DefaultLoggerTest, WritesEachEntryAtOnceAsOneLine) {
  const std::string long_text(5'000, 'x');
  const struct {
    std::string text;
    std::string line;
  } kCases[] = {{"text", "text"},
                {"text\n\n", "text"},
                {"one\ntwo\n", "one\\ntwo"},
                {long_text, long_text},
                {"", ""},
                {"\n", ""}};
  StderrPackets packets;
  for (const auto& [text, line] : kCases) {
    { LogMessage("dir/file.cpp", 12, ERROR, "TAG", -1).stream() << text; }
    const std::string written = packets.Next();
    EXPECT_TRUE(written.starts_with("TAG E ")) << written;
    EXPECT_TRUE(written.ends_with(" file.cpp:12] " + line + "\n")) << written;
    EXPECT_EQ(packets.Next(), "");
  }
}

TEST_F(DefaultLoggerTest, SurvivesAClosedStandardError) {
  StderrPackets packets;
  close(STDERR_FILENO);
  Log(ERROR, "nobody reads this");
  EXPECT_EQ(packets.Next(), "");
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

TEST(DefaultLoggerDeathTest, LogsWhileStaticsAreDestroyed) {
  EXPECT_EXIT(ExitWithLoggingDestructor(), testing::ExitedWithCode(0), "first use(.|\n)*at exit");
}

TEST(DefaultLoggerDeathTest, HylLogNamesTheLowestSeverity) {
  const struct {
    const char* value;
    LogSeverity severity;
    const char* printed;
  } kCases[] = {{"verbose", VERBOSE, "^$"},
                {"warning", WARNING, "^$"},
                {"fatal", FATAL_WITHOUT_ABORT, "^$"},
                {"", INFO, "^$"},
                {"Error", INFO, "HYL_LOG: 'Error' is no severity; it must be verbose,"}};
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // each case in a program that starts with it
  for (const auto& [value, severity, printed] : kCases) {
    setenv("HYL_LOG", value, 1);  // NOLINT(concurrency-mt-unsafe): the only thread
    EXPECT_EXIT(std::exit(GetMinimumLogSeverity()), testing::ExitedWithCode(severity), printed);
  }
}

TEST(DefaultLoggerDeathTest, FatalAbortsAfterLogging) {
  EXPECT_DEATH({ Log(FATAL, "last words"); }, " F .*last words");
  EXPECT_DEATH(
      {
        SetMinimumLogSeverity(static_cast<LogSeverity>(FATAL + 1));
        Log(FATAL, "last words");
      },
      "last words");
}

TEST_F(DefaultLoggerTest, FatalWithoutAbortGoesOn) {
  StderrPackets packets;
  Log(FATAL_WITHOUT_ABORT, "still here");
  EXPECT_TRUE(packets.Next().ends_with("still here\n"));
}

}  // namespace
}  // namespace android::base
