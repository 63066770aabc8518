// SPDX-License-Identifier: Apache-2.0
#include "terminal.h"

#include <langinfo.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <clocale>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <system_error>

#include <fmt/format.h>

#include "errors.h"

namespace hyl::v2::tool {
namespace {

/// A signal that the tool was started to ignore, as nohup does with SIGHUP, stays ignored.
bool IsIgnored(int number) {
  struct sigaction action = {};
  return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

[[noreturn]] void ThrowWriteFailure(int error) {
  if (error == EPIPE) {
    throw QuietEnd{};
  }
  throw Failure(ExitCode::kOutput,
                "cannot write the output: " + std::generic_category().message(error) +
                    "; make room or choose another place, then try again");
}

// A cell that is filled from the left, and one that is filled from below, by eighths.
constexpr const char* kFromLeft[] = {" ", "▏", "▎", "▍", "▌", "▋", "▊", "▉", "█"};
constexpr const char* kFromBelow[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};

std::string_view Variable(const char* name) {
  // The tool never changes its environment, so that reading it is safe on any thread.
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
  return value != nullptr ? value : "";
}

bool IsUtf8Locale() {
  // The character set alone: numbers keep their decimal point. Asked by the main thread alone.
  if (std::setlocale(LC_CTYPE, "") == nullptr) {  // NOLINT(concurrency-mt-unsafe)
    return false;
  }
  return std::string_view(nl_langinfo(CODESET)) == "UTF-8";  // NOLINT(concurrency-mt-unsafe)
}

/// 0 to 1 whatever the value.
double Part(double value) {
  return std::isfinite(value) ? std::clamp(value, 0.0, 1.0) : 0;
}

}  // namespace

Output::Output(int fd) : fd_(fd) {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    if (!IsIgnored(number)) {
      sigaddset(&set, number);
    }
  }
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  // A pipe without a reader is to show as a failed write, not to kill the tool with a sensor on.
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  signals_ = FileDescriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  if (signals_.get() < 0) {
    throw Failure(ExitCode::kInternal, "cannot wait for signals; close some files, then try again");
  }
}

void Output::Flush() {
  // Taken out first, so that a flush on the way out of a failed one does not fail again.
  const std::string text = std::exchange(pending_, {});
  std::string_view rest = text;
  while (!rest.empty()) {
    pollfd polled[] = {{fd_, POLLOUT, 0}, {signals_.get(), POLLIN, 0}};
    const int ready = poll(polled, std::size(polled), -1);
    // What can be written still is, so that an interrupted run ends with a whole line.
    if (ready > 0 && polled[0].revents == 0) {
      throw QuietEnd{};
    }
    // A writable pipe takes this much without blocking.
    const ssize_t written =
        ready > 0 ? write(fd_, rest.data(), std::min<size_t>(rest.size(), PIPE_BUF)) : ready;
    if (written >= 0) {
      rest.remove_prefix(static_cast<size_t>(written));
    } else if (errno != EINTR && errno != EAGAIN) {
      ThrowWriteFailure(errno);
    }
  }
}

bool Output::Wait(int fd, int milliseconds) const {
  // poll reports errors of the output without being asked.
  pollfd polled[] = {{signals_.get(), POLLIN, 0}, {fd_, 0, 0}, {fd, POLLIN, 0}};
  if (poll(polled, std::size(polled), milliseconds) < 0 && errno != EINTR) {
    throw Failure(ExitCode::kInternal, "cannot wait for data; close some files, then try again");
  }
  const bool interrupted = polled[0].revents != 0;
  if (!interrupted && (polled[1].revents & (POLLERR | POLLHUP)) != 0) {
    throw QuietEnd{};
  }
  return !interrupted;
}

std::optional<Panel> Panel::On(Output& out) {
  const std::string_view kind = Variable("TERM");
  if (isatty(out.fd()) != 1 || kind.empty() || kind == "dumb") {
    return std::nullopt;
  }
  return Panel(out, Variable("NO_COLOR").empty(), IsUtf8Locale());
}

void Panel::Begin() {
  winsize size = {};
  if (ioctl(out_.fd(), TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
    size.ws_row = 24;
    size.ws_col = 80;
  }
  rows_ = std::max(size.ws_row - 1U, 1U);
  columns_ = size.ws_col - 1U;
  lines_.clear();
}

void Panel::AddText(const std::string& text) {
  lines_.push_back(text.substr(0, columns_));
}

void Panel::AddBar(const std::string& label, double fill) {
  if (label.size() >= columns_) {
    AddText(label);
    return;
  }
  const std::string cells = BarCells(Part(fill), columns_ - label.size());
  lines_.push_back(label + (colour_ ? "\033[36m" + cells + "\033[0m" : cells));
}

void Panel::AddColumns(const std::vector<double>& parts) {
  if (!unicode_ || parts.empty()) {
    return;
  }
  std::string line;
  for (const double part : parts) {
    line += kFromBelow[static_cast<size_t>(Part(part) * 8)];
  }
  lines_.push_back(line);
}

void Panel::Draw() {
  if (lines_.size() > rows_) {
    const size_t hidden = lines_.size() - rows_ + 1;
    lines_.resize(rows_ - 1);
    AddText(fmt::format("{} more lines need a taller window", hidden));
  }
  // Ctrl-C may have moved the cursor within its line, by its echo.
  std::string picture = "\r";
  if (drawn_lines_ > 0) {
    picture += fmt::format("\033[{}A", drawn_lines_);
  }
  for (const std::string& line : lines_) {
    // Erases what the picture before left on the line.
    picture += line + "\033[K\n";
  }
  drawn_lines_ = lines_.size();
  out_.Add(picture + "\033[J");
}

std::string Panel::BarCells(double fill, size_t width) const {
  const size_t steps = unicode_ ? 8 : 1;
  const auto full = static_cast<size_t>(std::lround(fill * static_cast<double>(width * steps)));
  std::string cells;
  for (size_t cell = 0; cell < width; ++cell) {
    const size_t filled = std::clamp(full, cell * steps, (cell + 1) * steps) - cell * steps;
    cells += unicode_ ? kFromLeft[filled] : filled == 0 ? " " : "#";
  }
  return cells;
}

}  // namespace hyl::v2::tool
