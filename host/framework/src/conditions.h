#pragma once

#include <cstdint>

#include <hyl/host/hub_settings.h>
#include <hyl/host/light_scene.h>

namespace hyl::v2::host {

/// Settings that the ambient-light sensors share.
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

/// What a measurement depends on: the light, and how the sensors are set up.
struct Conditions {
  LightScene scene;
  bool torch = false;
  SpectralSettings spectral;
  FlickerSettings flicker;
};

}  // namespace hyl::v2::host
