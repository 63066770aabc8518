// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#include <hyl/message.h>
#include <hyl/ref_counted_sensor_event.h>
#include <hyl/reffed_ptr.h>

namespace hyl::v2 {

/// Reply to a start or stop request.
class __attribute__((visibility("default"))) SamplingStatusResp : public Message {
 public:
  virtual uint8_t Status() const = 0;
};

/// The framework's clock arithmetic.
class __attribute__((visibility("default"))) Time {
 public:
  /// Converts a time in platform ticks to nanoseconds. Safe on any thread.
  static uint64_t PlatformTicksToNs(uint64_t ticks);
};

/// One measurement of a spectral sensor.
struct SpectralSample {
  uint8_t unused0[8];
  float values[16];      ///< channel values, the first `value_count` of them valid
  uint32_t value_count;  ///< number of values, at most 16 in a well-formed record
  uint8_t unused76[4];
  int64_t timestamp;  ///< nanoseconds; with bit 63 set, platform ticks in bits 0 to 62
  uint8_t unused88[8];
};

static_assert(sizeof(SpectralSample) == 96);
static_assert(offsetof(SpectralSample, values) == 8);
static_assert(offsetof(SpectralSample, value_count) == 72);
static_assert(offsetof(SpectralSample, timestamp) == 80);

/// Delivers one measurement.
class __attribute__((visibility("default"))) SampleMessage : public Message {
 public:
  virtual SpectralSample Sample() const = 0;
};

/// Delivers a chain of events.
class __attribute__((visibility("default"))) EventMessage : public Message {
 public:
  uint64_t unused8 = 0;
  refcount::reffed_ptr<const RefCountedSensorEvent> events;  ///< the first event, or empty
  uint64_t event_count = 0;                                  ///< number of events to visit
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

static_assert(sizeof(EventMessage) == 32);
static_assert(offsetof(EventMessage, events) == 16);
static_assert(offsetof(EventMessage, event_count) == 24);

#pragma GCC diagnostic pop

}  // namespace hyl::v2
