#pragma once

#include <array>
#include <cstdint>

#include "conditions.h"
#include "noise.h"

namespace hyl::v2::host {

/// One number for each spectral channel.
using Channels = std::array<double, kSpectralChannelCount>;

/// The hub's ambient-light sensors, numbered as their indices in the sensor list.
enum class AlsPlace : uint8_t { kRear = 0, kFront = 1 };

/// The light on each channel, free of noise, in converter counts per millisecond at gain 1.
/// `elapsed_ns` is the time since the hub's clock started, which the scene's drift follows.
Channels LightOnChannels(const Conditions& conditions, AlsPlace place, int64_t elapsed_ns);

/// What the sensor reports for this light.
std::array<float, kSpectralChannelCount> Measure(const Channels& light,
                                                 const SpectralSettings& settings,
                                                 NoiseSource& noise);

/// Whether the light differs so much that a sensor that reports changes reports it.
bool NoticeablyDifferent(const Channels& light, const Channels& reported);

/// The scene's present level as a part of its mean level.
double DriftFactor(const LightScene& scene, int64_t elapsed_ns);

/// How much of the light that falls on the clear channel passes through `channel`, which must be
/// below kSpectralChannelCount.
double ShareOfChannel(LightKind kind, uint8_t channel);

}  // namespace hyl::v2::host
