// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include <hyl/hyl_err.h>
#include <hyl/hyl_spectral_api_callback_interface.h>
#include <hyl/hyl_string.h>
#include <hyl/vector.h>

namespace hyl::v2 {

/// \name Limits
/// @{

/// Sessions that an instance can have open.
inline constexpr size_t kMaxSessions = 8;
/// Highest priority of a sensor that can be enabled.
inline constexpr uint32_t kMaxPriority = 255;
/// For how long discovery asks the framework for a complete sensor list.
inline constexpr std::chrono::milliseconds kDiscoveryTimeLimit{5000};
/// For how long a settings operation waits for the framework's reply.
inline constexpr std::chrono::milliseconds kReplyTimeLimit{5000};
/// For how long a settings operation lets outstanding replies arrive: those to earlier requests
/// before it sends, and its own when another request's has come first.
inline constexpr std::chrono::milliseconds kOwedReplyTimeLimit{100};
/// @}

/// How an ambient-light sensor reports.
enum class SensorReportingMode : uint32_t {
  kContinuous = 1,  ///< once per sampling period
  kOnChange = 2,    ///< when the light changes
};

/// Kinds of sensors to ask IsSensorSupported for.
enum class OpticalSensorType : uint32_t {
  kAmbientLight = 0,
  kFlicker = 1,
  kAnyOptical = 3,
};

/// Accepted by HylSpectralApi::Create and not interpreted: the platform logger decides what is
/// written.
enum class HylLogLevel : uint32_t {
  kVerbose = 0,
  kDebug = 1,
  kInfo = 2,
  kWarning = 3,
  kError = 4,
};

/// The sensor's own analysis of the flicker that it sees. The units are the device's.
struct FlickerFrequencyMetrics {
  uint16_t metric0;
  uint16_t metric1;
  uint16_t saturation;
  uint8_t metric_byte;
};

/// The interface to the device's optical sensors.
///
/// Results. The comments list the codes that the library itself returns. Where the framework
/// refuses a request, an operation returns the framework's code unchanged.
///
/// Threads. All operations may be called from several threads at once and from inside the client's
/// callbacks. Enable, Change and Disable, the control operations, take turns.
///
/// Sensors. A sensor is found by the beginning of its name: the first listed sensor of the wanted
/// kind whose name begins with the given one. Its priority is its index within its kind: 0 for the
/// rear ambient-light sensor, any other number for a front one. A null or empty name means
/// priority 0.
///
/// Discovery. The first operation that needs the sensor list asks the framework for it, and blocks
/// until the framework's list is complete, for kDiscoveryTimeLimit at most. Later operations ask
/// again until a list has held an optical sensor; that list is final.
class __attribute__((visibility("default"))) HylSpectralApi {
 public:
  /// Makes an instance and stores its address in `*out`. Sends nothing to the framework and does
  /// not wait. `callback` receives the sensor data; the library borrows it until Destroy. It may be
  /// null: data is dropped then. `level` is not interpreted.
  /// \retval kOk also when the framework cannot be reached; the log says so then
  /// \retval kNullPointer `out` is null; nothing was made
  [[nodiscard]] static HylErr Create(HylSpectralApi** out,
                                     HylSpectralApiCallbackInterface* callback, HylLogLevel level);

  /// Ends the instance `*p` and sets `*p` to null. Does nothing when `p` or `*p` is null.
  ///
  /// After it has returned, no callback of the client runs or starts. It waits for callbacks that
  /// have begun. Called from inside a callback of the instance, it does not wait for that one, and
  /// the library touches neither the instance nor the client afterwards. Called from inside a
  /// callback while another thread's Destroy is in progress, it does nothing and leaves `*p` alone:
  /// the other one ends the instance, and the client object must live until that has returned.
  ///
  /// No other operation of the instance may be in progress on another thread, unless it was called
  /// inside a callback. The client must not hold a lock that its callbacks take. Running sensors
  /// are not stopped: disable them first.
  static void Destroy(HylSpectralApi** p);

  /// Names of the ambient-light sensors that can report continuously, in the framework's order; the
  /// caller owns the result. Blocks for discovery.
  virtual Vector<HylString> GetAmbientLightSensorNames() = 0;

  /// Names of the flicker sensors, in the framework's order; the caller owns the result. Blocks for
  /// discovery.
  virtual Vector<HylString> GetFlickerSensorNames() = 0;

  /// Name of the sensor that a session runs; the caller owns the result. Empty when there is no
  /// such session or its sensor is no longer listed as running. Does not block.
  virtual HylString GetSensorName(uint32_t session_id) = 0;

