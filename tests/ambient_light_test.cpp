// Enable, change and disable of ambient-light sensors: requests, results and messages.

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "library_test.h"

namespace hyl::v2::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// "type handle client-id", in hexadecimal, of each request.
std::vector<std::string> Requests(ScriptedFramework& framework) {
  std::vector<std::string> requests;
  for (const FrameworkCall& call : framework.TakeInvokes()) {
    EXPECT_EQ(1, call.api) << "requests go through the instance's own client";
    requests.push_back(Text("%x %x %x", call.type, call.handle, call.client_id()));
  }
  return requests;
}

using AmbientLightTest = LibraryTest;

TEST_F(AmbientLightTest, RequestsAreRightByteByByte) {
  const uint32_t rear = Enable(nullptr);
  const uint32_t front = Enable("Front", kOnChange);
  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(rear));
  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(front));
  const std::vector<FrameworkCall> calls = framework.TakeInvokes();
  ASSERT_EQ(4U, calls.size());
  EXPECT_EQ(3U, calls[0].type);
  EXPECT_EQ(0x04F40000U, calls[0].handle);
  EXPECT_EQ(RequestBytes(
                56, {{8, 1, 1}, {12, 4, 0x0A0003F4}, {40, 8, 100'000'000}, {48, 1, 1}, {49, 1, 1}}),
            BytesOf(calls[0]));
  EXPECT_EQ(2U, calls[1].type);
  EXPECT_EQ(0x010C0001U, calls[1].handle);
  EXPECT_EQ(RequestBytes(40, {{8, 1, 1}, {12, 4, 0x0A01000C}, {33, 1, 1}, {34, 1, 1}}),
            BytesOf(calls[1]));
  EXPECT_EQ(4U, calls[2].type);
  EXPECT_EQ(0x04F40000U, calls[2].handle);
  EXPECT_EQ(RequestBytes(16, {{8, 1, 1}, {12, 4, 0x0A0003F4}}), BytesOf(calls[2]));
  EXPECT_EQ(0x010C0001U, calls[3].handle);
  EXPECT_EQ(RequestBytes(16, {{8, 1, 1}, {12, 4, 0x0A01000C}}), BytesOf(calls[3]));
  EXPECT_EQ(calls[0].callbacks, calls[2].callbacks);
  EXPECT_EQ(calls[1].callbacks, calls[3].callbacks);
  EXPECT_NE(calls[0].callbacks, calls[1].callbacks);
  EXPECT_THAT(log.TakeProblems(), IsEmpty());
}

enum class Before { kIdle, kFarOnly, kRearRuns, kRearRunsAlone };

struct Call {
  enum { kEnable, kChange, kDisable } operation;
  const char* name;
  uint32_t mode;
};
constexpr Call EnableIt(const char* name, uint32_t mode) {
  return {Call::kEnable, name, mode};
}
constexpr Call Change(uint32_t mode) {
  return {Call::kChange, nullptr, mode};
}
constexpr Call kDisable{Call::kDisable, nullptr, 0};

/// What an operation does when something is wrong.
struct Fault {
  Fault(const char* its_name, Before state, Call operation)
      : name(its_name), before(state), call(operation) {}
  /// Of the operation's requests, that number is refused with 3.
  Fault Refusing(int request) && {
    refused = request;
    return std::move(*this);
  }
  Fault Gives(uint8_t code, const char* text, std::vector<std::string> sent = {},
              size_t running = 0) && {
    result = HylErr{code};
    message = text;
    requests = std::move(sent);
    left_running = running;
    return std::move(*this);
  }

  const char* name;
  Before before;
  Call call;
  int refused = 0;
  HylErr result{};
  std::string message;
  std::vector<std::string> requests;
  size_t left_running = 0;
};

constexpr const char* kStop = "4 4f40000 a0003f4";
constexpr const char* kStart = "2 10c0000 a00000c";
using enum Before;

std::vector<Fault> EnableFaults() {
  return {
      Fault("Mode0", kIdle, EnableIt("Rear", 0))
          .Gives(9, "Cannot enable ALS, invalid reporting mode: 0"),
      Fault("Mode3", kIdle, EnableIt("Rear", 3))
          .Gives(9, "Cannot enable ALS, invalid reporting mode: 3"),
      Fault("Unknown", kIdle, EnableIt("Side", 1)).Gives(7, "Sensor 'Side' not found"),
      Fault("Flicker", kIdle, EnableIt("Flicker", 2)).Gives(7, "Sensor 'Flicker' not found"),
      Fault("Index256", kFarOnly, EnableIt("Far", 1))
          .Gives(2, "Cannot start sensor 'Far'-1012:256, priority above 255"),
  };
}

std::vector<Fault> ChangeFaults() {
  return {
      Fault("Mode0", kRearRuns, Change(0))
          .Gives(9, "Change-ALS: Invalid reporting mode (0)!", {}, 1),
      Fault("Mode3", kRearRuns, Change(3))
          .Gives(9, "Change-ALS: Invalid reporting mode (3)!", {}, 1),
      Fault("StopRefused", kRearRuns, Change(2))
          .Refusing(1)
          .Gives(3, "Change-ALS: InvokeAsyncServiceCall err:  3!", {kStop}, 1),
      Fault("StartRefused", kRearRuns, Change(2))
          .Refusing(2)
          .Gives(3, "Change-ALS: start err:  3!", {kStop, kStart}),
      Fault("Alone", kRearRunsAlone, Change(2))
          .Gives(7, "Change-ALS: Sensor of new type 12 priority 0 not found", {kStop}),
  };
}

