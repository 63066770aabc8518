#pragma once

#include <cstdint>

#include <hyl/flicker_sample_block.h>
#include <hyl/vector.h>

namespace hyl::v2 {

/// Receives sensor data. A client implements it, passes it to HylSpectralApi::Create, and keeps it
/// alive until Destroy has returned.
///
/// Both operations are called on the framework's threads, never on a thread that is inside a call
/// of the client into the library. Calls for different sensors can come at the same time on
/// different threads; the library adds no serialisation. No lock of the library is held.
///
/// Inside a callback a client may call every operation of HylSpectralApi, and Destroy. The
/// operations that wait for a reply (HylSpectralApi says which) can only end by their time limit
/// or by Destroy there, when the framework delivers replies on the calling thread. Exceptions must
/// not leave a callback.
class HylSpectralApiCallbackInterface {
 public:
  virtual ~HylSpectralApiCallbackInterface() = default;

  /// Delivers one spectral sample.
  ///
  /// `kind` is always 0. `session_id` is the one that EnableAmbientLightSensor returned; where two
  /// sessions run at one position, that of the one which was enabled or changed last. `values`
  /// holds one value a channel in the framework's order, at most 255, possibly none; it belongs to
  /// the library and exists only during the call. `timestamp` is in nanoseconds.
  virtual void OnSpectralData(uint32_t kind, uint32_t session_id, const Vector<float>& values,
                              int64_t timestamp) = 0;

  /// Reports that new flicker samples stand in the client's buffer.
  ///
  /// `session_id` is the one that EnableFlickerSensor returned. `block` exists only during the
  /// call. The samples stay until the session's next data message overwrites them from index 0;
  /// where the framework delivers a sensor's messages one after another, not before this call has
  /// returned.
  virtual void OnFlickerData(uint32_t session_id, const FlickerSampleBlock* block) = 0;
};

}  // namespace hyl::v2
