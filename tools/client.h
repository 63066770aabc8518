#pragma once

#include <cstdint>
#include <vector>

#include <hyl/hyl_spectral_api.h>

#include "bounded_queue.h"

namespace hyl::v2::tool {

/// One sample of an ambient-light sensor.
struct SpectralSample {
  int64_t timestamp_ns;
  std::vector<float> values;
};

/// One block of flicker samples, copied out of the client's buffer.
struct FlickerBlock {
  uint32_t seq_num;
  uint32_t sample_rate_hz;
  bool restart;
  std::vector<int32_t> samples;
};

/// An instance of the library and what it delivers.
class Client {
 public:
  Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  /// Waits for deliveries under way.
  ~Client();

  HylSpectralApi& api() { return *api_; }
  BoundedQueue<SpectralSample>& spectral_samples() { return receiver_.spectral_samples; }
  BoundedQueue<FlickerBlock>& flicker_blocks() { return receiver_.flicker_blocks; }

 private:
  struct Receiver : HylSpectralApiCallbackInterface {
    void OnSpectralData(uint32_t kind, uint32_t session_id, const Vector<float>& values,
                        int64_t timestamp) override;
    void OnFlickerData(uint32_t session_id, const FlickerSampleBlock* block) override;

    BoundedQueue<SpectralSample> spectral_samples{256};
    BoundedQueue<FlickerBlock> flicker_blocks{256};
  };

  Receiver receiver_;  // outlives api_
  HylSpectralApi* api_ = nullptr;
};

}  // namespace hyl::v2::tool
