#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <hyl/hyl_spectral_api_callback_interface.h>

namespace hyl::v2::bench {

/// What remains of the library's work once the session is known: the framework's vector, and one
/// virtual call.
inline void DeliverInVector(HylSpectralApiCallbackInterface& client, const float* values,
                            size_t count, int64_t timestamp) {
  Vector<float> vector;
  if (vector.Resize(count) == HylErr::kOk) {
    std::memcpy(vector.data(), values, count * sizeof(float));
  }
  client.OnSpectralData(0, 1, vector, timestamp);
}

}  // namespace hyl::v2::bench
