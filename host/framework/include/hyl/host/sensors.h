#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <hyl/api.h>

namespace hyl::v2::host {

// Handles of sensors: the framework's sensor type in the upper half, the index in the lower. The
// simulated hub and, at first, a ScriptedFramework have these. Index 0 of the ambient-light sensors
// is the rear one, index 1 the front one.
inline constexpr uint32_t kRearOnChange = 268U << 16U;
inline constexpr uint32_t kFrontOnChange = kRearOnChange + 1;
inline constexpr uint32_t kRearContinuous = 1268U << 16U;
inline constexpr uint32_t kFrontContinuous = kRearContinuous + 1;
inline constexpr uint32_t kFlicker = 269U << 16U;
/// The sensor that takes all setting accesses, those to the other sensors' settings too.
inline constexpr uint32_t kSettingsHandle = kRearContinuous;
/// Marks a sensor list as complete.
inline constexpr uint32_t kListMarker = 21U << 16U;

/// An entry of a sensor list. Names are cut off after 40 characters; one of 40 has no NUL.
inline SensorListEntry MakeEntry(uint32_t handle, std::string_view name) {
  SensorListEntry entry{handle, {}};
  name.copy(entry.name, sizeof(entry.name));
  return entry;
}

// Ranges, steps and initial values of the simulated hub's settings, which both ambient-light
// sensors share. A write is answered with the value that was applied: the one asked for, moved into
// the range and onto the nearest step.

/// Gains are powers of two. A gain that is not a number counts as the smallest.
inline constexpr double kMinGain = 0.5;
inline constexpr double kMaxGain = 2048;
inline constexpr double kDefaultGain = 16;
inline constexpr double kDefaultFlickerGain = 1;
/// The first parameter of a gain write: whose gain. Other values are refused.
inline constexpr uint8_t kGainOfSpectral = 0;
inline constexpr uint8_t kGainOfFlicker = 1;

/// Exposure time of the ambient-light sensors, in microseconds.
inline constexpr uint32_t kMinExposureUs = 100;
inline constexpr uint32_t kMaxExposureUs = 1000000;
inline constexpr uint32_t kExposureStepUs = 100;
inline constexpr uint32_t kDefaultExposureUs = 50000;

/// Sampling period of the ambient-light sensors, in microseconds. Until it is written, continuous
/// sampling keeps to the period of its start request.
inline constexpr uint32_t kMinSamplingPeriodUs = 5000;
inline constexpr uint32_t kMaxSamplingPeriodUs = 10000000;
inline constexpr uint32_t kSamplingPeriodStepUs = 1000;
inline constexpr uint32_t kDefaultSamplingPeriodUs = 100000;

/// Ambient-light samples have this many channels: nine bands 35 nm apart from 400 nm on, near
/// infrared (850 nm), clear, and the eye's sensitivity, in this order. Values are converter counts
/// times the calibration factors.
inline constexpr size_t kSpectralChannelCount = 12;
/// The largest count of the ambient-light sensors' converter.
inline constexpr double kSpectralFullScale = 65535;

/// The channel that the flicker sensor looks through, numbered as above; larger numbers are cut
/// down to the last. The second parameter is kept and handed back, and has no effect.
inline constexpr uint8_t kMaxFlickerChannel = kSpectralChannelCount - 1;
inline constexpr uint8_t kDefaultFlickerChannel = 10;
/// Taken off every flicker sample, in 1/256 of its converter's full scale. 0 to 255.
inline constexpr uint8_t kDefaultFlickerPedestal = 0;

/// Light that the torch adds at the rear, in lux; a tenth of it reaches the front.
inline constexpr double kTorchLux = 300;

/// These two registers are fixed; writing them changes nothing.
inline constexpr uint8_t kIdRegister = 0x00;
inline constexpr uint8_t kRevisionRegister = 0x01;
inline constexpr uint8_t kIdRegisterValue = 0x3C;
inline constexpr uint8_t kRevisionRegisterValue = 0x11;

inline constexpr uint64_t kDeviceUid = 0x48594C0000C0FFEE;

}  // namespace hyl::v2::host
