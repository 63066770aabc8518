// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>
#include <hyl/hyl_err.h>
#include <hyl/rls_msg_access.h>

namespace hyl::v2::host {

/// The ambient-light sensors share these.
struct SpectralSettings {
  double gain = kDefaultGain;
  uint32_t exposure_us = kDefaultExposureUs;
  bool auto_gain = true;
  bool factory_calibration = true;
  bool otp_calibration = true;
};

struct FlickerSettings {
  double gain = kDefaultFlickerGain;
  bool auto_gain = true;
  uint8_t channel = kDefaultFlickerChannel;
  uint8_t channel_option = 0;
  uint8_t pedestal = kDefaultFlickerPedestal;
};

std::array<uint8_t, 256> InitialRegisters();

struct Settings {
  SpectralSettings spectral;
  FlickerSettings flicker;
  bool torch = false;
  /// Of the ambient-light sensors; empty until written.
  std::optional<uint32_t> sampling_period_us;
  std::array<uint8_t, 256> registers = InitialRegisters();
};

/// What a measurement depends on.
struct Conditions {
  LightScene scene;
  Settings settings;
};

/// Carries out an access and fills in the answer. Returns kInvalidArgument and changes nothing if
/// the setting does not exist, if a write is for a read-only setting, or if a gain write selects no
/// gain.
HylErr AccessSetting(const RlsMsgAccessReq& request, Conditions& conditions,
                     RlsMsgAccessResp& reply);

}  // namespace hyl::v2::host
