// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include <hyl/reffed_ptr.h>

namespace hyl::v2 {

/// What a RefCountedSensorEvent carries.
enum class SensorEventType : uint8_t {
  kSpectralSample = 1,
  kIgnored = 3,
};

/// A framework-owned sensor event, chained into lists. `value_count` floats follow the record
/// itself. Once the framework has delivered an event, only its count changes.
class __attribute__((visibility("default"))) RefCountedSensorEvent {
 public:
  /// Takes a reference. A 256th one ends the process.
  void Ref() const {
    const uint8_t previous_count = ref_count.fetch_add(1, std::memory_order_relaxed);
    Assert(previous_count < 255, "previous_count < 255", __PRETTY_FUNCTION__);
  }

  /// Gives a reference back; the last one frees the event and its reference to `next`.
  void Unref() const;

  /// The first of `value_count` values.
  const float* values() const { return reinterpret_cast<const float*>(this + 1); }

  const RefCountedSensorEvent* next = nullptr;  ///< next event of the chain, or null
  mutable std::atomic<uint8_t> ref_count{0};
  SensorEventType event_type{};
  uint8_t unused10 = 0;
  uint8_t value_count = 0;
  uint32_t unused12 = 0;
  int64_t timestamp = 0;  ///< nanoseconds; with bit 63 set, platform ticks in bits 0 to 62
};

static_assert(sizeof(RefCountedSensorEvent) == 24);
static_assert(alignof(RefCountedSensorEvent) == 8);
static_assert(offsetof(RefCountedSensorEvent, next) == 0);
static_assert(offsetof(RefCountedSensorEvent, ref_count) == 8);
static_assert(offsetof(RefCountedSensorEvent, event_type) == 9);
static_assert(offsetof(RefCountedSensorEvent, value_count) == 11);
static_assert(offsetof(RefCountedSensorEvent, timestamp) == 16);

}  // namespace hyl::v2
