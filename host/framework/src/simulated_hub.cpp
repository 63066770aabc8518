// SPDX-License-Identifier: Apache-2.0
#include <hyl/host/simulated_hub.h>

#include <algorithm>
#include <array>
#include <exception>
#include <iterator>
#include <random>
#include <utility>

#include <hyl/host/messages.h>
#include <hyl/host/sensors.h>

#include "ambient_light.h"
#include "delivery.h"
#include "flicker_sensor.h"
#include "light.h"

namespace hyl::v2::host {

/// The hub's sensors, settings and replies.
struct SimulatedHub::State : HubCore {
  State() { conditions.scene = initial_scene; }

  const LightScene initial_scene = InitialScene();
  // The numbers of jobs limit the memory of clients that never stop their requests.
  DeliveryThread rear{*this, clock, 64};
  DeliveryThread front{*this, clock, 64};
  DeliveryThread flicker{*this, clock, 64};
  const std::array<DeliveryThread*, 3> sensors = {&rear, &front, &flicker};
  const HubClock real_time;
  DeliveryThread replies{*this, real_time, 256};

  ReplyFaults reply_faults;
  NoiseEngine reply_delays = MakeNoise(reply_faults.seed, 0, 0);
  FlickerPacking packing;
  FlickerFaults flicker_faults;
  std::shared_ptr<FlickerSensor> last_flicker_run;  // null before the first

  void SetReplyFaults(const ReplyFaults& faults);
  bool AllQuiet() const;
};

/// A client's connection: the sensor list, starts and stops, settings, replies.
class SimulatedHub::ClientConnection final : public Api {
 public:
  using Callbacks = std::shared_ptr<Service::AsyncCallbacks>;

  explicit ClientConnection(State& hub) : hub_(hub) {}
  ClientConnection(const ClientConnection&) = delete;
  ClientConnection& operator=(const ClientConnection&) = delete;

  ~ClientConnection() override {
    EndedJobs ended;
    const auto is_mine = [this](const Job& job) { return job.connection == connection_; };
    std::unique_lock lock(hub_.mutex);
    connection_->open = false;
    for (DeliveryThread* sensor : hub_.sensors) {
      sensor->End(is_mine, ended);
    }
    hub_.replies.End(is_mine, ended);
    if (!DeliveryThread::IsCurrent()) {
      hub_.settled.wait(lock, [this] { return connection_->deliveries == 0; });
    }
  }

  std::vector<SensorListEntry> GetSensorList() override {
    std::vector<SensorListEntry> list;
    for (const Sensor& sensor : kSensors) {
      list.push_back(MakeEntry(sensor.handle, sensor.name));
    }
    return list;
  }

  HylErr InvokeAsyncServiceCall(uint32_t handle, uint32_t type, const Request& request,
                                Callbacks callbacks) override {
    const auto* const sensor =
        std::find_if(std::begin(kSensors), std::end(kSensors),
                     [handle](const Sensor& candidate) { return candidate.handle == handle; });
    if (callbacks == nullptr) {
      return HylErr::kNullPointer;
    }
    if (sensor == std::end(kSensors)) {
      return HylErr::kNotFound;
    }
    try {
      return Serve({*sensor, static_cast<RequestType>(type), std::move(callbacks)}, request);
    } catch (const std::exception&) {  // no memory, or no further thread
      return HylErr::kFailed;
    }
  }

 private:
  static constexpr int64_t kNsPerUs = 1000;

