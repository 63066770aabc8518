#include "client.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iterator>
#include <new>
#include <utility>

#include <fmt/format.h>

namespace hyl::v2::tool {
namespace {

constexpr size_t kMaxDeliveries = 256;
constexpr double kMaxSeconds = 366 * 86400.0;

/// Seconds on a clock that is never set.
double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// -1 where that is never. A longer wait than an hour is taken in pieces.
int MillisecondsUntil(double until) {
  const double left = std::ceil((until - Now()) * 1000);
  return std::isinf(left) ? -1 : static_cast<int>(std::clamp(left, 0.0, 3.6e6));
}

Failure UnknownName(OpticalSensorType type, const std::string& name,
                    const std::vector<Sensor>& sensors) {
  std::string names;
  for (const Sensor& sensor : sensors) {
    names += fmt::format("{}'{}'", names.empty() ? "" : ", ", sensor.name);
  }
  return Failure(ExitCode::kNotFound,
                 fmt::format("no {} sensor has a name that begins with '{}'; choose one of {}",
                             TypeName(type), name, names));
}

}  // namespace

std::vector<Sensor> SensorsOf(HylSpectralApi& api, OpticalSensorType type) {
  const Vector<HylString> names = type == OpticalSensorType::kFlicker
                                      ? api.GetFlickerSensorNames()
                                      : api.GetAmbientLightSensorNames();
  std::vector<Sensor> sensors;
  for (const HylString& name : names) {
    sensors.push_back({name.c_str(), api.IsSensorSupported(type, name.c_str())});
  }
  return sensors;
}

const char* TypeName(OpticalSensorType type) {
  return type == OpticalSensorType::kFlicker ? "flicker" : "ambient-light";
}

Failure NoSensors(const char* kind) {
  return Failure(
      ExitCode::kFramework,
      fmt::format("the sensor framework shows no {} sensor; check that its service runs, "
                  "then try again (-v shows the log)",
                  kind));
}

void AddRunOptions(CLI::App& command, RunOptions& options) {
  const CLI::Validator not_empty(
      [](const std::string& text) { return text.empty() ? "must not be empty" : std::string(); },
      "");
  command
      .add_option("SENSOR", options.sensor,
                  "its name, or the beginning of it; the first listed unless given")
      ->check(not_empty);
  command
      .add_option("--set", options.assignments, "write a setting first; can be given several times")
      ->type_name("NAME=VALUE[,VALUE]")
      ->allow_extra_args(false);
  command.add_option("--seconds", options.seconds, "end after S seconds; without it, on Ctrl-C")
      ->type_name("S")
      ->check(NumberWithin(0.001, kMaxSeconds));
  command
      .add_option("--timeout", options.timeout,
                  "give up after S seconds without data; 5 unless given")
      ->type_name("S")
      ->check(NumberWithin(0.001, kMaxSeconds));
}

std::optional<Panel> PanelOf(const Context& context) {
  // A log on the same screen would fall between the lines that are drawn again.
  const bool draws = context.format == Format::kText && !context.verbose;
  return draws ? Panel::On(context.out) : std::nullopt;
}

SensorRun::SensorRun(const Context& context, OpticalSensorType type, const RunOptions& options,
                     const Enable& enable)
    : context_(context),
      type_(type),
      filled_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      writes_(ParseAssignments(options.assignments)),
      client_(this) {
  if (filled_.get() < 0) {
    throw Failure(ExitCode::kInternal, "cannot make a queue; close some files, then try again");
  }
  WriteSettings(client_.api(), writes_, type);
  // Asked before the start, so that a missing framework is waited for once.
  const std::vector<Sensor> sensors = SensorsOf(client_.api(), type);
  if (sensors.empty()) {
    throw NoSensors(TypeName(type));
  }
  const std::string& name = options.sensor.empty() ? sensors[0].name : options.sensor;
  const HylErr result = enable(client_.api(), name.c_str(), session_id_);
  if (result == HylErr::kNotFound) {
    throw UnknownName(type, name, sensors);
  }
  Require(result, fmt::format("cannot start '{}'", name));
  sensor_ = client_.api().GetSensorName(session_id_).c_str();
}

SensorRun::~SensorRun() {
  Stop();
}

RunEnd SensorRun::Pump(double seconds, double timeout, const Handle& handle) {
  std::optional<RunEnd> end;
  const double time_up = Now() + seconds;
  double silent = Now() + timeout;
  while (!end) {
    if (!context_.out.Wait(filled_.get(), MillisecondsUntil(std::min(time_up, silent)))) {
      end = RunEnd::kInterrupted;
    } else if (const std::optional<Delivery> delivery = Pop()) {
      silent = Now() + timeout;
      if (!handle(*delivery)) {
        end = RunEnd::kDone;
      }
      context_.out.Flush();
    }
    if (!end && Now() >= time_up) {
      end = RunEnd::kDone;
    } else if (!end && Now() >= silent) {
      end = RunEnd::kSilent;
    }
  }
  Require(Stop(), fmt::format("cannot stop '{}'", sensor_));
  return *end;
}

void SensorRun::Finish(RunEnd end) {
  const std::lock_guard lock(mutex_);
  if (dropped_ > 0) {
    PrintNotice(
        fmt::format("the output is slower than the sensor; dropped {} of its messages", dropped_));
  }
  if (end == RunEnd::kSilent) {
    throw Failure(ExitCode::kLost,
                  fmt::format("'{}' has sent nothing for too long; check that the sensor framework "
                              "still runs, or allow more with --timeout",
                              sensor_));
  }
}

void SensorRun::OnSpectralData(uint32_t, uint32_t, const Vector<float>& values, int64_t timestamp) {
  Push([&] { return SpectralSample{timestamp, {values.begin(), values.end()}}; });
}

void SensorRun::OnFlickerData(uint32_t, const FlickerSampleBlock* block) {
  Push([=] {
    return FlickerBlock{block->seq_num,
                        block->format_param,
                        (block->restart & 1) != 0,
                        {block->samples, block->samples + block->num_samples}};
  });
}

/// Adds the delivery that `make` returns. One for which there is no memory is dropped: nothing may
/// be thrown through a callback.
template <typename Make>
void SensorRun::Push(Make make) noexcept {
  try {
    Delivery delivery = make();
    const std::lock_guard lock(mutex_);
    deliveries_.push_back(std::move(delivery));
    if (deliveries_.size() > kMaxDeliveries) {
      deliveries_.pop_front();
      ++dropped_;
    }
    eventfd_write(filled_.get(), 1);
  } catch (const std::bad_alloc&) {
    const std::lock_guard lock(mutex_);
    ++dropped_;
  }
}

std::optional<Delivery> SensorRun::Pop() {
  const std::lock_guard lock(mutex_);
  if (deliveries_.empty()) {
    return std::nullopt;
  }
  std::optional<Delivery> oldest(std::move(deliveries_.front()));
  deliveries_.pop_front();
  if (deliveries_.empty()) {
    eventfd_t ignored = 0;
    eventfd_read(filled_.get(), &ignored);
  }
  return oldest;
}

HylErr SensorRun::Stop() {
  const uint32_t session_id = std::exchange(session_id_, 0);
  if (session_id == 0) {
    return HylErr::kOk;
  }
  return type_ == OpticalSensorType::kFlicker ? client_.api().DisableFlickerSensor(session_id)
                                              : client_.api().DisableAmbientLightSensor(session_id);
}

}  // namespace hyl::v2::tool
