// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include <hyl/message.h>

namespace hyl::v2 {

/// How flicker samples are packed. 2, 3 and 4 are the bytes of one uncompressed sample.
enum class FlickerFormatSampleWidth : int32_t {
  kUncompressed2 = 2,
  kUncompressed3 = 3,
  kUncompressed4 = 4,
  kCompressed1 = 6,
  k16BitsIn2 = 7,
};

/// Announces the packing of the flicker data that follows.
class __attribute__((visibility("default"))) FlickerFormatResp : public Message {
 public:
  uint8_t unused8[4] = {};
  uint32_t format_param = 0;
  FlickerFormatSampleWidth width{};
  uint8_t little_endian = 0;  ///< 1: least significant byte first; 0: most significant byte first
  uint8_t lsb = 0;            ///< uncompressed: unused bits below the sample field
  uint8_t msb = 0;            ///< uncompressed: unused bits above the sample field
  uint8_t unused23 = 0;
};

static_assert(sizeof(FlickerFormatResp) == 24);

/// Delivers one chunk of packed flicker samples.
class __attribute__((visibility("default"))) FlickerDataResp : public Message {
 public:
  uint8_t unused8[4] = {};
  uint32_t offset = 0;  ///< of this chunk in the sensor's data stream, in bytes
  uint8_t unused16[8] = {};
  const uint8_t* data = nullptr;
  uint64_t size = 0;  ///< of `data`, in bytes
  uint8_t unused40[9] = {};
  uint8_t aux8_0 = 0;
  uint8_t unused50[2] = {};
  uint32_t aux32_0 = 0;
  uint32_t aux32_1 = 0;
  float auxf_0 = 0;
  uint16_t aux16_0 = 0;
  uint8_t restart = 0;  ///< bit 0: resets the compressed-1 decoder before this chunk
  uint8_t unused67[5] = {};
  uint16_t aux16_1 = 0;
  uint16_t aux16_2 = 0;
  uint8_t aux8_1 = 0;
  uint8_t unused77[3] = {};
  float auxf_1 = 0;
  uint8_t unused84[4] = {};
};

static_assert(sizeof(FlickerDataResp) == 88);

}  // namespace hyl::v2
