#include "sensors.h"

#include <utility>

#include "failure.h"
#include "result_text.h"

namespace hyl::v2::tool {
namespace {

std::string Quoted(const std::string& name) {
  return "'" + name + "'";
}

Failure NoSensors(OpticalSensorType type) {
  return Failure(ExitCode::kFramework,
                 std::string("the sensor framework shows no ") + TypeName(type) +
                     " sensor; check that its service runs, then try again (-v shows the log)");
}

Failure UnknownName(OpticalSensorType type, const std::string& name,
                    const std::vector<Sensor>& sensors) {
  std::string line = std::string("no ") + TypeName(type) + " sensor has a name that begins with " +
                     Quoted(name) + "; choose one of";
  for (const Sensor& sensor : sensors) {
    line += (sensor.index == 0 ? " " : ", ") + Quoted(sensor.name);
  }
  return Failure(ExitCode::kNotFound, line);
}

void RequireStarted(HylSpectralApi& api, OpticalSensorType type, const std::string& name,
                    HylErr result) {
  if (result == HylErr::kNotFound) {
    throw UnknownName(type, name, SensorsOf(api, type));
  }
  Require(result, "cannot start " + Quoted(name));
}

/// Throws Failure when the framework lists no sensor of the type; asked before a start, so that a
/// missing framework is waited for once.
void RequireAnyListed(HylSpectralApi& api, OpticalSensorType type) {
  if (SensorsOf(api, type).empty()) {
    throw NoSensors(type);
  }
}

}  // namespace

std::vector<Sensor> SensorsOf(HylSpectralApi& api, OpticalSensorType type) {
  const Vector<HylString> names = type == OpticalSensorType::kFlicker
                                      ? api.GetFlickerSensorNames()
                                      : api.GetAmbientLightSensorNames();
  std::vector<Sensor> sensors;
  for (const HylString& name : names) {
    sensors.push_back(
        {type, sensors.size(), name.c_str(), api.IsSensorSupported(type, name.c_str())});
  }
  return sensors;
}

const char* TypeName(OpticalSensorType type) {
  return type == OpticalSensorType::kFlicker ? "flicker" : "ambient-light";
}

RunningSensor RunningSensor::StartAmbientLight(HylSpectralApi& api, const std::string& name,
                                               SensorReportingMode mode) {
  const OpticalSensorType type = OpticalSensorType::kAmbientLight;
  RequireAnyListed(api, type);
  uint32_t session_id = 0;
  RequireStarted(api, type, name, api.EnableAmbientLightSensor(name.c_str(), session_id, mode));
  return {api, type, session_id};
}

RunningSensor RunningSensor::StartFlicker(HylSpectralApi& api, const std::string& name,
                                          std::vector<int>& buffer, uint8_t bits) {
  const OpticalSensorType type = OpticalSensorType::kFlicker;
  RequireAnyListed(api, type);
  uint32_t session_id = 0;
  RequireStarted(
      api, type, name,
      api.EnableFlickerSensor(name.c_str(), buffer.data(), buffer.size(), bits, session_id));
  return {api, type, session_id};
}

RunningSensor::RunningSensor(HylSpectralApi& api, OpticalSensorType type, uint32_t session_id)
    : api_(api),
      type_(type),
      session_id_(session_id),
      name_(api.GetSensorName(session_id).c_str()) {}

RunningSensor::RunningSensor(RunningSensor&& other) noexcept
    : api_(other.api_),
      type_(other.type_),
      session_id_(std::exchange(other.session_id_, 0)),
      name_(std::move(other.name_)) {}

RunningSensor::~RunningSensor() {
  Disable();
}

void RunningSensor::Stop() {
  Require(Disable(), "cannot stop " + Quoted(name_));
}

HylErr RunningSensor::Disable() {
  const uint32_t session_id = std::exchange(session_id_, 0);
  if (session_id == 0) {
    return HylErr::kOk;
  }
  return type_ == OpticalSensorType::kFlicker ? api_.DisableFlickerSensor(session_id)
                                              : api_.DisableAmbientLightSensor(session_id);
}

}  // namespace hyl::v2::tool
