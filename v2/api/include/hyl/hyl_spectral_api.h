#pragma once

#include <cstddef>
#include <cstdint>

#include <hyl/hyl_err.h>
#include <hyl/hyl_spectral_api_callback_interface.h>
#include <hyl/hyl_string.h>
#include <hyl/vector.h>

namespace hyl::v2 {

#pragma GCC visibility push(default)

/// How an ambient-light sensor reports.
enum class SensorReportingMode : uint32_t {
  kContinuous = 1,  ///< once a sampling period
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

/// Client of the device's optical sensors.
///
/// Results. Operations return kOk, one of the codes that their comment lists, or, where a request
/// goes to the framework, the framework's own code, unchanged. Where the instance has no connection
/// to the framework, an operation returns kFailed at the point where it would have sent a request.
///
/// Threads. All operations may be called from several threads at once and from inside the client's
/// callbacks. Enable, Change and Disable take turns.
///
/// Sensor names. A sensor is found by the beginning of its name: the first listed sensor of the
/// wanted kind whose name begins with the given one. A null name counts as an empty one.
///
/// Discovery. The first operation that needs the sensor list asks the framework for it, and blocks
/// for as long as the framework's list is not complete, about 5 s at most. This is repeated until a
/// list with an optical sensor has been seen, and never after.
class HylSpectralApi {
 public:
  /// Makes an instance and stores its address in `*out`.
  ///
  /// Returns kOk, also when the framework cannot be reached; the log says so then. Returns
  /// kNullPointer, and makes nothing, when `out` is null.
  /// `callback` receives the sensor data; it is borrowed until Destroy, and may be null: data is
  /// dropped then. `level` is not interpreted. Sends nothing to the framework and does not wait.
  static HylErr Create(HylSpectralApi** out, HylSpectralApiCallbackInterface* callback,
                       HylLogLevel level);

  /// Ends the instance `*p` and sets `*p` to null. Does nothing when `p` or `*p` is null.
  ///
  /// After it has returned, no callback of the client runs or starts. It waits for the deliveries
  /// that have begun, thus for as long as the client's callbacks run. Called from inside one of the
  /// instance's own callbacks it does not wait for the delivery that it was called from, and the
  /// library touches neither the instance nor the client afterwards. Called from inside one of them
  /// while another thread's Destroy is at work, it does nothing and leaves `*p` alone: the other
  /// one ends the instance, and the client object must live until that has returned.
  ///
  /// No other operation of the instance may be under way on another thread, one that was called
  /// inside a callback excepted. The client must not hold a lock that its callbacks take. Running
  /// sensors are not stopped: disable them first.
  static void Destroy(HylSpectralApi** p);

  /// Names of the ambient-light sensors, in the framework's order; the caller owns the result.
  /// Blocks for discovery.
  virtual Vector<HylString> GetAmbientLightSensorNames() = 0;

  /// Names of the flicker sensors, in the framework's order; the caller owns the result. Blocks for
  /// discovery.
  virtual Vector<HylString> GetFlickerSensorNames() = 0;

  /// Name of the sensor that a session runs; the caller owns the result. Empty when there is no
  /// such session or its sensor is no longer listed. Never blocks on other operations.
  virtual HylString GetSensorName(uint32_t session_id) = 0;

  /// Starts an ambient-light sensor and opens a session; its samples go to OnSpectralData.
  ///
  /// On kOk, and only then, `session_id` receives the session's id, which is never 0 and never used
  /// twice in a process. A null or empty `name` means the rear sensor (index 0). Samples that
  /// arrive before the call returns may be dropped.
  ///
  /// The sensors of one position, rear (index 0) or front (all others), share their way to the
  /// client: all samples go to the session that was enabled or changed last there. When that one
  /// is disabled the other still gets nothing, and each sample costs an ERROR in the log; an enable
  /// that fails with kNoSession has the same effect. So open one session for each position, and
  /// switch its mode by ChangeAmbientLightSensorReporting; a session that has fallen silent gets
  /// samples again once it has been disabled and enabled.
  ///
  /// Returns kInvalidArgument for an unknown `mode`; kNotFound when no sensor of that mode has the
  /// name; kAlreadyRunning when this instance runs the sensor in that mode; kNoSession when 8
  /// sessions are open; kFailed when the sensor list changed meanwhile or the sensor's index is
  /// above 255; or the framework's code. Blocks for discovery and for other control operations.
  virtual HylErr EnableAmbientLightSensor(const char* name, uint32_t& session_id,
                                          SensorReportingMode mode) = 0;

