#include "light_spectrum.h"

#include <cmath>

namespace hyl::v2::host {
namespace {

using PowerAt = double (*)(double wavelength_nm);

/// How bright one unit of power looks to the eye.
double EyeSensitivity(double nm) {
  return Bell(nm, 556, 100);
}

double DaylightPower(double nm) {
  constexpr double kTemperature = 6000;      // K, of a black body
  constexpr double kSecondConst = 1.4388e7;  // nm K
  const double body = std::pow(nm / 560, -5) / (std::exp(kSecondConst / (nm * kTemperature)) - 1);
  const double sky_blocks_uv = 1 / (1 + std::exp((395 - nm) / 12));
  const double water_band = 1 - 0.35 * Bell(nm, 940, 40);
  return body * sky_blocks_uv * water_band;
}

double WarmLedPower(double nm) {
  return 0.35 * Bell(nm, 452, 22) + Bell(nm, 605, 135);
}

double TorchPower(double nm) {
  return 0.9 * Bell(nm, 450, 22) + Bell(nm, 560, 120);
}

double FluorescentPower(double nm) {
  struct Line {
    double nm;
    double height;
  };
  constexpr Line kLines[] = {{405, 0.3}, {436, 0.8},  {488, 0.35}, {546, 1.6},
                             {578, 0.4}, {588, 0.35}, {612, 1.5},  {631, 0.3}};
  double power = 0.04 * Bell(nm, 570, 200);
  for (const Line& line : kLines) {
    power += line.height * Bell(nm, line.nm, 7);
  }
  return power;
}

Spectrum ScaledToOneLux(PowerAt power_at) {
  Spectrum spectrum;
  double seen = 0;
  for (size_t i = 0; i < spectrum.size(); ++i) {
    spectrum[i] = power_at(WavelengthNm(i));
    seen += spectrum[i] * EyeSensitivity(WavelengthNm(i));
  }
  for (double& power : spectrum) {
    power /= seen;
  }
  return spectrum;
}

}  // namespace

double Bell(double x, double center, double width) {
  const double distance = (x - center) / width;
  return std::exp2(-4 * distance * distance);
}

Spectrum SpectrumOfOneLux(LightKind kind) {
  switch (kind) {
    case LightKind::kWarmLed:
      return ScaledToOneLux(WarmLedPower);
    case LightKind::kFluorescent:
      return ScaledToOneLux(FluorescentPower);
    case LightKind::kDaylight:
    case LightKind::kDark:  // what little there is leaks in from outdoors
      break;
  }
  return ScaledToOneLux(DaylightPower);
}

Spectrum TorchSpectrumOfOneLux() {
  return ScaledToOneLux(TorchPower);
}

}  // namespace hyl::v2::host
