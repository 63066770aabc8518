// SPDX-License-Identifier: Apache-2.0
#include "settings.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "flicker_sensor.h"

namespace hyl::v2::host {
namespace {

/// The multiple of `step` in the range that is nearest to `value`. The range ends on multiples.
uint32_t OntoStep(uint32_t value, uint32_t min, uint32_t max, uint32_t step) {
  return (std::clamp(value, min, max) + step / 2) / step * step;
}

double OntoGainStep(float gain) {
  const double in_range = gain > kMinGain ? std::min<double>(gain, kMaxGain) : kMinGain;
  return std::exp2(std::round(std::log2(in_range)));
}

void WriteGain(const RlsMsgAccessReq& request, Settings& settings) {
  double& gain = request.param_a == kGainOfFlicker ? settings.flicker.gain : settings.spectral.gain;
  gain = OntoGainStep(request.gain);
}

void ReadGain(const RlsMsgAccessReq& request, const Conditions& now, RlsMsgAccessResp& reply) {
  const Settings& settings = now.settings;
  reply.param_a = request.param_a;
  reply.gain = static_cast<float>(request.param_a == kGainOfFlicker ? settings.flicker.gain
                                                                    : settings.spectral.gain);
}

void WriteRegister(const RlsMsgAccessReq& request, Settings& settings) {
  if (request.reg_addr != kIdRegister && request.reg_addr != kRevisionRegister) {
    settings.registers[request.reg_addr] = request.value8;
  }
}

struct Setting {
  RlsCommand command;
  void (*read)(const RlsMsgAccessReq&, const Conditions& now, RlsMsgAccessResp& reply);
  /// Null for a read-only setting.
  void (*write)(const RlsMsgAccessReq& request, Settings& settings) = nullptr;
};

constexpr Setting kSettings[] = {
    {RlsCommand::kExposureTime,
     [](auto&, auto& now, auto& reply) { reply.value32 = now.settings.spectral.exposure_us; },
     [](auto& request, auto& settings) {
       settings.spectral.exposure_us =
           OntoStep(request.value32, kMinExposureUs, kMaxExposureUs, kExposureStepUs);
     }},
    {RlsCommand::kSamplingPeriod,
     [](auto&, auto& now, auto& reply) {
       reply.value32 = now.settings.sampling_period_us.value_or(kDefaultSamplingPeriodUs);
     },
     [](auto& request, auto& settings) {
       settings.sampling_period_us = OntoStep(request.value32, kMinSamplingPeriodUs,
                                              kMaxSamplingPeriodUs, kSamplingPeriodStepUs);
     }},
    {RlsCommand::kGain, ReadGain, WriteGain},
    {RlsCommand::kSpectralAutoGain,
     [](auto&, auto& now, auto& reply) {
       reply.spectral_auto_gain = now.settings.spectral.auto_gain;
     },
     [](auto& request, auto& settings) {
       settings.spectral.auto_gain = request.spectral_auto_gain;
     }},
    {RlsCommand::kApplyFacCal,
     [](auto&, auto& now, auto& reply) {
       reply.cal_enabled = now.settings.spectral.factory_calibration;
     },
     [](auto& request, auto& settings) {
       settings.spectral.factory_calibration = request.cal_enabled;
     }},
    {RlsCommand::kApplyOtpCal,
     [](auto&, auto& now, auto& reply) {
       reply.cal_enabled = now.settings.spectral.otp_calibration;
     },
     [](auto& request, auto& settings) {
       settings.spectral.otp_calibration = request.cal_enabled;
     }},
    {RlsCommand::kFlickerFrequencyMetrics,
     [](auto&, auto& now, auto& reply) { MeasureFlicker(now, reply); }},
    {RlsCommand::kFlickerSaturation,
     [](auto&, auto& now, auto& reply) { MeasureFlicker(now, reply); }},
    {RlsCommand::kFlickerAutoGain,
     [](auto&, auto& now, auto& reply) {
       reply.flicker_auto_gain = now.settings.flicker.auto_gain;
     },
     [](auto& request, auto& settings) { settings.flicker.auto_gain = request.flicker_auto_gain; }},
    {RlsCommand::kFlickerChannel,
     [](auto&, auto& now, auto& reply) {
       reply.param_a = now.settings.flicker.channel;
       reply.param_b = now.settings.flicker.channel_option;
     },
     [](auto& request, auto& settings) {
       settings.flicker.channel = std::min(request.param_a, kMaxFlickerChannel);
       settings.flicker.channel_option = request.param_b;
     }},
    {RlsCommand::kFlickerConfig,
     [](auto&, auto& now, auto& reply) {
       reply.param_a = now.settings.flicker.channel;
       reply.gain = static_cast<float>(now.settings.flicker.gain);
     }},
    {RlsCommand::kFlickerPedestal,
     [](auto&, auto& now, auto& reply) { reply.value8 = now.settings.flicker.pedestal; },
     [](auto& request, auto& settings) { settings.flicker.pedestal = request.value8; }},
    {RlsCommand::kTorchLight,
     [](auto&, auto& now, auto& reply) { reply.torch_on = now.settings.torch; },
     [](auto& request, auto& settings) { settings.torch = request.torch_on; }},
    {RlsCommand::kRegister,
     [](auto& request, auto& now, auto& reply) {
       reply.reg_addr = request.reg_addr;
       reply.value8 = now.settings.registers[request.reg_addr];
     },
     WriteRegister},
    {RlsCommand::kDeviceUid, [](auto&, auto&, auto& reply) { reply.device_uid = kDeviceUid; }},
};

}  // namespace

std::array<uint8_t, 256> InitialRegisters() {
  std::array<uint8_t, 256> registers{};
  for (size_t address = 0; address < registers.size(); ++address) {
    registers[address] = static_cast<uint8_t>(address * 29 % 251);  // arbitrary
  }
  registers[kIdRegister] = kIdRegisterValue;
  registers[kRevisionRegister] = kRevisionRegisterValue;
  return registers;
}

// The answer to a write is that of a read after it.
HylErr AccessSetting(const RlsMsgAccessReq& request, Conditions& conditions,
                     RlsMsgAccessResp& reply) {
  const auto* const setting =
      std::find_if(std::begin(kSettings), std::end(kSettings),
                   [&](const Setting& candidate) { return candidate.command == request.command; });
  const bool is_write = request.access == RlsAccess::kWrite;
  if (setting == std::end(kSettings) || (!is_write && request.access != RlsAccess::kRead)) {
    return HylErr::kInvalidArgument;
  }
  if (is_write) {
    const bool names_no_gain = request.command == RlsCommand::kGain &&
                               request.param_a != kGainOfSpectral &&
                               request.param_a != kGainOfFlicker;
    if (setting->write == nullptr || names_no_gain) {
      return HylErr::kInvalidArgument;
    }
    setting->write(request, conditions.settings);
  }
  setting->read(request, conditions, reply);
  return HylErr::kOk;
}

}  // namespace hyl::v2::host
