// A unit test of a client: the simulated sensors run on a clock that the test moves, and lose data
// on request, so that the test takes no time and always sees the same.
#include <chrono>
#include <vector>

#include <gtest/gtest.h>
#include <hyl/host/simulated_hub.h>
#include <hyl/hyl_spectral_api.h>

using namespace hyl::v2;

/// The client: counts the flicker samples that it gets and those that it misses.
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
    HylSpectralApi::Create(&api, &counter, HylLogLevel::kWarning);
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
