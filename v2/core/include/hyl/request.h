// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#include <hyl/heap.h>

namespace hyl::v2 {

/// The kind of a request: the second argument of Api::InvokeAsyncServiceCall.
enum class RequestType : uint32_t {
  kStartOnChangeSampling = 2,
  kStartContinuousSampling = 3,
  kStopSampling = 4,
  kRlsMsgAccess = 64,
};

/// Common base of the request records. A record is built by the caller, read by the framework
/// during one InvokeAsyncServiceCall, and not kept. Every byte of a new record is zero.
class __attribute__((visibility("default"))) Request : public HeapAllocable {
 public:
  virtual ~Request();

 protected:
  Request() = default;
};

/// Stops the sampling that the request with the same client id started.
class __attribute__((visibility("default"))) StopSamplingReq : public Request {
 public:
  ~StopSamplingReq() override;
  virtual uint32_t ClientId() const;

  uint8_t lead_byte = 0;
  uint8_t zero9[3] = {};
  uint32_t client_id = 0;
};

/// Starts sampling that reports when the measured value changes.
class __attribute__((visibility("default"))) StartOnChangeSamplingReq : public Request {
 public:
  ~StartOnChangeSamplingReq() override;
  virtual uint32_t ClientId() const;
  virtual bool Passive() const;
  virtual uint64_t MaxLatency() const;
  virtual uint8_t TransformMask() const;
  virtual bool IsWakeUp() const;

  uint8_t lead_byte = 0;
  uint8_t zero9[3] = {};
  uint32_t client_id = 0;
  bool passive = false;
  uint8_t zero17[7] = {};
  uint64_t max_latency = 0;
  uint8_t transform_mask = 0;
  uint8_t option_flag = 0;
  bool is_wake_up = false;
  uint8_t zero35[5] = {};
};

/// Starts sampling that reports once per period.
class __attribute__((visibility("default"))) StartContinuousSamplingReq : public Request {
 public:
  ~StartContinuousSamplingReq() override;
  virtual uint32_t ClientId() const;
  virtual bool Passive() const;
  virtual uint64_t MaxLatency() const;
  virtual uint8_t TransformMask() const;
  virtual bool IncludeRuntimeBias() const;
  virtual uint8_t Reserved() const;
  virtual uint64_t Period() const;
  virtual bool IsWakeUp() const;

  uint8_t lead_byte = 0;
  uint8_t zero9[3] = {};
  uint32_t client_id = 0;
  bool passive = false;
  uint8_t zero17[7] = {};
  uint64_t max_latency = 0;
  uint8_t transform_mask = 0;
  bool include_runtime_bias = false;
  uint8_t reserved = 0;
  uint8_t zero35[5] = {};
  uint64_t period = 0;
  uint8_t option_flag = 0;
  bool is_wake_up = false;
  uint8_t zero50[6] = {};
};

// Offsets in classes with virtual operations are well-defined for g++ and clang++.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

static_assert(sizeof(Request) == sizeof(void*));

static_assert(sizeof(StopSamplingReq) == 16);
static_assert(offsetof(StopSamplingReq, client_id) == 12);

static_assert(sizeof(StartOnChangeSamplingReq) == 40);
static_assert(offsetof(StartOnChangeSamplingReq, client_id) == 12);
static_assert(offsetof(StartOnChangeSamplingReq, passive) == 16);
static_assert(offsetof(StartOnChangeSamplingReq, max_latency) == 24);
static_assert(offsetof(StartOnChangeSamplingReq, transform_mask) == 32);
static_assert(offsetof(StartOnChangeSamplingReq, option_flag) == 33);
static_assert(offsetof(StartOnChangeSamplingReq, is_wake_up) == 34);

static_assert(sizeof(StartContinuousSamplingReq) == 56);
static_assert(offsetof(StartContinuousSamplingReq, client_id) == 12);
static_assert(offsetof(StartContinuousSamplingReq, passive) == 16);
static_assert(offsetof(StartContinuousSamplingReq, max_latency) == 24);
static_assert(offsetof(StartContinuousSamplingReq, transform_mask) == 32);
static_assert(offsetof(StartContinuousSamplingReq, include_runtime_bias) == 33);
static_assert(offsetof(StartContinuousSamplingReq, reserved) == 34);
static_assert(offsetof(StartContinuousSamplingReq, period) == 40);
static_assert(offsetof(StartContinuousSamplingReq, option_flag) == 48);
static_assert(offsetof(StartContinuousSamplingReq, is_wake_up) == 49);

#pragma GCC diagnostic pop

}  // namespace hyl::v2
