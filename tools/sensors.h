#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <hyl/hyl_spectral_api.h>

namespace hyl::v2::tool {

/// A listed sensor.
struct Sensor {
  OpticalSensorType type;
  size_t index;  ///< its place among the sensors of its type
  std::string name;
  bool supported;
};

/// The sensors of one type, in the framework's order.
std::vector<Sensor> SensorsOf(HylSpectralApi& api, OpticalSensorType type);

/// "ambient-light" or "flicker".
const char* TypeName(OpticalSensorType type);

/// Stops the sensor of a session when it goes, and earlier on Stop.
class RunningSensor {
 public:
  /// Starts the ambient-light sensor whose name begins with `name`. Throws Failure.
  static RunningSensor StartAmbientLight(HylSpectralApi& api, const std::string& name,
                                         SensorReportingMode mode);
  /// Starts the flicker sensor whose name begins with `name`; its samples go to `buffer`, which
  /// must outlive the result. Throws Failure.
  static RunningSensor StartFlicker(HylSpectralApi& api, const std::string& name,
                                    std::vector<int>& buffer, uint8_t bits);

  RunningSensor(RunningSensor&& other) noexcept;
  ~RunningSensor();

  /// Throws Failure when the framework refuses; the session is closed all the same.
  void Stop();

  /// The sensor's whole name.
  const std::string& name() const { return name_; }

 private:
  RunningSensor(HylSpectralApi& api, OpticalSensorType type, uint32_t session_id);
  HylErr Disable();

  HylSpectralApi& api_;
  OpticalSensorType type_;
  uint32_t session_id_;  // 0 once stopped
  std::string name_;
};

}  // namespace hyl::v2::tool
