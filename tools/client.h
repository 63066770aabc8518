#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <hyl/hyl_spectral_api.h>
#include <CLI/App.hpp>

#include "command.h"
#include "errors.h"
#include "settings.h"
#include "terminal.h"

namespace hyl::v2::tool {

/// One sample of an ambient-light sensor.
struct SpectralSample {
  int64_t timestamp_ns;
  std::vector<float> values;
};

/// One block of flicker samples, copied out of the client's buffer.
struct FlickerBlock {
  uint32_t seq_num;
  uint32_t sample_rate_hz;
  bool restart;
  std::vector<int32_t> samples;
};

using Delivery = std::variant<SpectralSample, FlickerBlock>;

struct DestroyClient {
  void operator()(HylSpectralApi* api) const { HylSpectralApi::Destroy(&api); }
};

/// An instance of the library. Its end waits for deliveries in progress.
using Client = std::unique_ptr<HylSpectralApi, DestroyClient>;

Client Connect(HylSpectralApiCallbackInterface* receiver = nullptr);

/// The names of the listed sensors of one type, in the framework's order.
std::vector<std::string> SensorNames(HylSpectralApi& api, OpticalSensorType type);

/// "ambient-light" or "flicker".
const char* TypeName(OpticalSensorType type);

/// For a list of sensors that is empty. `kind` is what sensors should be there.
Failure NoSensors(const char* kind);

/// The options that stream and flicker share.
struct RunOptions {
  std::string sensor;                                        ///< empty for the first listed
  std::vector<std::string> assignments;                      ///< settings, as NAME=VALUE
  double seconds = std::numeric_limits<double>::infinity();  ///< then the run ends
  double timeout = 5;  ///< seconds of silence that are too long
};

void AddRunOptions(CLI::App& command, RunOptions& options);

/// What to draw on; none where the samples are to be printed.
std::optional<Panel> PanelOf(const Context& context);

/// Why a run has ended.
enum class RunEnd {
  kDone,         ///< the handler has all that it wants, or the time is over
  kInterrupted,  ///< the user asked for the end
  kSilent,       ///< nothing came for longer than allowed
};

/// A sensor that runs from construction to Pump's return, or to destruction, and the queue that
/// hands its data from the framework's threads to the main thread. A full queue drops its oldest
/// entry and counts it, so that a held-up output neither grows memory nor holds up the framework.
class SensorRun : private HylSpectralApiCallbackInterface {
 public:
  /// Starts the sensor of that name and hands out a session id.
  using Enable = std::function<HylErr(HylSpectralApi&, const char* name, uint32_t& session_id)>;
  /// Takes a delivery; returns whether it wants more.
  using Handle = std::function<bool(const Delivery&)>;

  /// Writes the settings, then starts the sensor by `enable`. Throws Failure.
  SensorRun(const Context& context, OpticalSensorType type, const RunOptions& options,
            const Enable& enable);
  ~SensorRun() override;

  /// The sensor's whole name.
  const std::string& sensor() const { return sensor_; }

  /// Passes deliveries to `handle` until the run ends, then stops the sensor. Flushes the output
  /// after each, so that neither a signal nor the output waits for a backlog. Throws QuietEnd when
  /// the reader of the output goes, also while nothing is written, and Failure.
  RunEnd Pump(double seconds, double timeout, const Handle& handle);

  /// Tells of deliveries that were dropped. Throws Failure when the sensor fell silent.
  void Finish(RunEnd end);

 private:
  void OnSpectralData(uint32_t kind, uint32_t session_id, const Vector<float>& values,
                      int64_t timestamp) override;
  void OnFlickerData(uint32_t session_id, const FlickerSampleBlock* block) override;
  template <typename Make>
  void Push(Make make) noexcept;
  std::optional<Delivery> Pop();
  HylErr Stop();

  const Context& context_;
  const OpticalSensorType type_;
  uint32_t session_id_ = 0;  // 0 once stopped
  std::string sensor_;
  const FileDescriptor filled_;  // readable while there is a delivery
  std::mutex mutex_;             // guards deliveries_ and dropped_
  std::deque<Delivery> deliveries_;
  uint64_t dropped_ = 0;
  const std::vector<SettingCall> writes_;  // read before the client looks for the framework
  Client client_;                          // goes first: until then it may deliver
};

}  // namespace hyl::v2::tool
