#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "conditions.h"
#include "hub_clock.h"

namespace hyl::v2::host {

/// What the parts of the hub share. All of it, and all state of the parts that does not say
/// otherwise, is guarded by `mutex`, "the hub mutex"; it is never held while a client is called or
/// a client's object may be destroyed.
struct HubCore {
  std::mutex mutex;
  std::condition_variable settled;  ///< signalled after each delivery and when requests end
  HubClock clock;
  Conditions conditions;
};

/// One Api's connection to the hub.
struct Connection {
  bool open = true;         ///< false from the Api's destruction on: nothing more is delivered
  uint32_t deliveries = 0;  ///< deliveries under way, on any hub thread
};

}  // namespace hyl::v2::host
