#include "flicker_generator.h"

#include <algorithm>
#include <utility>

namespace hyl::v2::host {
namespace {

/// Tells this sensor's noise from that of the others.
constexpr uint64_t kNoiseStream = 2;
constexpr double kMaxExtraLux = 1e6;

/// `sample` times 2^`shift`, rounded down; bits beyond the 32nd are lost.
int32_t Scale(int32_t sample, int shift) {
  if (shift < 0) return sample >> std::min(-shift, 31);
  if (shift > 31) return 0;
  return static_cast<int32_t>(static_cast<uint32_t>(sample) << shift);
}

}  // namespace

FlickerGenerator::FlickerGenerator(const LightScene& first_scene, const FlickerPacking& packing,
                                   const FlickerFaults& faults)
    : packing_(packing),
      faults_(faults),
      noise_(first_scene.seed, kNoiseStream, 0),
      packer_(packing),
      adc_(packer_.SampleBits()) {}

std::optional<FlickerGenerator::Chunk> FlickerGenerator::Next(const LightScene& scene,
                                                              const FlickerFrontEnd& front_end) {
  if (repeat_) return std::exchange(repeat_, std::nullopt);
  const uint64_t number = chunk_count_++;
  if (IsFresh(number)) packer_.StartAfresh();
  Chunk chunk;
  chunk.bytes = packer_.Pack(Measure(scene, front_end), EndOf(number));
  chunk.offset = offset_;
  chunk.restart = IsFresh(number);
  chunk.saturated = adc_.Saturated();
  offset_ += static_cast<uint32_t>(chunk.bytes.size());
  if (IsLost(number)) return std::nullopt;
  if (number != 0 && number == faults_.repeat_chunk) repeat_ = chunk;
  return chunk;
}

std::vector<int32_t> FlickerGenerator::Measure(const LightScene& scene,
                                               const FlickerFrontEnd& front_end) {
  adc_.BeginChunk(front_end);
  // In this order, std::max turns not-a-number into 0.
  const double extra_lux = std::min(std::max(0.0, front_end.extra_lux), kMaxExtraLux);
  std::vector<int32_t> samples(kSamplesPerChunk);
  for (int32_t& sample : samples) {
    const double lux = waveform_.Next(scene) + extra_lux;
    sample = adc_.Convert(lux + noise_.Normal() * NoiseDeviation(lux));
  }
  const size_t kept = std::min(samples.size(), kMaxHistory - history_.size());
  history_.insert(history_.end(), samples.begin(), samples.begin() + static_cast<ptrdiff_t>(kept));
  return samples;
}

FlickerPacker::ChunkEnd FlickerGenerator::EndOf(uint64_t chunk) const {
  if (chunk != 0 && chunk == faults_.unreadable_chunk) return FlickerPacker::ChunkEnd::kBroken;
  const bool begun =
      chunk % 3 == 1 && !IsFresh(chunk + 1) && !IsFaulty(chunk) && !IsFaulty(chunk + 1);
  return begun ? FlickerPacker::ChunkEnd::kBegun : FlickerPacker::ChunkEnd::kWhole;
}

bool FlickerGenerator::IsLost(uint64_t chunk) const {
  return faults_.lose_every != 0 && (chunk + 1) % faults_.lose_every == 0;
}

bool FlickerGenerator::IsFaulty(uint64_t chunk) const {
  return IsLost(chunk) ||
         (chunk != 0 && (chunk == faults_.repeat_chunk || chunk == faults_.unreadable_chunk));
}

std::vector<int32_t> FlickerGenerator::History(int bits) const {
  std::vector<int32_t> scaled(history_.size());
  const int shift = std::clamp(bits, -64, 512) - packer_.SampleBits();
  std::transform(history_.begin(), history_.end(), scaled.begin(),
                 [shift](int32_t sample) { return Scale(sample, shift); });
  return scaled;
}

FlickerFormatFields FlickerGenerator::Format() const {
  return {.width = packing_.width,
          .little_endian = static_cast<uint8_t>(packing_.little_endian ? 1 : 0),
          .msb = packing_.msb,
          .lsb = packing_.lsb,
          .format_param = kFlickerSampleRateHz};
}

}  // namespace hyl::v2::host
