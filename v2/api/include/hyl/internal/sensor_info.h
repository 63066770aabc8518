#pragma once

#include <cstdint>

#include <hyl/hyl_string.h>

namespace hyl::v2 {

/// A sensor's type as the library keeps it: the framework's type minus 256.
using SensorType = uint16_t;

inline constexpr SensorType kAnySensorType = 0;  ///< matches every type in lookups
inline constexpr SensorType kOnChangeAmbientLightType = 12;
inline constexpr SensorType kFlickerType = 13;
inline constexpr SensorType kContinuousAmbientLightType = 1012;

/// How a session reports.
enum class ReportingMode : uint8_t {
  kNone = 0,  ///< the session is free
  kContinuous = 1,
  kOnChange = 2,
};

namespace spectral {

/// One entry of the list of optical sensors.
struct SensorInfo {
  SensorType type = 0;
  uint32_t priority = 0;    ///< index within the type
  uint32_t request_id = 0;  ///< of the request that runs the sensor; 0 when none does
  HylString name;

  /// One line for the log: name, type, priority and request id.
  HylString ToStr() const;
};

static_assert(sizeof(SensorInfo) == 40);

/// A copy of a list entry, with the version of the list that it was taken from.
struct VersionedSensorInfo {
  uint32_t version = 0;
  SensorInfo info;

  /// Names the entry's running request across operations: version in the upper half, request id in
  /// the lower half.
  uint64_t Cookie() const { return uint64_t{version} << 32 | info.request_id; }
};

}  // namespace spectral
}  // namespace hyl::v2
