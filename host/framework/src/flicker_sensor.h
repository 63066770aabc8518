#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <random>
#include <vector>

#include <hyl/rls_msg_access.h>

#include "delivery.h"
#include "flicker_packer.h"
#include "light.h"

namespace hyl::v2::host {

/// One chunk of flicker samples covers this time, in nanoseconds.
inline constexpr int64_t kFlickerChunkNs = 10000000;
/// The number of late chunks that the flicker sensor holds. When a client is later than that, the
/// sensor pauses: what it would have measured is missing, without a trace in the stream.
inline constexpr uint64_t kFlickerBacklog = 50;

inline constexpr uint32_t kFlickerSampleRateHz = 24000;
inline constexpr uint32_t kFlickerSamplesPerChunk = kFlickerSampleRateHz / 100;

/// What the flicker sensor measures: the light with noise, amplified and digitised.
class FlickerSignal {
 public:
  /// `bits`: width of the samples, 1 to 32.
  FlickerSignal(uint64_t seed, int bits);

  /// The samples of the next 10 ms. The gain is the one set or, with automatic gain, one that
  /// starts there and follows the light in steps of two, from chunk to chunk.
  std::vector<int32_t> NextChunk(const Conditions& conditions);

  /// The gain in force.
  double Gain() const { return gain_; }
  /// Samples of the latest chunk that met the limits of the converter's range.
  uint32_t Saturated() const { return saturated_; }

 private:
  void SetGain(const Conditions& conditions);
  int32_t Convert(double lux, double pedestal);

  const double full_scale_;  // 2^(bits - 1)
  uint64_t sample_count_ = 0;
  NoiseEngine noise_;
  std::normal_distribution<double> normal_;
  double gain_ = 1;  // at 1, the converter's full scale is 2000 lx
  bool automatic_ = false;
  double peak_ = 0;  // highest of the latest chunk, in units of full scale
  uint32_t saturated_ = 0;
};

/// One run of the flicker sensor, from start to stop: at each tick it measures, packs, damages
/// where asked to, and delivers a chunk of data, and the format before every tenth.
///
/// Every third chunk of compressed-1 ends in a value that the next one completes; a client thus
/// receives 239 to 241 samples from a chunk of that format, and 240 from one of the others.
class FlickerSensor {
 public:
  /// `seed` is that of the noise, for the whole run.
  FlickerSensor(uint64_t seed, const FlickerPacking& packing, const FlickerFaults& faults);

  void OnTick(const Measurement& measurement, const Deliver& deliver);

  /// The samples measured so far, lost ones included, as a client that asked for `bits` bits and
  /// lost nothing receives them; the place in the vector is the sequence number. A part of the last
  /// one may be due with the next chunk. At most the first 2^20 are kept. Safe on any thread.
  std::vector<int32_t> History(int bits) const;

 private:
  struct Chunk {
    std::vector<uint8_t> bytes;
    /// Of the first byte in the sensor's data stream, in which lost chunks count; wraps at 2^32.
    uint32_t offset;
    bool restart;
    uint32_t saturated;  // samples that met the limits of the range
  };

  std::optional<Chunk> NextChunk(const Conditions& conditions);
  void Remember(const std::vector<int32_t>& samples);
  FlickerPacker::ChunkEnd EndOf(uint64_t chunk) const;
  bool IsLost(uint64_t chunk) const;
  bool IsFaulty(uint64_t chunk) const;

  const FlickerPacking packing_;
  const FlickerFaults faults_;
  FlickerPacker packer_;
  FlickerSignal signal_;
  uint64_t tick_count_ = 0;
  uint64_t chunk_count_ = 0;
  uint32_t offset_ = 0;
  std::optional<Chunk> repeat_;
  mutable std::mutex history_mutex_;  // innermost lock, taken without the hub mutex
  std::vector<int32_t> history_;      // guarded by history_mutex_; in the packer's width
};

/// Puts into `reply` what the flicker sensor finds out about the light by itself: the frequencies
/// of the strongest component and of its strongest harmonic (0 for steady light), the depth, (max -
/// min) / (max + min), in percent, and the clipped samples per thousand.
void MeasureFlicker(const Conditions& conditions, RlsMsgAccessResp& reply);

}  // namespace hyl::v2::host
