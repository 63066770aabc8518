#include "client.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
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

}  // namespace

Client Connect(HylSpectralApiCallbackInterface* receiver) {
  HylSpectralApi* api = nullptr;
  Require(HylSpectralApi::Create(&api, receiver, HylLogLevel::kWarning), "cannot start");
  return Client(api);
}

std::vector<std::string> SensorNames(HylSpectralApi& api, OpticalSensorType type) {
  std::vector<std::string> names;
  for (const HylString& name : type == OpticalSensorType::kFlicker
                                   ? api.GetFlickerSensorNames()
                                   : api.GetAmbientLightSensorNames()) {
    names.emplace_back(name.c_str());
  }
  return names;
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
  const auto not_empty = [](const std::string& text) {
    return text.empty() ? "must not be empty" : std::string();
  };
  command
      .add_option("SENSOR", options.sensor,
                  "its name, or the beginning of it; the first listed unless given")
      ->check(not_empty);
  command
      .add_option("--set", options.assignments, "write a setting first; can be given several times")
      ->type_name("NAME=VALUE[,VALUE]")
      ->allow_extra_args(false);
  TakeNumber(command.add_option("--seconds", options.seconds,
                                "end after S seconds; without it, on Ctrl-C"),
             "S", 0.001, kMaxSeconds);
  TakeNumber(command.add_option("--timeout", options.timeout,
                                "give up after S seconds without data; 5 unless given"),
             "S", 0.001, kMaxSeconds);
}

std::optional<Panel> PanelOf(const Context& context) {
  // A log on the same screen would fall between the lines that are drawn again.
  const bool draws = context.format == "text" && !context.verbose;
  return draws ? Panel::On(context.out) : std::nullopt;
}

SensorRun::SensorRun(const Context& context, OpticalSensorType type, const RunOptions& options,
                     const Enable& enable)
    : context_(context),
      type_(type),
      filled_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      writes_(ParseAssignments(options.assignments)),
      client_(Connect(this)) {
  if (filled_.get() < 0) {
    throw Failure(ExitCode::kInternal, "cannot make a queue; close some files, then try again");
  }
  WriteSettings(*client_, writes_, type);
  // Asked before the start, so that a missing framework is waited for once.
  const std::vector<std::string> names = SensorNames(*client_, type);
  if (names.empty()) {
    throw NoSensors(TypeName(type));
  }
  const std::string& name = options.sensor.empty() ? names[0] : options.sensor;
  const HylErr result = enable(*client_, name.c_str(), session_id_);
  if (result == HylErr::kNotFound) {
    throw Failure(ExitCode::kNotFound,
                  fmt::format("no {} sensor has a name that begins with '{}'; choose one of '{}'",
                              TypeName(type), name, fmt::join(names, "', '")));
  }
  Require(result, fmt::format("cannot start '{}'", name));
  sensor_ = client_->GetSensorName(session_id_).c_str();
}

SensorRun::~SensorRun() {
  Stop();
}

RunEnd SensorRun::Pump(double seconds, double timeout, const Handle& handle) {
  RunEnd end = RunEnd::kDone;
  const double time_up = Now() + seconds;
  double silent = Now() + timeout;
  bool wants_more = true;
  while (wants_more && Now() < time_up) {
    if (!context_.out.Wait(filled_.get(), MillisecondsUntil(std::min(time_up, silent)))) {
      end = RunEnd::kInterrupted;
      wants_more = false;
    } else if (const std::optional<Delivery> delivery = Pop()) {
      silent = Now() + timeout;
      wants_more = handle(*delivery);
      context_.out.Flush();
    } else if (Now() >= silent) {
      end = RunEnd::kSilent;
      wants_more = false;
    }
  }
  Require(Stop(), fmt::format("cannot stop '{}'", sensor_));
  return end;
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
  return type_ == OpticalSensorType::kFlicker ? client_->DisableFlickerSensor(session_id)
                                              : client_->DisableAmbientLightSensor(session_id);
}

}  // namespace hyl::v2::tool