  /// Starts an ambient-light sensor and opens a session; its samples go to OnSpectralData.
  ///
  /// On kOk, and only then, `session_id` receives the session's id, which is never 0 and used again
  /// only after 2^32 others. Samples that arrive before the call returns may be dropped. Blocks for
  /// discovery, for other control operations and for a flicker conversion in progress.
  ///
  /// The samples of one position, rear or front, all go to the session that was enabled or changed
  /// last there. After that one is disabled, the others still get nothing, and each sample costs an
  /// ERROR in the log; an enable that fails with kNoSession has the same effect. So open one
  /// session for each position and switch its mode by ChangeAmbientLightSensorReporting. A session
  /// that has fallen silent gets samples again once it has been disabled and enabled.
  /// \retval kInvalidArgument `mode` is unknown
  /// \retval kNotFound no sensor of that mode has the name
  /// \retval kAlreadyRunning this instance runs the sensor in that mode
  /// \retval kNoSession kMaxSessions are open; the sensor has been stopped again
  /// \retval kFailed the sensor list changed during the call, the sensor's priority is above
  ///         kMaxPriority, or there is no connection to the framework
  /// \return otherwise kOk, or the framework's code when it refuses a request
  [[nodiscard]] virtual HylErr EnableAmbientLightSensor(const char* name, uint32_t& session_id,
                                                        SensorReportingMode mode) = 0;

  /// Moves an ambient-light session to another reporting mode; the session keeps its id.
  ///
  /// After a failure the sensor may have been stopped; disable the session then. A callback that
  /// has begun may still be running on return. Blocks for other control operations and for a
  /// flicker conversion in progress.
  /// \retval kInvalidArgument `mode` is unknown
  /// \retval kNotFound there is no such session, no sensor of the new mode with the same priority,
  ///         or the session's sensor was stopped by an earlier change that failed
  /// \retval kFailed the sensor list changed during the call
  /// \return otherwise kOk, also when the session has that mode already, or the framework's code
  [[nodiscard]] virtual HylErr ChangeAmbientLightSensorReporting(uint32_t session_id,
                                                                 SensorReportingMode mode) = 0;

  /// Starts a flicker sensor and opens a session; its samples go to `buffer`, and OnFlickerData
  /// reports each block of them.
  ///
  /// The library borrows `buffer`, an array of `size` samples. Every data message overwrites it
  /// from index 0; samples beyond `size` are dropped, and with a null `buffer` all are. When
  /// DisableFlickerSensor or Destroy has returned the library no longer writes to it, although a
  /// callback that has begun may still be reading it. `out_bits`, from 1 to 32, is the width of the
  /// samples: full scale of the sensor's own width becomes full scale of a signed number of
  /// `out_bits` bits. On kOk, and only then, `session_id` receives the session's id. Blocks for
  /// discovery, for other control operations and for a conversion in progress.
  ///
  /// The data of all flicker sensors go to the session that was enabled last. So open only one.
  /// \retval kNotFound no flicker sensor has the name
  /// \retval kAlreadyRunning this instance runs the sensor, or could not open a session for it
  /// \retval kNoSession kMaxSessions are open; the sensor has been stopped again, but counts as
  ///         running until the instance ends
  /// \retval kFailed as for EnableAmbientLightSensor
  /// \return otherwise kOk, or the framework's code when it refuses a request
  [[nodiscard]] virtual HylErr EnableFlickerSensor(const char* name, int* buffer, size_t size,
                                                   uint8_t out_bits, uint32_t& session_id) = 0;

  /// Closes an ambient-light session and stops its sensor. The session is gone whatever the result.
  ///
  /// Does not wait for a callback that has begun, so the client may hold its own locks. Blocks for
  /// other control operations and for a flicker conversion in progress.
  /// \retval kNotFound there was no such session, or its sensor is not listed as running
  /// \retval kFailed the sensor list changed during the call
  /// \return otherwise kOk, or the framework's code when it refuses to stop the sensor
  virtual HylErr DisableAmbientLightSensor(uint32_t session_id) = 0;

  /// Closes a flicker session and stops its sensor. The session is gone whatever the result.
  ///
  /// Waits for a conversion in progress, so that the client's buffer is no longer written. Does not
  /// wait for a callback that has begun. Blocks for other control operations.
  /// \retval kNotFound there was no such session, or its sensor is not listed as running
  /// \retval kFailed the sensor list changed during the call
  /// \return otherwise kOk, or the framework's code when it refuses to stop the sensor
  virtual HylErr DisableFlickerSensor(uint32_t session_id) = 0;