  /// Moves an ambient-light session to another reporting mode; the session keeps its id.
  ///
  /// Returns kOk, also when the session has that mode already; kInvalidArgument for an unknown
  /// `mode`; kNotFound when there is no such session, no sensor of the new mode with the same
  /// index, or the session's sensor does not run any more after a change that failed; kFailed when
  /// the sensor list changed meanwhile; or the framework's code. After a failure the sensor may
  /// have been stopped; disable the session then. A delivery that has already begun may still reach
  /// the client. Blocks for other control operations.
  virtual HylErr ChangeAmbientLightSensorReporting(uint32_t session_id,
                                                   SensorReportingMode mode) = 0;

  /// Starts a flicker sensor and opens a session; its samples go to `buffer`, and OnFlickerData
  /// reports each block of them.
  ///
  /// `buffer` is an array of `size` samples, borrowed. Every data message overwrites it from index
  /// 0; samples beyond `size` are dropped, and with a null `buffer` all are. It is free again when
  /// DisableFlickerSensor or Destroy has returned: the library does not write to it after that,
  /// although a callback that has already begun may still be running and reading it. `out_bits`,
  /// from 1 to 32, is the width of the samples: full scale of the sensor's own width comes out as
  /// full scale of a signed number of `out_bits` bits. On kOk, and only then, `session_id`
  /// receives the session's id.
  ///
  /// All flicker sensors share their way to the client: the data go to the session that was enabled
  /// last, as with the ambient-light sensors of one position. So open one session only.
  ///
  /// Returns kNotFound, kAlreadyRunning, kNoSession, kFailed or the framework's code as
  /// EnableAmbientLightSensor does. After kNoSession the sensor has been stopped but still counts
  /// as running: enabling it again returns kAlreadyRunning. Blocks for discovery, for other control
  /// operations and for a running conversion.
  virtual HylErr EnableFlickerSensor(const char* name, int* buffer, size_t size, uint8_t out_bits,
                                     uint32_t& session_id) = 0;

  /// Closes an ambient-light session and stops its sensor.
  ///
  /// The session is gone whatever the result: kOk; kNotFound when there was no such session or its
  /// sensor is no longer listed as running; kFailed when the sensor list changed meanwhile; or the
  /// framework's code when it refused to stop the sensor. Does not wait for a delivery that has
  /// already begun, which may still reach the client, so a client may hold its own locks. Blocks
  /// for other control operations.
  virtual HylErr DisableAmbientLightSensor(uint32_t session_id) = 0;

  /// Closes a flicker session and stops its sensor; results and waiting are those of
  /// DisableAmbientLightSensor. Waits for a running conversion, so that the client's buffer is not
  /// written any more.
  virtual HylErr DisableFlickerSensor(uint32_t session_id) = 0;

  /// \name Settings
  ///
  /// Settings belong to the device, not to a session; the sensor name is not consulted and may be
  /// null. Values and units are the device's.
  ///
  /// The operations with an out pointer send one request and wait for its reply; waiting operations
  /// of an instance take turns, and each waits about 5 s at most in its turn. They return kOk and
  /// fill the out values; kNullPointer when an out pointer is null, before anything is sent;
  /// kFailed when no reply came in time; or the framework's code. The out values are written on kOk
  /// only. When the framework does not reply at all, the n-th caller in the queue waits n times 5
  /// s.
  ///
  /// Replies carry no number, so the first reply ends a wait, whichever request it answers. Where
  /// the framework answers each request exactly once, the library gives the own reply another 0.1 s
  /// after that; a value is stale only when it takes longer. A reply that comes twice, or that
  /// nobody has asked for, can end the wait at once with the value that an earlier reply has
  /// stored; so can the late reply to an earlier call for the same setting that had ended without
  /// one.
  ///
  /// Inside a callback, when the framework delivers replies on the calling thread, they can only
  /// end by their time limit, or with kFailed by Destroy; so can those of other threads that are
  /// under way then.
  ///
  /// The operations without an out pointer send one request and do not wait. They return kOk when
  /// the framework has accepted it, or the framework's code. They are safe inside a callback.
  /// @{

