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
  /// How the bytes of a chunk end.
  enum class ChunkEnd {
    kWhole,   ///< with the last byte of the last sample
    kBegun,   ///< compressed-1: with the first byte of the last sample; the others begin the next
              ///< chunk. As kWhole in the other formats.
    kBroken,  ///< with stray bytes after the last sample
  };

  /// See FlickerPacking for what becomes of a layout that is not valid.
  explicit FlickerPacker(const FlickerPacking& packing);

  /// Width of the samples to be packed, in bits.
  int SampleBits() const;
  /// The next chunk begins with the sample itself, not its difference from the one before. That
  /// one's chunk must have ended kWhole.
  void Restart() { last_sample_ = 0; }
  /// Packs one chunk; an even number of samples. Bits above SampleBits() are left out.
  std::vector<uint8_t> Pack(std::span<const int32_t> samples, ChunkEnd end);

 private:
  std::vector<uint8_t> PackCompressed1(std::span<const int32_t> samples, ChunkEnd end);
  std::vector<uint8_t> Pack16BitsIn2(std::span<const int32_t> samples) const;
  std::vector<uint8_t> PackUncompressed(std::span<const int32_t> samples);
  uint32_t AddPadding(uint32_t field);
  void PutBytes(uint32_t value, uint32_t count, std::vector<uint8_t>& bytes) const;

  FlickerPacking packing_;              // a valid one
  uint32_t sample_bytes_;               // of the fixed-width formats
  std::mt19937 junk_;                   // fills the padding bits; the same in every run
  int32_t last_sample_ = 0;             // compressed-1: what the next difference is taken from
  uint32_t begun_count_ = 0;            // compressed-1: chunks that ended in a value just begun
  std::vector<uint8_t> rest_of_value_;  // compressed-1: of a value begun in the chunk before
};

}  // namespace hyl::v2::host
