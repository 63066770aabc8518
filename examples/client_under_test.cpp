// Unit tests of two clients. The first runs on the simulated sensors, whose clock the test moves,
// so that the test takes no time and always sees the same; the sensors lose data on request. The
// second runs on a scripted framework, which refuses requests and delivers what the test wants.
#include <chrono>
#include <vector>

#include <gtest/gtest.h>
#include <hyl/host/messages.h>
#include <hyl/host/scripted_framework.h>
#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>
#include <hyl/hyl_spectral_api.h>

using namespace hyl::v2;

/// Counts the flicker samples that it gets and those that it misses.
struct LossCounter : HylSpectralApiCallbackInterface {
  void OnSpectralData(uint32_t, uint32_t, const Vector<float>&, int64_t) override {}
  void OnFlickerData(uint32_t, const FlickerSampleBlock* block) override {
    missed += block->seq_num - next;
    next = block->seq_num + block->num_samples;
    received += block->num_samples;
  }
  uint32_t next = 0;
  uint32_t missed = 0;
  uint32_t received = 0;
};

class LossCounterTest : public testing::Test {
 protected:
  void SetUp() override {
    hub.Reset();
    hub.UseVirtualClock();
    hub.SetFlickerPacking({FlickerFormatSampleWidth::k16BitsIn2});  // whose numbers are exact
    ASSERT_EQ(HylSpectralApi::Create(&api, &counter, HylLogLevel::kWarning), HylErr::kOk);
  }
  void TearDown() override { HylSpectralApi::Destroy(&api); }

  void RunOneSecond() {
    uint32_t session = 0;
    ASSERT_EQ(api->EnableFlickerSensor("", buffer.data(), buffer.size(), 16, session), HylErr::kOk);
    hub.Advance(std::chrono::seconds(1));  // returns when all of it has been delivered
    ASSERT_EQ(api->DisableFlickerSensor(session), HylErr::kOk);
  }

  host::SimulatedHub& hub = host::SimulatedHub::Instance();
  std::vector<int> buffer = std::vector<int>(1024);
  LossCounter counter;
  HylSpectralApi* api = nullptr;
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
struct Brightness : HylSpectralApiCallbackInterface {
  Brightness() {
    EXPECT_EQ(HylSpectralApi::Create(&api, this, HylLogLevel::kWarning), HylErr::kOk);
  }
  ~Brightness() override { HylSpectralApi::Destroy(&api); }

  HylErr Start() {
    const auto mode = SensorReportingMode::kOnChange;
    const HylErr err = api->EnableAmbientLightSensor("Rear", session, mode);
    return err == HylErr::kOk ? err : api->EnableAmbientLightSensor("Rear", session, mode);
  }
  void OnSpectralData(uint32_t, uint32_t, const Vector<float>& values, int64_t) override {
    latest = values.empty() ? latest : values[0];
  }
  void OnFlickerData(uint32_t, const FlickerSampleBlock*) override {}

  HylSpectralApi* api = nullptr;
  uint32_t session = 0;
  float latest = 0;
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
