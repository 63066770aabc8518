// SPDX-License-Identifier: Apache-2.0
#include "light.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <numbers>
#include <optional>
#include <string>
#include <string_view>

#include <android-base/logging.h>

namespace hyl::v2::host {
namespace {

struct KindName {
  std::string_view name;
  LightKind kind;
};
constexpr KindName kKinds[] = {{"daylight", LightKind::kDaylight},
                               {"warm-led", LightKind::kWarmLed},
                               {"fluorescent", LightKind::kFluorescent},
                               {"dark", LightKind::kDark}};

struct Number {
  std::string_view name;
  double LightScene::*field;
  double max;
};
constexpr Number kNumbers[] = {{"lux", &LightScene::illuminance_lux, 200000},
                               {"drift-period", &LightScene::drift_period_s, 1e9},
                               {"drift-depth", &LightScene::drift_depth, 1},
                               {"mains", &LightScene::mains_hz, 12000},
                               {"pwm", &LightScene::pwm_hz, 12000},
                               {"duty", &LightScene::pwm_duty, 1}};
constexpr double kMinDriftPeriodS = 1e-3;

/// The row with this name; the table's end if there is none.
template <typename Row, size_t kCount>
const Row* FindName(const Row (&table)[kCount], std::string_view name) {
  return std::find_if(std::begin(table), std::end(table),
                      [name](const Row& row) { return row.name == name; });
}

/// Sets the number in `text`, such as "lux=300". Returns false for any other text.
bool SetNumber(std::string_view text, LightScene& scene) {
  const size_t equals = std::min(text.find('='), text.size());
  const Number* const number = FindName(kNumbers, text.substr(0, equals));
  if (number == std::end(kNumbers) || equals == text.size()) {
    return false;
  }
  const std::string digits(text.substr(equals + 1));
  char* rest = nullptr;
  scene.*number->field = std::strtod(digits.c_str(), &rest);
  return rest != digits.c_str() && *rest == '\0';
}

/// The counts per second, at gain 1, that one lux of each light gives on a channel.
struct Response {
  double daylight;
  double warm_led;
  double fluorescent;
  double torch;
};

// Each number is a sum over the wavelengths from 360 to 1000 nm, in steps of 2 nm, of the light's
// power times the channel's sensitivity. bell(c, w) is a curve of height 1 around c, w wide at half
// its height, both in nm.
// - The sensitivities are bell(400, 28), (435, 30), (470, 33), (505, 35), (540, 37), (575, 39),
//   (610, 42), (645, 46), (680, 50), (850, 60), (650, 420) for the clear channel, and (556, 100)
//   for the eye.
// - Daylight is a black body of 6000 K, with an ultraviolet edge at 395 nm, 12 nm wide, and a dip
//   of 35 percent times bell(940, 40). The LED is 0.35 bell(452, 22) + bell(605, 135). The torch is
//   0.9 bell(450, 22) + bell(560, 120). The fluorescent lamp is 0.04 bell(570, 200) plus lines 7 nm
//   wide: 0.3 at 405 nm, 0.8 at 436, 0.35 at 488, 1.6 at 546, 0.4 at 578, 0.35 at 588, 1.5 at 612
//   and 0.3 at 631.
// All lights are scaled to the same sum for the eye, one lux. All numbers are then scaled so that
// daylight gives 75 on the clear channel: 30000 counts for 500 lx at gain 16 and 50 ms.
constexpr Response kResponses[kSpectralChannelCount] = {
    {3.8712223, 0.028932474, 2.0997844, 0.10018531},        // 400 nm
    {7.0808353, 1.4923061, 5.9220908, 3.7197019},           // 435 nm
    {8.4100366, 2.2673320, 2.0764001, 4.8823485},           // 470 nm
    {8.9284772, 3.1233976, 2.5982885, 6.1850193},           // 505 nm
    {9.2193196, 7.4640122, 11.812314, 10.311627},           // 540 nm
    {9.3405262, 12.557827, 9.4423370, 11.159193},           // 575 nm
    {9.5535105, 15.199162, 14.557280, 8.0781208},           // 610 nm
    {9.8488576, 13.314622, 5.4657545, 3.9960222},           // 645 nm
    {10.009462, 8.4020021, 1.1005217, 1.3601952},           // 680 nm
    {8.2180188, 0.010173519, 0.015691300, 0.000039734630},  // 850 nm
    {75, 49.070755, 38.439111, 35.397714},                  // clear
    {24.303026, 24.303026, 24.303026, 24.303026}};          // the eye's sensitivity
constexpr uint8_t kClear = 10;

double ResponseOf(uint8_t channel, LightKind kind) {
  switch (kind) {
    case LightKind::kWarmLed:
      return kResponses[channel].warm_led;
    case LightKind::kFluorescent:
      return kResponses[channel].fluorescent;
    case LightKind::kDaylight:
    case LightKind::kDark:  // the little light there is leaks in from outdoors
      break;
  }
  return kResponses[channel].daylight;
}

constexpr double kDarkLux = 0.02;
constexpr double kFrontShare = 0.6;  // the front sensor is behind darker glass
constexpr double kFrontShareOfTorch = 0.1;

/// How long the LED takes to switch, in seconds.
constexpr double kPwmEdge = 20e-6;
constexpr double kMinDuty = 0.001;

double Sine(double turns) {
  return std::sin(2 * std::numbers::pi * turns);
}

/// The scene's level, averaged over its flicker, in lux.
double MeanLux(const LightScene& scene, double seconds) {
  const double lux = scene.kind == LightKind::kDark ? kDarkLux : scene.illuminance_lux;
  if (!(scene.drift_period_s > 0)) {
    return lux;
  }
  const double periods = seconds / scene.drift_period_s;
  return lux * (1 + scene.drift_depth * Sine(periods - std::floor(periods)));
}

/// The lamp follows the power of the mains: twice its frequency, with harmonics.
double FluorescentFactor(double phase) {
  return 1 + 0.25 * Sine(phase) + 0.08 * Sine(2 * phase + 0.1) + 0.03 * Sine(3 * phase + 0.3);
}

/// A square wave with sloping edges. Its mean is 1 for every duty.
double PwmFactor(const LightScene& scene, double phase) {
  const double duty = std::max(scene.pwm_duty, kMinDuty);
  const double edge = std::min({scene.pwm_hz * kPwmEdge, duty, 1 - duty});
  phase -= std::floor(phase);
  double on = 0;
  if (phase < edge) {
    on = phase / edge;
  } else if (phase < duty) {
    on = 1;
  } else if (phase < duty + edge) {
    on = 1 - (phase - duty) / edge;
  }
  return on / duty;
}

/// The light at a moment as a fraction of its mean.
double FlickerFactor(const LightScene& scene, double seconds) {
  switch (scene.kind) {
    case LightKind::kWarmLed:
      return PwmFactor(scene, scene.pwm_hz * seconds);
    case LightKind::kFluorescent:
      return FluorescentFactor(2 * scene.mains_hz * seconds);
    case LightKind::kDaylight:
    case LightKind::kDark:
      break;
  }
  return 1;
}

}  // namespace

std::optional<LightScene> ParseScene(std::string_view text) {
  size_t comma = text.find(',');
  const KindName* const kind = FindName(kKinds, text.substr(0, comma));
  if (kind == std::end(kKinds)) {
    return std::nullopt;
  }
  LightScene scene{.kind = kind->kind};
  while (comma != std::string_view::npos) {
    text.remove_prefix(comma + 1);
    comma = text.find(',');
    if (!SetNumber(text.substr(0, comma), scene)) {
      return std::nullopt;
    }
  }
  return Plausible(scene);
}

LightScene InitialScene() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing here changes the environment
  const char* const text = std::getenv("HYL_HUB_SCENE");
  if (text == nullptr || *text == '\0') {
    return {};
  }
  const std::optional<LightScene> scene = ParseScene(text);
  if (!scene) {
    android::base::LogMessage(__FILE__, __LINE__, android::base::ERROR, "HYL", -1).stream()
        << "HYL_HUB_SCENE: '" << text << "' " << kNoScene
        << ". The simulated sensors see daylight.";
  }
  return scene.value_or(LightScene());
}

