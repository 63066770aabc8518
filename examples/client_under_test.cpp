// SPDX-License-Identifier: Apache-2.0
// Unit tests of clients. The first runs on the simulated sensors, whose clock the test moves, so
// that the test takes no time and always sees the same; the sensors lose data on request. The
// others run on a scripted framework, which refuses requests, delivers messages and answers as the
// test wants.
#include <chrono>
#include <future>
#include <memory>
#include <span>
#include <utility>

#include <gtest/gtest.h>
#include <hyl/host/messages.h>
#include <hyl/host/scripted_framework.h>
#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>
#include <hyl/spectral_client.h>
#include <hyl/spectral_instance.h>

using namespace hyl::v2;

/// Counts the flicker samples that it gets and those that it misses.
class LossCounter {
 public:
  HylErr Start() { return client_.EnableFlicker("", 1024, 16, session_); }
  HylErr Stop() { return session_->Disable(); }

  uint32_t missed = 0;
  uint32_t received = 0;

 private:
  void Take(const FlickerSampleBlock& block) {
    missed += block.seq_num - next_;
    next_ = block.seq_num + block.num_samples;
    received += block.num_samples;
  }

  uint32_t next_ = 0;
  std::unique_ptr<FlickerSession> session_;
  SpectralClient client_{{.flicker = [this](auto, const auto& block) { Take(block); }}};
};

class LossCounterTest : public testing::Test {
 protected:
  void SetUp() override {
    hub.Reset();
    hub.UseVirtualClock();
    hub.SetFlickerPacking({FlickerFormatSampleWidth::k16BitsIn2});  // whose numbers are exact
  }

  void RunOneSecond() {
    ASSERT_EQ(counter.Start(), HylErr::kOk);
    hub.Advance(std::chrono::seconds(1));  // returns when all of it has been delivered
    ASSERT_EQ(counter.Stop(), HylErr::kOk);
  }

  host::SimulatedHub& hub = host::SimulatedHub::Instance();
  LossCounter counter;
};

TEST_F(LossCounterTest, MissesNothingFromASoundSensor) {
  RunOneSecond();
  EXPECT_EQ(counter.received, 24000U);
  EXPECT_EQ(counter.missed, 0U);
}

TEST_F(LossCounterTest, CountsEverySampleOfTheChunksThatTheSensorLoses) {
  hub.SetFlickerFaults({.lose_every = 8});  // of 100 chunks of 240 samples
  RunOneSecond();
  EXPECT_EQ(counter.missed, 12U * 240);
  EXPECT_EQ(counter.received, 88U * 240);
}

/// Keeps the latest brightness. Tries a second time when the sensor does not start.
class Brightness {
 public:
  HylErr Start() {
    const HylErr err = TryToStart();
    return err == HylErr::kOk ? err : TryToStart();
  }

  float latest = 0;

 private:
  HylErr TryToStart() {
    return client_.EnableAmbientLight("", SensorReportingMode::kOnChange, session_);
  }
  void Take(std::span<const float> values) { latest = values.empty() ? latest : values[0]; }

  std::unique_ptr<AmbientLightSession> session_;
  SpectralClient client_{{.ambient_light = [this](auto values, auto) { Take(values); }}};
};

class BrightnessTest : public testing::Test {
 protected:
  host::ScriptedFramework framework;  // outlives the client
  Brightness brightness;
};

TEST_F(BrightnessTest, TriesTwiceToStart) {
  framework.RefuseInvoke(1, HylErr::kFailed);  // the first request
  EXPECT_EQ(brightness.Start(), HylErr::kOk);
  EXPECT_EQ(framework.TakeInvokes().size(), 2U);
  EXPECT_EQ(framework.Running().size(), 1U);
}

TEST_F(BrightnessTest, SaysWhyItCannotStart) {
  framework.RefuseInvoke(host::ScriptedFramework::kEvery, HylErr{42});
  EXPECT_EQ(brightness.Start(), HylErr{42});
}

TEST_F(BrightnessTest, KeepsTheLatestThroughASampleWithoutValues) {
  ASSERT_EQ(brightness.Start(), HylErr::kOk);
  framework.Deliver(host::kRearOnChange, host::SpectralMessage({7, 8, 9}));
  framework.Deliver(host::kRearOnChange, host::SpectralMessage({}));
  EXPECT_EQ(brightness.latest, 7);
}

TEST(RefusedStopTest, IsReported) {
  host::ScriptedFramework framework;
  framework.UseSimulatedHub();  // which gets what is not refused
  LossCounter counter;
  ASSERT_EQ(counter.Start(), HylErr::kOk);
  framework.RefuseInvoke(1, HylErr::kFailed);
  EXPECT_EQ(counter.Stop(), HylErr::kFailed);
  EXPECT_EQ(framework.Running().size(), 1U);
}

/// What a client may meet that reads and writes settings.
class SettingsTest : public testing::Test {
 protected:
  host::ScriptedFramework framework;
  SpectralInstance api = MakeInstance(nullptr);
};

TEST_F(SettingsTest, AnAnswerIsLate) {
  framework.AnswerWith(host::ScriptedFramework::Echo);
  framework.HoldAnswers();
  uint32_t applied = 0;
  auto written =
      std::async(std::launch::async, [&] { return api->SetExposureTime("", 1000, &applied); });
  EXPECT_EQ(written.wait_for(std::chrono::milliseconds(10)), std::future_status::timeout);
  framework.ReleaseAnswers();
  EXPECT_EQ(written.get(), HylErr::kOk);
  EXPECT_EQ(applied, 1000U);
}

TEST_F(SettingsTest, AnAnswerHoldsAnotherValue) {
  framework.AnswerWith([](const host::FrameworkCall&) {
    auto reply = std::make_unique<host::SettingReply>(RlsAccess::kRead, RlsCommand::kRegister);
    reply->value8 = 7;
    host::ScriptedFramework::Messages messages;  // none, one or several
    messages.push_back(std::move(reply));
    return messages;
  });
  uint8_t value = 0;
  EXPECT_EQ(api->GetRegister("", 0x10, &value), HylErr::kOk);
  EXPECT_EQ(value, 7);
}
