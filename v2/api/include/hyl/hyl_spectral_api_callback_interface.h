// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include <hyl/vector.h>

namespace hyl::v2 {

/// What one flicker data message brought. The library hands on the framework's `aux` fields
/// unchanged.
struct FlickerSampleBlock {
  uint8_t restart;  ///< bit 0: the compressed-1 decoder was reset; numbering is unaffected
  uint8_t aux8_0;
  uint8_t aux8_1;
  uint16_t aux16_0;
  uint16_t aux16_1;
  uint16_t aux16_2;
  uint32_t num_samples;   ///< samples that the message wrote to the client's buffer, from index 0
  uint32_t seq_num;       ///< sequence number of the first of them; wraps at 2^32
  uint32_t format_param;  ///< as in the latest format message; 24000 before the first
  uint32_t aux32_0;
  uint32_t aux32_1;
  float auxf_0;
  float auxf_1;
  int32_t* samples;  ///< the buffer that was given to EnableFlickerSensor
};

static_assert(sizeof(FlickerSampleBlock) == 48);

/// Receives sensor data. A client implements it, passes it to HylSpectralApi::Create, and keeps it
/// alive until Destroy has returned.
///
/// Both operations are called on the framework's threads, never on a thread that is inside a call
/// of the client into the library. Calls for different sensors can come at the same time on
/// different threads; the library does not serialise them. It holds no lock during the call.
///
/// Do, in a callback:
/// - copy what you keep of the arguments, which exist only during the call;
/// - return soon: the sensor's next samples, and Destroy on another thread, wait for it;
/// - call any operation of HylSpectralApi that does not wait for a reply, and Destroy.
///
/// Do not, in a callback:
/// - let an exception leave it;
/// - take a lock that another thread holds while it calls Destroy;
/// - call an operation that waits for a reply (HylSpectralApi says which): where the framework
///   delivers replies on the calling thread, it ends only by kReplyTimeLimit or by Destroy;
/// - use the instance after a call of Destroy.
class HylSpectralApiCallbackInterface {
 public:
  virtual ~HylSpectralApiCallbackInterface() = default;

  /// Delivers one spectral sample.
  ///
  /// `kind` is always 0. `session_id` is the one that EnableAmbientLightSensor returned; where two
  /// sessions run at one position, it is that of the one enabled or changed last. `values` holds
  /// one value per channel in the framework's order, at most 255, possibly none. `timestamp` is in
  /// nanoseconds.
  virtual void OnSpectralData(uint32_t kind, uint32_t session_id, const Vector<float>& values,
                              int64_t timestamp) = 0;

  /// Reports that the client's buffer holds new samples.
  ///
  /// `session_id` is the one that EnableFlickerSensor returned. The samples stay until the
  /// session's next data message overwrites them from index 0; where the framework delivers a
  /// sensor's messages one after another, not before this call has returned.
  virtual void OnFlickerData(uint32_t session_id, const FlickerSampleBlock* block) = 0;
};

}  // namespace hyl::v2
