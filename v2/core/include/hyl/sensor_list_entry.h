#pragma once

#include <cstdint>

namespace hyl::v2 {

/// One sensor of the framework's sensor list. Its priority is its index within its type.
struct SensorListEntry {
  uint32_t handle;  ///< bits 16 to 31: the framework's sensor type; bits 0 to 15: the priority
  char name[40];    ///< NUL-terminated
};

static_assert(sizeof(SensorListEntry) == 44);
static_assert(alignof(SensorListEntry) == 4);

}  // namespace hyl::v2
