// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <hyl/api.h>

namespace hyl::v2::host {

// Sensor handles: the framework's sensor type in the upper half, the index in the lower half. The
// simulated hub has these sensors; so has a ScriptedFramework initially. Index 0 of the
// ambient-light sensors is at the rear, index 1 at the front.
inline constexpr uint32_t kRearOnChange = 268U << 16U;
inline constexpr uint32_t kFrontOnChange = kRearOnChange + 1;
inline constexpr uint32_t kRearContinuous = 1268U << 16U;
inline constexpr uint32_t kFrontContinuous = kRearContinuous + 1;
inline constexpr uint32_t kFlicker = 269U << 16U;
/// The sensor that serves all accesses to settings, including those of the other sensors.
inline constexpr uint32_t kSettingsHandle = kRearContinuous;
/// Marks a sensor list as complete.
inline constexpr uint32_t kListMarker = 21U << 16U;

/// An entry of a sensor list. Cuts the name after 40 characters; one of 40 has no NUL.
inline SensorListEntry MakeEntry(uint32_t handle, std::string_view name) {
  SensorListEntry entry{handle, {}};
  name.copy(entry.name, sizeof(entry.name));
  return entry;
}

// Ranges, steps and initial values of the simulated hub's settings. The ambient-light sensors share
// theirs. The reply to a write has the value that was applied: the nearest one in range and on a
// step.

/// Gains are powers of two. A gain that is not a number counts as the smallest.
inline constexpr double kMinGain = 0.5;
inline constexpr double kMaxGain = 2048;
inline constexpr double kDefaultGain = 16;
inline constexpr double kDefaultFlickerGain = 1;
/// The first parameter of a gain write selects the gain. Other values are refused.
inline constexpr uint8_t kGainOfSpectral = 0;
inline constexpr uint8_t kGainOfFlicker = 1;

/// Exposure time of the ambient-light sensors, in microseconds.
inline constexpr uint32_t kMinExposureUs = 100;
inline constexpr uint32_t kMaxExposureUs = 1000000;
inline constexpr uint32_t kExposureStepUs = 100;
inline constexpr uint32_t kDefaultExposureUs = 50000;

/// Sampling period of the ambient-light sensors, in microseconds. Until it is written, continuous
/// sampling uses the period of its start request.
inline constexpr uint32_t kMinSamplingPeriodUs = 5000;
inline constexpr uint32_t kMaxSamplingPeriodUs = 10000000;
inline constexpr uint32_t kSamplingPeriodStepUs = 1000;
inline constexpr uint32_t kDefaultSamplingPeriodUs = 100000;

/// The channels of an ambient-light sample: nine bands from 400 nm, 35 nm apart; near infrared
/// (850 nm); clear; and the eye's sensitivity. Values are converter counts times the calibration
/// factors.
inline constexpr size_t kSpectralChannelCount = 12;
/// The largest count of the ambient-light sensors' converter.
inline constexpr double kSpectralFullScale = 65535;

/// The channel that filters the flicker sensor's light, numbered as above; a larger number selects
/// the last. The second parameter has no effect. A read returns it.
inline constexpr uint8_t kMaxFlickerChannel = kSpectralChannelCount - 1;
inline constexpr uint8_t kDefaultFlickerChannel = 10;
/// Subtracted from every flicker sample, in 1/256 of the converter's full scale. 0 to 255.
inline constexpr uint8_t kDefaultFlickerPedestal = 0;

/// Light that the torch adds at the rear, in lux; a tenth of it reaches the front.
inline constexpr double kTorchLux = 300;

/// Two registers that writes do not change.
inline constexpr uint8_t kIdRegister = 0x00;
inline constexpr uint8_t kRevisionRegister = 0x01;
inline constexpr uint8_t kIdRegisterValue = 0x3C;
inline constexpr uint8_t kRevisionRegisterValue = 0x11;

inline constexpr uint64_t kDeviceUid = 0x48594C0000C0FFEE;

}  // namespace hyl::v2::host
