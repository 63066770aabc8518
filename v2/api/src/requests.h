// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include <hyl/internal/sensor_info_mgr.h>
#include <hyl/rls_msg_access.h>

namespace hyl::v2::spectral {

inline constexpr uint8_t kLeadByte = 1;

/// The framework's name for a sensor.
constexpr uint32_t SensorHandle(SensorType type, uint32_t priority) {
  return ((uint32_t{type} + kFrameworkTypeOffset) << 16) | (priority & 0xFFFF);
}

/// Id of a request that runs a sensor.
constexpr uint32_t RequestId(SensorType type, uint32_t priority) {
  constexpr uint32_t kSpectralClient = 0x0A000000;
  return kSpectralClient | (priority << 16) | type;
}

/// The sensor that every configuration request goes to.
inline constexpr uint32_t kConfigHandle = SensorHandle(kContinuousAmbientLightType, 0);

}  // namespace hyl::v2::spectral
