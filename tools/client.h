// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <hyl/spectral_instance.h>
#include <CLI/App.hpp>

#include "command.h"
#include "errors.h"
#include "settings.h"
#include "terminal.h"

namespace hyl::v2::tool {

/// One sample of an ambient-light sensor.
struct SpectralSample {
  uint32_t kind;
  int64_t timestamp_ns;
  std::vector<float> values;
};

/// One block of flicker samples, copied out of the client's buffer.
struct FlickerBlock {
  FlickerSampleBlock fields;  ///< its own `samples` are void
  std::vector<int32_t> samples;
};

/// Callbacks for which there was no room.
struct Drop {
  uint64_t count;
};

struct Delivery {
  int64_t time_ns;      ///< since the beginning of the run
  uint32_t session_id;  ///< of a Drop, none
  std::variant<SpectralSample, FlickerBlock, Drop> what;
};

/// The names of the listed sensors of one type, in the framework's order.
std::vector<std::string> SensorNames(HylSpectralApi& api, OpticalSensorType type);

/// "ambient-light" or "flicker".
const char* TypeName(OpticalSensorType type);

/// For a list of sensors that is empty. `kind` is what sensors should be there.
Failure NoSensors(const char* kind);

/// The options of the commands that run sensors. Not all have all of them.
struct RunOptions {
  std::vector<std::string> sensors;      ///< beginnings of names; empty for the first listed
  std::vector<std::string> assignments;  ///< settings, as NAME=VALUE
  double seconds = std::numeric_limits<double>::infinity();  ///< then the run ends
  double timeout = 5;               ///< seconds of silence that are too long
  std::string mode = "continuous";  ///< of ambient-light sensors
  int bits = 16;                    ///< of flicker samples
  size_t buffer = 4096;             ///< in flicker samples
};

/// `sensors` is what the command's help says of them, and `most` their number.
void AddRunOptions(CLI::App& command, RunOptions& options, const char* sensors, int most);
void AddModeOption(CLI::App& command, RunOptions& options);
void AddFlickerOptions(CLI::App& command, RunOptions& options);

/// What to draw on; none where the samples are to be printed.
std::optional<Panel> PanelOf(const Context& context);

/// Why a run has ended.
enum class RunEnd {
  kDone,         ///< the handler has all that it wants, or the time is over
  kInterrupted,  ///< the user asked for the end
  kSilent,       ///< nothing came for longer than allowed
};

/// Types of sensors, and how many of each run where none is named.
using SensorCounts = std::vector<std::pair<OpticalSensorType, size_t>>;

/// Sensors that run until Pump's return, or destruction, and the queue that hands their data from
/// the framework's threads to the main thread. A full queue drops its oldest entry and counts it,
/// so that a held-up output neither grows memory nor holds up the framework.
class SensorRun : private HylSpectralApiCallbackInterface {
 public:
  struct Sensor {
    OpticalSensorType type;
    std::string name;
    uint32_t session_id;
  };
  /// Takes a delivery; returns whether it wants more.
  using Handle = std::function<bool(const Delivery&)>;

  SensorRun(const Context& context, const RunOptions& options);
  ~SensorRun() override;

  /// Writes the settings, then starts the sensors. Throws Failure.
  void Start(const SensorCounts& counts);

  const std::vector<Sensor>& sensors() const { return sensors_; }
  /// Their names, parted by "', '".
  std::string names() const;

  HylSpectralApi& api() { return *client_; }

  /// Passes deliveries to `handle` until the run ends, then stops the sensors. Flushes the output
  /// after each, so that neither a signal nor the output waits for a backlog. Throws QuietEnd when
  /// the reader of the output goes, also while nothing is written, and Failure.
  RunEnd Pump(double timeout, const Handle& handle);

  /// How many callbacks have been dropped, as far as Pump has told.
  uint64_t dropped() const { return all_dropped_; }

  /// Tells of deliveries that were dropped. Throws Failure when the sensors fell silent.
  void Finish(RunEnd end);

 private:
  void OnSpectralData(uint32_t kind, uint32_t session_id, const Vector<float>& values,
                      int64_t timestamp) override;
  void OnFlickerData(uint32_t session_id, const FlickerSampleBlock* block) override;
  template <typename Make>
  void Push(uint32_t session_id, Make make) noexcept;
  std::optional<Delivery> Pop();
  std::vector<std::pair<OpticalSensorType, std::string>> Choose(const SensorCounts& counts);
  void StartSensor(OpticalSensorType type, const std::string& name);
  HylErr Stop();

  const Context& context_;
  const RunOptions& options_;
  const int64_t start_ns_;
  std::vector<int> buffer_;  // of the flicker sensor
  std::vector<Sensor> sensors_;
  bool running_ = false;
  const FileDescriptor filled_;  // readable while there is a delivery
  std::mutex mutex_;             // guards deliveries_ and dropped_
  std::deque<Delivery> deliveries_;
  uint64_t dropped_ = 0;                   // not yet told by a Drop
  uint64_t all_dropped_ = 0;               // told
  const std::vector<SettingCall> writes_;  // read before the client looks for the framework
  SpectralInstance client_;                // goes first: until then it may deliver
};

// What a recording is made of.

std::string RecordingHeader(const Context& context, const RunOptions& options, SensorRun& run);
std::string RecordingLine(const SensorRun& run, const Delivery& delivery);

}  // namespace hyl::v2::tool
