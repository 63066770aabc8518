#pragma once

#include <fcntl.h>
#include <pty.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hyl/host/scripted_framework.h>
#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>

#include "command.h"
#include "terminal.h"

// The whole tool in the test's process, on the simulated sensors or a scripted framework.
namespace hyl::v2::tool {

inline size_t Lines(const std::string& text) {
  return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

inline std::string ReadAll(int fd) {
  lseek(fd, 0, SEEK_SET);  // of a file
  std::string text;
  char buffer[4096];
  // A terminal's reading end reports an error, not an end, when the other end has been closed.
  for (ssize_t count = 0; (count = read(fd, buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<size_t>(count));
  }
  return text;
}

/// How a run of the tool ended, and what it wrote.
struct RunResult {
  int code;
  std::string out;
  std::string err;
};

/// Ends with that code and one line on standard error, which says so.
MATCHER_P2(EndsWithLine, code, says, "") {
  const auto is_control = [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; };
  const bool one_line =
      arg.err.ends_with('\n') && std::count_if(arg.err.begin(), arg.err.end(), is_control) == 1;
  *result_listener << arg.code << ": " << arg.err;
  return arg.code == code && one_line && arg.err.find(says) != std::string::npos;
}

MATCHER(SucceedsQuietly, "") {
  *result_listener << arg.code << ": " << arg.err;
  return arg.code == 0 && arg.err.empty();
}

/// Runs the tool in this process, with `out` for standard output, or without any. `arguments` is
/// the command line without the program's name, its words parted by single blanks.
inline RunResult RunInto(int out, const std::string& arguments) {
  std::vector<std::string> words = CLI::detail::split("hyl-spectral " + arguments, ' ');
  std::vector<char*> argv;
  argv.reserve(words.size());
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  const FileDescriptor usual_out(dup(STDOUT_FILENO));
  const FileDescriptor usual_err(dup(STDERR_FILENO));
  const FileDescriptor err(memfd_create("err", MFD_CLOEXEC));
  if (out < 0) {
    close(STDOUT_FILENO);
  }
  dup2(out, STDOUT_FILENO);
  dup2(err.get(), STDERR_FILENO);
  RunResult result = {RunTool(static_cast<int>(argv.size()), argv.data()), "", ""};
  dup2(usual_out.get(), STDOUT_FILENO);
  dup2(usual_err.get(), STDERR_FILENO);
  // Takes what interrupted the run, lest it interrupt the next one too.
  sigset_t all;
  sigfillset(&all);
  const timespec at_once = {};
  while (sigtimedwait(&all, nullptr, &at_once) > 0) {
  }
  result.err = ReadAll(err.get());
  return result;
}

inline RunResult RunCaptured(const std::string& arguments) {
  const FileDescriptor out(memfd_create("out", MFD_CLOEXEC));
  RunResult result = RunInto(out.get(), arguments);
  result.out = ReadAll(out.get());
  return result;
}

/// The ends of a pipe or, where it has rows, of a terminal.
struct Channel {
  explicit Channel(uint16_t rows = 0) {
    int ends[2] = {-1, -1};
    const winsize size = {rows, 80, 0, 0};
    const int result =
        rows > 0 ? openpty(&ends[0], &ends[1], nullptr, nullptr, &size) : pipe2(ends, O_CLOEXEC);
    EXPECT_EQ(result, 0);
    reader = FileDescriptor(ends[0]);
    writer = FileDescriptor(ends[1]);
  }
  FileDescriptor reader;
  FileDescriptor writer;
};

/// Runs the tool while another thread reads what it writes to a pipe, or to a terminal of so many
/// rows, and calls `on_first` when the first bytes have come.
inline RunResult RunWatched(uint16_t rows, const std::string& arguments,
                            const std::function<void()>& on_first) {
  Channel channel(rows);
  std::string shown;
  std::thread reader([&] {
    char first = 0;
    if (read(channel.reader.get(), &first, 1) == 1) {
      on_first();
      shown = first + ReadAll(channel.reader.get());
    }
  });
  RunResult result = RunInto(channel.writer.get(), arguments);
  channel.writer.Close();
  reader.join();
  result.out = shown;
  return result;
}

/// Sets an environment variable. No other thread reads them at that time.
inline void SetVariable(const char* name, const char* value) {
  setenv(name, value, 1);  // NOLINT(concurrency-mt-unsafe)
}

/// Every test begins on the simulated sensors as they are at first, and ends with none running.
class ToolTest : public testing::Test {
 protected:
  ToolTest() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      static_cast<void>(std::signal(signal, SIG_DFL));  // whoever started the tests may ignore it
    }
    host::SimulatedHub::Instance().Reset();
    framework_->UseSimulatedHub();
  }
  void TearDown() override { EXPECT_THAT(framework_->Running(), testing::IsEmpty()); }

  /// Puts a framework in the hub's place that gives this answer to all requests, and sends no data.
  void UseSilentFramework(HylErr answer) {
    framework_.emplace();
    framework_->SetSensorList({host::MakeEntry(host::kRearOnChange, "rear"),
                               host::MakeEntry(host::kRearContinuous, "rear"),
                               host::MakeEntry(host::kFlicker, "flicker"),
                               host::MakeEntry(host::kListMarker, "")});
    framework_->RefuseInvoke(host::ScriptedFramework::kEvery, answer);
  }

  std::optional<host::ScriptedFramework> framework_{std::in_place};
};

}  // namespace hyl::v2::tool
