#pragma once

#include <array>
#include <cstddef>

#include <hyl/host/light_scene.h>

namespace hyl::v2::host {

inline constexpr double kFirstWavelengthNm = 360;
inline constexpr double kWavelengthStepNm = 2;
inline constexpr size_t kWavelengthCount = 321;  // up to 1000 nm

constexpr double WavelengthNm(size_t index) {
  return kFirstWavelengthNm + kWavelengthStepNm * static_cast<double>(index);
}

/// Radiant power at each wavelength.
using Spectrum = std::array<double, kWavelengthCount>;

/// A bell curve of height 1; `width` is its full width at half the height.
double Bell(double x, double center, double width);

/// The spectrum of one lux of this kind of light.
Spectrum SpectrumOfOneLux(LightKind kind);
/// The spectrum of one lux of the device's torch.
Spectrum TorchSpectrumOfOneLux();

}  // namespace hyl::v2::host
