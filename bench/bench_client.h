#pragma once

#include <cstddef>
#include <cstdint>

#include <hyl/hyl_spectral_api_callback_interface.h>

namespace hyl::v2::bench {

/// What a floor calls in place of the library's client.
class FloorClient {
 public:
  virtual ~FloorClient() = default;
  virtual void OnValues(const float* values, size_t count, int64_t timestamp) = 0;
};

/// Looks at all that it is given, in little time. One thread at a time.
class BenchClient final : public HylSpectralApiCallbackInterface, public FloorClient {
 public:
  void OnSpectralData(uint32_t, uint32_t session_id, const Vector<float>& values,
                      int64_t timestamp) override {
    seen_ += session_id;
    OnValues(values.data(), values.size(), timestamp);
  }
  void OnFlickerData(uint32_t session_id, const FlickerSampleBlock* block) override {
    seen_ += session_id + block->seq_num + static_cast<uint64_t>(block->samples[0]);
  }
  void OnValues(const float* values, size_t count, int64_t timestamp) override {
    seen_ +=
        static_cast<uint64_t>(values[0] + values[count - 1]) + static_cast<uint64_t>(timestamp);
  }

  uint64_t seen() const { return seen_; }

 private:
  uint64_t seen_ = 0;
};

}  // namespace hyl::v2::bench