  struct Sensor {
    uint32_t handle;
    const char* name;
    DeliveryThread State::*thread;  ///< null for a sensor that cannot be started
    RequestType start;              ///< the request that starts it
    Side side;                      ///< of an ambient-light sensor
  };
  static constexpr auto kOnChange = RequestType::kStartOnChangeSampling;
  static constexpr auto kContinuous = RequestType::kStartContinuousSampling;
  static constexpr Sensor kSensors[] = {
      {1U << 16U, "accelerometer", nullptr, {}, {}},
      {2U << 16U, "magnetometer", nullptr, {}, {}},
      {4U << 16U, "gyroscope", nullptr, {}, {}},
      {kRearOnChange, "rear ambient light", &State::rear, kOnChange, Side::kRear},
      {kFrontOnChange, "front ambient light", &State::front, kOnChange, Side::kFront},
      {kFlicker, "flicker", &State::flicker, kContinuous, {}},
      {kRearContinuous, "rear ambient light", &State::rear, kContinuous, Side::kRear},
      {kFrontContinuous, "front ambient light", &State::front, kContinuous, Side::kFront},
      {kListMarker, "sensor list", nullptr, {}, {}}};

  /// A request of `type` to `sensor`, whose messages go to `callbacks`.
  struct Call {
    const Sensor& sensor;
    const RequestType type;
    const Callbacks callbacks;
  };

  /// Refuses a request that the sensor does not serve, and a record of another kind than announced.
  HylErr Serve(const Call& call, const Request& request) {
    const bool starts = call.sensor.thread != nullptr && call.sensor.start == call.type;
    const bool stops = call.sensor.thread != nullptr && call.type == RequestType::kStopSampling;
    const bool sets =
        call.sensor.handle == kSettingsHandle && call.type == RequestType::kRlsMsgAccess;
    EndedJobs ended;
    const std::lock_guard lock(hub_.mutex);
    if (!connection_->open || hub_.replies.IsFull()) {
      return HylErr::kFailed;
    }
    if (const auto* start = dynamic_cast<const StartOnChangeSamplingReq*>(&request);
        start != nullptr && starts && call.type == kOnChange) {
      return StartSampling(call, start->ClientId(), kDefaultSamplingPeriodUs, ended);
    }
    if (const auto* start = dynamic_cast<const StartContinuousSamplingReq*>(&request);
        start != nullptr && starts && call.type == kContinuous) {
      return StartSampling(call, start->ClientId(), start->Period() / kNsPerUs, ended);
    }
    if (const auto* stop = dynamic_cast<const StopSamplingReq*>(&request);
        stop != nullptr && stops) {
      return StopSampling(call, stop->ClientId(), ended);
    }
    if (const auto* access = dynamic_cast<const RlsMsgAccessReq*>(&request);
        access != nullptr && sets) {
      return AccessSettings(call, *access);
    }
    return HylErr::kInvalidArgument;
  }

  // The operations below require the hub mutex.

  HylErr StartSampling(const Call& call, uint32_t client_id, uint64_t period_us, EndedJobs& ended) {
    DeliveryThread& thread = hub_.*call.sensor.thread;
    thread.End([&](const Job& job) { return IsMine(job, call.sensor); }, ended);
    if (thread.IsFull()) {
      return HylErr::kFailed;
    }
    if (call.sensor.handle == kFlicker) {
      AddFlickerJob(call, client_id);
    } else {
      AddAmbientLightJob(call, client_id, period_us);
    }
    PushReply(call, std::make_shared<StatusReply>(static_cast<uint32_t>(call.type)));
    return HylErr::kOk;
  }

  HylErr StopSampling(const Call& call, uint32_t client_id, EndedJobs& ended) {
    const auto is_meant = [&](const Job& job) {
      return IsMine(job, call.sensor) && job.client_id == client_id;
    };
    if ((hub_.*call.sensor.thread).End(is_meant, ended) == 0) {
      return HylErr::kNotFound;
    }
    PushReply(call, std::make_shared<StatusReply>(static_cast<uint32_t>(call.type)));
    return HylErr::kOk;
  }

  HylErr AccessSettings(const Call& call, const RlsMsgAccessReq& request) {
    auto reply = std::make_shared<SettingReply>(request.access, request.command);
    const auto& period_us = hub_.conditions.settings.sampling_period_us;
    const auto period_before = period_us;
    const HylErr err = AccessSetting(request, hub_.conditions, *reply);
    if (period_us && period_us != period_before) {
      hub_.rear.SetPeriod(*period_us * kNsPerUs);
      hub_.front.SetPeriod(*period_us * kNsPerUs);
    }
    if (err == HylErr::kOk &&
        (request.access == RlsAccess::kRead || !hub_.reply_faults.ignore_writes)) {
      PushReply(call, reply);
    }
    return err;
  }

