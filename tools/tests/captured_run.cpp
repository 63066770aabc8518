#include "captured_run.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "command.h"

namespace hyl::v2::tool {
namespace {

void RequireCall(bool ok, const char* call) {
  if (!ok) {
    std::perror(call);
    std::abort();
  }
}

/// Puts another file in the place of a standard stream while it lives.
class Redirected {
 public:
  Redirected(int stream, int target) : stream_(stream), original_(dup(stream)) {
    RequireCall(original_.get() >= 0 && dup2(target, stream) == stream, "dup2");
  }
  Redirected(const Redirected&) = delete;
  Redirected& operator=(const Redirected&) = delete;
  ~Redirected() { dup2(original_.get(), stream_); }

 private:
  const int stream_;
  const FileDescriptor original_;
};

FileDescriptor MemoryFile() {
  FileDescriptor file(memfd_create("captured", MFD_CLOEXEC));
  RequireCall(file.get() >= 0, "memfd_create");
  return file;
}

std::string ReadAll(int fd) {
  std::string text;
  char buffer[4096];
  // A terminal's reading end reports an error, not an end, when the other end has been closed.
  for (ssize_t count = 0; (count = read(fd, buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<size_t>(count));
  }
  return text;
}

std::string Content(const FileDescriptor& file) {
  lseek(file.get(), 0, SEEK_SET);
  return ReadAll(file.get());
}

sigset_t InterruptingSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    sigaddset(&set, number);
  }
  return set;
}

/// Takes what interrupted the run, lest it interrupt the next one too.
void ClearPendingSignals() {
  const sigset_t set = InterruptingSignals();
  const timespec at_once = {};
  while (sigtimedwait(&set, nullptr, &at_once) > 0) {
  }
}

int RunWith(const std::string& arguments) {
  std::vector<std::string> words = {"hyl-spectral"};
  std::istringstream split(arguments);
  for (std::string word; std::getline(split, word, ' ');) {
    words.push_back(word);
  }
  std::vector<char*> argv(words.size());
  std::transform(words.begin(), words.end(), argv.begin(),
                 [](std::string& word) { return word.data(); });
  return RunTool(static_cast<int>(argv.size()), argv.data());
}

}  // namespace

RunResult RunInto(int out, const std::string& arguments) {
  const FileDescriptor err = MemoryFile();
  int code = 0;
  {
    const Redirected output(STDOUT_FILENO, out);
    const Redirected errors(STDERR_FILENO, err.get());
    code = RunWith(arguments);
  }
  ClearPendingSignals();
  return {code, "", Content(err)};
}

RunResult RunCaptured(const std::string& arguments) {
  const FileDescriptor out = MemoryFile();
  RunResult result = RunInto(out.get(), arguments);
  result.out = Content(out);
  return result;
}

void BlockSignals() {
  const sigset_t set = InterruptingSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

Pipe::Pipe() {
  int ends[2];
  RequireCall(pipe2(ends, O_CLOEXEC) == 0, "pipe2");
  reader = FileDescriptor(ends[0]);
  writer = FileDescriptor(ends[1]);
}

TestTerminal::TestTerminal(unsigned short rows) {
  int master = -1;
  int slave = -1;
  winsize size = {};
  size.ws_row = rows;
  size.ws_col = 80;
  RequireCall(openpty(&master, &slave, nullptr, nullptr, &size) == 0, "openpty");
  reader = FileDescriptor(master);
  screen = FileDescriptor(slave);
}

struct Reader::State {
  std::string text;
  std::thread thread;
};

Reader::Reader(int fd, std::function<void()> on_first) : state_(std::make_unique<State>()) {
  state_->thread = std::thread([state = state_.get(), fd, on_first = std::move(on_first)] {
    char first = 0;
    if (read(fd, &first, 1) == 1) {
      on_first();
      state->text = first + ReadAll(fd);
    }
  });
}

Reader::~Reader() {
  if (state_->thread.joinable()) {
    state_->thread.join();
  }
}

const std::string& Reader::Text() {
  state_->thread.join();
  return state_->text;
}

}  // namespace hyl::v2::tool
