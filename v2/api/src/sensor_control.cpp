// Starting and stopping a sensor: what ambient light and flicker share.

#include <utility>

#include <hyl/hyl_spectral_impl.h>

#include "log.h"
#include "requests.h"

namespace hyl::v2 {

using spectral::RequestId;
using spectral::SensorHandle;

namespace {

constexpr uint64_t kAmbientLightPeriod = 100'000'000;
constexpr uint64_t kFlickerPeriod = 10'000'000'000;

const char* OrEmpty(const char* text) {
  return text != nullptr ? text : "";
}

const char* Label(OpticalSensorType kind) {
  return kind == OpticalSensorType::kFlicker ? "flicker" : "ALS";
}

/// Flicker messages always go by the flicker type; an ambient-light sensor has one of two types.
uint32_t HandleOf(OpticalSensorType kind, const spectral::SensorInfo& info) {
  return SensorHandle(kind == OpticalSensorType::kFlicker ? kFlickerType : info.type,
                      info.priority);
}

void FillOnChange(StartOnChangeSamplingReq& request, uint32_t request_id) {
  request.lead_byte = spectral::kLeadByte;
  request.client_id = request_id;
  request.option_flag = 1;
  request.is_wake_up = true;
}

void FillContinuous(StartContinuousSamplingReq& request, uint32_t request_id,
                    OpticalSensorType kind) {
  const bool flicker = kind == OpticalSensorType::kFlicker;
  request.lead_byte = spectral::kLeadByte;
  request.client_id = request_id;
  request.period = flicker ? kFlickerPeriod : kAmbientLightPeriod;
  request.option_flag = flicker ? 0 : 1;
  request.is_wake_up = !flicker;
}

}  // namespace

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

HylErr HylSpectralImpl::Send(uint32_t sensor_handle, RequestType type, const Request& request,
                             std::shared_ptr<spectral::SensorCallbacks> callbacks) {
  if (api_ == nullptr) {
    return HylErr::kFailed;
  }
  return api_->InvokeAsyncServiceCall(sensor_handle, static_cast<uint32_t>(type), request,
                                      std::move(callbacks));
}

HylErr HylSpectralImpl::SendStart_locked(OpticalSensorType kind, ReportingMode mode,
                                         const SensorInfo& info) {
  const uint32_t handle = HandleOf(kind, info);
  if (mode == ReportingMode::kOnChange) {
    StartOnChangeSamplingReq request;
    FillOnChange(request, info.request_id);
    return Send(handle, RequestType::kStartOnChangeSampling, request,
                CallbacksFor(kind, info.priority));
  }
  StartContinuousSamplingReq request;
  FillContinuous(request, info.request_id, kind);
  return Send(handle, RequestType::kStartContinuousSampling, request,
              CallbacksFor(kind, info.priority));
}

HylErr HylSpectralImpl::SendStop_locked(OpticalSensorType kind, const SensorInfo& info) {
  StopSamplingReq request;
  request.lead_byte = spectral::kLeadByte;
  request.client_id = info.request_id;
  return Send(HandleOf(kind, info), RequestType::kStopSampling, request,
              CallbacksFor(kind, info.priority));
}

HylErr HylSpectralImpl::EnableSensor_locked(OpticalSensorType kind, SensorType type,
                                            ReportingMode mode, const char* name,
                                            Session** session) {
  VersionedSensorInfo found;
  if (!sensor_info_mgr_.GetSensorInfo(found, type, name, 0)) {
    HYL_LOG(ERROR, "HYL_SpAPI: Sensor '%s' not found", OrEmpty(name));
    return HylErr::kNotFound;
  }
  SensorInfo& info = found.info;
  if (info.request_id != 0) {
    HYL_LOG(WARNING, "HYL_SpAPI: Cannot start sensor '%s'-%d:%u, already running",
            info.name.c_str(), info.type, info.priority);
    return HylErr::kAlreadyRunning;
  }
  if (info.priority > spectral::kMaxPriority) {
    HYL_LOG(ERROR, "HYL_SpAPI: Cannot start sensor '%s'-%d:%u, index above %u", info.name.c_str(),
            info.type, info.priority, spectral::kMaxPriority);
    return HylErr::kFailed;
  }
  info.request_id = RequestId(info.type, info.priority);
  const HylErr err = SendStart_locked(kind, mode, info);
  if (err != HylErr::kOk) {
    if (kind == OpticalSensorType::kAmbientLight) {
      HYL_LOG(ERROR, "HYL_SpAPI: InvokeAsyncServiceCall err:  %d!", static_cast<int>(err));
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
  HYL_LOG(ERROR, "HYL_SpAPI: Cannot enable %s sensor '%s', no session available!", Label(kind),
          session_name);
  const HylErr err = SendStop_locked(kind, running.info);
  if (kind == OpticalSensorType::kAmbientLight) {
    VersionedSensorInfo stopped = running;
    stopped.info.request_id = 0;
    sensor_info_mgr_.SetRequestId(stopped);
  }
  return err == HylErr::kOk ? HylErr::kNoSession : err;
}

HylErr HylSpectralImpl::DisableSensor_locked(OpticalSensorType kind, uint32_t session_id) {
  const Session* const session = session_mgr_.FindById(session_id);
  if (session == nullptr) {
    HYL_LOG(ERROR, "HYL_SpAPI: Cannot disable sensor, no session-id:%d",
            static_cast<int>(session_id));
    return HylErr::kNotFound;
  }
  const uint64_t cookie = session->cookie;
  session_mgr_.DeleteSession(session_id);

  VersionedSensorInfo found;
  if (!sensor_info_mgr_.GetSensorInfo(found, cookie)) {
    HYL_LOG(ERROR, "HYL_SpAPI: Cannot stop, sensor with cookie:%lx not found.", cookie);
    return HylErr::kNotFound;
  }
  const HylErr err = SendStop_locked(kind, found.info);
  const uint32_t stopped_id = std::exchange(found.info.request_id, 0);
  if (!sensor_info_mgr_.SetRequestId(found)) {
    return HylErr::kFailed;
  }
  if (err != HylErr::kOk) {
    HYL_LOG(ERROR, "HYL_SpAPI: Failed to stop sensor '%s'-%d:%u(%u@v%u) (err:%d)",
            found.info.name.c_str(), found.info.type, found.info.priority, stopped_id,
            found.version, static_cast<int>(err));
  }
  return err;
}

}  // namespace hyl::v2