  bool IsMine(const Job& job, const Sensor& sensor) const {
    return job.connection == connection_ && job.handle == sensor.handle;
  }

  template <typename Source>
  void AddJob(const Call& call, uint32_t client_id, std::shared_ptr<Source> source,
              const Schedule& schedule) {
    const auto on_tick = [source](const Measurement& measurement, const Deliver& deliver) {
      source->OnTick(measurement, deliver);
    };
    (hub_.*call.sensor.thread)
        .Add({.connection = connection_,
              .callbacks = call.callbacks,
              .make_messages = on_tick,
              .schedule = schedule,
              .handle = call.sensor.handle,
              .client_id = client_id});
  }

  void AddAmbientLightJob(const Call& call, uint32_t client_id, uint64_t asked_period_us) {
    const int64_t period_us =
        hub_.conditions.settings.sampling_period_us.value_or(static_cast<uint32_t>(
            std::clamp<uint64_t>(asked_period_us, kMinSamplingPeriodUs, kMaxSamplingPeriodUs)));
    AddJob(call, client_id,
           std::make_shared<AmbientLightSensor>(call.sensor.side, call.type == kOnChange),
           Schedule(hub_.clock.Now(), period_us * kNsPerUs, 0));
  }

  /// The flicker sensor ignores the period of the request.
  void AddFlickerJob(const Call& call, uint32_t client_id) {
    hub_.last_flicker_run = std::make_shared<FlickerSensor>(hub_.conditions.scene.seed,
                                                            hub_.packing, hub_.flicker_faults);
    AddJob(call, client_id, hub_.last_flicker_run,
           Schedule(hub_.clock.Now(), kFlickerChunkNs, kFlickerBacklog));
  }

  void PushReply(const Call& call, const std::shared_ptr<const Message>& message) {
    std::uniform_int_distribution<int64_t> delay_ns(
        0, std::chrono::nanoseconds(hub_.reply_faults.max_delay).count());
    int64_t due = hub_.real_time.Now() + delay_ns(hub_.reply_delays);
    if (!hub_.reply_faults.reorder) {
      for (const auto& job : hub_.replies.Jobs()) {
        due = std::max(due, job->schedule.NextDue());
      }
    }
    const auto on_time = [message](const Measurement&, const Deliver& deliver) {
      deliver(*message);
    };
    hub_.replies.Add({.connection = connection_,
                      .callbacks = call.callbacks,
                      .make_messages = on_time,
                      .schedule = Schedule(due - 1, 1, 0),
                      .once = true});
  }

  State& hub_;
  const std::shared_ptr<Connection> connection_ = std::make_shared<Connection>();
};

void SimulatedHub::State::SetReplyFaults(const ReplyFaults& faults) {
  constexpr std::chrono::microseconds kLongestDelay = std::chrono::minutes(1);
  reply_faults = faults;
  reply_faults.max_delay =
      std::clamp(faults.max_delay, std::chrono::microseconds(0), kLongestDelay);
  reply_delays = MakeNoise(faults.seed, 0, 0);
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
  state_.conditions = {.scene = state_.initial_scene, .settings = {}};
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

void SimulatedHub::UseVirtualClock() {
  const std::lock_guard lock(state_.mutex);
  state_.clock.UseVirtual();
  for (DeliveryThread* sensor : state_.sensors) {
    sensor->RestartSchedules();
  }
  state_.settled.notify_all();
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

std::unique_ptr<Api> SimulatedHub::Connect(ClientType type) {
  return type == ClientType::kSpectral ? std::make_unique<ClientConnection>(state_) : nullptr;
}

}  // namespace hyl::v2::host
