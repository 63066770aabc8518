#include <hyl/host/simulated_hub.h>

#include <algorithm>

#include "hub_state.h"

namespace hyl::v2::host {
namespace {

/// `value` limited to the range; not-a-number counts as `low`.
double Limited(double value, double low, double high) {
  return value > low ? std::min(value, high) : low;
}

/// The nearest scene that makes sense.
LightScene Plausible(LightScene scene) {
  constexpr double kMaxSceneLux = 200000;
  constexpr double kMaxHz = 12000;
  constexpr double kMinPeriodS = 1e-3;
  constexpr double kMaxPeriodS = 1e9;
  scene.illuminance_lux = Limited(scene.illuminance_lux, 0, kMaxSceneLux);
  scene.drift_period_s = Limited(scene.drift_period_s, 0, kMaxPeriodS);
  if (scene.drift_period_s > 0) {
    scene.drift_period_s = std::max(scene.drift_period_s, kMinPeriodS);
  }
  scene.drift_depth = Limited(scene.drift_depth, 0, 1);
  scene.mains_hz = Limited(scene.mains_hz, 0, kMaxHz);
  scene.pwm_hz = Limited(scene.pwm_hz, 0, kMaxHz);
  scene.pwm_duty = Limited(scene.pwm_duty, 0, 1);
  return scene;
}

}  // namespace

void SimulatedHub::State::SetReplyFaults(const ReplyFaults& faults) {
  constexpr std::chrono::microseconds kLongestDelay = std::chrono::minutes(1);
  reply_faults = faults;
  reply_faults.max_delay =
      std::clamp(faults.max_delay, std::chrono::microseconds(0), kLongestDelay);
  reply_delays.seed(static_cast<uint32_t>(faults.seed));
}

void SimulatedHub::State::RestartSchedules() {
  for (DeliveryThread* sensor : sensors) {
    sensor->RestartSchedules();
  }
  settled.notify_all();
}

bool SimulatedHub::State::AllQuiet() const {
  return std::all_of(sensors.begin(), sensors.end(),
                     [](const DeliveryThread* sensor) { return sensor->IsQuiet(); });
}

SimulatedHub::SimulatedHub() : state_(*new State) {}

SimulatedHub& SimulatedHub::Instance() {
  static SimulatedHub* const hub = new SimulatedHub;
  return *hub;
}

void SimulatedHub::Reset() {
  EndedJobs ended;
  const auto all = [](const Job&) { return true; };
  std::unique_lock lock(state_.mutex);
  for (DeliveryThread* sensor : state_.sensors) {
    sensor->End(all, ended);
  }
  state_.replies.End(all, ended);
  state_.SetReplyFaults({});
  state_.conditions = {};
  state_.clock.UseRealTime();
  state_.packing = {};
  state_.flicker_faults = {};
  state_.last_flicker_run.reset();
  if (!DeliveryThread::IsCurrent()) {
    state_.settled.wait(
        lock, [&] { return state_.AllQuiet() && state_.replies.IsDone(state_.replies.Latest()); });
  }
}

void SimulatedHub::SetScene(const LightScene& scene) {
  const std::lock_guard lock(state_.mutex);
  state_.conditions.scene = Plausible(scene);
}

LightScene SimulatedHub::Scene() const {
  const std::lock_guard lock(state_.mutex);
  return state_.conditions.scene;
}

void SimulatedHub::UseRealTime() {
  const std::lock_guard lock(state_.mutex);
  state_.clock.UseRealTime();
  state_.RestartSchedules();
}

void SimulatedHub::UseVirtualClock() {
  const std::lock_guard lock(state_.mutex);
  state_.clock.UseVirtual();
  state_.RestartSchedules();
}

void SimulatedHub::Advance(std::chrono::nanoseconds step) {
  std::unique_lock lock(state_.mutex);
  const bool may_wait = !DeliveryThread::IsCurrent();
  const uint64_t last_reply = state_.replies.Latest();
  if (may_wait) {
    state_.settled.wait(lock, [&] { return state_.replies.IsDone(last_reply); });
  }
  state_.clock.Advance(step);
  for (DeliveryThread* sensor : state_.sensors) {
    sensor->Wake();
  }
  if (may_wait) {
    state_.settled.wait(lock, [&] { return !state_.clock.IsVirtual() || state_.AllQuiet(); });
  }
}

int64_t SimulatedHub::Now() const {
  const std::lock_guard lock(state_.mutex);
  return state_.clock.Now();
}

void SimulatedHub::SetFlickerPacking(const FlickerPacking& packing) {
  const std::lock_guard lock(state_.mutex);
  state_.packing = packing;
}

void SimulatedHub::SetFlickerFaults(const FlickerFaults& faults) {
  const std::lock_guard lock(state_.mutex);
  state_.flicker_faults = faults;
}

void SimulatedHub::SetReplyFaults(const ReplyFaults& faults) {
  const std::lock_guard lock(state_.mutex);
  state_.SetReplyFaults(faults);
}

std::vector<int32_t> SimulatedHub::FlickerHistory(int bits) const {
  std::shared_ptr<const FlickerSensor> run;
  {
    const std::lock_guard lock(state_.mutex);
    run = state_.last_flicker_run;
  }
  return run != nullptr ? run->History(bits) : std::vector<int32_t>();
}

std::vector<RunningRequest> SimulatedHub::RunningRequests() const {
  const std::lock_guard lock(state_.mutex);
  std::vector<RunningRequest> running;
  for (const DeliveryThread* sensor : state_.sensors) {
    for (const auto& job : sensor->Jobs()) {
      running.push_back({job->handle, job->client_id});
    }
  }
  return running;
}

}  // namespace hyl::v2::host