  /// \name Settings
  ///
  /// Settings belong to the device, not to a session; the sensor name is ignored and may be null.
  /// Values and units are the device's. Each operation sends one request. Those without an out
  /// pointer do not wait for the reply, and are safe inside a callback.
  ///
  /// Those with an out pointer wait for the reply, and fill the out values on kOk only. Waiting
  /// operations of an instance take turns: when the framework does not reply at all, the n-th in
  /// the queue waits n times kReplyTimeLimit, and kOwedReplyTimeLimit for each call before it.
  /// Where the framework delivers replies on the thread that a callback runs on, a call from inside
  /// that callback can only end by its time limit or by Destroy, and until then so can the waiting
  /// calls of other threads.
  ///
  /// Replies carry no number. After the first reply, whichever request it answers, a call waits
  /// kOwedReplyTimeLimit at most. Where the framework answers each request exactly once, its own
  /// reply ends that wait too; only a slower one leaves the value stale. A reply that comes twice,
  /// or that nobody asked for, can end the wait at once with the value that an earlier reply has
  /// stored; so can the late reply to an earlier call for the same setting that ended without one.
  /// @{

  /// Reads whether the sensor chooses the flicker gain itself: false means that it stays as set.
  /// Waits for the reply.
  /// \retval kNullPointer `enabled` is null; nothing was sent
  /// \retval kFailed no reply came in time, or there is no connection to the framework
  /// \return otherwise kOk, or the framework's code when it refuses the request
  [[nodiscard]] virtual HylErr GetFlickerAutoGainEnabled(const char* name, bool* enabled) = 0;

  /// Reads the flicker configuration value and the flicker gain. Waits for the reply.
  /// \retval kNullPointer an out pointer is null; nothing was sent
  /// \retval kFailed no reply came in time, or there is no connection to the framework
  /// \return otherwise kOk, or the framework's code when it refuses the request
  [[nodiscard]] virtual HylErr GetFlickerConfig(const char* name, uint32_t* value, float* gain) = 0;

  /// Reads the sensor's own flicker analysis. Waits for the reply.
  /// \retval kNullPointer `metrics` is null; nothing was sent
  /// \retval kFailed no reply came in time, or there is no connection to the framework
  /// \return otherwise kOk, or the framework's code when it refuses the request
  [[nodiscard]] virtual HylErr GetFlickerFrequencyMetrics(const char* name,
                                                          FlickerFrequencyMetrics* metrics) = 0;

  /// Reads the flicker saturation count. Waits for the reply.
  /// \retval kNullPointer `saturation` is null; nothing was sent
  /// \retval kFailed no reply came in time, or there is no connection to the framework
  /// \return otherwise kOk, or the framework's code when it refuses the request
  [[nodiscard]] virtual HylErr GetFlickerSaturation(const char* name, uint16_t* saturation) = 0;

  /// Reads the sensor register `reg`. Waits for the reply.
  /// \retval kNullPointer `value` is null; nothing was sent
  /// \retval kFailed no reply came in time, or there is no connection to the framework
  /// \return otherwise kOk, or the framework's code when it refuses the request
  [[nodiscard]] virtual HylErr GetRegister(const char* name, uint8_t reg, uint8_t* value) = 0;

  /// Reads whether the sensor chooses the spectral gain itself: false means that it stays as set.
  /// Waits for the reply.
  /// \retval kNullPointer `enabled` is null; nothing was sent
  /// \retval kFailed no reply came in time, or there is no connection to the framework
  /// \return otherwise kOk, or the framework's code when it refuses the request
  [[nodiscard]] virtual HylErr GetSpectralAutoGainEnabled(const char* name, bool* enabled) = 0;

  /// Reads whether the factory calibration corrects spectral samples: false means that they are
  /// left as measured. Waits for the reply.
  /// \retval kNullPointer `enabled` is null; nothing was sent
  /// \retval kFailed no reply came in time, or there is no connection to the framework
  /// \return otherwise kOk, or the framework's code when it refuses the request
  [[nodiscard]] virtual HylErr GetSpectralApplyFacCal(const char* name, bool* enabled) = 0;

  /// Reads whether the one-time-programmed calibration corrects spectral samples: false means that
  /// they are left as measured. Waits for the reply.
  /// \retval kNullPointer `enabled` is null; nothing was sent
  /// \retval kFailed no reply came in time, or there is no connection to the framework
  /// \return otherwise kOk, or the framework's code when it refuses the request
  [[nodiscard]] virtual HylErr GetSpectralApplyOtpCal(const char* name, bool* enabled) = 0;

