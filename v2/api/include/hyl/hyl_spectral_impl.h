// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

#include <hyl/api.h>
#include <hyl/flicker_messages.h>
#include <hyl/hyl_spectral_api.h>
#include <hyl/internal/config_access.h>
#include <hyl/internal/sample_converter.h>
#include <hyl/internal/sensor_callbacks.h>
#include <hyl/internal/sensor_info_mgr.h>
#include <hyl/internal/session_mgr.h>
#include <hyl/internal/thread_annotations.h>

namespace hyl::v2 {

/// The one implementation of HylSpectralApi.
///
/// Locks, in the order in which they may be taken: `mutex_`, then the sensor list's. The settings
/// take the turn of `config_`, then the rear callback object's `reply_mutex`, and neither of the
/// others. None is held while the client is called.
class HylSpectralImpl final : public HylSpectralApi {
 public:
  using FlickerSensorCallbacks = spectral::FlickerSensorCallbacks;
  using FrontSpectralCallbacks = spectral::FrontSpectralCallbacks;
  using RearSpectralCallbacks = spectral::RearSpectralCallbacks;
  using SampleConverter = spectral::SampleConverter;
  using SensorInfo = spectral::SensorInfo;
  using SensorInfoMgr = spectral::SensorInfoMgr;
  using Session = spectral::Session;
  using SessionMgr = spectral::SessionMgr;
  using VersionedSensorInfo = spectral::VersionedSensorInfo;

  static HylErr Create(HylSpectralImpl** out, HylSpectralApiCallbackInterface* callback);
  static void Destroy(HylSpectralImpl** p);

  explicit HylSpectralImpl(HylSpectralApiCallbackInterface* callback);
  HylSpectralImpl(const HylSpectralImpl&) = delete;
  HylSpectralImpl& operator=(const HylSpectralImpl&) = delete;

  Vector<HylString> GetAmbientLightSensorNames() override;
  Vector<HylString> GetFlickerSensorNames() override;
  HylString GetSensorName(uint32_t session_id) override;
  HylErr EnableAmbientLightSensor(const char* name, uint32_t& session_id,
                                  SensorReportingMode mode) override HYL_EXCLUDES(mutex_);
  HylErr ChangeAmbientLightSensorReporting(uint32_t session_id, SensorReportingMode mode) override
      HYL_EXCLUDES(mutex_);
  HylErr EnableFlickerSensor(const char* name, int* buffer, size_t size, uint8_t out_bits,
                             uint32_t& session_id) override HYL_EXCLUDES(mutex_);
  HylErr DisableAmbientLightSensor(uint32_t session_id) override HYL_EXCLUDES(mutex_);
  HylErr DisableFlickerSensor(uint32_t session_id) override HYL_EXCLUDES(mutex_);
  HylErr GetFlickerAutoGainEnabled(const char* name, bool* enabled) override;
  HylErr GetFlickerConfig(const char* name, uint32_t* value, float* gain) override;
  HylErr GetFlickerFrequencyMetrics(const char* name, FlickerFrequencyMetrics* metrics) override;
  HylErr GetFlickerSaturation(const char* name, uint16_t* saturation) override;
  HylErr GetRegister(const char* name, uint8_t reg, uint8_t* value) override;
  HylErr GetSpectralAutoGainEnabled(const char* name, bool* enabled) override;
  HylErr GetSpectralApplyFacCal(const char* name, bool* enabled) override;
  HylErr GetSpectralApplyOtpCal(const char* name, bool* enabled) override;
  HylErr GetDeviceUid(const char* name, uint64_t* uid) override;
  bool IsSensorSupported(OpticalSensorType kind, const char* name) const override;
  HylErr SetExposureTime(const char* name, uint32_t time, uint32_t* applied) override;
  HylErr SetFlickerAutoGainEnabled(const char* name, bool enable) override;
  HylErr SetFlickerChannel(const char* name, uint8_t a, uint8_t b) override;
  HylErr SetFlickerPedestal(const char* name, uint8_t pedestal) override;
  HylErr SetGain(const char* name, uint8_t a, float gain, float* applied) override;
  HylErr SetRegister(const char* name, uint8_t reg, uint8_t value) override;
  HylErr SetSamplingPeriod(const char* name, uint32_t period, uint32_t* applied) override;
  HylErr SetSpectralAutoGainEnabled(const char* name, bool enable) override;
  HylErr SetSpectralApplyFacCalEnabled(const char* name, bool enable) override;
  HylErr SetSpectralApplyOtpCalEnabled(const char* name, bool enable) override;
  HylErr SetTorchLightState(const char* name, bool on) override;

