// SPDX-License-Identifier: Apache-2.0
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

/// The time that a chunk of flicker samples covers, in nanoseconds.
inline constexpr int64_t kFlickerChunkNs = 10000000;
/// The number of late chunks that the flicker sensor holds. If the client is slower, the sensor
/// pauses. What it then does not measure leaves no trace in the stream.
inline constexpr uint64_t kFlickerBacklog = 50;

inline constexpr uint32_t kFlickerSampleRateHz = 24000;
inline constexpr uint32_t kFlickerSamplesPerChunk = kFlickerSampleRateHz / 100;

/// What the flicker sensor measures: the light with noise, amplified and digitised.
class FlickerSignal {
 public:
  /// `bits` is the width of a sample, 1 to 32.
  FlickerSignal(uint64_t seed, int bits);

  /// The samples of the next 10 ms. Automatic gain starts with the gain that is set. From chunk to
  /// chunk, it then follows the light by factors of two.
  std::vector<int32_t> NextChunk(const Conditions& conditions);

  /// The gain in effect.
  double Gain() const { return gain_; }
  /// The number of samples in the latest chunk that exceeded the converter's range.
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
  double peak_ = 0;  // maximum of the latest chunk, in units of full scale
  uint32_t saturated_ = 0;
};

/// One run of the flicker sensor, from start to stop. At each tick it measures a chunk of samples,
/// packs it, applies the faults, and delivers it. The format precedes every tenth chunk.
///
/// Every third chunk of compressed-1 ends in a value that the next chunk completes. A client
/// therefore receives 239 to 241 samples from such a chunk, and 240 in the other formats.
class FlickerSensor {
 public:
  /// `seed` is for the noise of the whole run.
  FlickerSensor(uint64_t seed, const FlickerPacking& packing, const FlickerFaults& faults);

  void OnTick(const Measurement& measurement, const Deliver& deliver);

  /// The samples measured so far, including lost ones, as a client receives them that asks for
  /// `bits` bits and loses nothing. The index in the vector is the sequence number. The next chunk
  /// may hold a part of the last sample. At most the first 2^20. Safe on any thread.
  std::vector<int32_t> History(int bits) const;

 private:
  struct Chunk {
    std::vector<uint8_t> bytes;
    /// Of the first byte in the sensor's data stream, including lost chunks. Wraps at 2^32.
    uint32_t offset;
    bool restart;
    uint32_t saturated;  // samples that exceeded the converter's range
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

/// Writes to `reply` what the flicker sensor itself measures of the light: the frequencies of the
/// strongest component and of its strongest harmonic, 0 for steady light; the modulation depth in
/// percent; and the number of clipped samples per thousand.
void MeasureFlicker(const Conditions& conditions, RlsMsgAccessResp& reply);

}  // namespace hyl::v2::host
