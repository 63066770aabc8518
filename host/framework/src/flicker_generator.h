#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <hyl/host/flicker_stream.h>
#include <hyl/host/light_scene.h>

#include "flicker_front_end.h"
#include "flicker_packer.h"
#include "flicker_waveform.h"
#include "noise.h"

namespace hyl::v2::host {

/// What a FlickerFormatResp announces.
struct FlickerFormatFields {
  FlickerFormatSampleWidth width;
  uint8_t little_endian;  ///< 1 or 0
  uint8_t msb;
  uint8_t lsb;
  uint32_t format_param;  ///< samples per second
};

/// One run of the flicker sensor, from start to stop: measures, packs and, where asked to, damages
/// the data. Not synchronised: the caller sees to it that one thread uses it at a time.
class FlickerGenerator {
 public:
  static constexpr size_t kSamplesPerChunk = kFlickerSampleRateHz / 100;
  static constexpr size_t kMaxHistory = size_t{1} << 20;
  /// A client that missed a chunk has the right level again after this many at most.
  static constexpr uint64_t kChunksPerRestart = 10;

  struct Chunk {
    std::vector<uint8_t> bytes;
    /// Of the first byte in the sensor's data stream, in which lost chunks count; wraps at 2^32.
    uint32_t offset = 0;
    bool restart = false;  ///< true for the first chunk and every kChunksPerRestart-th
    int saturated = 0;     ///< samples that met the limits of the range
  };

  /// `first_scene` gives the seed of the noise, which stays for the whole run.
  FlickerGenerator(const LightScene& first_scene, const FlickerPacking& packing,
                   const FlickerFaults& faults);

  /// The next 10 ms, or nothing if this chunk is lost. Every third chunk of compressed-1 ends in a
  /// value that goes on in the next one; a client thus receives 239 to 241 samples from a chunk of
  /// that format, and 240 from one of the others.
  std::optional<Chunk> Next(const LightScene& scene, const FlickerFrontEnd& front_end);

  /// The samples measured so far, lost ones included, as a client that asked for `bits` bits and
  /// lost nothing receives them; the place in the vector is the sequence number. The last one may
  /// still be on its way, in part (see Next). At most the first kMaxHistory are kept.
  std::vector<int32_t> History(int bits) const;

  FlickerFormatFields Format() const;
  /// The gain in force, which automatic gain may have moved off the one set.
  float Gain() const { return adc_.Gain(); }

 private:
  std::vector<int32_t> Measure(const LightScene& scene, const FlickerFrontEnd& front_end);
  FlickerPacker::ChunkEnd EndOf(uint64_t chunk) const;
  static bool IsFresh(uint64_t chunk) { return chunk % kChunksPerRestart == 0; }
  bool IsLost(uint64_t chunk) const;
  bool IsFaulty(uint64_t chunk) const;

  const FlickerPacking packing_;
  const FlickerFaults faults_;
  NoiseSource noise_;
  FlickerPacker packer_;
  FlickerAdc adc_;
  FlickerWaveform waveform_;
  uint64_t chunk_count_ = 0;
  uint32_t offset_ = 0;
  std::optional<Chunk> repeat_;
  std::vector<int32_t> history_;  // in the packer's width
};

}  // namespace hyl::v2::host
