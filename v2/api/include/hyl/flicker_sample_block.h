#pragma once

#include <cstddef>
#include <cstdint>

namespace hyl::v2 {

/// What one flicker data message brought. The `aux` fields are the framework's, handed on
/// unchanged.
struct FlickerSampleBlock {
  uint8_t restart;  ///< bit 0: the compressed-1 decoder was reset; numbering is unaffected
  uint8_t aux8_0;
  uint8_t aux8_1;
  uint16_t aux16_0;
  uint16_t aux16_1;
  uint16_t aux16_2;
  uint32_t num_samples;   ///< samples that now stand in the client's buffer, from index 0
  uint32_t seq_num;       ///< sequence number of the first of them; wraps at 2^32
  uint32_t format_param;  ///< as in the latest format message; 24000 before the first
  uint32_t aux32_0;
  uint32_t aux32_1;
  float auxf_0;
  float auxf_1;
  int32_t* samples;  ///< the buffer that was given to EnableFlickerSensor
};

static_assert(sizeof(FlickerSampleBlock) == 48);
static_assert(offsetof(FlickerSampleBlock, restart) == 0);
static_assert(offsetof(FlickerSampleBlock, aux8_0) == 1);
static_assert(offsetof(FlickerSampleBlock, aux8_1) == 2);
static_assert(offsetof(FlickerSampleBlock, aux16_0) == 4);
static_assert(offsetof(FlickerSampleBlock, aux16_1) == 6);
static_assert(offsetof(FlickerSampleBlock, aux16_2) == 8);
static_assert(offsetof(FlickerSampleBlock, num_samples) == 12);
static_assert(offsetof(FlickerSampleBlock, seq_num) == 16);
static_assert(offsetof(FlickerSampleBlock, format_param) == 20);
static_assert(offsetof(FlickerSampleBlock, aux32_0) == 24);
static_assert(offsetof(FlickerSampleBlock, aux32_1) == 28);
static_assert(offsetof(FlickerSampleBlock, auxf_0) == 32);
static_assert(offsetof(FlickerSampleBlock, auxf_1) == 36);
static_assert(offsetof(FlickerSampleBlock, samples) == 40);

}  // namespace hyl::v2
