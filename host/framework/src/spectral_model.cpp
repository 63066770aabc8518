#include "spectral_model.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "light_spectrum.h"

namespace hyl::v2::host {
namespace {

struct Band {
  double center_nm;
  double width_nm;
};

constexpr size_t kClear = 10;
constexpr std::array<Band, kSpectralChannelCount> kBands = {{{400, 28},
                                                             {435, 30},
                                                             {470, 33},
                                                             {505, 35},
                                                             {540, 37},
                                                             {575, 39},
                                                             {610, 42},
                                                             {645, 46},
                                                             {680, 50},
                                                             {850, 60},
                                                             {650, 420},
                                                             {556, 100}}};

/// Gives 30000 counts on the clear channel for 500 lx of daylight at gain 16 and 50 ms.
constexpr double kClearCountsPerMsAndLux = 0.075;
constexpr double kElectronsPerCount = 50;  // at gain 1
constexpr double kDarkElectronsPerMs = 0.5;
constexpr double kConverterNoiseCounts = 0.6;
constexpr double kFrontShare = 0.6;  // the front sensor sits behind darker glass
constexpr double kFrontShareOfTorch = 0.1;
constexpr double kDarkSceneLux = 0.02;
constexpr double kAutoGainTarget = 0.6;  // of full scale, on the brightest channel
constexpr double kNoticeableChange = 0.03;
constexpr double kNoticeableCountsPerMs = 0.002;

constexpr Channels kFactoryFactors = {1.062, 0.981, 1.014, 0.993, 1.027, 0.968,
                                      1.008, 1.035, 0.974, 1.051, 0.988, 1.003};
constexpr Channels kOtpFactors = {0.952, 1.019, 0.987, 1.008, 0.994, 1.022,
                                  0.979, 0.991, 1.033, 0.966, 1.011, 0.997};

Channels ThroughBands(const Spectrum& spectrum) {
  Channels sums{};
  for (size_t channel = 0; channel < kBands.size(); ++channel) {
    for (size_t i = 0; i < spectrum.size(); ++i) {
      const Band& band = kBands[channel];
      sums[channel] += spectrum[i] * Bell(WavelengthNm(i), band.center_nm, band.width_nm);
    }
  }
  return sums;
}

struct ResponseTable {
  std::array<Channels, 4> of_kind;  // by LightKind; counts per millisecond and lux
  Channels of_torch;
};

Channels Scaled(const Channels& values, double factor) {
  Channels scaled = values;
  for (double& value : scaled) {
    value *= factor;
  }
  return scaled;
}

ResponseTable MakeResponseTable() {
  ResponseTable table{};
  for (size_t kind = 0; kind < table.of_kind.size(); ++kind) {
    table.of_kind[kind] = ThroughBands(SpectrumOfOneLux(static_cast<LightKind>(kind)));
  }
  table.of_torch = ThroughBands(TorchSpectrumOfOneLux());
  const double clear = table.of_kind[static_cast<size_t>(LightKind::kDaylight)][kClear];
  for (Channels& channels : table.of_kind) {
    channels = Scaled(channels, kClearCountsPerMsAndLux / clear);
  }
  table.of_torch = Scaled(table.of_torch, kClearCountsPerMsAndLux / clear);
  return table;
}

const ResponseTable& Responses() {
  static const ResponseTable table = MakeResponseTable();
  return table;
}

const Channels& ResponseTo(LightKind kind) {
  const auto& of_kind = Responses().of_kind;
  return of_kind[std::min(static_cast<size_t>(kind), of_kind.size() - 1)];
}

double ExposureMs(const SpectralSettings& settings) {
  return settings.exposure_us / 1000.0;
}

/// The largest gain that keeps the brightest channel well inside the converter's range.
double GainInUse(const Channels& light, const SpectralSettings& settings) {
  if (!settings.auto_gain) {
    return settings.gain;
  }
  const double brightest = *std::max_element(light.begin(), light.end());
  const double counts_at_gain_1 =
      (brightest + kDarkElectronsPerMs / kElectronsPerCount) * ExposureMs(settings);
  double gain = kMaxGain;
  while (gain > kMinGain && gain * counts_at_gain_1 > kAutoGainTarget * kSpectralFullScale) {
    gain /= 2;
  }
  return gain;
}

}  // namespace

double DriftFactor(const LightScene& scene, int64_t elapsed_ns) {
  if (!(scene.drift_period_s > 0)) {
    return 1;
  }
  const double periods = static_cast<double>(elapsed_ns) * 1e-9 / scene.drift_period_s;
  return 1 + scene.drift_depth * std::sin(2 * std::numbers::pi * (periods - std::floor(periods)));
}

Channels LightOnChannels(const Conditions& conditions, AlsPlace place, int64_t elapsed_ns) {
  const LightScene& scene = conditions.scene;
  const bool front = place == AlsPlace::kFront;
  const double mean_lux = scene.kind == LightKind::kDark ? kDarkSceneLux : scene.illuminance_lux;
  const double lux = mean_lux * DriftFactor(scene, elapsed_ns) * (front ? kFrontShare : 1);
  const double torch_lux = conditions.torch ? kTorchLux * (front ? kFrontShareOfTorch : 1) : 0;
  const Channels& response = ResponseTo(scene.kind);
  Channels light;
  for (size_t i = 0; i < light.size(); ++i) {
    light[i] = lux * response[i] + torch_lux * Responses().of_torch[i];
  }
  return light;
}

std::array<float, kSpectralChannelCount> Measure(const Channels& light,
                                                 const SpectralSettings& settings,
                                                 NoiseSource& noise) {
  const double gain = GainInUse(light, settings);
  const double exposure_ms = ExposureMs(settings);
  std::array<float, kSpectralChannelCount> values;
  for (size_t i = 0; i < values.size(); ++i) {
    const double electrons =
        noise.Poisson((light[i] * kElectronsPerCount + kDarkElectronsPerMs) * exposure_ms);
    const double counts =
        std::round(electrons / kElectronsPerCount * gain + kConverterNoiseCounts * noise.Normal());
    double value = std::clamp(counts, 0.0, kSpectralFullScale);
    value *= settings.factory_calibration ? kFactoryFactors[i] : 1;
    value *= settings.otp_calibration ? kOtpFactors[i] : 1;
    values[i] = static_cast<float>(value);
  }
  return values;
}

bool NoticeablyDifferent(const Channels& light, const Channels& reported) {
  for (size_t i = 0; i < light.size(); ++i) {
    const double change = std::abs(light[i] - reported[i]);
    if (change > kNoticeableChange * reported[i] + kNoticeableCountsPerMs) {
      return true;
    }
  }
  return false;
}

double ShareOfChannel(LightKind kind, uint8_t channel) {
  const Channels& response = ResponseTo(kind);
  return response[channel] / response[kClear];
}

}  // namespace hyl::v2::host
