#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include <hyl/host/simulated_hub.h>
#include <hyl/hyl_err.h>
#include <hyl/request.h>
#include <hyl/rls_msg_access.h>
#include <hyl/service.h>

#include "als_source.h"
#include "flicker_source.h"
#include "hub_core.h"
#include "reply_queue.h"
#include "sensor_stream.h"
#include "setting_bank.h"

namespace hyl::v2::host {

/// A client's call: who asks which sensor, and where the answers go.
struct Call {
  std::shared_ptr<Connection> connection;
  uint32_t handle;
  uint32_t request_type;
  std::shared_ptr<Service::AsyncCallbacks> callbacks;
};

/// The hub: sensors, settings and replies. All operations take the hub mutex themselves.
class HubState {
 public:
  /// The process's hub. Never destroyed, as its threads run to the end of the process.
  static HubState& Instance();

  HubState(const HubState&) = delete;
  HubState& operator=(const HubState&) = delete;

  // For the clients' Api objects.
  HylErr Invoke(Call call, const Request& request);
  /// Ends everything of this connection. Waits for deliveries under way, unless on a hub thread.
  void Disconnect(Connection& connection);

  // For SimulatedHub, which says what these do.
  void Reset();
  void SetScene(const LightScene& scene);
  LightScene Scene();
  void UseRealTime();
  void UseVirtualClock();
  void Advance(std::chrono::nanoseconds step);
  int64_t Now();
  void SetFlickerPacking(const FlickerPacking& packing);
  void SetFlickerFaults(const FlickerFaults& faults);
  void SetReplyFaults(const ReplyFaults& faults);
  std::vector<int32_t> FlickerHistory(int bits);
  std::vector<RunningRequest> RunningRequests();

 private:
  struct Start {
    Reporting reporting;
    uint32_t client_id;
    uint64_t period_ns;  // asked for
  };

  HubState() = default;

  HylErr StartOnChange(Call call, const Request& request);
  HylErr StartContinuous(Call call, const Request& request);
  HylErr StartSampling(Call call, const Start& start);
  HylErr StopSampling(Call call, const Request& request);
  HylErr AccessSetting(Call call, const Request& request);
  HylErr ApplySetting(const RlsMsgAccessReq& request, SettingReply& reply);
  bool CanReply(const Connection& connection) const;
  void PushReply(Call call, std::unique_ptr<Message> message);

  SensorStream* StreamOf(uint32_t handle);
  std::unique_ptr<SensorSource> MakeSource(uint32_t handle);
  Schedule MakeSchedule(uint32_t handle, const Start& start) const;
  bool AllQuiet() const;
  void RestartSchedules();

  HubCore core_;
  SensorStream rear_{core_};
  SensorStream front_{core_};
  SensorStream flicker_{core_};
  const std::array<SensorStream*, 3> streams_ = {&rear_, &front_, &flicker_};
  ReplyQueue replies_{core_};

  // Guarded by the hub mutex.
  SettingBank settings_;
  FlickerPacking packing_;
  FlickerFaults flicker_faults_;
  std::shared_ptr<FlickerRun> last_flicker_run_;  // null before the first
};

}  // namespace hyl::v2::host
