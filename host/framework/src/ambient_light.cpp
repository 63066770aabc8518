#include "ambient_light.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace hyl::v2::host {
namespace {

constexpr size_t kClear = 10;
constexpr double kFrontShare = 0.6;  // the front sensor sits behind darker glass
constexpr double kFrontShareOfTorch = 0.1;
constexpr double kDarkSceneLux = 0.02;

// What one lux of a light gives on each channel, in counts per millisecond. Each number is a sum
// over the wavelengths from 360 to 1000 nm, in steps of 2 nm, of the light's power times the
// channel's sensitivity. With bell(c, w), of height 1 around c and of width w at half height, all
// in nm:
// - The sensitivities are bell(400, 28), (435, 30), (470, 33), (505, 35), (540, 37), (575, 39),
//   (610, 42), (645, 46), (680, 50), (850, 60), (650, 420) for the clear channel, and (556, 100)
//   for the eye.
// - Daylight is a black body of 6000 K behind an ultraviolet edge at 395 nm, 12 nm wide, and a dip
//   of 35 percent at bell(940, 40); the LED is 0.35 bell(452, 22) + bell(605, 135); the torch is
//   0.9 bell(450, 22) + bell(560, 120); the fluorescent lamp is 0.04 bell(570, 200) and lines 7 nm
//   wide: 0.3 at 405 nm, 0.8 at 436, 0.35 at 488, 1.6 at 546, 0.4 at 578, 0.35 at 588, 1.5 at 612
//   and 0.3 at 631.
// The lights are scaled to the same sum for the eye, one lux, and all numbers so that daylight
// gives 0.075 on the clear channel: 30000 counts for 500 lx at gain 16 and 50 ms.
constexpr Channels kDaylight = {0.0038712222756188846, 0.0070808353414803481, 0.0084100366335967142,
                                0.008928477157568504,  0.0092193196106197077, 0.0093405262118224763,
                                0.0095535104936019834, 0.0098488575906394947, 0.010009462338668311,
                                0.0082180187899028641, 0.074999999999999997,  0.024303026429539645};
constexpr Channels kWarmLed = {2.8932473546788073e-05, 0.0014923060913253072, 0.0022673320429760823,
                               0.0031233976021130543,  0.0074640121940154998, 0.01255782720936569,
                               0.015199162078849747,   0.013314621867537678,  0.0084020021052322539,
                               1.0173519398157809e-05, 0.049070754533199888,  0.024303026429539656};
constexpr Channels kFluorescent = {
    0.0020997844141334939, 0.0059220907800496209,  0.0020764001064852004, 0.0025982884884519115,
    0.011812313745540128,  0.0094423370219230886,  0.014557279715179106,  0.0054657544712029271,
    0.0011005217336625493, 1.5691299614286116e-05, 0.03843911055551464,   0.024303026429539642};
constexpr Channels kTorch = {0.00010018530576839025, 0.0037197019197800192, 0.0048823484879033869,
                             0.006185019312538057,   0.010311627248738634,  0.011159193062829099,
                             0.0080781207973440669,  0.0039960222313842391, 0.0013601952096059056,
                             3.973462974014884e-08,  0.035397714135101239,  0.024303026429539687};

const Channels& ResponseTo(LightKind kind) {
  switch (kind) {
    case LightKind::kWarmLed:
      return kWarmLed;
    case LightKind::kFluorescent:
      return kFluorescent;
    case LightKind::kDaylight:
    case LightKind::kDark:  // what little there is leaks in from outdoors
      break;
  }
  return kDaylight;
}

constexpr double kElectronsPerCount = 50;  // at gain 1
constexpr double kDarkElectronsPerMs = 0.5;
constexpr double kConverterNoiseCounts = 0.6;
constexpr double kAutoGainTarget = 0.6;  // of full scale, on the brightest channel
constexpr double kNoticeableChange = 0.03;
constexpr double kNoticeableCountsPerMs = 0.002;
constexpr size_t kEventsPerChain = 4;
/// One chain in this many ends with an event of the kind that clients ignore.
constexpr uint64_t kChainsPerIgnoredEvent = 3;

constexpr Channels kFactoryFactors = {1.062, 0.981, 1.014, 0.993, 1.027, 0.968,
                                      1.008, 1.035, 0.974, 1.051, 0.988, 1.003};
constexpr Channels kOtpFactors = {0.952, 1.019, 0.987, 1.008, 0.994, 1.022,
                                  0.979, 0.991, 1.033, 0.966, 1.011, 0.997};

/// The largest gain that keeps the brightest channel well inside the converter's range.
double GainInUse(const Channels& light, const SpectralSettings& settings, double exposure_ms) {
  if (!settings.auto_gain) {
    return settings.gain;
  }
  const double brightest = *std::max_element(light.begin(), light.end());
  const double counts_at_gain_1 =
      (brightest + kDarkElectronsPerMs / kElectronsPerCount) * exposure_ms;
  double gain = kMaxGain;
  while (gain > kMinGain && gain * counts_at_gain_1 > kAutoGainTarget * kSpectralFullScale) {
    gain /= 2;
  }
  return gain;
}

/// What the sensor reports for this light.
std::vector<float> Measure(const Channels& light, const SpectralSettings& settings,
                           NoiseEngine noise) {
  const double exposure_ms = settings.exposure_us / 1000.0;
  const double gain = GainInUse(light, settings, exposure_ms);
  std::normal_distribution<double> converter_noise(0, kConverterNoiseCounts);
  std::vector<float> values;
  values.reserve(light.size());
  for (size_t i = 0; i < light.size(); ++i) {
    std::poisson_distribution<int64_t> photons(
        (light[i] * kElectronsPerCount + kDarkElectronsPerMs) * exposure_ms);
    const double electrons = static_cast<double>(photons(noise));
    const double counts =
        std::round(electrons / kElectronsPerCount * gain + converter_noise(noise));
    double value = std::clamp(counts, 0.0, kSpectralFullScale);
    value *= settings.factory_calibration ? kFactoryFactors[i] : 1;
    value *= settings.otp_calibration ? kOtpFactors[i] : 1;
    values.push_back(static_cast<float>(value));
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

int64_t InTicks(int64_t time_ns) {
  return static_cast<int64_t>(NsToPlatformTicks(static_cast<uint64_t>(time_ns)) | kTicksFlag);
}

}  // namespace

double DriftFactor(const LightScene& scene, double seconds) {
  if (!(scene.drift_period_s > 0)) {
    return 1;
  }
  const double periods = seconds / scene.drift_period_s;
  return 1 + scene.drift_depth * std::sin(2 * std::numbers::pi * (periods - std::floor(periods)));
}

Channels LightOnChannels(const Conditions& conditions, Side side, int64_t elapsed_ns) {
  const LightScene& scene = conditions.scene;
  const bool front = side == Side::kFront;
  const double mean_lux = scene.kind == LightKind::kDark ? kDarkSceneLux : scene.illuminance_lux;
  const double lux = mean_lux * DriftFactor(scene, static_cast<double>(elapsed_ns) * 1e-9) *
                     (front ? kFrontShare : 1);
  const double torch_lux =
      conditions.settings.torch ? kTorchLux * (front ? kFrontShareOfTorch : 1) : 0;
  const Channels& response = ResponseTo(scene.kind);
  Channels light;
  for (size_t i = 0; i < light.size(); ++i) {
    light[i] = lux * response[i] + torch_lux * kTorch[i];
  }
  return light;
}

double ShareOfChannel(LightKind kind, uint8_t channel) {
  const Channels& response = ResponseTo(kind);
  return response[channel] / response[kClear];
}

NoiseEngine MakeNoise(uint64_t seed, uint32_t stream, uint64_t index) {
  std::seed_seq words{static_cast<uint32_t>(seed), static_cast<uint32_t>(seed >> 32U), stream,
                      static_cast<uint32_t>(index), static_cast<uint32_t>(index >> 32U)};
  return NoiseEngine(words);
}

void AmbientLightSensor::OnTick(const Measurement& measurement, const Deliver& deliver) {
  const Conditions& conditions = measurement.conditions;
  const Channels light = LightOnChannels(conditions, side_, measurement.elapsed_ns);
  if (!IsWorthReporting(light)) {
    return;
  }
  const int64_t time_ns = measurement.tick.time_ns;
  std::vector<float> values = Measure(
      light, conditions.settings.spectral,
      MakeNoise(conditions.scene.seed, static_cast<uint32_t>(side_), measurement.tick.index));
  if (side_ == Side::kRear) {
    deliver(SpectralMessage(values, time_ns));
    return;
  }
  Collect(time_ns, std::move(values));
  if (on_change_ || collected_.size() >= kEventsPerChain) {
    DeliverChain(deliver);
  }
}

bool AmbientLightSensor::IsWorthReporting(const Channels& light) {
  if (!on_change_) {
    return true;
  }
  if (reported_ && !NoticeablyDifferent(light, *reported_)) {
    return false;
  }
  reported_ = light;
  return true;
}

/// Every second event has its time in ticks.
void AmbientLightSensor::Collect(int64_t time_ns, std::vector<float> values) {
  const bool in_ticks = event_count_++ % 2 == 1;
  collected_.push_back(
      {.values = std::move(values), .timestamp = in_ticks ? InTicks(time_ns) : time_ns});
}

void AmbientLightSensor::DeliverChain(const Deliver& deliver) {
  if (++chain_count_ % kChainsPerIgnoredEvent == 0) {
    collected_.push_back(
        {.type = SensorEventType::kIgnored, .timestamp = collected_.back().timestamp});
  }
  deliver(EventChainMessage(std::exchange(collected_, {})));
}

}  // namespace hyl::v2::host