  /// Waits. Whether the sensor chooses the flicker gain itself.
  virtual HylErr GetFlickerAutoGainEnabled(const char* name, bool* enabled) = 0;
  /// Waits. The flicker configuration value and the flicker gain.
  virtual HylErr GetFlickerConfig(const char* name, uint32_t* value, float* gain) = 0;
  /// Waits. The sensor's own flicker analysis.
  virtual HylErr GetFlickerFrequencyMetrics(const char* name, FlickerFrequencyMetrics* metrics) = 0;
  /// Waits. The flicker saturation count.
  virtual HylErr GetFlickerSaturation(const char* name, uint16_t* saturation) = 0;
  /// Waits. The value of the sensor register `reg`.
  virtual HylErr GetRegister(const char* name, uint8_t reg, uint8_t* value) = 0;
  /// Waits. Whether the sensor chooses the spectral gain itself.
  virtual HylErr GetSpectralAutoGainEnabled(const char* name, bool* enabled) = 0;
  /// Waits. Whether spectral samples are corrected by the factory calibration.
  virtual HylErr GetSpectralApplyFacCal(const char* name, bool* enabled) = 0;
  /// Waits. Whether spectral samples are corrected by the one-time-programmed calibration.
  virtual HylErr GetSpectralApplyOtpCal(const char* name, bool* enabled) = 0;
  /// Waits. The device's unique id.
  virtual HylErr GetDeviceUid(const char* name, uint64_t* uid) = 0;

  /// Whether a sensor of the given kind exists whose name begins with `name`; with a null or empty
  /// name, whether one of index 0 exists (never for kAnyOptical). False for every other `kind`.
  /// Blocks for discovery.
  virtual bool IsSensorSupported(OpticalSensorType kind, const char* name) const = 0;

  /// Waits. Sets the exposure time; `applied` receives the time that is in force now.
  virtual HylErr SetExposureTime(const char* name, uint32_t time, uint32_t* applied) = 0;
  /// Does not wait. Lets the sensor choose the flicker gain itself.
  virtual HylErr SetFlickerAutoGainEnabled(const char* name, bool enable) = 0;
  /// Does not wait. Chooses the flicker channel by the device's two channel parameters.
  virtual HylErr SetFlickerChannel(const char* name, uint8_t a, uint8_t b) = 0;
  /// Does not wait. Sets the level that is subtracted from flicker samples.
  virtual HylErr SetFlickerPedestal(const char* name, uint8_t pedestal) = 0;
  /// Waits. Sets the gain that the device's parameter `a` selects; `applied` receives the gain that
  /// is in force now.
  virtual HylErr SetGain(const char* name, uint8_t a, float gain, float* applied) = 0;
  /// Does not wait. Sets the sensor register `reg`.
  virtual HylErr SetRegister(const char* name, uint8_t reg, uint8_t value) = 0;
  /// Waits. Sets the sampling period; `applied` receives the period that is in force now.
  virtual HylErr SetSamplingPeriod(const char* name, uint32_t period, uint32_t* applied) = 0;
  /// Does not wait. Lets the sensor choose the spectral gain itself.
  virtual HylErr SetSpectralAutoGainEnabled(const char* name, bool enable) = 0;
  /// Does not wait. Switches the correction by the factory calibration.
  virtual HylErr SetSpectralApplyFacCalEnabled(const char* name, bool enable) = 0;
  /// Does not wait. Switches the correction by the one-time-programmed calibration.
  virtual HylErr SetSpectralApplyOtpCalEnabled(const char* name, bool enable) = 0;
  /// Does not wait. Switches the torch light.
  virtual HylErr SetTorchLightState(const char* name, bool on) = 0;
  /// @}

  // Last, so that the operations above keep their slots. Call Destroy, not delete.
  virtual ~HylSpectralApi();
};

#pragma GCC visibility pop

}  // namespace hyl::v2
