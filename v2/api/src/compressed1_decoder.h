// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace hyl::v2::spectral {

/// Where the decoding of a compressed-1 chunk is: at the start of a difference, with what is left
/// of the chunk and of the room for samples.
struct Compressed1Cursor {
  const uint8_t* next = nullptr;
  const uint8_t* end = nullptr;
  int32_t* out = nullptr;
  int32_t* out_end = nullptr;
  int32_t sum = 0;  ///< of all differences so far; wraps
  // Bits by which a sum is shifted to make a sample, 0 to 31; one of them is 0.
  int left = 0;
  int right = 0;

  size_t BytesLeft() const { return static_cast<size_t>(end - next); }
  size_t RoomLeft() const { return static_cast<size_t>(out_end - out); }
};

/// Decodes the bulk of a chunk. Stops before a difference that cannot be decoded, and may stop
/// before the last few bytes or samples. Writes only as many samples as a well-formed chunk has.
void DecodeCompressed1(Compressed1Cursor& cursor);

}  // namespace hyl::v2::spectral
