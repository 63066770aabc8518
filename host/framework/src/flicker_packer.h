// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <random>
#include <span>
#include <vector>

#include <hyl/host/simulated_hub.h>

namespace hyl::v2::host {

/// Packs flicker samples into the bytes of one of the three formats.
class FlickerPacker {
 public:
  /// Where the bytes of a chunk end.
  enum class ChunkEnd {
    kWhole,  ///< after the last byte of the last sample
    kBegun,  ///< compressed-1: after the first byte of the last sample, whose other bytes begin the
             ///< next chunk. The same as kWhole in the other formats.
    kBroken,  ///< after stray bytes that follow the last sample
  };

  /// FlickerPacking says what happens to an invalid layout.
  explicit FlickerPacker(const FlickerPacking& packing);

  /// The width of a sample, in bits.
  int SampleBits() const;
  /// Makes the next chunk begin with a sample itself instead of its difference from the previous
  /// one. The previous chunk must have ended kWhole.
  void Restart() { last_sample_ = 0; }
  /// Packs one chunk of an even number of samples. Drops the bits above SampleBits().
  std::vector<uint8_t> Pack(std::span<const int32_t> samples, ChunkEnd end);

 private:
  std::vector<uint8_t> PackCompressed1(std::span<const int32_t> samples, ChunkEnd end);
  std::vector<uint8_t> Pack16BitsIn2(std::span<const int32_t> samples) const;
  std::vector<uint8_t> PackUncompressed(std::span<const int32_t> samples);
  uint32_t AddPadding(uint32_t field);
  void PutBytes(uint32_t value, uint32_t count, std::vector<uint8_t>& bytes) const;

  FlickerPacking packing_;              // a valid one
  uint32_t sample_bytes_;               // of the fixed-width formats
  std::mt19937 junk_;                   // for the padding bits; the same in every run
  int32_t last_sample_ = 0;             // compressed-1: the next difference is from this
  uint32_t begun_count_ = 0;            // compressed-1: chunks that ended kBegun
  std::vector<uint8_t> rest_of_value_;  // compressed-1: of the last value, after kBegun
};

}  // namespace hyl::v2::host
