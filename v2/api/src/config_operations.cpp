// SPDX-License-Identifier: Apache-2.0
// What differs from setting to setting. The operations as a table: whether an operation reads or
// writes, and which command, with the request's fields; where it waits, the out pointers and the
// slots that go there. Before it: how arguments become a request, and which slots a reply fills.

#include <hyl/hyl_spectral_impl.h>

#include "requests.h"

namespace hyl::v2 {
namespace spectral {

RlsMsgAccessReq MakeRequest(RlsAccess access, RlsCommand command,
                            const ConfigArguments& arguments) {
  RlsMsgAccessReq request;
  request.lead_byte = kLeadByte;
  request.access = access;
  request.command = command;
  request.param_a = arguments.param_a;
  request.gain = arguments.gain;
  request.value8 = arguments.value8;
  request.value32 = arguments.value32;
  request.reg_addr = arguments.reg_addr;
  request.cal_enabled = arguments.cal_enabled;
  request.torch_on = arguments.torch_on;
  request.spectral_auto_gain = arguments.spectral_auto_gain;
  request.flicker_auto_gain = arguments.flicker_auto_gain;
  request.param_b = arguments.param_b;
  return request;
}

void ConfigSlots::StoreReadReply(const RlsMsgAccessResp& reply) {
  switch (reply.command) {
    case RlsCommand::kFlickerFrequencyMetrics:
      metric0 = reply.metric0;
      metric1 = reply.metric1;
      metric_byte = reply.metric_byte;
      saturation = reply.saturation;
      break;
    case RlsCommand::kFlickerSaturation:
      saturation = reply.saturation;
      break;
    case RlsCommand::kRegister:
      register_value = reply.value8;
      break;
    case RlsCommand::kDeviceUid:
      device_uid = reply.device_uid;
      break;
    case RlsCommand::kSpectralAutoGain:
      spectral_auto_gain = reply.spectral_auto_gain != 0;
      break;
    case RlsCommand::kFlickerAutoGain:
      flicker_auto_gain = reply.flicker_auto_gain != 0;
      break;
    case RlsCommand::kFlickerConfig:
      flicker_param = reply.param_a;
      gain = reply.gain;
      break;
    case RlsCommand::kApplyFacCal:
      apply_fac_cal = reply.cal_enabled != 0;
      break;
    case RlsCommand::kApplyOtpCal:
      apply_otp_cal = reply.cal_enabled != 0;
      break;
    default:
      break;
  }
}

void ConfigSlots::StoreWriteReply(const RlsMsgAccessResp& reply) {
  switch (reply.command) {
    case RlsCommand::kExposureTime:
      exposure_time = reply.value32;
      break;
    case RlsCommand::kGain:
      gain = reply.gain;
      break;
    case RlsCommand::kSamplingPeriod:
      sampling_period = reply.value32;
      break;
    default:
      break;
  }
}

}  // namespace spectral

using spectral::ConfigSlots;
using enum RlsAccess;
using enum RlsCommand;

HylErr HylSpectralImpl::GetFlickerAutoGainEnabled(const char*, bool* enabled) {
  return config_.Ask(kRead, kFlickerAutoGain, {}, {enabled},
                     [&](const ConfigSlots& slots) { *enabled = slots.flicker_auto_gain; });
}

HylErr HylSpectralImpl::GetFlickerConfig(const char*, uint32_t* value, float* gain) {
  return config_.Ask(kRead, kFlickerConfig, {}, {value, gain}, [&](const ConfigSlots& slots) {
    *value = slots.flicker_param;
    *gain = slots.gain;
  });
}

HylErr HylSpectralImpl::GetFlickerFrequencyMetrics(const char*, FlickerFrequencyMetrics* metrics) {
  return config_.Ask(kRead, kFlickerFrequencyMetrics, {}, {metrics}, [&](const ConfigSlots& slots) {
    *metrics = {.metric0 = static_cast<uint16_t>(slots.metric0),
                .metric1 = static_cast<uint16_t>(slots.metric1),
                .saturation = static_cast<uint16_t>(slots.saturation),
                .metric_byte = slots.metric_byte};
  });
}

HylErr HylSpectralImpl::GetFlickerSaturation(const char*, uint16_t* saturation) {
  return config_.Ask(kRead, kFlickerSaturation, {}, {saturation}, [&](const ConfigSlots& slots) {
    *saturation = static_cast<uint16_t>(slots.saturation);
  });
}

HylErr HylSpectralImpl::GetRegister(const char*, uint8_t reg, uint8_t* value) {
  return config_.Ask(kRead, kRegister, {.reg_addr = reg}, {value},
                     [&](const ConfigSlots& slots) { *value = slots.register_value; });
}

HylErr HylSpectralImpl::GetSpectralAutoGainEnabled(const char*, bool* enabled) {
  return config_.Ask(kRead, kSpectralAutoGain, {}, {enabled},
                     [&](const ConfigSlots& slots) { *enabled = slots.spectral_auto_gain; });
}

HylErr HylSpectralImpl::GetSpectralApplyFacCal(const char*, bool* enabled) {
  return config_.Ask(kRead, kApplyFacCal, {}, {enabled},
                     [&](const ConfigSlots& slots) { *enabled = slots.apply_fac_cal; });
}

HylErr HylSpectralImpl::GetSpectralApplyOtpCal(const char*, bool* enabled) {
  return config_.Ask(kRead, kApplyOtpCal, {}, {enabled},
                     [&](const ConfigSlots& slots) { *enabled = slots.apply_otp_cal; });
}

HylErr HylSpectralImpl::GetDeviceUid(const char*, uint64_t* uid) {
  return config_.Ask(kRead, kDeviceUid, {}, {uid},
                     [&](const ConfigSlots& slots) { *uid = slots.device_uid; });
}

HylErr HylSpectralImpl::SetExposureTime(const char*, uint32_t time, uint32_t* applied) {
  return config_.Ask(kWrite, kExposureTime, {.value32 = time}, {applied},
                     [&](const ConfigSlots& slots) { *applied = slots.exposure_time; });
}

HylErr HylSpectralImpl::SetGain(const char*, uint8_t a, float gain, float* applied) {
  return config_.Ask(kWrite, kGain, {.param_a = a, .gain = gain}, {applied},
                     [&](const ConfigSlots& slots) { *applied = slots.gain; });
}

HylErr HylSpectralImpl::SetSamplingPeriod(const char*, uint32_t period, uint32_t* applied) {
  return config_.Ask(kWrite, kSamplingPeriod, {.value32 = period}, {applied},
                     [&](const ConfigSlots& slots) { *applied = slots.sampling_period; });
}

HylErr HylSpectralImpl::SetFlickerAutoGainEnabled(const char*, bool enable) {
  return config_.Tell(kWrite, kFlickerAutoGain, {.flicker_auto_gain = enable});
}

HylErr HylSpectralImpl::SetFlickerChannel(const char*, uint8_t a, uint8_t b) {
  return config_.Tell(kWrite, kFlickerChannel, {.param_a = a, .param_b = b});
}

HylErr HylSpectralImpl::SetFlickerPedestal(const char*, uint8_t pedestal) {
  return config_.Tell(kWrite, kFlickerPedestal, {.value8 = pedestal});
}

HylErr HylSpectralImpl::SetRegister(const char*, uint8_t reg, uint8_t value) {
  return config_.Tell(kWrite, kRegister, {.value8 = value, .reg_addr = reg});
}

HylErr HylSpectralImpl::SetSpectralAutoGainEnabled(const char*, bool enable) {
  return config_.Tell(kWrite, kSpectralAutoGain, {.spectral_auto_gain = enable});
}

HylErr HylSpectralImpl::SetSpectralApplyFacCalEnabled(const char*, bool enable) {
  return config_.Tell(kWrite, kApplyFacCal, {.cal_enabled = enable});
}

HylErr HylSpectralImpl::SetSpectralApplyOtpCalEnabled(const char*, bool enable) {
  return config_.Tell(kWrite, kApplyOtpCal, {.cal_enabled = enable});
}

HylErr HylSpectralImpl::SetTorchLightState(const char*, bool on) {
  return config_.Tell(kWrite, kTorchLight, {.torch_on = on});
}

}  // namespace hyl::v2
