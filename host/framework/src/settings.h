#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>
#include <hyl/hyl_err.h>
#include <hyl/rls_msg_access.h>

namespace hyl::v2::host {

/// What the ambient-light sensors share.
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
  std::optional<uint32_t>
      sampling_period_us;  ///< of the ambient-light sensors; empty until written
  std::array<uint8_t, 256> registers = InitialRegisters();
};

/// What a measurement depends on: the light, and how the sensors are set up.
struct Conditions {
  LightScene scene;
  Settings settings;
};

/// Carries out an access and fills in the answer. kInvalidArgument, with nothing changed, for a
/// setting that does not exist, for a write to one that can only be read, and for a gain write that
/// names no gain.
HylErr AccessSetting(const RlsMsgAccessReq& request, Conditions& conditions,
                     RlsMsgAccessResp& reply);

}  // namespace hyl::v2::host
