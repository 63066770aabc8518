// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace hyl::v2::spectral {

/// Where samples of a fixed size are in a chunk, and what each becomes once its container's highest
/// bit is at bit 31: (sample & mask) << left >> right.
struct FixedPacking {
  size_t bytes = 0;  ///< of a container: 2, 3 or 4
  bool little_endian = true;
  bool swapped_pairs = false;    ///< two bytes only: the later sample of every two comes first
  uint32_t mask = ~uint32_t{0};  ///< clears the unused bits below the sample
  int left = 0;                  ///< drops the unused bits above it; 0 to 31
  int right = 0;                 ///< arithmetic; 0 to 31
};

/// Unpacks `count` samples, an even number where pairs are swapped.
void UnpackFixed(const FixedPacking& packing, const uint8_t* data, size_t count, int32_t* out);

}  // namespace hyl::v2::spectral
