// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <hyl/host/messages.h>

#include "delivery.h"
#include "light.h"

namespace hyl::v2::host {

/// An ambient-light sensor. The rear one reports each measurement in a sample message. The front
/// one reports event chains, which hold four measurements in continuous sampling.
class AmbientLightSensor {
 public:
  AmbientLightSensor(Side side, bool on_change) : side_(side), on_change_(on_change) {}

  void OnTick(const Measurement& measurement, const Deliver& deliver);

 private:
  bool IsWorthReporting(const Channels& light);
  void Collect(int64_t time_ns, std::vector<float> values);
  void DeliverChain(const Deliver& deliver);

  const Side side_;
  const bool on_change_;
  std::optional<Channels> reported_;  // in on-change sampling, the light last reported

  // Of the front sensor:
  std::vector<SensorEvent> collected_;
  uint64_t event_count_ = 0;
  uint64_t chain_count_ = 0;
};

}  // namespace hyl::v2::host
