// Settings on the simulated hub: what is applied, and what it does to the data.

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>

#include "library_test.h"

namespace hyl::v2::test {
namespace {

using host::kGainOfFlicker;
using host::kGainOfSpectral;
using host::LightKind;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr size_t kClear = 10;
constexpr int kBits = 16;

class SettingsEndToEndTest : public testing::Test {
 protected:
  using Channels = std::array<double, host::kSpectralChannelCount>;

  SettingsEndToEndTest() {
    hub_.Reset();
    hub_.UseVirtualClock();
    SetLight(LightKind::kDaylight, 500);
  }
  ~SettingsEndToEndTest() override {
    api_.Destroy();
    hub_.Reset();
  }

  void SetLight(LightKind kind, double lux) {
    hub_.SetScene({.kind = kind, .illuminance_lux = lux, .drift_period_s = 0});
  }
  void SetGain(uint8_t of, float gain) {
    float applied = 0;
    ASSERT_EQ(HylErr::kOk, api_->SetGain(nullptr, of, gain, &applied));
    ASSERT_EQ(gain, applied);
  }
  void SetExposure(uint32_t us) {
    uint32_t applied = 0;
    ASSERT_EQ(HylErr::kOk, api_->SetExposureTime(nullptr, us, &applied));
    ASSERT_EQ(us, applied);
  }

  /// Runs an ambient-light sensor for a second.
  std::vector<SpectralCall> Samples(const char* sensor = nullptr) {
    uint32_t session = 0;
    EXPECT_EQ(HylErr::kOk,
              api_->EnableAmbientLightSensor(sensor, session, SensorReportingMode::kContinuous));
    hub_.Advance(seconds(1));
    EXPECT_EQ(HylErr::kOk, api_->DisableAmbientLightSensor(session));
    std::vector<SpectralCall> samples = client_.TakeSpectral();
    EXPECT_FALSE(samples.empty());
    return samples;
  }
  /// The mean of each channel over a second.
  Channels Means(const char* sensor = nullptr) {
    const std::vector<SpectralCall> samples = Samples(sensor);
    Channels means{};
    for (const SpectralCall& sample : samples) {
      for (size_t i = 0; i < means.size(); ++i) {
        means[i] += sample.values.at(i) / static_cast<double>(samples.size());
      }
    }
    return means;
  }
  /// The last tenth of a second of a flicker sensor's run, as parts of full scale.
  std::vector<double> Flicker() {
    std::vector<int32_t> buffer(1024);
    uint32_t session = 0;
    EXPECT_EQ(HylErr::kOk,
              api_->EnableFlickerSensor(nullptr, buffer.data(), buffer.size(), kBits, session));
    hub_.Advance(milliseconds(500));
    (void)client_.TakeFlicker();
    hub_.Advance(milliseconds(100));
    EXPECT_EQ(HylErr::kOk, api_->DisableFlickerSensor(session));
    std::vector<double> levels;
    for (const FlickerCall& call : client_.TakeFlicker()) {
      for (const int32_t sample : call.samples) {
        levels.push_back(std::ldexp(sample, 1 - kBits));
      }
    }
    EXPECT_GT(levels.size(), 2000U);
    return levels;
  }
  double FlickerMean() {
    const std::vector<double> levels = Flicker();
    return std::accumulate(levels.begin(), levels.end(), 0.0) / static_cast<double>(levels.size());
  }
  uint16_t Saturation() {
    uint16_t saturation = 0xFFFF;
    EXPECT_EQ(HylErr::kOk, api_->GetFlickerSaturation(nullptr, &saturation));
    return saturation;
  }

