#include "sensor_list.h"

#include <algorithm>
#include <iterator>

namespace hyl::v2::host {
namespace {

/// Stands at the end of a complete list.
constexpr uint32_t kListEndHandle = 21U << 16U;

constexpr SensorListEntry kSensors[] = {
    {1U << 16U, "accelerometer"},
    {2U << 16U, "magnetometer"},
    {4U << 16U, "gyroscope"},
    {kRearOnChangeHandle, "rear ambient light"},
    {kFrontOnChangeHandle, "front ambient light"},
    {kFlickerHandle, "flicker"},
    {kRearContinuousHandle, "rear ambient light"},
    {kFrontContinuousHandle, "front ambient light"},
    {kListEndHandle, "sensor list"},
};

}  // namespace

std::vector<SensorListEntry> SimulatedSensorList() {
  return {std::begin(kSensors), std::end(kSensors)};
}

bool IsListedSensor(uint32_t handle) {
  return std::any_of(std::begin(kSensors), std::end(kSensors),
                     [handle](const SensorListEntry& entry) { return entry.handle == handle; });
}

}  // namespace hyl::v2::host