LightScene Plausible(LightScene scene) {
  for (const Number& number : kNumbers) {
    double& value = scene.*number.field;
    value = value > 0 ? std::min(value, number.max) : 0;  // not-a-number counts as 0
  }
  if (scene.drift_period_s > 0) {
    scene.drift_period_s = std::max(scene.drift_period_s, kMinDriftPeriodS);
  }
  return scene;
}

Channels LightOnChannels(const Conditions& conditions, Side side, int64_t elapsed_ns) {
  const LightScene& scene = conditions.scene;
  const bool front = side == Side::kFront;
  const double lux =
      MeanLux(scene, static_cast<double>(elapsed_ns) * 1e-9) * (front ? kFrontShare : 1);
  const double torch_lux =
      conditions.settings.torch ? kTorchLux * (front ? kFrontShareOfTorch : 1) : 0;
  Channels light;
  for (uint8_t i = 0; i < kSpectralChannelCount; ++i) {
    light[i] = (lux * ResponseOf(i, scene.kind) + torch_lux * kResponses[i].torch) / 1000;
  }
  return light;
}

double LightOnFlickerSensor(const Conditions& conditions, double seconds) {
  const LightScene& scene = conditions.scene;
  return MeanLux(scene, seconds) * FlickerFactor(scene, seconds) +
         (conditions.settings.torch ? kTorchLux : 0);
}

double ShareOfChannel(LightKind kind, uint8_t channel) {
  return ResponseOf(channel, kind) / ResponseOf(kClear, kind);
}

NoiseEngine MakeNoise(uint64_t seed, uint32_t stream, uint64_t index) {
  std::seed_seq words{static_cast<uint32_t>(seed), static_cast<uint32_t>(seed >> 32U), stream,
                      static_cast<uint32_t>(index), static_cast<uint32_t>(index >> 32U)};
  return NoiseEngine(words);
}

}  // namespace hyl::v2::host
