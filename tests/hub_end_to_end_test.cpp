// The built library on the simulated hub with a virtual clock: ambient light, and how settings
// change the data.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <string>
#include <vector>

#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>

#include "library_test.h"

namespace hyl::v2::test {
namespace {

using Api = HylSpectralApi;
using host::LightKind;
using std::chrono::milliseconds;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

double Mean(const std::vector<double>& values) {
  return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

class HubTest : public ::testing::Test {
 public:
  HubTest() { StartHub(); }
  ~HubTest() override {
    instance.Destroy();
    hub.Reset();
  }

  void StartHub() {
    hub.Reset();
    hub.UseVirtualClock();
    Light(LightKind::kDaylight, 500);
  }
  void Light(LightKind kind, double lux) {
    hub.SetScene({.kind = kind, .illuminance_lux = lux, .drift_period_s = 0});
  }
  void Switch(HylErr (Api::*set)(const char*, bool), bool on) {
    EXPECT_EQ(HylErr::kOk, (instance.get()->*set)(nullptr, on));
  }
  void SetAutoGain(bool on) {
    Switch(&Api::SetSpectralAutoGainEnabled, on);
    Switch(&Api::SetFlickerAutoGainEnabled, on);
  }
  uint32_t Set(HylErr (Api::*set)(const char*, uint32_t, uint32_t*), uint32_t value) {
    uint32_t applied = 0;
    EXPECT_EQ(HylErr::kOk, (instance.get()->*set)(nullptr, value, &applied));
    return applied;
  }
  float SetGain(uint8_t of, float gain) {
    float applied = 0;
    EXPECT_EQ(HylErr::kOk, instance->SetGain(nullptr, of, gain, &applied));
    return applied;
  }
  uint32_t Enable(const char* name) {
    uint32_t id = 0;
    EXPECT_EQ(HylErr::kOk, instance->EnableAmbientLightSensor(name, id, kContinuous));
    return id;
  }
  /// The calls that the client gets in that time.
  std::vector<SpectralCall> Calls(milliseconds time) {
    hub.Advance(time);
    return client.TakeSpectral();
  }
  /// A channel of an ambient-light sensor's samples in a second.
  std::vector<double> Channel(size_t channel, const char* sensor) {
    const uint32_t id = Enable(sensor);
    std::vector<double> values;
    for (const SpectralCall& call : Calls(milliseconds(1000))) {
      values.push_back(call.values.at(channel));
    }
    EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(id));
    return values;
  }
  /// The flicker sensor's samples in the last tenth of a second, as parts of full scale.
  std::vector<double> Flicker() {
    std::vector<int32_t> buffer(1024);
    uint32_t id = 0;
    EXPECT_EQ(HylErr::kOk,
              instance->EnableFlickerSensor(nullptr, buffer.data(), buffer.size(), 16, id));
    hub.Advance(milliseconds(500));
    (void)client.TakeFlicker();
    hub.Advance(milliseconds(100));
    EXPECT_EQ(HylErr::kOk, instance->DisableFlickerSensor(id));
    std::vector<double> levels;
    for (const FlickerCall& call : client.TakeFlicker()) {
      std::ranges::transform(call.samples, std::back_inserter(levels),
                             [](int32_t sample) { return sample / 32768.0; });
    }
    EXPECT_GT(levels.size(), 2000U);
    return levels;
  }

  double RearClear() { return Mean(Channel(10, "rear")); }
  double RearViolet() { return Mean(Channel(0, "rear")); }
  double RearSamples() { return static_cast<double>(Channel(0, "rear").size()); }
  double FrontClear() { return Mean(Channel(10, "front")); }
  double FlickerLevel() { return Mean(Flicker()); }

  host::SimulatedHub& hub = host::SimulatedHub::Instance();
  LogCapture log;
  RecordingClient client;
  Instance instance{&client};
};

TEST_F(HubTest, StreamsRearAndFrontSideBySide) {
  const Vector<HylString> names = instance->GetAmbientLightSensorNames();
  ASSERT_EQ(2U, names.size());
  const uint32_t rear = Enable(names[0].c_str());
  const uint32_t front = Enable(names[1].c_str());
  EXPECT_STREQ("rear ambient light", instance->GetSensorName(rear).c_str());
  EXPECT_STREQ("front ambient light", instance->GetSensorName(front).c_str());
  std::vector<int64_t> rear_times;
  size_t front_calls = 0;
  for (const SpectralCall& call : Calls(milliseconds(2000))) {
    EXPECT_EQ(host::kSpectralChannelCount, call.values.size());
    EXPECT_GE(hub.Now(), call.timestamp) << "in nanoseconds, also where the hub sends ticks";
    EXPECT_LE(0, call.timestamp);
    if (call.session_id == rear) {
      rear_times.push_back(call.timestamp);
    } else {
      EXPECT_EQ(front, call.session_id);
      ++front_calls;
    }
  }
  EXPECT_THAT(rear_times, SizeIs(20)) << "one each 100 ms";
  EXPECT_NEAR(20, static_cast<double>(front_calls), 4) << "in chains";
  for (size_t i = 1; i < rear_times.size(); ++i) {
    EXPECT_NEAR(1e8, static_cast<double>(rear_times[i] - rear_times[i - 1]), 100);
  }
  EXPECT_THAT(hub.RunningRequests(), SizeIs(2));
  EXPECT_THAT(log.TakeProblems(), IsEmpty());
}

TEST_F(HubTest, ChangeOfModeKeepsTheSessionAndDisableEndsIt) {
  const uint32_t id = Enable("rear");
  EXPECT_THAT(Calls(milliseconds(1000)), Not(IsEmpty()));
  EXPECT_EQ(HylErr::kOk, instance->ChangeAmbientLightSensorReporting(id, kOnChange));
  Calls(milliseconds(1000));
  EXPECT_THAT(Calls(milliseconds(3000)), IsEmpty()) << "steady light";
  Light(LightKind::kDaylight, 50);
  EXPECT_THAT(Calls(milliseconds(1000)), Not(IsEmpty()));
  EXPECT_THAT(Calls(milliseconds(1000)), IsEmpty());
  EXPECT_EQ(HylErr::kOk, instance->ChangeAmbientLightSensorReporting(id, kContinuous));
  const std::vector<SpectralCall> calls = Calls(milliseconds(1000));
  ASSERT_THAT(calls, Not(IsEmpty()));
  EXPECT_EQ(id, calls[0].session_id);
  EXPECT_THAT(hub.RunningRequests(), SizeIs(1));
  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(id));
  EXPECT_THAT(hub.RunningRequests(), IsEmpty());
  EXPECT_THAT(Calls(milliseconds(1000)), IsEmpty());
  EXPECT_THAT(log.TakeProblems(), IsEmpty());
}

// --- settings ---

TEST_F(HubTest, TheAppliedValueIsInRangeAndOnAStep) {
  EXPECT_EQ(host::kMinExposureUs, Set(&Api::SetExposureTime, 0));
  EXPECT_EQ(100U, Set(&Api::SetExposureTime, 149));
  EXPECT_EQ(200U, Set(&Api::SetExposureTime, 150));
  EXPECT_EQ(host::kMaxSamplingPeriodUs, Set(&Api::SetSamplingPeriod, UINT32_MAX));
  EXPECT_EQ(host::kMinGain, SetGain(host::kGainOfSpectral, NAN));
  EXPECT_EQ(2, SetGain(host::kGainOfSpectral, 2.8F));
  EXPECT_EQ(4, SetGain(host::kGainOfSpectral, 2.9F));
}

/// A setting, and the factor by which it changes what a sensor delivers.
struct Effect {
  const char* setting;
  void (*apply)(HubTest& test);
  double (HubTest::*measure)();
  double factor;
};

constexpr Effect kEffects[] = {
    {"gain", [](HubTest& test) { test.SetGain(host::kGainOfSpectral, 32); }, &HubTest::RearClear,
     2},
    {"exposure time", [](HubTest& test) { test.Set(&Api::SetExposureTime, 100000); },
     &HubTest::RearClear, 2},
    {"sampling period", [](HubTest& test) { test.Set(&Api::SetSamplingPeriod, 20000); },
     &HubTest::RearSamples, 5},
    {"factory calibration",
     [](HubTest& test) { test.Switch(&Api::SetSpectralApplyFacCalEnabled, false); },
     &HubTest::RearViolet, 0.942},
    {"OTP calibration",
     [](HubTest& test) { test.Switch(&Api::SetSpectralApplyOtpCalEnabled, false); },
     &HubTest::RearViolet, 1.05},
    {"torch, rear", [](HubTest& test) { test.Switch(&Api::SetTorchLightState, true); },
     &HubTest::RearClear, 1.283},
    {"torch, front", [](HubTest& test) { test.Switch(&Api::SetTorchLightState, true); },
     &HubTest::FrontClear, 1.047},
    {"torch, flicker", [](HubTest& test) { test.Switch(&Api::SetTorchLightState, true); },
     &HubTest::FlickerLevel, 1.6},
    {"flicker gain", [](HubTest& test) { test.SetGain(host::kGainOfFlicker, 2); },
     &HubTest::FlickerLevel, 2},
    {"flicker pedestal", [](HubTest& test) { test.instance->SetFlickerPedestal(nullptr, 32); },
     &HubTest::FlickerLevel, 0.5},
    {"flicker channel", [](HubTest& test) { test.instance->SetFlickerChannel(nullptr, 0, 0); },
     &HubTest::FlickerLevel, 0.051},
};

TEST_F(HubTest, SettingsChangeTheData) {
  for (const auto& [setting, apply, measure, factor] : kEffects) {
    StartHub();
    SetAutoGain(false);
    const double before = (this->*measure)();
    apply(*this);
    EXPECT_NEAR(factor, (this->*measure)() / before, 0.01 * factor) << setting;
  }
}

TEST_F(HubTest, TooMuchGainClipsUnlessItIsAutomatic) {
  Switch(&Api::SetSpectralApplyFacCalEnabled, false);
  Switch(&Api::SetSpectralApplyOtpCalEnabled, false);
  Light(LightKind::kFluorescent, 1500);
  SetGain(host::kGainOfSpectral, 2048);
  SetGain(host::kGainOfFlicker, 64);
  const double highest = 1 - std::ldexp(1, 1 - 12);
  for (const bool automatic : {false, true}) {
    SetAutoGain(automatic);
    const double rear = RearClear() / host::kSpectralFullScale;
    EXPECT_TRUE(automatic ? rear > 0.2 && rear < 0.9 : rear == 1) << rear;
    const auto [low, high] = std::ranges::minmax(Flicker());
    EXPECT_TRUE(automatic ? high > 0.25 && high < highest : low == highest) << low << " " << high;
    FlickerFrequencyMetrics metrics{};
    EXPECT_EQ(HylErr::kOk, instance->GetFlickerFrequencyMetrics(nullptr, &metrics));
    EXPECT_EQ(100, metrics.metric0) << "twice the mains";
    EXPECT_EQ(automatic ? 0 : 1000, metrics.saturation) << "of a thousand";
  }
}

}  // namespace
}  // namespace hyl::v2::test
