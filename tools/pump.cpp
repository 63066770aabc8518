#include "pump.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "failure.h"

namespace hyl::v2::tool {
namespace {

Clock::time_point After(Clock::time_point start, std::chrono::duration<double> time) {
  return start + std::chrono::duration_cast<Clock::duration>(time);
}

/// Milliseconds for poll; -1 for no limit.
int PollTimeout(std::optional<Clock::time_point> until) {
  if (!until) {
    return -1;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*until - Clock::now()).count();
  // A longer wait than an hour is taken in pieces.
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, 3'600'000));
}

}  // namespace

Wake WaitForData(const Context& context, int data_fd, std::optional<Clock::time_point> until) {
  // No events are asked of the output: its errors show unasked.
  pollfd polled[] = {
      {context.interrupt.fd(), POLLIN, 0}, {context.out.fd(), 0, 0}, {data_fd, POLLIN, 0}};
  const int ready = poll(polled, std::size(polled), PollTimeout(until));
  if (ready < 0 && errno != EINTR) {
    throw Failure(ExitCode::kInternal, "cannot wait for data: close some files and try again");
  }
  if (ready <= 0) {
    return Wake::kTimeUp;
  }
  if (polled[0].revents != 0) {
    return Wake::kInterrupted;
  }
  if ((polled[1].revents & (POLLERR | POLLHUP)) != 0) {
    throw QuietEnd{};
  }
  return Wake::kData;
}

RunTimer::RunTimer(const RunLimits& limits) : limits_(limits) {}

void RunTimer::DataCame() {
  latest_data_ = Clock::now();
}

std::optional<Clock::time_point> RunTimer::NextEnd() const {
  std::optional<Clock::time_point> end;
  if (limits_.run_time) {
    end = After(start_, *limits_.run_time);
  }
  if (limits_.silence) {
    const Clock::time_point silent = After(latest_data_, *limits_.silence);
    end = end ? std::min(*end, silent) : silent;
  }
  return end;
}

std::optional<RunEnd> RunTimer::Reached() const {
  const Clock::time_point now = Clock::now();
  if (limits_.run_time && now >= After(start_, *limits_.run_time)) {
    return RunEnd::kTimeUp;
  }
  if (limits_.silence && now >= After(latest_data_, *limits_.silence)) {
    return RunEnd::kSilent;
  }
  return std::nullopt;
}

void FinishRun(RunEnd end, const std::string& sensor, uint64_t dropped) {
  if (dropped > 0) {
    PrintNotice("the output is slower than the sensor; dropped " + std::to_string(dropped) +
                " of its messages");
  }
  if (end == RunEnd::kSilent) {
    throw Failure(ExitCode::kLost,
                  "'" + sensor +
                      "' has sent nothing for too long; check that the sensor framework still "
                      "runs, or allow more with --timeout");
  }
}

}  // namespace hyl::v2::tool