  ~HylSpectralImpl() override;

  /// \name For the callback objects, on the framework's threads
  /// @{

  /// Id of the session that `cookie` runs; 0 when there is none. Takes no lock.
  uint32_t FindSessionId(uint64_t cookie) const { return sessions().FindId(cookie); }
  /// Configures the session's converter.
  void FlickerFormatMsg(uint64_t cookie, const FlickerFormatResp* message) HYL_EXCLUDES(mutex_);
  /// Converts into the client's buffer and calls the client.
  void FlickerDataMsg(uint64_t cookie, const FlickerDataResp* message) HYL_EXCLUDES(mutex_);
  /// Stores the reply's values and wakes the operation that waits for it.
  void StoreConfigReply(const RlsMsgAccessResp& reply) { config_.Store(reply); }
  /// @}

 private:
  friend struct TestAccess;

  /// The sessions, for the const lookups, which take no lock.
  const SessionMgr& sessions() const HYL_NO_THREAD_SAFETY_ANALYSIS { return session_mgr_; }
  /// The callback object that gets the messages of the sensors of that kind and priority.
  std::shared_ptr<spectral::SensorCallbacks> CallbacksFor(OpticalSensorType kind,
                                                          uint32_t priority) const;

  // Starting, changing and stopping sensors: sensor_control.cpp.
  HylErr EnableSensor_locked(OpticalSensorType kind, SensorType type, ReportingMode mode,
                             const char* name, Session** session) HYL_REQUIRES(mutex_);
  HylErr OpenSession_locked(OpticalSensorType kind, const VersionedSensorInfo& running,
                            ReportingMode mode, const char* name, Session** session)
      HYL_REQUIRES(mutex_);
  HylErr DisableSensor_locked(OpticalSensorType kind, uint32_t session_id) HYL_REQUIRES(mutex_);
  HylErr ChangeReporting_locked(uint32_t session_id, ReportingMode mode) HYL_REQUIRES(mutex_);
  HylErr StopForChange_locked(Session& session, VersionedSensorInfo& old) HYL_REQUIRES(mutex_);
  HylErr SendStart_locked(OpticalSensorType kind, ReportingMode mode, const SensorInfo& info)
      HYL_REQUIRES(mutex_);
  HylErr SendStop_locked(OpticalSensorType kind, const SensorInfo& info) HYL_REQUIRES(mutex_);
  /// kFailed without a connection.
  HylErr Send_locked(OpticalSensorType kind, const SensorInfo& info, RequestType type,
                     const Request& request) HYL_REQUIRES(mutex_);

  // The order of the members is the order of construction and, reversed, of teardown.

  /// Null when the framework could not be reached; never changes.
  std::unique_ptr<Api> api_;
  /// The client's; may be null; never changes.
  HylSpectralApiCallbackInterface* callback_;
  // Empty when there is no connection; never change.
  std::shared_ptr<RearSpectralCallbacks> rear_callbacks_;
  std::shared_ptr<FrontSpectralCallbacks> front_callbacks_;
  std::shared_ptr<FlickerSensorCallbacks> flicker_callbacks_;
  SessionMgr session_mgr_ HYL_GUARDED_BY(mutex_);
  SensorInfoMgr sensor_info_mgr_;
  /// The instance mutex: serialises enable, change and disable and the flicker messages.
  std::mutex mutex_ HYL_ACQUIRED_BEFORE(sensor_info_mgr_.list_mutex());

  /// Set by the first Destroy. Atomic: callbacks on several threads may call Destroy.
  std::atomic<bool> destroying_{false};
  /// The settings. Last, since the slots of their values are the last members.
  spectral::ConfigAccess config_{api_, rear_callbacks_};
};

}  // namespace hyl::v2
