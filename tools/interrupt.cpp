#include "interrupt.h"

#include <sys/signalfd.h>

#include <csignal>

#include "failure.h"

namespace hyl::v2::tool {
namespace {

/// A signal that the tool was started to ignore, as nohup does with SIGHUP, stays ignored.
bool IsIgnored(int number) {
  struct sigaction action = {};
  return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

Interrupt::Interrupt() {
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
    throw Failure(ExitCode::kInternal, "cannot wait for signals: close some files and try again");
  }
}

}  // namespace hyl::v2::tool
