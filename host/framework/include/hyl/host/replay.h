// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>

namespace hyl::v2::host {

/// A recording that replaces the sensors. While it lives, it is behind Api::Create, like a
/// ScriptedFramework. Through the library, a client receives the recorded callbacks, bit for bit.
/// docs/recordings.md has the format of a recording, and what cannot be replayed.
///
/// - The sensor list has the recorded sensors, with their names. A sensor accepts either way of
///   starting it, and then delivers what was recorded, in whichever mode that was.
/// - Lines that fall due while their sensor is not running are skipped.
/// - Settings are refused with kInvalidArgument.
///
/// Only Advance and Step move the time. The replay must outlive the clients' instances. Advance,
/// Step and TakeDrops are for one thread at a time, outside callbacks. Now is safe on any thread.
class [[gnu::visibility("default")]] Replay {
 public:
  /// What NextDue returns when no line is left.
  static constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

  /// Reads the header and the first line. Throws std::runtime_error for a bad recording, as Advance
  /// and Step do. Its text names the file, the line and the fault.
  explicit Replay(const std::string& file);
  ~Replay();

  /// The text of the header, which is the first line.
  const std::string& Header() const;
  /// The time since the beginning of the recording, in nanoseconds.
  int64_t Now() const;
  /// When the next line is due, or kNever.
  int64_t NextDue() const;
  /// Moves the time and delivers what falls due, on the calling thread and in the order of the
  /// recording. During a delivery, Now is the time of that line.
  void Advance(std::chrono::nanoseconds step);
  /// Moves the time to the next line, if there is one, and delivers only that line.
  void Step();
  /// The number of callbacks that the recorder dropped in the time replayed since the last call.
  uint64_t TakeDrops();
  /// Whether the recording ended in the middle of a line. That line is not replayed.
  bool CutOff() const;

 private:
  struct State;
  const std::unique_ptr<State> state_;
};

}  // namespace hyl::v2::host
