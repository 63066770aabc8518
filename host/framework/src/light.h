#pragma once

#include <array>
#include <cstdint>
#include <random>

#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>

#include "settings.h"

namespace hyl::v2::host {

/// The scene that the environment variable HYL_HUB_SCENE describes, or the default. Logs an error
/// when it describes none.
LightScene InitialScene();

/// The scene with each number moved to the nearest that makes sense.
LightScene Plausible(LightScene scene);

/// One number for each spectral channel.
using Channels = std::array<double, kSpectralChannelCount>;

/// The sides of the device, numbered as the indices of their sensors.
enum class Side : uint8_t { kRear = 0, kFront = 1 };

/// The light on each channel of that side's ambient-light sensor, free of noise, in converter
/// counts per millisecond at gain 1. `elapsed_ns` is the time since the hub's clock started, which
/// the scene's drift follows.
Channels LightOnChannels(const Conditions& conditions, Side side, int64_t elapsed_ns);

/// The light on the flicker sensor, free of noise, in lux. `seconds` is the time since the sensor
/// started.
double LightOnFlickerSensor(const Conditions& conditions, double seconds);

/// How much of the light that falls on the clear channel passes through `channel`, which must be
/// below kSpectralChannelCount.
double ShareOfChannel(LightKind kind, uint8_t channel);

/// Where noise comes from; quick to seed, since each measurement of ambient light has its own.
using NoiseEngine = std::minstd_rand;

/// The same arguments give the same noise, whatever was measured in between. `stream` tells the
/// sensors apart.
NoiseEngine MakeNoise(uint64_t seed, uint32_t stream, uint64_t index);

}  // namespace hyl::v2::host
