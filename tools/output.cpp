#include "output.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <system_error>
#include <utility>

#include "failure.h"

namespace hyl::v2::tool {
namespace {

[[noreturn]] void ThrowWriteFailure(int error) {
  if (error == EPIPE) {
    throw QuietEnd{};
  }
  throw Failure(ExitCode::kOutput, std::string("cannot write the output: ") +
                                       std::generic_category().message(error) +
                                       "; make room or choose another place, then try again");
}

}  // namespace

void Output::Flush() {
  // Taken out first, so that a flush on the way out of a failed one does not fail again.
  const std::string text = std::exchange(pending_, {});
  std::string_view rest = text;
  while (!rest.empty()) {
    WaitUntilWritable();
    // A writable pipe takes this much without blocking.
    const ssize_t written = write(fd_, rest.data(), std::min<size_t>(rest.size(), PIPE_BUF));
    if (written >= 0) {
      rest.remove_prefix(static_cast<size_t>(written));
    } else if (errno != EINTR && errno != EAGAIN) {
      ThrowWriteFailure(errno);
    }
  }
}

void Output::WaitUntilWritable() const {
  pollfd polled[] = {{fd_, POLLOUT, 0}, {interrupt_.fd(), POLLIN, 0}};
  while (poll(polled, std::size(polled), -1) < 0) {
    if (errno != EINTR) {
      ThrowWriteFailure(errno);
    }
  }
  // What can be written still is, so that an interrupted run ends with a whole line.
  if (polled[0].revents == 0) {
    throw QuietEnd{};
  }
}

}  // namespace hyl::v2::tool
