#pragma once

#include <cstdint>

#include <hyl/internal/sensor_info.h>
#include <hyl/rls_msg_access.h>

namespace hyl::v2::spectral {

inline constexpr uint8_t kLeadByte = 1;

/// The framework's name for a sensor.
constexpr uint32_t SensorHandle(SensorType type, uint32_t priority) {
  constexpr uint32_t kFrameworkTypes = 256U << 16;
  return (kFrameworkTypes + (uint32_t{type} << 16)) | (priority & 0xFFFF);
}

/// Id of a request that runs a sensor.
constexpr uint32_t RequestId(SensorType type, uint32_t priority) {
  constexpr uint32_t kSpectralClient = 0x0A000000;
  return kSpectralClient | (priority << 16) | type;
}

/// The sensor that every configuration request goes to.
inline constexpr uint32_t kConfigHandle = SensorHandle(kContinuousAmbientLightType, 0);

static_assert(kConfigHandle == 0x04F40000);
static_assert(SensorHandle(kFlickerType, 2) == 0x010D0002);
static_assert(RequestId(kContinuousAmbientLightType, 1) == 0x0A0103F4);

}  // namespace hyl::v2::spectral
