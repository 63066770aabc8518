// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <stdexcept>

#include <fmt/format.h>

#include "command.h"
#include "errors.h"

#ifdef HYL_HOST_FRAMEWORK

#include <hyl/host/replay.h>
#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>

namespace hyl::v2::tool {
namespace {

using host::LightScene;

constexpr const char* kGroup = "Simulated sensors";

/// Changes one field of the hub's scene.
template <typename T>
auto ChangeScene(T LightScene::*field) {
  return [field](const T& value) {
    host::SimulatedHub& hub = host::SimulatedHub::Instance();
    LightScene scene = hub.Scene();
    scene.*field = value;
    hub.SetScene(scene);
  };
}

void SetScene(const std::string& text) {
  host::SimulatedHub::Instance().SetScene(*host::ParseScene(text));
}

std::string CheckScene(const std::string& text) {
  return host::ParseScene(text) ? "" : fmt::format("'{}' {}", text, host::kNoScene);
}

[[noreturn]] void ThrowFailure(const std::runtime_error& fault) {
  throw Failure(ExitCode::kRecording,
                fmt::format("{}; docs/recordings.md tells what can be replayed", fault.what()));
}

class RecordingClock : public Clock {
 public:
  /// Infinite speed waits for nothing.
  RecordingClock(const std::string& file, const double& speed) try : speed_(speed), replay_(file) {
  } catch (const std::runtime_error& fault) {
    ThrowFailure(fault);
  }

  int64_t Now() const override { return replay_.Now(); }

  int MillisecondsUntil(int64_t time) const override {
    if (ended()) {
      return 0;
    }
    const double due = static_cast<double>(std::min(time, replay_.NextDue())) / speed_;
    return real_time_.MillisecondsUntil(start_ + static_cast<int64_t>(std::min(due, 1e18)));
  }

  void Continue(int64_t time) override {
    try {
      if (MillisecondsUntil(time) > 0) {  // the wait was cut short
        return;
      }
      if (replay_.NextDue() <= time) {
        replay_.Step();
      } else {
        replay_.Advance(std::chrono::nanoseconds(time - Now()));
      }
    } catch (const std::runtime_error& fault) {
      ThrowFailure(fault);
    }
    if (ended() && replay_.CutOff()) {
      PrintNotice("the recording ends in the middle of a line, which is left out");
    }
  }

  bool ended() const override { return replay_.NextDue() == kNever; }
  uint64_t TakeDrops() override { return replay_.TakeDrops(); }
  std::string header() const override { return replay_.Header(); }

 private:
  const Clock real_time_;
  const int64_t start_ = real_time_.Now();
  const double& speed_;
  host::Replay replay_;
};

}  // namespace

void AddReplayOptions(CLI::App& app, Context& context) {
  const auto replay = [&context](const std::string& file) {
    context.clock = std::make_unique<RecordingClock>(file, context.speed);
  };
  app.add_option_function<std::string>("--replay", replay, "take a recording in their place")
      ->type_name("FILE")
      ->group(kGroup);
  TakeNumber(app.add_option("--speed", context.speed,
                            "how fast to replay, inf for without waiting; 1 unless given"),
             "X", 0.001, std::numeric_limits<double>::infinity())
      ->group(kGroup);
}

void AddSceneOptions(CLI::App& app) {
  app.add_option_function<std::string>("--scene", SetScene,
                                       "the light that they see; daylight unless given; takes "
                                       "numbers, too, as in warm-led,lux=300")
      ->type_name("daylight|warm-led|fluorescent|dark")
      ->check(CheckScene)
      ->envname("HYL_HUB_SCENE")
      ->group(kGroup);
  TakeNumber(app.add_option_function<double>("--lux", ChangeScene(&LightScene::illuminance_lux),
                                             "its level in lux; 500 unless given"),
             "LUX", 0, 200000)
      ->group(kGroup);
  TakeOneOf(app.add_option_function<double>("--mains", ChangeScene(&LightScene::mains_hz),
                                            "mains frequency in Hz; 50 unless given"),
            "50|60")
      ->group(kGroup);
}

std::string SimulatedRangesHelp() {
  return fmt::format(
      "The simulated sensors take, and move other values to the nearest of these:\n"
      "  exposure-time    {} to {} us in steps of {}; {} at first\n"
      "  sampling-period  {} to {} us in steps of {}\n"
      "  gain             A {} ambient light, {} flicker; GAIN a power of two, {} to {}\n"
      "  flicker-channel  A 0 to {}, the channel as stream numbers it; B has no effect\n"
      "  flicker-pedestal in 1/256 of full scale\n",
      host::kMinExposureUs, host::kMaxExposureUs, host::kExposureStepUs, host::kDefaultExposureUs,
      host::kMinSamplingPeriodUs, host::kMaxSamplingPeriodUs, host::kSamplingPeriodStepUs,
      host::kGainOfSpectral, host::kGainOfFlicker, host::kMinGain, host::kMaxGain,
      host::kMaxFlickerChannel);
}

void NoteSimulatedLifetime() {
  PrintNotice(
      "the simulated sensors lose this setting now, as the command ends; --set of stream and "
      "flicker sets it for a run");
}

}  // namespace hyl::v2::tool

#else

void hyl::v2::tool::AddReplayOptions(CLI::App&, Context&) {}
void hyl::v2::tool::AddSceneOptions(CLI::App&) {}
std::string hyl::v2::tool::SimulatedRangesHelp() {
  return {};
}
void hyl::v2::tool::NoteSimulatedLifetime() {}

#endif
