// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <CLI/App.hpp>

#include "terminal.h"

namespace hyl::v2::tool {

/// The whole tool; returns its exit code.
int RunTool(int argc, char** argv) noexcept;

/// The time that runs go by, in nanoseconds: the machine's, or that of a recording that is
/// replayed, which the main thread moves.
class Clock {
 public:
  static constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

  virtual ~Clock() = default;
  /// Safe on any thread.
  virtual int64_t Now() const;
  /// How long to wait until `time` or, sooner, until something is to be replayed; -1 for ever.
  virtual int MillisecondsUntil(int64_t time) const;
  /// To be called after that wait: replays what is due next, if it is by `time`. Throws Failure.
  virtual void Continue(int64_t) {}
  /// Whether nothing is left to be replayed.
  virtual bool ended() const { return false; }
  /// How many callbacks the recording lacks, as far as it has been replayed since the last call.
  virtual uint64_t TakeDrops() { return 0; }
  /// The first line of what is replayed; empty where nothing is.
  virtual std::string header() const { return {}; }
};

/// What a command works with. Complete when the command line has been read.
struct Context {
  Output& out;
  std::string format = "text";  ///< or "json" or "csv"
  bool verbose = false;         ///< the library's log goes to standard error
  std::unique_ptr<Clock> clock = std::make_unique<Clock>();
  double speed = 1;  ///< of what is replayed
};

// Each adds its command to `app`. The command runs when the command line that names it has been
// read.
void AddListCommand(CLI::App& app, const Context& context);
void AddStreamCommand(CLI::App& app, const Context& context);
void AddFlickerCommand(CLI::App& app, const Context& context);
void AddRecordCommand(CLI::App& app, const Context& context);
void AddGetCommand(CLI::App& app, const Context& context);
void AddSetCommand(CLI::App& app, const Context& context);

/// What the last of `words`, those behind the program's name, can be completed to.
std::vector<std::string> Completions(const CLI::App& app, const std::vector<std::string>& words);

/// Lets the option take a number from `least` to `most`, which its help calls `name`.
CLI::Option* TakeNumber(CLI::Option* option, const char* name, double least, double most);

/// Lets the option take one of the words, which are parted by '|'.
CLI::Option* TakeOneOf(CLI::Option* option, const std::string& words);

/// Adds options that choose the light in front of the simulated sensors; none on a device.
void AddSceneOptions(CLI::App& app);

/// Adds options that put a recording in the sensors' place; none on a device.
void AddReplayOptions(CLI::App& app, Context& context);

/// The units and ranges that the simulated sensors give to the settings; empty on a device.
std::string SimulatedRangesHelp();

/// Tells the user that the simulated sensors' settings end with the process.
void NoteSimulatedLifetime();

}  // namespace hyl::v2::tool
