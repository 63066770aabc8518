#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include <hyl/host/messages.h>

#include "delivery.h"
#include "settings.h"

namespace hyl::v2::host {

/// One number for each spectral channel.
using Channels = std::array<double, kSpectralChannelCount>;

/// The sides of the device, numbered as the indices of their sensors.
enum class Side : uint8_t { kRear = 0, kFront = 1 };

/// The light on each channel of that side's ambient-light sensor, free of noise, in converter
/// counts per millisecond at gain 1. `elapsed_ns` is the time since the hub's clock started, which
/// the scene's drift follows.
Channels LightOnChannels(const Conditions& conditions, Side side, int64_t elapsed_ns);

/// A scene's level at a time as a part of its mean level.
double DriftFactor(const LightScene& scene, double seconds);

/// How much of the light that falls on the clear channel passes through `channel`, which must be
/// below kSpectralChannelCount.
double ShareOfChannel(LightKind kind, uint8_t channel);

/// Where the noise of a measurement comes from; quick to seed, since each measurement has its own.
using NoiseEngine = std::minstd_rand;

/// The same arguments give the same noise, whatever was measured in between. `stream` tells the
/// sensors apart.
NoiseEngine MakeNoise(uint64_t seed, uint32_t stream, uint64_t index);

/// An ambient-light sensor. The rear one reports each measurement in a sample message. The front
/// one reports in chains of events, which it collects, in continuous sampling, in fours.
class AmbientLightSensor {
 public:
  AmbientLightSensor(Side side, bool on_change) : side_(side), on_change_(on_change) {}

  void OnTick(const Measurement& measurement, const Deliver& deliver);

 private:
  bool IsWorthReporting(const Channels& light);
  void Collect(int64_t time_ns, std::vector<float> values);
  void DeliverChain(const Deliver& deliver);

  const Side side_;
  const bool on_change_;
  std::optional<Channels> reported_;  // on-change: the light last reported

  // Of the front sensor:
  std::vector<SensorEvent> collected_;
  uint64_t event_count_ = 0;
  uint64_t chain_count_ = 0;
};

}  // namespace hyl::v2::host
