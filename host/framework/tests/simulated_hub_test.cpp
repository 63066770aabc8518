// The simulated hub: what its settings and its light do to the data, and what it is told.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>
#include <hyl/spectral_client.h>

namespace hyl::v2::host {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;

/// On a virtual clock, in steady daylight, with automatic gain off.
class HubSettingsTest : public testing::Test {
 public:
  HubSettingsTest() { Start(); }
  ~HubSettingsTest() override { hub.Reset(); }

  void Start() {
    hub.Reset();
    hub.UseVirtualClock();
    hub.SetScene({.drift_period_s = 0});
    SetAutoGain(false);
  }
  void SetAutoGain(bool on) {
    EXPECT_EQ(HylErr::kOk, api.SetSpectralAutoGainEnabled("", on));
    EXPECT_EQ(HylErr::kOk, api.SetFlickerAutoGainEnabled("", on));
  }
  uint32_t Exposure(uint32_t time) {
    EXPECT_EQ(HylErr::kOk, api.SetExposureTime("", time, &time));
    return time;
  }
  uint32_t Period(uint32_t period) {
    EXPECT_EQ(HylErr::kOk, api.SetSamplingPeriod("", period, &period));
    return period;
  }
  float Gain(uint8_t of, float gain) {
    EXPECT_EQ(HylErr::kOk, api.SetGain("", of, gain, &gain));
    return gain;
  }
  /// The levels that a sensor, or a channel of one, has in two seconds, as parts of full scale.
  const std::vector<double>& Levels(const char* sensor, size_t of_channel) {
    channel = of_channel;
    std::unique_ptr<AmbientLightSession> light;
    std::unique_ptr<FlickerSession> flicker;
    if (std::string_view(sensor) == "flicker") {
      EXPECT_EQ(HylErr::kOk, client.EnableFlicker(sensor, 1024, 16, flicker));
      hub.Advance(seconds(1));  // in which automatic gain settles
    } else {
      EXPECT_EQ(HylErr::kOk,
                client.EnableAmbientLight(sensor, SensorReportingMode::kContinuous, light));
    }
    levels.clear();
    hub.Advance(seconds(2));
    return levels;
  }

