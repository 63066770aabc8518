#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "bounded_queue.h"
#include "context.h"

namespace hyl::v2::tool {

/// Why a run has ended.
enum class RunEnd {
  kEnough,       ///< the handler has all that it wants
  kTimeUp,       ///< the time of the run is over
  kInterrupted,  ///< the user asked for the end
  kSilent,       ///< nothing came for longer than allowed
};

/// How long a run takes.
struct RunLimits {
  std::optional<std::chrono::duration<double>> run_time;  ///< none for until interrupted
  std::optional<std::chrono::duration<double>> silence;   ///< none for any length
};

/// Throws Failure when the sensor fell silent, and notes entries that were dropped.
void FinishRun(RunEnd end, const std::string& sensor, uint64_t dropped);

using Clock = std::chrono::steady_clock;

enum class Wake { kData, kTimeUp, kInterrupted };

/// Waits until `data_fd` is readable, the user interrupts or the time has come. Throws QuietEnd
/// when the reader of the output goes meanwhile.
Wake WaitForData(const Context& context, int data_fd, std::optional<Clock::time_point> until);

/// The time points at which a run ends, as far as limits set them.
class RunTimer {
 public:
  explicit RunTimer(const RunLimits& limits);

  /// Notes that data has come.
  void DataCame();
  /// The next time point at which the run may end.
  std::optional<Clock::time_point> NextEnd() const;
  /// The end that has been reached, if any.
  std::optional<RunEnd> Reached() const;

 private:
  const RunLimits limits_;
  const Clock::time_point start_ = Clock::now();
  Clock::time_point latest_data_ = start_;
};

/// Passes the entries of `queue` to `handle`, which returns whether it wants more, until the run
/// ends. Flushes the output after each, so that neither a signal nor the output waits for a
/// backlog.
template <typename T, typename Handle>
RunEnd Pump(const Context& context, BoundedQueue<T>& queue, const RunLimits& limits,
            Handle handle) {
  RunTimer timer(limits);
  while (true) {
    const Wake wake = WaitForData(context, queue.fd(), timer.NextEnd());
    if (wake == Wake::kInterrupted) {
      return RunEnd::kInterrupted;
    }
    if (std::optional<T> entry = queue.Pop()) {
      timer.DataCame();
      if (!handle(*std::move(entry))) {
        return RunEnd::kEnough;
      }
      context.out.Flush();
    }
    if (const auto end = timer.Reached()) {
      return *end;
    }
  }
}

}  // namespace hyl::v2::tool
