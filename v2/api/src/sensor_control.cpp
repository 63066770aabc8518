// SPDX-License-Identifier: Apache-2.0
// Starting, changing and stopping sensors of both kinds.

#include <utility>

#include <hyl/hyl_spectral_impl.h>

#include "log.h"
#include "requests.h"

namespace hyl::v2 {

using spectral::RequestId;

namespace {

constexpr uint64_t kAmbientLightPeriod = 100'000'000;
constexpr uint64_t kFlickerPeriod = 10'000'000'000;

bool IsValid(SensorReportingMode mode) {
  return mode == SensorReportingMode::kContinuous || mode == SensorReportingMode::kOnChange;
}

/// A device lists each ambient-light sensor once for each mode.
SensorType TypeFor(ReportingMode mode) {
  return mode == ReportingMode::kOnChange ? kOnChangeAmbientLightType : kContinuousAmbientLightType;
}

const char* OrEmpty(const char* text) {
  return text != nullptr ? text : "";
}

}  // namespace

HylErr HylSpectralImpl::EnableAmbientLightSensor(const char* name, uint32_t& session_id,
                                                 SensorReportingMode mode) {
  if (!IsValid(mode)) {
    HYL_LOG(ERROR, "Cannot enable ALS, invalid reporting mode: %u", static_cast<uint32_t>(mode));
    return HylErr::kInvalidArgument;
  }
  const std::lock_guard lock(mutex_);
  Session* session = nullptr;
  const auto wanted = static_cast<ReportingMode>(mode);
  const HylErr err = EnableSensor_locked(OpticalSensorType::kAmbientLight, TypeFor(wanted), wanted,
                                         name, &session);
  if (session != nullptr) {
    session_id = session->id;
  }
  return err;
}

HylErr HylSpectralImpl::EnableFlickerSensor(const char* name, int* buffer, size_t size,
                                            uint8_t out_bits, uint32_t& session_id) {
  const std::lock_guard lock(mutex_);
  Session* session = nullptr;
  const HylErr err = EnableSensor_locked(OpticalSensorType::kFlicker, kFlickerType,
                                         ReportingMode::kContinuous, name, &session);
  if (session != nullptr) {
    session->converter.SetOutput(buffer, size, out_bits);
    session_id = session->id;
  }
  return err;
}

HylErr HylSpectralImpl::ChangeAmbientLightSensorReporting(uint32_t session_id,
                                                          SensorReportingMode mode) {
  if (!IsValid(mode)) {
    HYL_LOG(ERROR, "Change-ALS: Invalid reporting mode (%u)!", static_cast<uint32_t>(mode));
    return HylErr::kInvalidArgument;
  }
  const std::lock_guard lock(mutex_);
  return ChangeReporting_locked(session_id, static_cast<ReportingMode>(mode));
}

HylErr HylSpectralImpl::DisableAmbientLightSensor(uint32_t session_id) {
  const std::lock_guard lock(mutex_);
  return DisableSensor_locked(OpticalSensorType::kAmbientLight, session_id);
}

HylErr HylSpectralImpl::DisableFlickerSensor(uint32_t session_id) {
  const std::lock_guard lock(mutex_);
  return DisableSensor_locked(OpticalSensorType::kFlicker, session_id);
}

HylErr HylSpectralImpl::EnableSensor_locked(OpticalSensorType kind, SensorType type,
                                            ReportingMode mode, const char* name,
                                            Session** session) {
  VersionedSensorInfo found;
  if (!sensor_info_mgr_.GetSensorInfo(found, type, name, 0)) {
    HYL_LOG(ERROR, "Sensor '%s' not found", OrEmpty(name));
    return HylErr::kNotFound;
  }
  SensorInfo& info = found.info;
  if (info.request_id != 0) {
    HYL_LOG(WARNING, "Cannot start sensor '%s'-%d:%u, already running", info.name.c_str(),
            info.type, info.priority);
    return HylErr::kAlreadyRunning;
  }
  if (info.priority > kMaxPriority) {
    HYL_LOG(ERROR, "Cannot start sensor '%s'-%d:%u, priority above %u", info.name.c_str(),
            info.type, info.priority, kMaxPriority);
    return HylErr::kFailed;
  }
  info.request_id = RequestId(info.type, info.priority);
  const HylErr err = SendStart_locked(kind, mode, info);
  if (err != HylErr::kOk) {
    if (kind == OpticalSensorType::kAmbientLight) {
      HYL_LOG(ERROR, "InvokeAsyncServiceCall err:  %d!", static_cast<int>(err));
    }
    return err;
  }
  if (!sensor_info_mgr_.SetRequestId(found)) {
    return HylErr::kFailed;
  }
  CallbacksFor(kind, info.priority)->cookie = found.Cookie();
  return OpenSession_locked(kind, found, mode, name, session);
}

HylErr HylSpectralImpl::OpenSession_locked(OpticalSensorType kind,
                                           const VersionedSensorInfo& running, ReportingMode mode,
                                           const char* name, Session** session) {
  VersionedSensorInfo listed;
  const char* const session_name = sensor_info_mgr_.GetSensorInfo(listed, running.Cookie())
                                       ? listed.info.name.c_str()
                                       : OrEmpty(name);
  *session = session_mgr_.AddSession(running.info.type, session_name, running.Cookie(), mode);
  if (*session != nullptr) {
    return HylErr::kOk;
  }
  HYL_LOG(ERROR, "Cannot enable %s sensor '%s', no session available!",
          kind == OpticalSensorType::kFlicker ? "flicker" : "ALS", session_name);
  const HylErr err = SendStop_locked(kind, running.info);
  if (kind == OpticalSensorType::kAmbientLight) {
    VersionedSensorInfo stopped = running;
    stopped.info.request_id = 0;
    sensor_info_mgr_.SetRequestId(stopped);
  }
  return err == HylErr::kOk ? HylErr::kNoSession : err;
}

HylErr HylSpectralImpl::ChangeReporting_locked(uint32_t session_id, ReportingMode mode) {
  constexpr auto kKind = OpticalSensorType::kAmbientLight;
  Session* const session = session_mgr_.FindById(session_id);
  if (session == nullptr) {
    HYL_LOG(ERROR, "Change-ALS: Cannot find session for id (%u)", session_id);
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
    HYL_LOG(ERROR, "Change-ALS: Sensor of new type %d priority %d not found", type,
            static_cast<int>(old.info.priority));
    return HylErr::kNotFound;
  }
  found.info.request_id = RequestId(type, found.info.priority);
  if (const HylErr err = SendStart_locked(kKind, mode, found.info); err != HylErr::kOk) {
    HYL_LOG(ERROR, "Change-ALS: start err:  %d!", static_cast<int>(err));
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
    HYL_LOG(ERROR, "Change-ALS: Cannot stop, sensor with cookie:%lx not found.", cookie);
    return HylErr::kNotFound;
  }
  const HylErr err = SendStop_locked(OpticalSensorType::kAmbientLight, old.info);
  if (err != HylErr::kOk) {
    HYL_LOG(ERROR, "Change-ALS: InvokeAsyncServiceCall err:  %d!", static_cast<int>(err));
    return err;
  }
  old.info.request_id = 0;
  return sensor_info_mgr_.SetRequestId(old) ? HylErr::kOk : HylErr::kFailed;
}

HylErr HylSpectralImpl::DisableSensor_locked(OpticalSensorType kind, uint32_t session_id) {
  const Session* const session = session_mgr_.FindById(session_id);
  if (session == nullptr) {
    HYL_LOG(ERROR, "Cannot disable sensor, no session-id:%d", static_cast<int>(session_id));
    return HylErr::kNotFound;
  }
  const uint64_t cookie = session->cookie;
  session_mgr_.DeleteSession(session_id);

  VersionedSensorInfo found;
  if (!sensor_info_mgr_.GetSensorInfo(found, cookie)) {
    HYL_LOG(ERROR, "Cannot stop, sensor with cookie:%lx not found.", cookie);
    return HylErr::kNotFound;
  }
  const HylErr err = SendStop_locked(kind, found.info);
  const uint32_t stopped_id = std::exchange(found.info.request_id, 0);
  if (!sensor_info_mgr_.SetRequestId(found)) {
    return HylErr::kFailed;
  }
  if (err != HylErr::kOk) {
    HYL_LOG(ERROR, "Failed to stop sensor '%s'-%d:%u(%u@v%u) (err:%d)", found.info.name.c_str(),
            found.info.type, found.info.priority, stopped_id, found.version, static_cast<int>(err));
  }
  return err;
}

std::shared_ptr<spectral::SensorCallbacks> HylSpectralImpl::CallbacksFor(OpticalSensorType kind,
                                                                         uint32_t priority) const {
  if (kind == OpticalSensorType::kFlicker) {
    return flicker_callbacks_;
  }
  if (priority == 0) {
    return rear_callbacks_;
  }
  return front_callbacks_;
}

HylErr HylSpectralImpl::SendStart_locked(OpticalSensorType kind, ReportingMode mode,
                                         const SensorInfo& info) {
  if (mode == ReportingMode::kOnChange) {
    StartOnChangeSamplingReq request;
    request.lead_byte = spectral::kLeadByte;
    request.client_id = info.request_id;
    request.option_flag = 1;
    request.is_wake_up = true;
    return Send_locked(kind, info, RequestType::kStartOnChangeSampling, request);
  }
  const bool flicker = kind == OpticalSensorType::kFlicker;
  StartContinuousSamplingReq request;
  request.lead_byte = spectral::kLeadByte;
  request.client_id = info.request_id;
  request.period = flicker ? kFlickerPeriod : kAmbientLightPeriod;
  request.option_flag = flicker ? 0 : 1;
  request.is_wake_up = !flicker;
  return Send_locked(kind, info, RequestType::kStartContinuousSampling, request);
}

HylErr HylSpectralImpl::SendStop_locked(OpticalSensorType kind, const SensorInfo& info) {
  StopSamplingReq request;
  request.lead_byte = spectral::kLeadByte;
  request.client_id = info.request_id;
  return Send_locked(kind, info, RequestType::kStopSampling, request);
}

HylErr HylSpectralImpl::Send_locked(OpticalSensorType kind, const SensorInfo& info,
                                    RequestType type, const Request& request) {
  if (api_ == nullptr) {
    return HylErr::kFailed;
  }
  // A flicker operation names its sensor by the flicker type, whatever kind the session is of.
  const uint32_t handle = spectral::SensorHandle(
      kind == OpticalSensorType::kFlicker ? kFlickerType : info.type, info.priority);
  return api_->InvokeAsyncServiceCall(handle, static_cast<uint32_t>(type), request,
                                      CallbacksFor(kind, info.priority));
}

}  // namespace hyl::v2
