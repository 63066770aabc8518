// Enable, change and disable of sensors of both kinds: requests, results, messages, and which
// session gets the samples then.

#include <iterator>
#include <string>
#include <vector>

#include "library_test.h"

namespace hyl::v2::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using SensorControlTest = LibraryTest;

TEST_F(SensorControlTest, RequestsAreRightByteByByte) {
  ListSensors({MakeEntry(kRearContinuous, "Rear"), MakeEntry(kFrontOnChange, "Front"),
               MakeEntry(kFlicker, "Flicker A"), MakeEntry(kFlicker + 3, "Flicker B")});
  const uint32_t rear = Enable(nullptr);
  const uint32_t front = Enable("Front", kOnChange);
  const uint32_t flicker = EnableFlicker("Flicker B");
  EXPECT_STREQ("Flicker B", instance->GetSensorName(flicker).c_str());
  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(rear));
  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(front));
  EXPECT_EQ(HylErr::kOk, instance->DisableFlickerSensor(flicker));
  const struct {
    uint32_t type;
    uint32_t handle;
    std::vector<uint8_t> bytes;
  } kWanted[] = {
      {3, 0x04F40000,
       RequestBytes(56, {{12, 4, 0x0A0003F4}, {40, 8, 100'000'000}, {48, 1, 1}, {49, 1, 1}})},
      {2, 0x010C0001, RequestBytes(40, {{12, 4, 0x0A01000C}, {33, 1, 1}, {34, 1, 1}})},
      {3, 0x010D0003, RequestBytes(56, {{12, 4, 0x0A03000D}, {40, 8, 10'000'000'000}})},
      {4, 0x04F40000, RequestBytes(16, {{12, 4, 0x0A0003F4}})},
      {4, 0x010C0001, RequestBytes(16, {{12, 4, 0x0A01000C}})},
      {4, 0x010D0003, RequestBytes(16, {{12, 4, 0x0A03000D}})}};
  const std::vector<FrameworkCall> calls = framework.TakeInvokes();
  ASSERT_EQ(std::size(kWanted), calls.size());
  for (size_t i = 0; i < calls.size(); ++i) {
    EXPECT_EQ(kWanted[i].type, calls[i].type) << i;
    EXPECT_EQ(kWanted[i].handle, calls[i].handle) << i;
    EXPECT_EQ(kWanted[i].bytes, BytesOf(calls[i])) << i;
    EXPECT_EQ(calls[i % 3].callbacks, calls[i].callbacks) << i;
    EXPECT_NE(calls[(i + 1) % 3].callbacks, calls[i].callbacks) << i;
  }
  EXPECT_THAT(log.TakeProblems(), IsEmpty());
}

TEST_F(SensorControlTest, EnableRefusesWhatMakesNoSense) {
  ListSensors({MakeEntry(kRearContinuous, "Rear"), MakeEntry(kFlicker, "Flicker"),
               MakeEntry(kRearContinuous + kMaxPriority + 1, "Far")});
  const struct {
    const char* name;
    uint32_t mode;
    HylErr result;
    const char* message;
  } kCases[] = {
      {"Rear", 0, HylErr::kInvalidArgument, "Cannot enable ALS, invalid reporting mode: 0"},
      {"Rear", 3, HylErr::kInvalidArgument, "Cannot enable ALS, invalid reporting mode: 3"},
      {"Rear", 2, HylErr::kNotFound, "Sensor 'Rear' not found"},
      {"Flicker", 1, HylErr::kNotFound, "Sensor 'Flicker' not found"},
      {"Far", 1, HylErr::kFailed, "Cannot start sensor 'Far'-1012:256, priority above 255"},
  };
  for (const auto& [name, mode, result, message] : kCases) {
    uint32_t id = 99;
    EXPECT_EQ(result, instance->EnableAmbientLightSensor(name, id, SensorReportingMode{mode}));
    EXPECT_EQ(99U, id) << "written on success only";
    EXPECT_THAT(log.TakeProblems(), ElementsAre(Error(message)));
  }
  EXPECT_THAT(framework.TakeInvokes(), IsEmpty());
}

/// Each on a new session of the rear sensor in continuous mode.
TEST_F(SensorControlTest, ChangeThatFails) {
  const std::string stop = "4 4f40000 a0003f4";
  const std::string start = "2 10c0000 a00000c";
  const struct {
    uint32_t mode;
    int refused;  // of the operation's requests, that number is refused with 3
    HylErr result;
    std::vector<LogEntry> messages;
    std::vector<std::string> requests;
    bool runs_on;
  } kCases[] = {
      {0,
       0,
       HylErr::kInvalidArgument,
       {Error("Change-ALS: Invalid reporting mode (0)!")},
       {},
       true},
      {3,
       0,
       HylErr::kInvalidArgument,
       {Error("Change-ALS: Invalid reporting mode (3)!")},
       {},
       true},
      {1, 0, HylErr::kOk, {}, {}, true},
      {2, 1, HylErr{3}, {Error("Change-ALS: InvokeAsyncServiceCall err:  3!")}, {stop}, true},
      {2, 2, HylErr{3}, {Error("Change-ALS: start err:  3!")}, {stop, start}, false},
  };
  for (const auto& [mode, refused, result, messages, requests, runs_on] : kCases) {
    const uint32_t id = Enable("Rear");
    TakeRequests();
    log.Take();
    if (refused != 0) {
      framework.RefuseInvoke(refused, HylErr{3});
    }
    EXPECT_EQ(result, instance->ChangeAmbientLightSensorReporting(id, SensorReportingMode{mode}));
    EXPECT_EQ(messages, log.TakeProblems());
    EXPECT_EQ(requests, TakeRequests());
    EXPECT_EQ(runs_on ? 1U : 0U, framework.Running().size());
    EXPECT_EQ(runs_on ? HylErr::kOk : HylErr::kNotFound, instance->DisableAmbientLightSensor(id));
  }
}

TEST_F(SensorControlTest, ChangeToAModeThatIsNotListed) {
  ListSensors({MakeEntry(kRearContinuous, "Rear")});
  const uint32_t id = Enable("Rear");
  log.Take();
  EXPECT_EQ(HylErr::kNotFound, instance->ChangeAmbientLightSensorReporting(id, kOnChange));
  EXPECT_THAT(log.Take(),
              ElementsAre(Error("Change-ALS: Sensor of new type 12 priority 0 not found")));
  EXPECT_THAT(framework.Running(), IsEmpty());
}

/// The session is gone before the stop is sent, and the sensor is marked as stopped all the same.
TEST_F(SensorControlTest, DisableThatIsRefused) {
  const uint32_t id = Enable("Rear");
  log.Take();
  framework.RefuseInvoke(1, HylErr{3});
  framework.SetHook(
      [&](const FrameworkCall&) { EXPECT_STREQ("", instance->GetSensorName(id).c_str()); });
  EXPECT_EQ(HylErr{3}, instance->DisableAmbientLightSensor(id));
  framework.SetHook({});
  EXPECT_THAT(log.Take(),
              ElementsAre(Error(Text("Cannot determine sensor name, no session-id:%u", id)),
                          Error("Failed to stop sensor 'Rear ALS'-1012:0(167773172@v1) (err:3)")));
  EXPECT_NE(id, Enable("Rear"));
}

/// Disable looks at the session's id, not at its kind.
TEST_F(SensorControlTest, DisableOfTheOtherKind) {
  const uint32_t light = Enable("Front");
  const uint32_t flicker = EnableFlicker();
  const void* const flicker_object = framework.TakeInvokes().at(1).callbacks;
  EXPECT_EQ(HylErr::kOk, instance->SetTorchLightState(nullptr, true));
  const void* const rear_object = framework.TakeInvokes().at(0).callbacks;

  EXPECT_EQ(HylErr::kOk, instance->DisableFlickerSensor(light));
  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(flicker));
  const std::vector<FrameworkCall> stops = framework.TakeInvokes();
  ASSERT_EQ(2U, stops.size());
  EXPECT_EQ(0x010D0001U, stops[0].handle) << "always the flicker type's handle";
  EXPECT_EQ(0x0A0103F4U, stops[0].ClientId());
  EXPECT_EQ(flicker_object, stops[0].callbacks);
  EXPECT_EQ(0x010D0000U, stops[1].handle);
  EXPECT_EQ(0x0A00000DU, stops[1].ClientId());
  EXPECT_EQ(rear_object, stops[1].callbacks) << "the object of priority 0";
}

// --- more sensors than sessions ---

class FullTableTest : public LibraryTest {
 protected:
  /// Lists a sensor more than there are sessions, and enables all others.
  void Fill(uint32_t first_handle) {
    std::vector<SensorListEntry> list;
    for (uint32_t i = 0; i <= kMaxSessions; ++i) {
      list.push_back(MakeEntry(first_handle + i, Text("S%u", i)));
    }
    ListSensors(list);
    for (uint32_t i = 0; i < kMaxSessions; ++i) {
      const std::string name = Text("S%u", i);
      id_ = first_handle == kFlicker ? EnableFlicker(name.c_str()) : Enable(name.c_str());
    }
    log.Take();
    framework.Take();
  }
  HylErr EnableLast() {
    return instance->EnableAmbientLightSensor(last_.c_str(), id_, kContinuous);
  }
  HylErr EnableLastFlicker() {
    return instance->EnableFlickerSensor(last_.c_str(), buffer, std::size(buffer), 16, id_);
  }

  const std::string last_ = Text("S%zu", kMaxSessions);
  uint32_t id_ = 0;  // of the latest session
};

TEST_F(FullTableTest, StartIsTakenBack) {
  Fill(kRearContinuous);
  const uint32_t id = id_;
  for (const HylErr stop_result : {HylErr::kOk, HylErr{200}}) {
    framework.RefuseInvoke(2, stop_result);
    EXPECT_EQ(stop_result == HylErr::kOk ? HylErr::kNoSession : stop_result, EnableLast());
    EXPECT_EQ(id, id_) << "written on success only";
    EXPECT_THAT(TakeRequests(), ElementsAre("3 4f40008 a0803f4", "4 4f40008 a0803f4"));
    EXPECT_THAT(log.Take(),
                ElementsAre(Error("Cannot add session for S8 10a0803f4, table full!"),
                            Error("Cannot enable ALS sensor 'S8', no session available!")));
  }
  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(id));
  EXPECT_EQ(HylErr::kOk, EnableLast()) << "not taken for running";
}

TEST_F(FullTableTest, AFlickerSensorCountsAsRunningThen) {
  Fill(kFlicker);
  EXPECT_EQ(HylErr::kNoSession, EnableLastFlicker());
  EXPECT_THAT(TakeRequests(), ElementsAre("3 10d0008 a08000d", "4 10d0008 a08000d"));
  EXPECT_THAT(log.Take(),
              ElementsAre(Error("Cannot add session for S8 10a08000d, table full!"),
                          Error("Cannot enable flicker sensor 'S8', no session available!")));
  EXPECT_EQ(HylErr::kAlreadyRunning, EnableLastFlicker());
  EXPECT_THAT(TakeRequests(), IsEmpty());
}

TEST_F(FullTableTest, TheFailedStartSilencesTheOthers) {
  Fill(kRearContinuous);
  const uint32_t latest = kRearContinuous + uint32_t{kMaxSessions} - 1;
  framework.Deliver(latest, SpectralMessage({1}));
  EXPECT_THAT(client.TakeSpectral(), ElementsAre(SpectralCall{0, id_, {1}, 0}));
  EXPECT_EQ(HylErr::kNoSession, EnableLast());
  log.Take();
  framework.Deliver(latest, SpectralMessage({2}));
  EXPECT_THAT(client.TakeSpectral(), IsEmpty());
  EXPECT_THAT(
      log.Take(),
      ElementsAre(Error("Can't find session for cookie:10a0803f4 to handle spectral msg!")));
}

// --- which session gets the samples ---

using RoutingTest = LibraryTest;

TEST_F(RoutingTest, SamplesGoToTheSessionStartedLast) {
  const uint32_t front = Enable("Front");
  Enable("Rear", kOnChange);
  const uint32_t second = Enable("Rear", kContinuous);
  framework.Deliver(kRearOnChange, SpectralMessage({1}));
  framework.Deliver(kFrontContinuous, SpectralMessage({2}));
  EXPECT_EQ(HylErr::kOk, instance->ChangeAmbientLightSensorReporting(front, kOnChange));
  framework.Deliver(kFrontOnChange, SpectralMessage({3}));
  EXPECT_THAT(client.TakeSpectral(),
              ElementsAre(SpectralCall{0, second, {1}, 0}, SpectralCall{0, front, {2}, 0},
                          SpectralCall{0, front, {3}, 0}));
  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(second));
  framework.Deliver(kRearOnChange, SpectralMessage({4}));
  EXPECT_THAT(client.TakeSpectral(), IsEmpty()) << "the other session gets nothing";

  // The same request again has the same cookie, but another session.
  const uint32_t third = Enable("Rear", kContinuous);
  framework.Deliver(kRearContinuous, SpectralMessage({5}));
  EXPECT_THAT(client.TakeSpectral(), ElementsAre(SpectralCall{0, third, {5}, 0}));
}

