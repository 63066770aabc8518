#include "flicker_sensor.h"

#include <algorithm>
#include <utility>

#include <hyl/host/messages.h>

namespace hyl::v2::host {
namespace {

/// A client that misses a format message waits for at most a tenth of a second.
constexpr uint64_t kTicksPerFormat = 10;
/// A client that missed a chunk has the right level again after this many at most.
constexpr uint64_t kChunksPerRestart = 10;
constexpr size_t kMaxHistory = size_t{1} << 20;

bool IsRestart(uint64_t chunk) {
  return chunk % kChunksPerRestart == 0;
}

/// `sample` times 2^`shift`, rounded down; bits beyond the 32nd are lost.
int32_t Scale(int32_t sample, int shift) {
  if (shift < 0) {
    return sample >> std::min(-shift, 31);
  }
  return shift > 31 ? 0 : static_cast<int32_t>(static_cast<uint32_t>(sample) << shift);
}

FlickerFormatMessage FormatMessage(const FlickerPacking& packing) {
  FlickerFormatMessage format(packing.width, packing.little_endian);
  format.msb = packing.msb;
  format.lsb = packing.lsb;
  format.format_param = kFlickerSampleRateHz;
  return format;
}

}  // namespace

FlickerSensor::FlickerSensor(uint64_t seed, const FlickerPacking& packing,
                             const FlickerFaults& faults)
    : packing_(packing), faults_(faults), packer_(packing), signal_(seed, packer_.SampleBits()) {}

/// The auxiliary fields of a data message carry: the chunk's time in platform ticks (aux32_0 low,
/// aux32_1 high), the gain (auxf_0) and the number of clipped samples (aux16_0).
void FlickerSensor::OnTick(const Measurement& measurement, const Deliver& deliver) {
  std::optional<Chunk> chunk = NextChunk(measurement.conditions);
  if (tick_count_++ % kTicksPerFormat == 0) {
    deliver(FormatMessage(packing_));
  }
  if (chunk) {
    const uint64_t ticks = NsToPlatformTicks(static_cast<uint64_t>(measurement.tick.time_ns));
    FlickerDataMessage data(std::move(chunk->bytes), chunk->offset, chunk->restart ? 1 : 0);
    data.aux32_0 = static_cast<uint32_t>(ticks);
    data.aux32_1 = static_cast<uint32_t>(ticks >> 32U);
    data.auxf_0 = static_cast<float>(signal_.Gain());
    data.aux16_0 = static_cast<uint16_t>(chunk->saturated);
    deliver(data);
  }
}

/// Empty if this chunk is lost.
std::optional<FlickerSensor::Chunk> FlickerSensor::NextChunk(const Conditions& conditions) {
  if (repeat_) {
    return std::exchange(repeat_, std::nullopt);
  }
  const uint64_t number = chunk_count_++;
  if (IsRestart(number)) {
    packer_.Restart();
  }
  const std::vector<int32_t> samples = signal_.NextChunk(conditions);
  Remember(samples);
  Chunk chunk{packer_.Pack(samples, EndOf(number)), offset_, IsRestart(number),
              signal_.Saturated()};
  offset_ += static_cast<uint32_t>(chunk.bytes.size());
  if (IsLost(number)) {
    return std::nullopt;
  }
  if (number != 0 && number == faults_.repeat_chunk) {
    repeat_ = chunk;
  }
  return chunk;
}

void FlickerSensor::Remember(const std::vector<int32_t>& samples) {
  const std::lock_guard lock(history_mutex_);
  const size_t kept = std::min(samples.size(), kMaxHistory - history_.size());
  history_.insert(history_.end(), samples.begin(), samples.begin() + static_cast<ptrdiff_t>(kept));
}

FlickerPacker::ChunkEnd FlickerSensor::EndOf(uint64_t chunk) const {
  if (chunk != 0 && chunk == faults_.unreadable_chunk) {
    return FlickerPacker::ChunkEnd::kBroken;
  }
  const bool begun =
      chunk % 3 == 1 && !IsRestart(chunk + 1) && !IsFaulty(chunk) && !IsFaulty(chunk + 1);
  return begun ? FlickerPacker::ChunkEnd::kBegun : FlickerPacker::ChunkEnd::kWhole;
}

bool FlickerSensor::IsLost(uint64_t chunk) const {
  return faults_.lose_every != 0 && (chunk + 1) % faults_.lose_every == 0;
}

bool FlickerSensor::IsFaulty(uint64_t chunk) const {
  return IsLost(chunk) ||
         (chunk != 0 && (chunk == faults_.repeat_chunk || chunk == faults_.unreadable_chunk));
}

std::vector<int32_t> FlickerSensor::History(int bits) const {
  const int shift = std::clamp(bits, -64, 512) - packer_.SampleBits();
  const std::lock_guard lock(history_mutex_);
  std::vector<int32_t> scaled(history_.size());
  std::transform(history_.begin(), history_.end(), scaled.begin(),
                 [shift](int32_t sample) { return Scale(sample, shift); });
  return scaled;
}

}  // namespace hyl::v2::host
