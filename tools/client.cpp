// SPDX-License-Identifier: Apache-2.0
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

int64_t After(int64_t time, double seconds) {
  return std::isinf(seconds) ? Clock::kNever : time + static_cast<int64_t>(seconds * 1e9);
}

}  // namespace

int64_t Clock::Now() const {
  return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// A longer wait than an hour is taken in pieces.
int Clock::MillisecondsUntil(int64_t time) const {
  const double left = std::ceil(static_cast<double>(time - Now()) / 1e6);
  return time == kNever ? -1 : static_cast<int>(std::clamp(left, 0.0, 3.6e6));
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

void AddRunOptions(CLI::App& command, RunOptions& options, const char* sensors, int most) {
  const auto not_empty = [](const std::string& text) {
    return text.empty() ? "must not be empty" : std::string();
  };
  command.add_option("SENSOR", options.sensors, sensors)->expected(1, most)->check(not_empty);
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

void AddModeOption(CLI::App& command, RunOptions& options) {
  TakeOneOf(command.add_option("--mode", options.mode,
                               "when the sensor reports; continuous unless given"),
            "continuous|on-change");
}

void AddFlickerOptions(CLI::App& command, RunOptions& options) {
  TakeNumber(command.add_option("--bits", options.bits,
                                "width of the samples, 1 to 32 bits; 16 unless given"),
             "N", 1, 32);
  TakeNumber(command.add_option("--buffer", options.buffer,
                                "samples that the buffer holds, 2 to 262144; 4096 unless given"),
             "N", 2, 1 << 18);
}

std::optional<Panel> PanelOf(const Context& context) {
  // A log on the same screen would fall between the lines that are drawn again.
  const bool draws = context.format == "text" && !context.verbose;
  return draws ? Panel::On(context.out) : std::nullopt;
}

SensorRun::SensorRun(const Context& context, const RunOptions& options)
    : context_(context),
      options_(options),
      start_ns_(context.clock->Now()),
      filled_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      writes_(ParseAssignments(options_.assignments)),
      client_(MakeInstance(this)) {
  if (filled_.get() < 0) {
    throw Failure(ExitCode::kInternal, "cannot make a queue; close some files, then try again");
  }
}

SensorRun::~SensorRun() {
  Stop();
}

void SensorRun::Start(const SensorCounts& counts) {
  running_ = true;
  WriteSettings(*client_, writes_, counts[0].first);
  // Asked before the start, so that a missing framework is waited for once.
  for (const auto& [type, name] : Choose(counts)) {
    StartSensor(type, name);
  }
}

std::vector<std::pair<OpticalSensorType, std::string>> SensorRun::Choose(
    const SensorCounts& counts) {
  std::vector<std::pair<OpticalSensorType, std::string>> chosen;
  std::vector<std::string> listed;
  std::vector<std::string> wanted = options_.sensors;
  for (const auto& [type, count] : counts) {
    size_t index = 0;
    for (const std::string& name : SensorNames(*client_, type)) {
      const auto fits = [&](const std::string& prefix) { return name.starts_with(prefix); };
      if (options_.sensors.empty() ? index++ < count : std::erase_if(wanted, fits) > 0) {
        chosen.emplace_back(type, name);
      }
      listed.push_back(name);
    }
  }
  const char* const kind = counts.size() == 1 ? TypeName(counts[0].first) : "optical";
  if (listed.empty()) {
    throw NoSensors(kind);
  }
  if (!wanted.empty()) {
    throw Failure(ExitCode::kNotFound,
                  fmt::format("no {} sensor has a name that begins with '{}'; choose one of '{}'",
                              kind, wanted[0], fmt::join(listed, "', '")));
  }
  return chosen;
}

void SensorRun::StartSensor(OpticalSensorType type, const std::string& name) {
  uint32_t session_id = 0;
  HylErr result{};
  if (type == OpticalSensorType::kFlicker) {
    buffer_.resize(options_.buffer);
    result = client_->EnableFlickerSensor(name.c_str(), buffer_.data(), buffer_.size(),
                                          static_cast<uint8_t>(options_.bits), session_id);
  } else {
    result = client_->EnableAmbientLightSensor(name.c_str(), session_id,
                                               options_.mode == "on-change"
                                                   ? SensorReportingMode::kOnChange
                                                   : SensorReportingMode::kContinuous);
  }
  Require(result, fmt::format("cannot start '{}'", name));
  sensors_.push_back({type, client_->GetSensorName(session_id).c_str(), session_id});
}

std::string SensorRun::names() const {
  std::vector<std::string> names;
  for (const Sensor& sensor : sensors_) {
    names.push_back(sensor.name);
  }
  return fmt::format("{}", fmt::join(names, "', '"));
}

RunEnd SensorRun::Pump(double timeout, const Handle& handle) {
  Clock& clock = *context_.clock;
  const int64_t time_up = After(clock.Now(), options_.seconds);
  int64_t silent = After(clock.Now(), timeout);
  std::optional<RunEnd> end;
  bool wants_more = true;
  while (!end) {
    const int64_t until = std::min(time_up, silent);
    if (!wants_more || clock.Now() >= time_up) {
      end = RunEnd::kDone;
    } else if (!context_.out.Wait(filled_.get(), clock.MillisecondsUntil(until))) {
      end = RunEnd::kInterrupted;
    } else if (const std::optional<Delivery> delivery = Pop()) {
      silent = After(clock.Now(), timeout);
      wants_more = handle(*delivery);
      context_.out.Flush();
    } else if (clock.ended() || clock.Now() >= silent) {
      end = clock.ended() ? RunEnd::kDone : RunEnd::kSilent;
    } else {
      clock.Continue(until);
      const std::lock_guard lock(mutex_);
      dropped_ += clock.TakeDrops();
    }
  }
  Require(Stop(), fmt::format("cannot stop '{}'", names()));
  while (wants_more) {
    const std::optional<Delivery> delivery = Pop();
    wants_more = delivery && handle(*delivery);
  }
  return *end;
}

void SensorRun::Finish(RunEnd end) {
  if (all_dropped_ > 0) {
    PrintNotice(fmt::format("the output is slower than the sensor; dropped {} of its messages",
                            all_dropped_));
  }
  if (end == RunEnd::kSilent) {
    throw Failure(ExitCode::kLost,
                  fmt::format("'{}' has sent nothing for too long; check that the sensor framework "
                              "still runs, or allow more with --timeout",
                              names()));
  }
}

void SensorRun::OnSpectralData(uint32_t kind, uint32_t session_id, const Vector<float>& values,
                               int64_t timestamp) {
  Push(session_id, [&] { return SpectralSample{kind, timestamp, {values.begin(), values.end()}}; });
}

void SensorRun::OnFlickerData(uint32_t session_id, const FlickerSampleBlock* block) {
  Push(session_id, [=] {
    return FlickerBlock{*block, {block->samples, block->samples + block->num_samples}};
  });
}

/// Adds the delivery that `make` returns. One for which there is no memory is dropped: nothing may
/// be thrown through a callback.
template <typename Make>
void SensorRun::Push(uint32_t session_id, Make make) noexcept {
  try {
    Delivery delivery = {0, session_id, make()};
    const std::lock_guard lock(mutex_);
    // Under the lock, so that the order is that of the times.
    delivery.time_ns = context_.clock->Now() - start_ns_;
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

/// What was dropped comes before the oldest that was not.
std::optional<Delivery> SensorRun::Pop() {
  const std::lock_guard lock(mutex_);
  if (dropped_ > 0) {
    const int64_t time_ns =
        deliveries_.empty() ? context_.clock->Now() - start_ns_ : deliveries_.front().time_ns;
    all_dropped_ += dropped_;
    return Delivery{time_ns, 0, Drop{std::exchange(dropped_, 0)}};
  }
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

/// All of them, whatever becomes of the others. Returns the first that could not be stopped.
HylErr SensorRun::Stop() {
  HylErr first = HylErr::kOk;
  for (const Sensor& sensor : running_ ? sensors_ : std::vector<Sensor>()) {
    const HylErr result = sensor.type == OpticalSensorType::kFlicker
                              ? client_->DisableFlickerSensor(sensor.session_id)
                              : client_->DisableAmbientLightSensor(sensor.session_id);
    first = first == HylErr::kOk ? result : first;
  }
  running_ = false;
  return first;
}

}  // namespace hyl::v2::tool
