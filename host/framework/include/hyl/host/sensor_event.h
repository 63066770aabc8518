#pragma once

#include <cstdint>
#include <span>

#include <hyl/ref_counted_sensor_event.h>
#include <hyl/reffed_ptr.h>

namespace hyl::v2::host {

using SensorEventPtr = refcount::reffed_ptr<const RefCountedSensorEvent>;

/// Makes an event on the heap with the given values (at most 255; more are cut off), chained
/// before `next`, of which it holds a reference. The event frees itself with its last reference.
[[gnu::visibility("default")]] SensorEventPtr MakeSensorEvent(SensorEventType type,
                                                              int64_t timestamp,
                                                              std::span<const float> values,
                                                              const SensorEventPtr& next = {});

}  // namespace hyl::v2::host
