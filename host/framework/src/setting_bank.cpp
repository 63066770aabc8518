#include "setting_bank.h"

#include <algorithm>
#include <cmath>

#include "flicker_metrics.h"

namespace hyl::v2::host {
namespace {

/// The nearest multiple of `step` within the range, whose ends are multiples.
uint32_t OntoStep(uint32_t value, uint32_t min, uint32_t max, uint32_t step) {
  return (std::clamp(value, min, max) + step / 2) / step * step;
}

double OntoGainStep(float gain) {
  const double in_range = gain > kMinGain ? std::min<double>(gain, kMaxGain) : kMinGain;
  return std::exp2(std::round(std::log2(in_range)));
}

void ReadMetrics(const Conditions& conditions, SettingReply& reply) {
  const FlickerMetrics metrics = MeasureFlickerMetrics(conditions);
  reply.metric0 = metrics.frequency_hz;
  reply.metric1 = metrics.second_frequency_hz;
  reply.metric_byte = metrics.depth_percent;
  reply.saturation = metrics.saturated_permille;
}

HylErr WriteSwitch(const RlsMsgAccessReq& request, Conditions& conditions) {
  switch (request.command) {
    case RlsCommand::kTorchLight:
      conditions.torch = request.torch_on;
      return HylErr::kOk;
    case RlsCommand::kSpectralAutoGain:
      conditions.spectral.auto_gain = request.spectral_auto_gain;
      return HylErr::kOk;
    case RlsCommand::kFlickerAutoGain:
      conditions.flicker.auto_gain = request.flicker_auto_gain;
      return HylErr::kOk;
    case RlsCommand::kApplyFacCal:
      conditions.spectral.factory_calibration = request.cal_enabled;
      return HylErr::kOk;
    case RlsCommand::kApplyOtpCal:
      conditions.spectral.otp_calibration = request.cal_enabled;
      return HylErr::kOk;
    default:
      return HylErr::kInvalidArgument;
  }
}

HylErr ReadSwitch(RlsCommand command, const Conditions& conditions, SettingReply& reply) {
  switch (command) {
    case RlsCommand::kTorchLight:
      reply.torch_on = conditions.torch ? 1 : 0;
      return HylErr::kOk;
    case RlsCommand::kSpectralAutoGain:
      reply.spectral_auto_gain = conditions.spectral.auto_gain ? 1 : 0;
      return HylErr::kOk;
    case RlsCommand::kFlickerAutoGain:
      reply.flicker_auto_gain = conditions.flicker.auto_gain ? 1 : 0;
      return HylErr::kOk;
    case RlsCommand::kApplyFacCal:
      reply.cal_enabled = conditions.spectral.factory_calibration ? 1 : 0;
      return HylErr::kOk;
    case RlsCommand::kApplyOtpCal:
      reply.cal_enabled = conditions.spectral.otp_calibration ? 1 : 0;
      return HylErr::kOk;
    default:
      return HylErr::kInvalidArgument;
  }
}

HylErr ReadFlicker(RlsCommand command, const Conditions& conditions, SettingReply& reply) {
  const FlickerSettings& flicker = conditions.flicker;
  switch (command) {
    case RlsCommand::kFlickerFrequencyMetrics:
    case RlsCommand::kFlickerSaturation:
      ReadMetrics(conditions, reply);
      return HylErr::kOk;
    case RlsCommand::kFlickerPedestal:
      reply.value8 = flicker.pedestal;
      return HylErr::kOk;
    case RlsCommand::kFlickerChannel:
      reply.param_a = flicker.channel;
      reply.param_b = flicker.channel_option;
      return HylErr::kOk;
    case RlsCommand::kFlickerConfig:
      reply.param_a = flicker.channel;
      reply.gain = static_cast<float>(flicker.gain);
      return HylErr::kOk;
    default:
      return ReadSwitch(command, conditions, reply);
  }
}

HylErr WriteGain(const RlsMsgAccessReq& request, Conditions& conditions) {
  const double gain = OntoGainStep(request.gain);
  switch (request.param_a) {
    case kGainOfSpectral:
      conditions.spectral.gain = gain;
      return HylErr::kOk;
    case kGainOfFlicker:
      conditions.flicker.gain = gain;
      return HylErr::kOk;
    default:
      return HylErr::kInvalidArgument;
  }
}

}  // namespace

SettingBank::SettingBank() {
  for (size_t address = 0; address < registers_.size(); ++address) {
    registers_[address] = static_cast<uint8_t>(address * 29 % 251);  // any, but told apart
  }
  registers_[kIdRegister] = kIdRegisterValue;
  registers_[kRevisionRegister] = kRevisionRegisterValue;
}

HylErr SettingBank::Access(const RlsMsgAccessReq& request, Conditions& conditions,
                           SettingReply& reply) {
  if (request.access == RlsAccess::kWrite) {
    if (const HylErr err = Write(request, conditions); err != HylErr::kOk) {
      return err;
    }
  } else if (request.access != RlsAccess::kRead) {
    return HylErr::kInvalidArgument;
  }
  reply.access = request.access;
  reply.command = request.command;
  return Read(request, conditions, reply);
}

HylErr SettingBank::Write(const RlsMsgAccessReq& request, Conditions& conditions) {
  switch (request.command) {
    case RlsCommand::kExposureTime:
      conditions.spectral.exposure_us =
          OntoStep(request.value32, kMinExposureUs, kMaxExposureUs, kExposureStepUs);
      return HylErr::kOk;
    case RlsCommand::kFlickerChannel:
      conditions.flicker.channel = std::min(request.param_a, kMaxFlickerChannel);
      conditions.flicker.channel_option = request.param_b;
      return HylErr::kOk;
    case RlsCommand::kGain:
      return WriteGain(request, conditions);
    case RlsCommand::kFlickerPedestal:
      conditions.flicker.pedestal = request.value8;
      return HylErr::kOk;
    case RlsCommand::kSamplingPeriod:
      sampling_period_us_ = OntoStep(request.value32, kMinSamplingPeriodUs, kMaxSamplingPeriodUs,
                                     kSamplingPeriodStepUs);
      return HylErr::kOk;
    case RlsCommand::kRegister:
      WriteRegister(request.reg_addr, request.value8);
      return HylErr::kOk;
    default:
      return WriteSwitch(request, conditions);
  }
}

// The answer to a write is what a read would now find.
HylErr SettingBank::Read(const RlsMsgAccessReq& request, const Conditions& conditions,
                         SettingReply& reply) const {
  switch (request.command) {
    case RlsCommand::kExposureTime:
      reply.value32 = conditions.spectral.exposure_us;
      return HylErr::kOk;
    case RlsCommand::kGain:
      reply.param_a = request.param_a;
      reply.gain = static_cast<float>(request.param_a == kGainOfFlicker ? conditions.flicker.gain
                                                                        : conditions.spectral.gain);
      return HylErr::kOk;
    case RlsCommand::kSamplingPeriod:
      reply.value32 = sampling_period_us_.value_or(kDefaultSamplingPeriodUs);
      return HylErr::kOk;
    case RlsCommand::kRegister:
      reply.reg_addr = request.reg_addr;
      reply.value8 = registers_[request.reg_addr];
      return HylErr::kOk;
    case RlsCommand::kDeviceUid:
      reply.device_uid = kDeviceUid;
      return HylErr::kOk;
    default:
      return ReadFlicker(request.command, conditions, reply);
  }
}

void SettingBank::WriteRegister(uint8_t address, uint8_t value) {
  if (address != kIdRegister && address != kRevisionRegister) {
    registers_[address] = value;
  }
}

}  // namespace hyl::v2::host