TEST_F(RoutingTest, FlickerDataGoToTheSessionStartedLast) {
  ListSensors({MakeEntry(kFlicker, "A"), MakeEntry(kFlicker + 1, "B")});
  EnableFlicker("A");
  const uint32_t second = EnableFlicker("B");
  kFlickerData.deliver(*framework.CallbacksOf(kFlicker));
  const std::vector<FlickerCall> calls = client.TakeFlicker();
  ASSERT_EQ(1U, calls.size());
  EXPECT_EQ(second, calls[0].session_id);
}

TEST_F(RoutingTest, ASampleBeforeItsCookieIsDropped) {
  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(Enable("Rear", kOnChange)));
  log.Take();
  framework.SetHook([&](const FrameworkCall&) {  // the rear object is known; its new request is not
    framework.Deliver(kRearOnChange, SpectralMessage({1}));
  });
  const uint32_t id = Enable("Rear");
  framework.SetHook({});
  EXPECT_THAT(client.TakeSpectral(), IsEmpty());
  EXPECT_THAT(
      log.Take(),
      ElementsAre(Error("Can't find session for cookie:10a00000c to handle spectral msg!")));
  framework.Deliver(kRearContinuous, SpectralMessage({2}));
  EXPECT_THAT(client.TakeSpectral(), ElementsAre(SpectralCall{0, id, {2}, 0}));
}

}  // namespace
}  // namespace hyl::v2::test
