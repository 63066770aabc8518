#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>

namespace hyl::v2::host {

/// A recording in the place of the sensors, behind Api::Create while it lives, as a
/// ScriptedFramework is: a client gets, through the library, the callbacks that were recorded, bit
/// for bit. The format of a recording, and what cannot be replayed, is in docs/recordings.md.
///
/// - The recorded sensors are listed, under their names. Either way of starting one is accepted; it
///   then gets what was recorded of it, in whichever mode that was.
/// - What falls due while its sensor is not running is passed over.
/// - Settings are refused with kInvalidArgument.
///
/// Time stands still but for Advance. Must outlive the clients' instances. Advance, Step
/// and TakeDrops are for one thread at a time, outside of callbacks; Now is safe on any thread.
class [[gnu::visibility("default")]] Replay {
 public:
  /// NextDue when nothing is left.
  static constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

  /// Reads the beginning. Throws std::runtime_error, as Advance does, with a text that names the
  /// file, the line and what is wrong with it.
  explicit Replay(const std::string& file);
  ~Replay();

  /// Its first line.
  const std::string& header() const;
  /// Nanoseconds since the beginning of the recording.
  int64_t Now() const;
  /// When the next line is due, or kNever.
  int64_t NextDue() const;
  /// Moves the time, and delivers on the calling thread, in the order of the recording, what falls
  /// due; Now is the time of each during its delivery.
  void Advance(std::chrono::nanoseconds step);
  /// Moves the time to the next line, if there is one, and delivers that line alone.
  void Step();
  /// How many callbacks the recorder had to drop, as far as time has moved since the last call.
  uint64_t TakeDrops();
  /// Whether the recording ended in the middle of a line, which is left out.
  bool cut_off() const;

 private:
  struct State;
  const std::unique_ptr<State> state_;
};

}  // namespace hyl::v2::host
