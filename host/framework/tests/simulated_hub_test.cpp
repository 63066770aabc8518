// The simulated hub: what its settings and its light do to the data, and what it is told.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <numeric>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hyl/host/messages.h>
#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>
#include <hyl/spectral_client.h>

namespace hyl::v2::host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::_;
using testing::AllOf;
using testing::ElementsAre;
using testing::Gt;
using testing::IsEmpty;
using testing::Lt;
using testing::Pair;
using testing::SizeIs;

/// On a virtual clock, in steady daylight, with automatic gain off.
class HubSettingsTest : public testing::Test {
 public:
  HubSettingsTest() { Start(); }
  ~HubSettingsTest() override { hub.Reset(); }

  void Start() {
    hub.Reset();
    hub.UseVirtualClock();
    Light({});
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
  void Light(LightScene scene) {
    scene.drift_period_s = 0;
    hub.SetScene(scene);
  }
  /// Makes `levels` those that a sensor, or a channel of one, has in two seconds, as parts of full
  /// scale. `change` takes effect while the sensor runs.
  void Measure(const char* sensor, size_t of_channel, void (*change)(HubSettingsTest&) = nullptr) {
    channel = of_channel;
    std::unique_ptr<AmbientLightSession> light;
    std::unique_ptr<FlickerSession> flicker;
    if (std::string_view(sensor) == "flicker") {
      EXPECT_EQ(HylErr::kOk, client.EnableFlicker(sensor, 1024, 16, flicker));
    } else {
      EXPECT_EQ(HylErr::kOk,
                client.EnableAmbientLight(sensor, SensorReportingMode::kContinuous, light));
    }
    if (change != nullptr) {
      change(*this);
    }
    levels.clear();
    hub.Advance(seconds(2));
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
  EXPECT_EQ(HylErr::kOk, api.SetFlickerChannel("", 200, 0));
  uint32_t of_channel = 0;
  float gain = 0;
  EXPECT_EQ(HylErr::kInvalidArgument, api.SetGain("", kGainOfFlicker + 1, 1, &gain));
  EXPECT_EQ(HylErr::kOk, api.GetFlickerConfig("", &of_channel, &gain));
  EXPECT_EQ(kMaxFlickerChannel, of_channel);
  for (const uint8_t fixed : {kIdRegister, kRevisionRegister}) {
    uint8_t value = 0;
    EXPECT_EQ(HylErr::kOk, api.SetRegister("", fixed, 0));
    EXPECT_EQ(HylErr::kOk, api.GetRegister("", fixed, &value));
    EXPECT_EQ(fixed == kIdRegister ? kIdRegisterValue : kRevisionRegisterValue, value);
  }
}

void LightTorch(HubSettingsTest& test) {
  EXPECT_EQ(HylErr::kOk, test.api.SetTorchLightState("", true));
}

/// A change of a setting or of the light, and the factor by which it changes the sum of a running
/// sensor's levels.
struct Effect {
  const char* what;
  void (*change)(HubSettingsTest& test);
  const char* sensor;
  size_t channel;
  double factor;
};

constexpr Effect kEffects[] = {
    {"gain", [](auto& test) { test.Gain(kGainOfSpectral, 32); }, "rear", kClear, 2},
    {"exposure time", [](auto& test) { test.Exposure(100000); }, "rear", kClear, 2},
    {"sampling period", [](auto& test) { test.Period(20000); }, "rear", kClear, 5},
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
    {"level", [](auto& test) { test.Light({.illuminance_lux = 250}); }, "rear", kClear, 0.5},
    {"dimmed LED", [](auto& test) { test.Light({.kind = LightKind::kWarmLed}); }, "flicker", {}, 1},
    {"drift", [](auto& test) { test.hub.SetScene({.drift_period_s = 8, .drift_depth = 0.5}); },
     "rear", kClear, 1.32},
};

TEST_F(HubSettingsTest, WhatIsSetChangesTheData) {
  for (const auto& [what, change, sensor, of_channel, factor] : kEffects) {
    SCOPED_TRACE(what);
    Start();
    Measure(sensor, of_channel);
    const double before = std::accumulate(levels.begin(), levels.end(), 0.0);
    Start();
    Measure(sensor, of_channel, change);
    const double after = std::accumulate(levels.begin(), levels.end(), 0.0);
    EXPECT_NEAR(factor, after / before, 0.01 * factor) << sensor;
  }
}

TEST_F(HubSettingsTest, TooMuchGainClipsUnlessItIsAutomatic) {
  Light({.kind = LightKind::kFluorescent, .illuminance_lux = 1500});
  Gain(kGainOfSpectral, 2048);
  Gain(kGainOfFlicker, 64);
  for (const bool automatic : {false, true}) {
    SetAutoGain(automatic);
    for (const char* const sensor : {"rear", "flicker"}) {
      Measure(sensor, kClear);
      levels.erase(levels.begin(),
                   levels.begin() + std::ssize(levels) / 2);  // in which the gain settles
      const auto [low, high] = std::ranges::minmax(levels);
      EXPECT_EQ(automatic, low < high) << sensor;
      EXPECT_EQ(automatic, high > 0.25 && high < 0.91) << sensor << high;
    }
    FlickerFrequencyMetrics metrics{};
    EXPECT_EQ(HylErr::kOk, api.GetFlickerFrequencyMetrics(nullptr, &metrics));
    EXPECT_EQ(100, metrics.metric0) << "twice the mains";
    EXPECT_EQ(200, metrics.metric1);
    EXPECT_EQ(automatic ? 0 : 1000, metrics.saturation) << "of a thousand";
  }
}

// --- below the library ---

/// A client of the framework's interface, on a virtual clock.
class RawHubTest : public testing::Test {
 protected:
  struct Callbacks : Service::AsyncCallbacks {
    void OnResponse(const Message* message) override { on_message(*message); }
    void OnError(HylErr) override {}
    std::function<void(const Message&)> on_message = [](const Message&) {};
  };

  RawHubTest() {
    hub.Reset();
    hub.UseVirtualClock();
  }
  ~RawHubTest() override {
    api.reset();
    hub.Reset();
  }

  template <typename Req>
  HylErr Send(uint32_t handle, RequestType type, uint32_t client_id = 7) {
    Req request;
    request.client_id = client_id;
    return api->InvokeAsyncServiceCall(handle, static_cast<uint32_t>(type), request, callbacks);
  }
  HylErr Start(uint32_t handle) {
    return Send<StartContinuousSamplingReq>(handle, RequestType::kStartContinuousSampling);
  }
  HylErr Stop(uint32_t handle, uint32_t client_id = 7) {
    return Send<StopSamplingReq>(handle, RequestType::kStopSampling, client_id);
  }

  SimulatedHub& hub = SimulatedHub::Instance();
  std::shared_ptr<Callbacks> callbacks = std::make_shared<Callbacks>();
  std::unique_ptr<Api> api = hub.Connect(ClientType::kSpectral);
};

TEST_F(RawHubTest, RefusesWhatItCannotServe) {
  EXPECT_EQ(HylErr::kNotFound, Start(kFlicker + 1));
  EXPECT_EQ(HylErr::kInvalidArgument,
            Send<StartOnChangeSamplingReq>(kFlicker, RequestType::kStartOnChangeSampling));
  EXPECT_EQ(HylErr::kInvalidArgument,
            Send<StopSamplingReq>(kFlicker, RequestType::kStartContinuousSampling));
  EXPECT_EQ(HylErr::kNotFound, Stop(kFlicker));
  EXPECT_EQ(HylErr::kOk, Start(kFlicker));
  EXPECT_EQ(HylErr::kOk, Start(kFlicker));
  EXPECT_EQ(HylErr::kNotFound, Stop(kFlicker, 8));
  EXPECT_THAT(hub.RunningRequests(), SizeIs(1)) << "a further start replaces the first";
  EXPECT_EQ(HylErr::kOk, Stop(kFlicker));
  EXPECT_THAT(hub.RunningRequests(), IsEmpty());
  callbacks.reset();
  EXPECT_EQ(HylErr::kNullPointer, Start(kFlicker));
}

TEST_F(RawHubTest, TheFrontSensorSendsChains) {
  std::string events;
  callbacks->on_message = [&](const Message& message) {
    const auto* const chain = dynamic_cast<const EventMessage*>(&message);
    const RefCountedSensorEvent* event = chain != nullptr ? chain->events.get() : nullptr;
    for (; event != nullptr; event = event->next) {
      const bool in_ticks = (static_cast<uint64_t>(event->timestamp) & kTicksFlag) != 0;
      events += event->event_type == SensorEventType::kIgnored ? 'i' : in_ticks ? 't' : 'n';
    }
    events += chain != nullptr ? " " : "";
  };
  EXPECT_EQ(HylErr::kOk, Start(kFrontContinuous));
  hub.Advance(milliseconds(12 * 5));  // the shortest period
  EXPECT_EQ("ntnt ntnt ntnti ", events);
}

TEST_F(RawHubTest, TheFlickerSensorCountsBytesAndTicks) {
  std::vector<std::pair<uint32_t, uint32_t>> chunks;
  callbacks->on_message = [&](const Message& message) {
    if (const auto* const data = dynamic_cast<const FlickerDataResp*>(&message)) {
      chunks.emplace_back(data->offset, data->aux32_0);
    }
  };
  hub.SetFlickerPacking({FlickerFormatSampleWidth::k16BitsIn2});
  hub.SetFlickerFaults({.repeat_chunk = 1});
  EXPECT_EQ(HylErr::kOk, Start(kFlicker));
  hub.Advance(milliseconds(40));
  EXPECT_THAT(chunks, ElementsAre(Pair(0, 192000), Pair(480, 384000), Pair(480, 576000),
                                  Pair(960, 768000)));
  hub.Reset();
  hub.UseVirtualClock();
  chunks.clear();
  EXPECT_EQ(HylErr::kOk, Start(kFlicker));
  hub.Advance(milliseconds(30));
  EXPECT_THAT(chunks, ElementsAre(Pair(0, _), Pair(Lt(480), _), Pair(AllOf(Gt(480), Lt(960)), _)));
}

TEST_F(RawHubTest, NoMessageFollowsAStop) {
  int messages = 0;
  callbacks->on_message = [&](const Message& message) {
    if (dynamic_cast<const FlickerFormatResp*>(&message) != nullptr) {
      EXPECT_EQ(HylErr::kOk, Stop(kFlicker));
    }
    messages += dynamic_cast<const FlickerDataResp*>(&message) != nullptr ? 1 : 0;
  };
  EXPECT_EQ(HylErr::kOk, Start(kFlicker));
  hub.Advance(milliseconds(20));
  EXPECT_EQ(0, messages);
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
