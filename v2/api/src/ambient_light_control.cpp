#include <optional>

#include <hyl/hyl_spectral_impl.h>

#include "log.h"
#include "requests.h"

namespace hyl::v2 {
namespace {

/// Empty for an invalid mode.
std::optional<ReportingMode> ToReportingMode(SensorReportingMode mode) {
  switch (mode) {
    case SensorReportingMode::kContinuous:
      return ReportingMode::kContinuous;
    case SensorReportingMode::kOnChange:
      return ReportingMode::kOnChange;
    default:
      return std::nullopt;
  }
}

/// A device lists each ambient-light sensor once for each mode.
SensorType TypeFor(ReportingMode mode) {
  return mode == ReportingMode::kOnChange ? kOnChangeAmbientLightType : kContinuousAmbientLightType;
}

}  // namespace

HylErr HylSpectralImpl::EnableAmbientLightSensor(const char* name, uint32_t& session_id,
                                                 SensorReportingMode mode) {
  const std::optional<ReportingMode> wanted = ToReportingMode(mode);
  if (!wanted) {
    HYL_LOG(ERROR, "HYL_SpAPI: Cannot enable ALS, invalid reporting mode: %u",
            static_cast<uint32_t>(mode));
    return HylErr::kInvalidArgument;
  }
  const std::lock_guard lock(mutex_);
  Session* session = nullptr;
  const HylErr err = EnableSensor_locked(OpticalSensorType::kAmbientLight, TypeFor(*wanted),
                                         *wanted, name, &session);
  if (session != nullptr) {
    session_id = session->id;
  }
  return err;
}

HylErr HylSpectralImpl::ChangeAmbientLightSensorReporting(uint32_t session_id,
                                                          SensorReportingMode mode) {
  const std::optional<ReportingMode> wanted = ToReportingMode(mode);
  if (!wanted) {
    HYL_LOG(ERROR, "HYL_SpAPI: Change-ALS: Invalid reporting mode (%u)!",
            static_cast<uint32_t>(mode));
    return HylErr::kInvalidArgument;
  }
  const std::lock_guard lock(mutex_);
  return ChangeReporting_locked(session_id, *wanted);
}

HylErr HylSpectralImpl::ChangeReporting_locked(uint32_t session_id, ReportingMode mode) {
  constexpr auto kKind = OpticalSensorType::kAmbientLight;
  Session* const session = session_mgr_.FindById(session_id);
  if (session == nullptr) {
    HYL_LOG(ERROR, "HYL_SpAPI: Change-ALS: Cannot find session for id (%u)", session_id);
    return HylErr::kNotFound;
  }
  if (session->mode == mode) {
    return HylErr::kOk;
  }
  VersionedSensorInfo old;
  if (const HylErr err = StopForChange_locked(*session, old); err != HylErr::kOk) {
    return err;
  }
  const SensorType type = TypeFor(mode);
  VersionedSensorInfo found;
  if (!sensor_info_mgr_.GetSensorInfo(found, type, nullptr, old.info.priority)) {
    HYL_LOG(ERROR, "HYL_SpAPI: Change-ALS: Sensor of new type %d priority %d not found", type,
            static_cast<int>(old.info.priority));
    return HylErr::kNotFound;
  }
  found.info.request_id = spectral::RequestId(type, found.info.priority);
  if (const HylErr err = SendStart_locked(kKind, mode, found.info); err != HylErr::kOk) {
    HYL_LOG(ERROR, "HYL_SpAPI: Change-ALS: start err:  %d!", static_cast<int>(err));
    return err;
  }
  if (!sensor_info_mgr_.SetRequestId(found)) {
    return HylErr::kFailed;
  }
  CallbacksFor(kKind, found.info.priority)->cookie = found.Cookie();
  session->type = type;
  session->mode = mode;
  session->cookie = found.Cookie();
  return HylErr::kOk;
}

HylErr HylSpectralImpl::StopForChange_locked(Session& session, VersionedSensorInfo& old) {
  const uint64_t cookie = session.cookie;
  if (!sensor_info_mgr_.GetSensorInfo(old, cookie)) {
    HYL_LOG(ERROR, "HYL_SpAPI: Change-ALS: Cannot stop, sensor with cookie:%lx not found.", cookie);
    return HylErr::kNotFound;
  }
  const HylErr err = SendStop_locked(OpticalSensorType::kAmbientLight, old.info);
  if (err != HylErr::kOk) {
    HYL_LOG(ERROR, "HYL_SpAPI: Change-ALS: InvokeAsyncServiceCall err:  %d!",
            static_cast<int>(err));
    return err;
  }
  old.info.request_id = 0;
  return sensor_info_mgr_.SetRequestId(old) ? HylErr::kOk : HylErr::kFailed;
}

HylErr HylSpectralImpl::DisableAmbientLightSensor(uint32_t session_id) {
  const std::lock_guard lock(mutex_);
  return DisableSensor_locked(OpticalSensorType::kAmbientLight, session_id);
}

}  // namespace hyl::v2
