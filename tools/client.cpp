#include "client.h"

namespace hyl::v2::tool {

Client::Client() {
  HylSpectralApi::Create(&api_, &receiver_, HylLogLevel::kWarning);
}

Client::~Client() {
  HylSpectralApi::Destroy(&api_);
}

void Client::Receiver::OnSpectralData(uint32_t, uint32_t, const Vector<float>& values,
                                      int64_t timestamp) {
  spectral_samples.Push([&] { return SpectralSample{timestamp, {values.begin(), values.end()}}; });
}

void Client::Receiver::OnFlickerData(uint32_t, const FlickerSampleBlock* block) {
  flicker_blocks.Push([=] {
    return FlickerBlock{block->seq_num,
                        block->format_param,
                        (block->restart & 1) != 0,
                        {block->samples, block->samples + block->num_samples}};
  });
}

}  // namespace hyl::v2::tool
