#pragma once

#include <cstdint>
#include <functional>

#include <hyl/message.h>

#include "conditions.h"
#include "schedule.h"

namespace hyl::v2::host {

/// Everything that a measurement at one tick depends on.
struct Measurement {
  Tick tick;
  int64_t elapsed_ns = 0;  ///< from the start of the hub's clock to the tick
  Conditions conditions;
};

/// Hands a message to the client, unless its request has ended. Blocks for as long as the client
/// takes.
using Deliver = std::function<void(const Message&)>;

/// Makes the messages of one running request. Used by one thread at a time, without the hub mutex.
class SensorSource {
 public:
  SensorSource() = default;
  SensorSource(const SensorSource&) = delete;
  SensorSource& operator=(const SensorSource&) = delete;
  virtual ~SensorSource() = default;

  virtual void OnTick(const Measurement& measurement, const Deliver& deliver) = 0;
};

}  // namespace hyl::v2::host
