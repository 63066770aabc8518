#pragma once

#include <cstdint>
#include <vector>

#include <hyl/api.h>

namespace hyl::v2::host {

inline constexpr uint32_t kRearOnChangeHandle = 268U << 16U;
inline constexpr uint32_t kFrontOnChangeHandle = kRearOnChangeHandle + 1;
inline constexpr uint32_t kRearContinuousHandle = 1268U << 16U;
inline constexpr uint32_t kFrontContinuousHandle = kRearContinuousHandle + 1;
inline constexpr uint32_t kFlickerHandle = 269U << 16U;

/// All sensors of the hub.
std::vector<SensorListEntry> SimulatedSensorList();

bool IsListedSensor(uint32_t handle);

}  // namespace hyl::v2::host
