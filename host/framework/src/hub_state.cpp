#include "hub_state.h"

#include <algorithm>

#include "hub_thread.h"

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
  constexpr double kMaxPeriodS = 1e9;
  scene.illuminance_lux = Limited(scene.illuminance_lux, 0, kMaxSceneLux);
  scene.drift_period_s = Limited(scene.drift_period_s, 0, kMaxPeriodS);
  scene.drift_depth = Limited(scene.drift_depth, 0, 1);
  scene.mains_hz = Limited(scene.mains_hz, 0, kMaxHz);
  scene.pwm_hz = Limited(scene.pwm_hz, 0, kMaxHz);
  scene.pwm_duty = Limited(scene.pwm_duty, 0, 1);
  return scene;
}

}  // namespace

HubState& HubState::Instance() {
  static HubState* const state = new HubState;
  return *state;
}

void HubState::Disconnect(Connection& connection) {
  EndedSubscriptions ended;
  DroppedReplies dropped;
  std::unique_lock lock(core_.mutex);
  connection.open = false;
  for (SensorStream* stream : streams_) {
    stream->EndConnection(connection, ended);
  }
  replies_.DropConnection(connection, dropped);
  if (!OnHubThread()) {
    core_.settled.wait(lock, [&] { return connection.deliveries == 0; });
  }
}

void HubState::Reset() {
  EndedSubscriptions ended;
  DroppedReplies dropped;
  std::unique_lock lock(core_.mutex);
  for (SensorStream* stream : streams_) {
    stream->EndAll(ended);
  }
  replies_.DropAll(dropped);
  replies_.SetFaults({});
  core_.conditions = {};
  core_.clock.UseRealTime();
  settings_ = {};
  packing_ = {};
  flicker_faults_ = {};
  last_flicker_run_.reset();
  if (!OnHubThread()) {
    core_.settled.wait(lock, [&] { return AllQuiet() && replies_.IsDone(replies_.Latest()); });
  }
}

bool HubState::AllQuiet() const {
  return std::all_of(streams_.begin(), streams_.end(),
                     [](const SensorStream* s) { return s->IsQuiet(); });
}

void HubState::SetScene(const LightScene& scene) {
  const std::lock_guard lock(core_.mutex);
  core_.conditions.scene = Plausible(scene);
}

LightScene HubState::Scene() {
  const std::lock_guard lock(core_.mutex);
  return core_.conditions.scene;
}

void HubState::UseRealTime() {
  const std::lock_guard lock(core_.mutex);
  core_.clock.UseRealTime();
  RestartSchedules();
}

void HubState::UseVirtualClock() {
  const std::lock_guard lock(core_.mutex);
  core_.clock.UseVirtual();
  RestartSchedules();
}

void HubState::RestartSchedules() {
  for (SensorStream* stream : streams_) {
    stream->RestartSchedules();
  }
  core_.settled.notify_all();
}

void HubState::Advance(std::chrono::nanoseconds step) {
  std::unique_lock lock(core_.mutex);
  const bool may_wait = !OnHubThread();
  const uint64_t last_reply = replies_.Latest();
  if (may_wait) {
    core_.settled.wait(lock, [&] { return replies_.IsDone(last_reply); });
  }
  core_.clock.Advance(step);
  for (SensorStream* stream : streams_) {
    stream->Wake();
  }
  if (may_wait) {
    core_.settled.wait(lock, [&] { return !core_.clock.IsVirtual() || AllQuiet(); });
  }
}

int64_t HubState::Now() {
  const std::lock_guard lock(core_.mutex);
  return core_.clock.Now();
}

void HubState::SetFlickerPacking(const FlickerPacking& packing) {
  const std::lock_guard lock(core_.mutex);
  packing_ = packing;
}

void HubState::SetFlickerFaults(const FlickerFaults& faults) {
  const std::lock_guard lock(core_.mutex);
  flicker_faults_ = faults;
}

void HubState::SetReplyFaults(const ReplyFaults& faults) {
  const std::lock_guard lock(core_.mutex);
  replies_.SetFaults(faults);
}

std::vector<int32_t> HubState::FlickerHistory(int bits) {
  std::shared_ptr<FlickerRun> run;
  {
    const std::lock_guard lock(core_.mutex);
    run = last_flicker_run_;
  }
  return run ? run->History(bits) : std::vector<int32_t>();
}

std::vector<RunningRequest> HubState::RunningRequests() {
  const std::lock_guard lock(core_.mutex);
  std::vector<RunningRequest> running;
  for (const SensorStream* stream : streams_) {
    stream->AppendRunning(running);
  }
  return running;
}

}  // namespace hyl::v2::host