Fault DisableFault() {
  return Fault("Refused", kRearRuns, kDisable)
      .Refusing(1)
      .Gives(3, "Failed to stop sensor 'Rear ALS'-1012:0(167773172@v1) (err:3)", {kStop}, 1);
}

void PrintTo(const Fault& fault, std::ostream* out) {
  *out << fault.name;
}

class AmbientLightFaultTest : public LibraryTest, public ::testing::WithParamInterface<Fault> {
 protected:
  void Prepare(Before before) {
    const SensorListEntry marker = MakeEntry(kListMarker, "");
    if (before == kFarOnly) {
      framework.SetSensorList({marker, MakeEntry(kRearContinuous + 256, "Far")});
    } else if (before == kRearRunsAlone) {
      framework.SetSensorList({marker, MakeEntry(kRearContinuous, "Rear ALS")});
    }
    if (before >= kRearRuns) {
      session_ = Enable("Rear");
    }
    framework.Take();
    log.Take();
  }

  HylErr Make(const Call& call) {
    const auto mode = static_cast<SensorReportingMode>(call.mode);
    if (call.operation == Call::kDisable) {
      return instance->DisableAmbientLightSensor(session_);
    }
    if (call.operation == Call::kChange) {
      return instance->ChangeAmbientLightSensorReporting(session_, mode);
    }
    uint32_t id = 99;
    const HylErr err = instance->EnableAmbientLightSensor(call.name, id, mode);
    EXPECT_EQ(99U, id) << "written on success only";
    return err;
  }

 private:
  uint32_t session_ = 0;
};

TEST_P(AmbientLightFaultTest, HasItsResult) {
  const Fault& fault = GetParam();
  Prepare(fault.before);
  if (fault.refused > 0) {
    framework.RefuseInvoke(fault.refused, HylErr{3});
  }
  EXPECT_EQ(fault.result, Make(fault.call));
  EXPECT_THAT(log.TakeProblems(), ElementsAre(Error(fault.message)));
  EXPECT_EQ(fault.requests, Requests(framework));
  EXPECT_EQ(fault.left_running, framework.Running().size());
}

constexpr auto kFaultName = [](const auto& fault) { return std::string(fault.param.name); };
INSTANTIATE_TEST_SUITE_P(Enable, AmbientLightFaultTest, ::testing::ValuesIn(EnableFaults()),
                         kFaultName);
INSTANTIATE_TEST_SUITE_P(Change, AmbientLightFaultTest, ::testing::ValuesIn(ChangeFaults()),
                         kFaultName);
INSTANTIATE_TEST_SUITE_P(Disable, AmbientLightFaultTest, ::testing::Values(DisableFault()),
                         kFaultName);

class FullTableTest : public AmbientLightTest {
 protected:
  FullTableTest() {
    std::vector<SensorListEntry> list = {MakeEntry(kListMarker, "")};
    for (uint32_t index = 0; index <= kMaxSessions; ++index) {
      list.push_back(MakeEntry(kRearContinuous + index, Text("ALS %u", index)));
    }
    framework.SetSensorList(list);
    for (uint32_t index = 0; index < kMaxSessions; ++index) {
      first_ = std::min(first_, Enable(Text("ALS %u", index).c_str()));
    }
    log.Take();
    framework.Take();
  }

  uint32_t first_ = UINT32_MAX;
};

TEST_F(FullTableTest, StartIsTakenBack) {
  for (const HylErr stop_result : {HylErr::kOk, HylErr{200}}) {
    framework.RefuseInvoke(2, stop_result);
    uint32_t id = 99;
    EXPECT_EQ(stop_result == HylErr::kOk ? HylErr::kNoSession : stop_result,
              instance->EnableAmbientLightSensor("ALS 8", id, kContinuous));
    EXPECT_EQ(99U, id);
    EXPECT_THAT(Requests(framework), ElementsAre("3 4f40008 a0803f4", "4 4f40008 a0803f4"));
    EXPECT_THAT(log.Take(),
                ElementsAre(Error("Cannot add session for ALS 8 10a0803f4, table full!"),
                            Error("Cannot enable ALS sensor 'ALS 8', no session available!")));
  }
  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(first_));
  EXPECT_NE(0U, Enable("ALS 8")) << "not taken for running";
}

TEST_F(FullTableTest, TheFailedStartSilencesTheOthers) {
  const uint32_t other_front = kRearContinuous + 7;
  framework.Deliver(other_front, SpectralMessage({1}));
  EXPECT_THAT(client.TakeSpectral(), ::testing::SizeIs(1));
  uint32_t id = 0;
  EXPECT_EQ(HylErr::kNoSession, instance->EnableAmbientLightSensor("ALS 8", id, kContinuous));
  log.Take();
  framework.Deliver(other_front, SpectralMessage({2}));
  EXPECT_THAT(client.TakeSpectral(), IsEmpty());
  EXPECT_THAT(
      log.Take(),
      ElementsAre(Error("Can't find session for cookie:10a0803f4 to handle spectral msg!")));
}

}  // namespace
}  // namespace hyl::v2::test