  /// Reads the device's unique id. Waits for the reply.
  /// \retval kNullPointer `uid` is null; nothing was sent
  /// \retval kFailed no reply came in time, or there is no connection to the framework
  /// \return otherwise kOk, or the framework's code when it refuses the request
  [[nodiscard]] virtual HylErr GetDeviceUid(const char* name, uint64_t* uid) = 0;

  /// Whether a sensor of the given kind exists whose name begins with `name`; with a null or empty
  /// name, whether one of priority 0 exists (never for kAnyOptical). False for every other `kind`.
  /// Not a setting: blocks for discovery.
  virtual bool IsSensorSupported(OpticalSensorType kind, const char* name) const = 0;

  /// Sets the exposure time. Waits for the reply, which brings the time that is in force.
  /// \retval kNullPointer `applied` is null; nothing was sent
  /// \retval kFailed no reply came in time, or there is no connection to the framework
  /// \return otherwise kOk, or the framework's code when it refuses the request
  virtual HylErr SetExposureTime(const char* name, uint32_t time, uint32_t* applied) = 0;

  /// Chooses who sets the flicker gain: the sensor itself (true), or nobody, so that it stays as it
  /// is (false). Does not wait.
  /// \retval kFailed there is no connection to the framework
  /// \return otherwise kOk when the framework has accepted the request, or its code when it refuses
  virtual HylErr SetFlickerAutoGainEnabled(const char* name, bool enable) = 0;

  /// Chooses the flicker channel by the device's two channel parameters. Does not wait.
  /// \retval kFailed there is no connection to the framework
  /// \return otherwise kOk when the framework has accepted the request, or its code when it refuses
  virtual HylErr SetFlickerChannel(const char* name, uint8_t a, uint8_t b) = 0;

  /// Sets the pedestal of flicker samples. Does not wait.
  /// \retval kFailed there is no connection to the framework
  /// \return otherwise kOk when the framework has accepted the request, or its code when it refuses
  virtual HylErr SetFlickerPedestal(const char* name, uint8_t pedestal) = 0;

  /// Sets the gain that the device's parameter `a` selects. Waits for the reply, which brings the
  /// gain that is in force.
  /// \retval kNullPointer `applied` is null; nothing was sent
  /// \retval kFailed no reply came in time, or there is no connection to the framework
  /// \return otherwise kOk, or the framework's code when it refuses the request
  virtual HylErr SetGain(const char* name, uint8_t a, float gain, float* applied) = 0;

  /// Sets the sensor register `reg`. Does not wait.
  /// \retval kFailed there is no connection to the framework
  /// \return otherwise kOk when the framework has accepted the request, or its code when it refuses
  virtual HylErr SetRegister(const char* name, uint8_t reg, uint8_t value) = 0;

  /// Sets the sampling period. Waits for the reply, which brings the period that is in force.
  /// \retval kNullPointer `applied` is null; nothing was sent
  /// \retval kFailed no reply came in time, or there is no connection to the framework
  /// \return otherwise kOk, or the framework's code when it refuses the request
  virtual HylErr SetSamplingPeriod(const char* name, uint32_t period, uint32_t* applied) = 0;

  /// Chooses who sets the spectral gain: the sensor itself (true), or SetGain alone (false). Does
  /// not wait.
  /// \retval kFailed there is no connection to the framework
  /// \return otherwise kOk when the framework has accepted the request, or its code when it refuses
  virtual HylErr SetSpectralAutoGainEnabled(const char* name, bool enable) = 0;

  /// Switches the correction of spectral samples by the factory calibration on (true) or off. Does
  /// not wait.
  /// \retval kFailed there is no connection to the framework
  /// \return otherwise kOk when the framework has accepted the request, or its code when it refuses
  virtual HylErr SetSpectralApplyFacCalEnabled(const char* name, bool enable) = 0;

  /// Switches the correction of spectral samples by the one-time-programmed calibration on (true)
  /// or off. Does not wait.
  /// \retval kFailed there is no connection to the framework
  /// \return otherwise kOk when the framework has accepted the request, or its code when it refuses
  virtual HylErr SetSpectralApplyOtpCalEnabled(const char* name, bool enable) = 0;

  /// Switches the torch light on (true) or off. Does not wait.
  /// \retval kFailed there is no connection to the framework
  /// \return otherwise kOk when the framework has accepted the request, or its code when it refuses
  virtual HylErr SetTorchLightState(const char* name, bool on) = 0;
  /// @}

  // Last, so that the operations above keep their slots. Call Destroy, not delete.
  virtual ~HylSpectralApi();
};

}  // namespace hyl::v2
