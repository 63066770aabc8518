// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#include <hyl/message.h>
#include <hyl/request.h>

namespace hyl::v2 {

/// Direction of a configuration access.
enum class RlsAccess : uint8_t {
  kRead = 0,
  kWrite = 1,
};

/// The setting that a configuration access reads or writes.
enum class RlsCommand : uint8_t {
  kExposureTime = 0,
  kFlickerFrequencyMetrics = 1,
  kFlickerSaturation = 2,
  kFlickerChannel = 3,
  kGain = 4,
  kFlickerPedestal = 5,
  kSamplingPeriod = 6,
  kRegister = 7,
  kDeviceUid = 8,
  kTorchLight = 10,
  kSpectralAutoGain = 11,
  kFlickerAutoGain = 12,
  kFlickerConfig = 13,
  kApplyFacCal = 14,
  kApplyOtpCal = 15,
};

/// Reads or writes one sensor setting. The fields after `command` are the arguments; the command
/// decides which of them the framework reads.
class __attribute__((visibility("default"))) RlsMsgAccessReq : public Request {
 public:
  ~RlsMsgAccessReq() override;

  uint8_t lead_byte = 0;
  RlsAccess access{};
  RlsCommand command{};
  uint8_t zero11 = 0;
  uint32_t metric0 = 0;
  uint32_t metric1 = 0;
  uint8_t param_a = 0;
  uint8_t zero21[3] = {};
  float gain = 0;
  uint8_t metric_byte = 0;
  uint8_t value8 = 0;
  uint8_t zero30[2] = {};
  uint32_t saturation = 0;
  uint32_t value32 = 0;
  uint8_t reg_addr = 0;
  uint8_t zero41[7] = {};
  uint64_t device_uid = 0;
  bool cal_enabled = false;
  bool torch_on = false;
  bool spectral_auto_gain = false;
  bool flicker_auto_gain = false;
  uint8_t param_b = 0;
  uint8_t zero61[3] = {};
};

/// Reply to a RlsMsgAccessReq. `access` and `command` repeat the request's. The switches are bytes
/// here: any value but 0 means on.
class __attribute__((visibility("default"))) RlsMsgAccessResp : public Message {
 public:
  uint8_t unused8[2] = {};
  RlsAccess access{};
  RlsCommand command{};
  uint32_t metric0 = 0;
  uint32_t metric1 = 0;
  uint8_t param_a = 0;
  uint8_t unused21[3] = {};
  float gain = 0;
  uint8_t metric_byte = 0;
  uint8_t value8 = 0;
  uint8_t unused30[2] = {};
  uint32_t saturation = 0;
  uint32_t value32 = 0;
  uint8_t reg_addr = 0;
  uint8_t unused41[7] = {};
  uint64_t device_uid = 0;
  uint8_t cal_enabled = 0;
  uint8_t torch_on = 0;
  uint8_t spectral_auto_gain = 0;
  uint8_t flicker_auto_gain = 0;
  uint8_t param_b = 0;
  uint8_t unused61[3] = {};
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

static_assert(sizeof(RlsMsgAccessReq) == 64);
static_assert(offsetof(RlsMsgAccessReq, access) == 9);
static_assert(offsetof(RlsMsgAccessReq, command) == 10);
static_assert(sizeof(RlsMsgAccessResp) == 64);
static_assert(offsetof(RlsMsgAccessResp, access) == 10);
static_assert(offsetof(RlsMsgAccessResp, command) == 11);

/// Whether the arguments of `Record` are where the framework reads and writes them.
template <typename Record>
constexpr bool kHasRlsArgumentLayout =
    offsetof(Record, metric0) == 12 && offsetof(Record, metric1) == 16 &&
    offsetof(Record, param_a) == 20 && offsetof(Record, gain) == 24 &&
    offsetof(Record, metric_byte) == 28 && offsetof(Record, value8) == 29 &&
    offsetof(Record, saturation) == 32 && offsetof(Record, value32) == 36 &&
    offsetof(Record, reg_addr) == 40 && offsetof(Record, device_uid) == 48 &&
    offsetof(Record, cal_enabled) == 56 && offsetof(Record, torch_on) == 57 &&
    offsetof(Record, spectral_auto_gain) == 58 && offsetof(Record, flicker_auto_gain) == 59 &&
    offsetof(Record, param_b) == 60;

static_assert(kHasRlsArgumentLayout<RlsMsgAccessReq>);
static_assert(kHasRlsArgumentLayout<RlsMsgAccessResp>);

#pragma GCC diagnostic pop

}  // namespace hyl::v2