  SimulatedHub& hub = SimulatedHub::Instance();
  size_t channel = 0;
  std::vector<double> levels;
  SpectralClient client{
      {.ambient_light = [this](auto values,
                               auto) { levels.push_back(values[channel] / kSpectralFullScale); },
       .flicker =
           [this](auto samples, const auto&) {
             for (const int32_t sample : samples) {
               levels.push_back(sample / 32768.0);
             }
           }}};
  HylSpectralApi& api = client.api();
};

constexpr size_t kViolet = 0;
constexpr size_t kClear = 10;

TEST_F(HubSettingsTest, TheAppliedValueIsInRangeAndOnAStep) {
  EXPECT_THAT((std::vector{Exposure(0), Exposure(149), Exposure(150), Exposure(UINT32_MAX)}),
              ElementsAre(kMinExposureUs, 100, 200, kMaxExposureUs));
  EXPECT_THAT((std::vector{Period(0), Period(5499), Period(5500), Period(UINT32_MAX)}),
              ElementsAre(kMinSamplingPeriodUs, 5000, 6000, kMaxSamplingPeriodUs));
  EXPECT_THAT((std::vector{Gain(0, NAN), Gain(0, 2.8F), Gain(1, 2.9F), Gain(1, 1e9F)}),
              ElementsAre(kMinGain, 2, 4, kMaxGain));
}

void LightTorch(HubSettingsTest& test) {
  EXPECT_EQ(HylErr::kOk, test.api.SetTorchLightState("", true));
}

/// A setting, and the factor by which it changes the sum of a sensor's levels.
struct Effect {
  const char* setting;
  void (*apply)(HubSettingsTest& test);
  const char* sensor;
  size_t channel;
  double factor;
};

constexpr Effect kEffects[] = {
    {"gain", [](auto& test) { test.Gain(kGainOfSpectral, 32); }, "rear", kClear, 2},
    {"exposure time", [](auto& test) { test.Exposure(100000); }, "rear", kClear, 2},
    {"sampling period", [](auto& test) { test.Period(20000); }, "front", kClear, 5},
    {"factory calibration", [](auto& test) { test.api.SetSpectralApplyFacCalEnabled("", false); },
     "rear", kViolet, 0.942},
    {"OTP calibration", [](auto& test) { test.api.SetSpectralApplyOtpCalEnabled("", false); },
     "rear", kViolet, 1.05},
    {"torch", LightTorch, "rear", kClear, 1.283},
    {"torch", LightTorch, "front", kClear, 1.047},
    {"torch", LightTorch, "flicker", {}, 1.6},
    {"flicker gain", [](auto& test) { test.Gain(kGainOfFlicker, 2); }, "flicker", {}, 2},
    {"pedestal", [](auto& test) { test.api.SetFlickerPedestal("", 32); }, "flicker", {}, 0.5},
    {"channel", [](auto& test) { test.api.SetFlickerChannel("", 0, 0); }, "flicker", {}, 0.051},
};

TEST_F(HubSettingsTest, SettingsChangeTheData) {
  for (const auto& [setting, apply, sensor, of_channel, factor] : kEffects) {
    const auto sum = [&] {
      Levels(sensor, of_channel);
      return std::accumulate(levels.begin(), levels.end(), 0.0);
    };
    Start();
    const double before = sum();
    apply(*this);
    EXPECT_NEAR(factor, sum() / before, 0.01 * factor) << setting << ", " << sensor;
  }
}

TEST_F(HubSettingsTest, TooMuchGainClipsUnlessItIsAutomatic) {
  hub.SetScene({.kind = LightKind::kFluorescent, .illuminance_lux = 1500, .drift_period_s = 0});
  Gain(kGainOfSpectral, 2048);
  Gain(kGainOfFlicker, 64);
  for (const bool automatic : {false, true}) {
    SetAutoGain(automatic);
    for (const char* const sensor : {"rear", "flicker"}) {
      const auto [low, high] = std::ranges::minmax(Levels(sensor, kClear));
      EXPECT_EQ(automatic, low < high) << sensor;
      EXPECT_EQ(automatic, high > 0.25 && high < 0.91) << sensor << high;
    }
    FlickerFrequencyMetrics metrics{};
    EXPECT_EQ(HylErr::kOk, api.GetFlickerFrequencyMetrics(nullptr, &metrics));
    EXPECT_EQ(100, metrics.metric0) << "twice the mains";
    EXPECT_EQ(automatic ? 0 : 1000, metrics.saturation) << "of a thousand";
  }
}

// --- the scene ---

TEST(SceneTest, IsAKindAndNumbers) {
  const std::pair<const char*, LightScene> cases[] = {
      {"daylight", {}},
      {"dark", {.kind = LightKind::kDark}},
      {"warm-led,lux=300,duty=2",
       {.kind = LightKind::kWarmLed, .illuminance_lux = 300, .pwm_duty = 1}},
      {"fluorescent,mains=60,lux=-1,lux=1e3",
       {.kind = LightKind::kFluorescent, .illuminance_lux = 1000, .mains_hz = 60}},
      {"daylight,drift-period=1e-9,drift-depth=nan,pwm=inf",
       {.drift_period_s = 1e-3, .drift_depth = 0, .pwm_hz = 12000}}};
  for (const auto& [text, scene] : cases) {
    EXPECT_TRUE(ParseScene(text) == scene) << text;
  }
  for (const char* const text : {"", "Dark", "lux=300", "dark,", "dark,lux", "dark,lux=",
                                 "dark,lux=3x", "dark,=3", "dark,seed=3", "dark lux=3"}) {
    EXPECT_FALSE(ParseScene(text)) << text;
  }
}

TEST(SceneDeathTest, HylHubSceneNamesTheInitialOne) {
  const std::tuple<const char*, LightKind, const char*> cases[] = {
      {"dark", LightKind::kDark, "^$"},
      {"", LightKind::kDaylight, "^$"},
      {"fog", LightKind::kDaylight, "E .*HYL_HUB_SCENE: 'fog' is no scene"}};
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // each case in a program that starts with it
  for (const auto& [value, kind, printed] : cases) {
    setenv("HYL_HUB_SCENE", value, 1);  // NOLINT(concurrency-mt-unsafe): the only thread
    const auto exit_with_kind = [] {
      SimulatedHub& hub = SimulatedHub::Instance();
      hub.SetScene({.kind = LightKind::kFluorescent});
      hub.Reset();
      std::exit(static_cast<int>(hub.Scene().kind));
    };
    EXPECT_EXIT(exit_with_kind(), testing::ExitedWithCode(static_cast<int>(kind)), printed);
  }
}

}  // namespace
}  // namespace hyl::v2::host
