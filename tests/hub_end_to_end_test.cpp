// The whole way: the built library on the simulated hub, whose clock the tests step.

#include <chrono>
#include <string>
#include <vector>

#include <hyl/host/simulated_hub.h>

#include "library_test.h"

namespace hyl::v2::test {
namespace {

using host::LightKind;
using host::SimulatedHub;
using std::chrono::milliseconds;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class HubTest : public ::testing::Test {
 protected:
  HubTest() {
    Hub().Reset();
    Hub().UseVirtualClock();
    Light(500);
  }
  ~HubTest() override {
    instance.Destroy();
    Hub().Reset();
  }

  static SimulatedHub& Hub() { return SimulatedHub::Instance(); }
  /// Steady daylight.
  static void Light(double lux) {
    Hub().SetScene({.kind = LightKind::kDaylight, .illuminance_lux = lux, .drift_depth = 0});
  }
  uint32_t Enable(const char* name, SensorReportingMode mode) {
    uint32_t id = 0;
    EXPECT_EQ(HylErr::kOk, instance->EnableAmbientLightSensor(name, id, mode));
    return id;
  }
  /// What the client gets in that time.
  std::vector<SpectralCall> Calls(milliseconds time) {
    Hub().Advance(time);
    return client.TakeSpectral();
  }

  LogCapture log;
  RecordingClient client;
  Instance instance{&client};
};

TEST_F(HubTest, ListsItsSensors) {
  const Vector<HylString> names = instance->GetAmbientLightSensorNames();
  ASSERT_EQ(2U, names.size());
  EXPECT_STREQ("rear ambient light", names[0].c_str());
  EXPECT_STREQ("front ambient light", names[1].c_str());
  EXPECT_TRUE(instance->IsSensorSupported(OpticalSensorType::kFlicker, nullptr));
}

TEST_F(HubTest, StreamsRearAndFrontSideBySide) {
  const uint32_t rear = Enable("rear", kContinuous);
  const uint32_t front = Enable("front", kContinuous);
  std::vector<int64_t> rear_times;
  size_t front_calls = 0;
  for (const SpectralCall& call : Calls(milliseconds(2000))) {
    EXPECT_EQ(0U, call.kind);
    EXPECT_LE(10U, call.values.size());
    EXPECT_GE(Hub().Now(), call.timestamp) << "in nanoseconds, also where the hub sends ticks";
    EXPECT_LE(0, call.timestamp);
    if (call.session_id == rear) {
      rear_times.push_back(call.timestamp);
    } else {
      EXPECT_EQ(front, call.session_id);
      ++front_calls;
    }
  }
  EXPECT_NEAR(20, static_cast<double>(rear_times.size()), 1) << "one each 100 ms";
  EXPECT_NEAR(20, static_cast<double>(front_calls), 4) << "in chains";
  for (size_t i = 1; i < rear_times.size(); ++i) {
    EXPECT_NEAR(1e8, static_cast<double>(rear_times[i] - rear_times[i - 1]), 100);
  }
  EXPECT_EQ(2U, Hub().RunningRequests().size());
  EXPECT_THAT(log.TakeProblems(), IsEmpty());
}

TEST_F(HubTest, OnChangeReportsWhenTheLightChanges) {
  const uint32_t id = Enable("rear", kOnChange);
  Calls(milliseconds(1000));
  EXPECT_THAT(Calls(milliseconds(3000)), IsEmpty()) << "steady light";
  Light(50);
  const std::vector<SpectralCall> calls = Calls(milliseconds(1000));
  ASSERT_THAT(calls, ::testing::Not(IsEmpty()));
  EXPECT_EQ(id, calls[0].session_id);
  EXPECT_THAT(Calls(milliseconds(3000)), IsEmpty());
}

TEST_F(HubTest, ChangeOfModeKeepsTheSessionAndDisableEndsIt) {
  const uint32_t id = Enable("rear", kContinuous);
  EXPECT_THAT(Calls(milliseconds(1000)), ::testing::Not(IsEmpty()));
  EXPECT_EQ(HylErr::kOk, instance->ChangeAmbientLightSensorReporting(id, kOnChange));
  Calls(milliseconds(1000));
  EXPECT_THAT(Calls(milliseconds(1000)), IsEmpty());
  EXPECT_EQ(HylErr::kOk, instance->ChangeAmbientLightSensorReporting(id, kContinuous));
  const std::vector<SpectralCall> calls = Calls(milliseconds(1000));
  ASSERT_THAT(calls, ::testing::Not(IsEmpty()));
  EXPECT_EQ(id, calls[0].session_id);
  EXPECT_THAT(Hub().RunningRequests(), SizeIs(1));

  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(id));
  EXPECT_THAT(Hub().RunningRequests(), IsEmpty());
  EXPECT_THAT(Calls(milliseconds(1000)), IsEmpty());
  EXPECT_THAT(log.TakeProblems(), IsEmpty());
}

}  // namespace
}  // namespace hyl::v2::test
