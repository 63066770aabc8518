// SPDX-License-Identifier: Apache-2.0
// The simulated hub: what its settings and its light do to the data, and what it is told.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
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
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
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
  hub.SetReplyFaults({.ignore_writes = true});  // which does not concern reads
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

/// A client of the framework's interface, on a virtual clock, which notes what it gets.
class RawHubTest : public testing::Test {
 protected:
  struct Callbacks : Service::AsyncCallbacks {
    explicit Callbacks(RawHubTest& owner) : test(owner) {}
    void OnResponse(const Message* message) override { test.Note(*message); }
    void OnError(HylErr) override {}
    RawHubTest& test;
  };

  RawHubTest() { Reset(); }
  ~RawHubTest() override {
    api.reset();
    hub.Reset();
  }
  void Reset() {
    hub.Reset();
    hub.UseVirtualClock();
  }

  template <typename Req = StartContinuousSamplingReq>
  HylErr Send(uint32_t handle, RequestType type = RequestType::kStartContinuousSampling,
              uint32_t client_id = 7) {
    Req request;
    request.client_id = client_id;
    return api->InvokeAsyncServiceCall(handle, static_cast<uint32_t>(type), request, callbacks);
  }
  HylErr StopFlicker(uint32_t client_id = 7) {
    return Send<StopSamplingReq>(kFlicker, RequestType::kStopSampling, client_id);
  }
  /// Of a chain's event, whether it is ignored or has its time in ticks; of a chunk, its offset and
  /// its time in ticks.
  void Note(const Message& message) {
    if (const auto* const chain = dynamic_cast<const EventMessage*>(&message)) {
      for (const auto* event = chain->events.get(); event != nullptr; event = event->next) {
        const bool in_ticks = (static_cast<uint64_t>(event->timestamp) & kTicksFlag) != 0;
        notes += event->event_type == SensorEventType::kIgnored ? 'i' : in_ticks ? 't' : 'n';
      }
      notes += ' ';
    } else if (const auto* const data = dynamic_cast<const FlickerDataResp*>(&message)) {
      notes += std::to_string(data->offset) + "@" + std::to_string(data->aux32_0) + " ";
    } else if (stops_at_format && dynamic_cast<const FlickerFormatResp*>(&message) != nullptr) {
      EXPECT_EQ(HylErr::kOk, StopFlicker());
    }
  }
  /// What it has noted in that time.
  std::string NotesOf(milliseconds time) {
    notes.clear();
    hub.Advance(time);
    return notes;
  }

  SimulatedHub& hub = SimulatedHub::Instance();
  std::string notes;
  bool stops_at_format = false;
  std::shared_ptr<Callbacks> callbacks = std::make_shared<Callbacks>(*this);
  std::unique_ptr<Api> api = hub.Connect(ClientType::kSpectral);
};

TEST_F(RawHubTest, RefusesWhatItCannotServe) {
  EXPECT_EQ(HylErr::kNotFound, Send(kFlicker + 1));
  EXPECT_EQ(HylErr::kInvalidArgument, Send(kRearOnChange));
  EXPECT_EQ(HylErr::kInvalidArgument, Send<StopSamplingReq>(kFlicker));
  EXPECT_EQ(HylErr::kNotFound, StopFlicker());
  EXPECT_EQ(HylErr::kOk, Send(kFlicker));
  EXPECT_EQ(HylErr::kOk, Send(kFlicker));
  EXPECT_EQ(HylErr::kNotFound, StopFlicker(8));
  EXPECT_THAT(hub.RunningRequests(), SizeIs(1)) << "a further start replaces the first";
  EXPECT_EQ(HylErr::kOk, StopFlicker());
  EXPECT_THAT(hub.RunningRequests(), IsEmpty());
  callbacks.reset();
  EXPECT_EQ(HylErr::kNullPointer, Send(kFlicker));
}

TEST_F(RawHubTest, SendsChainsAndChunks) {
  EXPECT_EQ(HylErr::kOk, Send(kFrontContinuous));
  EXPECT_EQ("ntnt ntnt ntnti ", NotesOf(milliseconds(12 * 5)));  // the shortest period
  Reset();
  hub.SetFlickerPacking({FlickerFormatSampleWidth::k16BitsIn2});
  hub.SetFlickerFaults({.repeat_chunk = 1});
  EXPECT_EQ(HylErr::kOk, Send(kFlicker));
  EXPECT_EQ("0@192000 480@384000 480@576000 960@768000 ", NotesOf(milliseconds(40)));
  Reset();
  EXPECT_EQ(HylErr::kOk, Send(kFlicker));
  EXPECT_THAT(NotesOf(milliseconds(20)), MatchesRegex("0@192000 2[0-9]{2}@384000 "))
      << "compressed";
  stops_at_format = true;
  EXPECT_EQ(HylErr::kOk, Send(kFlicker));
  EXPECT_EQ("", NotesOf(milliseconds(20))) << "no message follows a stop";
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
#ifndef HYL_EMULATED                               // there, a program cannot start itself again
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // each case in a program that starts with it
#endif
  for (const auto& [value, kind, printed] : cases) {
    // NOLINTBEGIN(concurrency-mt-unsafe): the only thread
    setenv("HYL_HUB_SCENE", value, 1);
    const auto exit_with_kind = [] {
      SimulatedHub& hub = SimulatedHub::Instance();
      hub.SetScene({.kind = LightKind::kFluorescent});
      hub.Reset();
      std::exit(static_cast<int>(hub.Scene().kind));  // NOLINT(concurrency-mt-unsafe)
    };
    // NOLINTEND(concurrency-mt-unsafe)
    EXPECT_EXIT(exit_with_kind(), testing::ExitedWithCode(static_cast<int>(kind)), printed);
  }
}

}  // namespace
}  // namespace hyl::v2::host
