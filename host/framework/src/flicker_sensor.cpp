// SPDX-License-Identifier: Apache-2.0
#include "flicker_sensor.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>

#include <hyl/host/messages.h>

namespace hyl::v2::host {
namespace {

/// Distinguishes this sensor's noise from that of the ambient-light sensors.
constexpr uint32_t kNoiseStream = 2;
constexpr double kReadNoiseVariance = 0.01;      // lux^2
constexpr double kPhotonVariancePerLux = 0.005;  // lux

constexpr double kFullScaleLux = 2000;  // at gain 1
constexpr double kMinAutoGain = 1.0 / 1024;
constexpr double kMaxAutoGain = 1024;
constexpr double kTooBright = 0.9;  // of full scale
constexpr double kTooDim = 0.3;

constexpr double kSteadyPercent = 0.5;
/// Automatic gain settles within this many chunks.
constexpr int kSettlingChunks = 12;

/// The standard deviation of a sample's noise, in lux. Its variance grows with the light, like that
/// of counted photons.
double NoiseDeviation(double lux) {
  return std::sqrt(kReadNoiseVariance + kPhotonVariancePerLux * lux);
}

/// The time of a sample, in seconds after the sensor's start. Samples count from 0.
double TimeOf(uint64_t sample) {
  return static_cast<double>(sample + 1) / kFlickerSampleRateHz;
}

/// (max - min) / (max + min), in percent.
double DepthPercent(Conditions conditions) {
  constexpr uint64_t kSamples = kFlickerSampleRateHz / 10;
  conditions.scene.drift_period_s = 0;  // drift is not flicker
  double low = std::numeric_limits<double>::max();
  double high = 0;
  for (uint64_t sample = 0; sample < kSamples; ++sample) {
    const double lux = LightOnFlickerSensor(conditions, TimeOf(sample));
    low = std::min(low, lux);
    high = std::max(high, lux);
  }
  return high > 0 ? 100 * (high - low) / (high + low) : 0;
}

uint32_t SaturatedPermille(const Conditions& conditions) {
  constexpr int kBits = 12;
  FlickerSignal signal(conditions.scene.seed, kBits);
  for (int i = 0; i < kSettlingChunks; ++i) {
    signal.NextChunk(conditions);
  }
  return 1000 * signal.Saturated() / kFlickerSamplesPerChunk;
}

/// The harmonic, 2 or 3, that is stronger in a square wave of this duty.
int StrongerHarmonic(double duty) {
  const auto strength = [duty](int n) {
    return std::abs(std::sin(std::numbers::pi * n * duty)) / n;
  };
  return strength(2) >= strength(3) ? 2 : 3;
}

uint32_t Hertz(double hz) {
  return static_cast<uint32_t>(std::lround(hz));
}

/// A client that misses a format message waits at most a tenth of a second for the next.
constexpr uint64_t kTicksPerFormat = 10;
/// A client that has missed a chunk has the right level again after at most this many.
constexpr uint64_t kChunksPerRestart = 10;
constexpr size_t kMaxHistory = size_t{1} << 20;

bool IsRestart(uint64_t chunk) {
  return chunk % kChunksPerRestart == 0;
}

/// `sample` times 2^`shift`, rounded down. Bits beyond the 32nd are lost.
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

FlickerSignal::FlickerSignal(uint64_t seed, int bits)
    : full_scale_(std::exp2(bits - 1)), noise_(MakeNoise(seed, kNoiseStream, 0)) {}

std::vector<int32_t> FlickerSignal::NextChunk(const Conditions& conditions) {
  SetGain(conditions);
  peak_ = -1;
  saturated_ = 0;
  const double pedestal = conditions.settings.flicker.pedestal / 256.0;
  std::vector<int32_t> samples(kFlickerSamplesPerChunk);
  for (int32_t& sample : samples) {
    const double lux = LightOnFlickerSensor(conditions, TimeOf(sample_count_++));
    sample = Convert(lux + normal_(noise_) * NoiseDeviation(lux), pedestal);
  }
  return samples;
}

void FlickerSignal::SetGain(const Conditions& conditions) {
  const FlickerSettings& settings = conditions.settings.flicker;
  if (!settings.auto_gain || !automatic_) {
    gain_ = settings.gain * ShareOfChannel(conditions.scene.kind, settings.channel);
  } else if (peak_ > kTooBright && gain_ > kMinAutoGain) {
    gain_ /= 2;
  } else if (peak_ < kTooDim && gain_ < kMaxAutoGain) {
    gain_ *= 2;
  }
  automatic_ = settings.auto_gain;
}

int32_t FlickerSignal::Convert(double lux, double pedestal) {
  const double level = lux / kFullScaleLux * gain_ - pedestal;
  const double value = std::floor(level * full_scale_);
  const double limited = std::clamp(value, -full_scale_, full_scale_ - 1);
  if (value != limited) {
    ++saturated_;
  }
  peak_ = std::max(peak_, level);
  return static_cast<int32_t>(limited);
}

FlickerSensor::FlickerSensor(uint64_t seed, const FlickerPacking& packing,
                             const FlickerFaults& faults)
    : packing_(packing), faults_(faults), packer_(packing), signal_(seed, packer_.SampleBits()) {}

/// The auxiliary fields of a data message hold the chunk's time in platform ticks (aux32_0 low,
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

void MeasureFlicker(const Conditions& conditions, RlsMsgAccessResp& reply) {
  const LightScene& scene = conditions.scene;
  const double depth = DepthPercent(conditions);
  reply.metric_byte = static_cast<uint8_t>(std::lround(depth));
  reply.saturation = SaturatedPermille(conditions);
  if (depth > kSteadyPercent && scene.kind == LightKind::kFluorescent) {
    reply.metric0 = Hertz(2 * scene.mains_hz);
    reply.metric1 = Hertz(4 * scene.mains_hz);
  } else if (depth > kSteadyPercent && scene.kind == LightKind::kWarmLed) {
    reply.metric0 = Hertz(scene.pwm_hz);
    reply.metric1 = Hertz(StrongerHarmonic(scene.pwm_duty) * scene.pwm_hz);
  }
}

}  // namespace hyl::v2::host
