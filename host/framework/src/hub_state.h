#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <random>

#include <hyl/host/simulated_hub.h>

#include "delivery_thread.h"
#include "flicker_sensor.h"

namespace hyl::v2::host {

/// The hub's sensors, settings and replies.
struct SimulatedHub::State : HubCore {
  // The numbers of jobs bound what clients that never stop their requests can use up.
  DeliveryThread rear{*this, clock, 64};
  DeliveryThread front{*this, clock, 64};
  DeliveryThread flicker{*this, clock, 64};
  const std::array<DeliveryThread*, 3> sensors = {&rear, &front, &flicker};
  const HubClock real_time;
  DeliveryThread replies{*this, real_time, 256};

  ReplyFaults reply_faults;
  std::minstd_rand reply_delays;
  FlickerPacking packing;
  FlickerFaults flicker_faults;
  std::shared_ptr<FlickerSensor> last_flicker_run;  // null before the first

  void SetReplyFaults(const ReplyFaults& faults);
  void RestartSchedules();
  bool AllQuiet() const;
};

}  // namespace hyl::v2::host