  host::SimulatedHub& hub_ = host::SimulatedHub::Instance();
  RecordingClient client_;
  Instance api_{&client_};
};

TEST_F(SettingsEndToEndTest, TheAppliedValueIsInRangeAndOnAStep) {
  constexpr uint32_t kMax = std::numeric_limits<uint32_t>::max();
  uint32_t applied = 0;
  for (const auto& [asked, expected] : std::vector<std::pair<uint32_t, uint32_t>>{
           {0, 100}, {100, 100}, {149, 100}, {150, 200}, {12345, 12300}, {kMax, 1000000}}) {
    EXPECT_EQ(HylErr::kOk, api_->SetExposureTime(nullptr, asked, &applied));
    EXPECT_EQ(expected, applied) << "exposure " << asked;
  }
  for (const auto& [asked, expected] : std::vector<std::pair<uint32_t, uint32_t>>{
           {0, 5000}, {5499, 5000}, {5500, 6000}, {20000, 20000}, {kMax, 10000000}}) {
    EXPECT_EQ(HylErr::kOk, api_->SetSamplingPeriod(nullptr, asked, &applied));
    EXPECT_EQ(expected, applied) << "period " << asked;
  }
  float gain = 0;
  for (const auto& [asked, expected] : std::vector<std::pair<float, float>>{
           {0.1F, 0.5F}, {-3, 0.5F}, {NAN, 0.5F}, {0.8F, 1}, {2.8F, 2}, {2.9F, 4}, {5000, 2048}}) {
    EXPECT_EQ(HylErr::kOk, api_->SetGain(nullptr, kGainOfSpectral, asked, &gain));
    EXPECT_EQ(expected, gain) << "gain " << asked;
  }
  gain = -1;
  EXPECT_EQ(HylErr::kInvalidArgument, api_->SetGain(nullptr, 2, 1, &gain));
  EXPECT_EQ(-1, gain);
}

TEST_F(SettingsEndToEndTest, EverySwitchIsReadBack) {
  struct Switch {
    unsigned bit;
    HylErr (HylSpectralApi::*set)(const char*, bool);
    HylErr (HylSpectralApi::*get)(const char*, bool*);
  };
  using Api = HylSpectralApi;
  const Switch switches[] = {
      {1, &Api::SetFlickerAutoGainEnabled, &Api::GetFlickerAutoGainEnabled},
      {2, &Api::SetSpectralAutoGainEnabled, &Api::GetSpectralAutoGainEnabled},
      {4, &Api::SetSpectralApplyFacCalEnabled, &Api::GetSpectralApplyFacCal},
      {8, &Api::SetSpectralApplyOtpCalEnabled, &Api::GetSpectralApplyOtpCal}};
  for (unsigned on = 0; on < 16; ++on) {
    for (const auto& [bit, set, get] : switches) {
      ASSERT_EQ(HylErr::kOk, (api_.get()->*set)(nullptr, (on & bit) != 0));
    }
    for (const auto& [bit, set, get] : switches) {
      bool read = (on & bit) == 0;
      ASSERT_EQ(HylErr::kOk, (api_.get()->*get)(nullptr, &read));
      EXPECT_EQ((on & bit) != 0, read) << "switch " << bit << " of " << on;
    }
  }
}

TEST_F(SettingsEndToEndTest, WhatWasWrittenIsReadBack) {
  uint8_t value = 0;
  ASSERT_EQ(HylErr::kOk, api_->SetRegister(nullptr, 0x21, 0x7F));
  ASSERT_EQ(HylErr::kOk, api_->SetRegister(nullptr, host::kIdRegister, 0x7F));
  ASSERT_EQ(HylErr::kOk, api_->GetRegister(nullptr, 0x21, &value));
  EXPECT_EQ(0x7F, value);
  ASSERT_EQ(HylErr::kOk, api_->GetRegister(nullptr, host::kIdRegister, &value));
  EXPECT_EQ(host::kIdRegisterValue, value) << "fixed";

  ASSERT_NO_FATAL_FAILURE(SetGain(kGainOfFlicker, 8));
  ASSERT_NO_FATAL_FAILURE(SetGain(kGainOfSpectral, 32));
  ASSERT_EQ(HylErr::kOk, api_->SetFlickerChannel(nullptr, 4, 9));
  uint32_t channel = 0;
  float gain = 0;
  ASSERT_EQ(HylErr::kOk, api_->GetFlickerConfig(nullptr, &channel, &gain));
  EXPECT_EQ(4U, channel);
  EXPECT_EQ(8, gain) << "the flicker sensor's own gain";
}

TEST_F(SettingsEndToEndTest, GainAndExposureScaleTheSamples) {
  ASSERT_EQ(HylErr::kOk, api_->SetSpectralAutoGainEnabled(nullptr, false));
  ASSERT_NO_FATAL_FAILURE(SetGain(kGainOfSpectral, 4));
  const Channels base = Means();
  ASSERT_NO_FATAL_FAILURE(SetGain(kGainOfSpectral, 16));
  const Channels more_gain = Means();
  ASSERT_NO_FATAL_FAILURE(SetExposure(2 * host::kDefaultExposureUs));
  const Channels more_of_both = Means();
  for (size_t i = 0; i < base.size(); ++i) {
    EXPECT_NEAR(4, more_gain[i] / base[i], 0.2) << "channel " << i;
    EXPECT_NEAR(2, more_of_both[i] / more_gain[i], 0.1) << "channel " << i;
  }
}

TEST_F(SettingsEndToEndTest, TheSamplingPeriodIsKept) {
  uint32_t applied = 0;
  EXPECT_EQ(10U, Samples().size());
  ASSERT_EQ(HylErr::kOk, api_->SetSamplingPeriod(nullptr, 20000, &applied));
  EXPECT_EQ(50U, Samples().size());
}

TEST_F(SettingsEndToEndTest, TooMuchGainClipsTheSamples) {
  for (const auto set :
       {&HylSpectralApi::SetSpectralAutoGainEnabled, &HylSpectralApi::SetSpectralApplyFacCalEnabled,
        &HylSpectralApi::SetSpectralApplyOtpCalEnabled}) {
    ASSERT_EQ(HylErr::kOk, (api_.get()->*set)(nullptr, false));
  }
  ASSERT_NO_FATAL_FAILURE(SetGain(kGainOfSpectral, 2048));
  EXPECT_EQ(host::kSpectralFullScale, Means()[kClear]);
  ASSERT_EQ(HylErr::kOk, api_->SetSpectralAutoGainEnabled(nullptr, true));
  const Channels in_range = Means();
  EXPECT_LT(*std::ranges::max_element(in_range), host::kSpectralFullScale * 0.9);
  EXPECT_GT(*std::ranges::max_element(in_range), host::kSpectralFullScale * 0.2);
}

TEST_F(SettingsEndToEndTest, TooMuchFlickerGainSaturates) {
  SetLight(LightKind::kFluorescent, 1500);
  ASSERT_EQ(HylErr::kOk, api_->SetFlickerAutoGainEnabled(nullptr, false));
  ASSERT_NO_FATAL_FAILURE(SetGain(kGainOfFlicker, 0.5));
  const std::vector<double> low = Flicker();
  EXPECT_LT(*std::ranges::max_element(low), 0.9);
  EXPECT_EQ(0, Saturation());

  ASSERT_NO_FATAL_FAILURE(SetGain(kGainOfFlicker, 64));
  const std::vector<double> clipped = Flicker();
  EXPECT_EQ(1 - std::ldexp(1, 1 - 12), *std::ranges::min_element(clipped)) << "all at the top";
  EXPECT_EQ(1000, Saturation()) << "of a thousand";
  FlickerFrequencyMetrics metrics{};
  ASSERT_EQ(HylErr::kOk, api_->GetFlickerFrequencyMetrics(nullptr, &metrics));
  EXPECT_EQ(1000, metrics.saturation);

  ASSERT_EQ(HylErr::kOk, api_->SetFlickerAutoGainEnabled(nullptr, true));
  const std::vector<double> followed = Flicker();
  EXPECT_LT(*std::ranges::max_element(followed), 1 - std::ldexp(1, 1 - 12));
  EXPECT_GT(*std::ranges::max_element(followed), 0.25);
  EXPECT_EQ(0, Saturation());
}

TEST_F(SettingsEndToEndTest, ThePedestalIsTakenOffFlickerSamples) {
  ASSERT_EQ(HylErr::kOk, api_->SetFlickerAutoGainEnabled(nullptr, false));
  const double without = FlickerMean();
  ASSERT_EQ(HylErr::kOk, api_->SetFlickerPedestal(nullptr, 32));
  EXPECT_NEAR(without - 32.0 / 256, FlickerMean(), 0.005);
}

TEST_F(SettingsEndToEndTest, TheTorchAddsLight) {
  ASSERT_EQ(HylErr::kOk, api_->SetSpectralAutoGainEnabled(nullptr, false));
  ASSERT_EQ(HylErr::kOk, api_->SetFlickerAutoGainEnabled(nullptr, false));
  const double rear = Means()[kClear];
  const double front = Means("front")[kClear];
  const double flicker = FlickerMean();
  ASSERT_EQ(HylErr::kOk, api_->SetTorchLightState(nullptr, true));
  const double lit_rear = Means()[kClear] / rear;
  const double lit_front = Means("front")[kClear] / front;
  const double lit_flicker = FlickerMean() / flicker;
  ASSERT_EQ(HylErr::kOk, api_->SetTorchLightState(nullptr, false));

  EXPECT_GT(lit_rear, 1.2);
  EXPECT_GT(lit_front, 1.01);
  EXPECT_LT(lit_front, lit_rear);
  EXPECT_NEAR((500 + host::kTorchLux) / 500, lit_flicker, 0.02);
  EXPECT_NEAR(1, Means()[kClear] / rear, 0.01) << "off again";
}

TEST_F(SettingsEndToEndTest, TheCalibrationSwitchesTakeEffect) {
  ASSERT_EQ(HylErr::kOk, api_->SetSpectralAutoGainEnabled(nullptr, false));
  const Channels both = Means();
  const auto changed_without = [&](HylErr (HylSpectralApi::*set)(const char*, bool)) {
    EXPECT_EQ(HylErr::kOk, (api_.get()->*set)(nullptr, false));
    const Channels off = Means();
    EXPECT_EQ(HylErr::kOk, (api_.get()->*set)(nullptr, true));
    Channels ratio{};
    std::ranges::transform(off, both, ratio.begin(), std::divides<>());
    return ratio;
  };
  const Channels factory = changed_without(&HylSpectralApi::SetSpectralApplyFacCalEnabled);
  const Channels otp = changed_without(&HylSpectralApi::SetSpectralApplyOtpCalEnabled);
  const auto off_one = [](double ratio) { return std::abs(ratio - 1) > 0.02; };
  EXPECT_GE(std::ranges::count_if(factory, off_one), 3);
  EXPECT_GE(std::ranges::count_if(otp, off_one), 3);
  EXPECT_GT(std::abs(factory[0] - otp[0]), 0.02) << "each has factors of its own";
  EXPECT_NEAR(1, Means()[0] / both[0], 0.01) << "on again";
}

TEST_F(SettingsEndToEndTest, FrequencyMetricsFollowTheLight) {
  const auto metrics_under = [&](const host::LightScene& scene) {
    hub_.SetScene(scene);
    FlickerFrequencyMetrics metrics{9, 9, 9, 9};
    EXPECT_EQ(HylErr::kOk, api_->GetFlickerFrequencyMetrics(nullptr, &metrics));
    return metrics;
  };
  for (const double mains : {50.0, 60.0}) {
    const auto metrics = metrics_under({.kind = LightKind::kFluorescent, .mains_hz = mains});
    EXPECT_EQ(2 * mains, metrics.metric0);
    EXPECT_EQ(4 * mains, metrics.metric1);
    EXPECT_GT(metrics.metric_byte, 20) << "percent";
  }
  EXPECT_EQ(3000, metrics_under({.kind = LightKind::kWarmLed, .pwm_hz = 3000}).metric0);
  const auto steady = metrics_under({.kind = LightKind::kDaylight});
  EXPECT_EQ(0, steady.metric0);
  EXPECT_EQ(0, steady.metric_byte);
}

}  // namespace
}  // namespace hyl::v2::test
