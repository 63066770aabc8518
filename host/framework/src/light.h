// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <random>

#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>

#include "settings.h"

namespace hyl::v2::host {

/// The scene in the environment variable HYL_HUB_SCENE, or the default one. Logs an error if the
/// variable holds no scene.
LightScene InitialScene();

/// The scene with each number moved to the nearest in range.
LightScene Plausible(LightScene scene);

/// One number for each spectral channel.
using Channels = std::array<double, kSpectralChannelCount>;

/// The sides of the device, numbered as the indices of their sensors.
enum class Side : uint8_t { kRear = 0, kFront = 1 };

/// The light on each channel of that side's ambient-light sensor, without noise, in converter
/// counts per millisecond at gain 1. `elapsed_ns` is the time since the hub's clock started.
Channels LightOnChannels(const Conditions& conditions, Side side, int64_t elapsed_ns);

/// The light on the flicker sensor, without noise, in lux. `seconds` is the time since the sensor
/// started.
double LightOnFlickerSensor(const Conditions& conditions, double seconds);

/// The light on `channel` as a fraction of that on the clear channel. `channel` must be below
/// kSpectralChannelCount.
double ShareOfChannel(LightKind kind, uint8_t channel);

/// The source of noise. It is quick to seed, because each measurement of ambient light seeds one.
using NoiseEngine = std::minstd_rand;

/// The same arguments give the same noise, whatever was measured before. `stream` distinguishes the
/// sensors.
NoiseEngine MakeNoise(uint64_t seed, uint32_t stream, uint64_t index);

}  // namespace hyl::v2::host
