// SPDX-License-Identifier: Apache-2.0
// Enable, change and disable of sensors: which operations wait for which, which session gets the
// samples, and what readers see of the session table.

#include <atomic>
#include <chrono>
#include <future>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <hyl/internal/session_mgr.h>

#include "library_test.h"
#include "operations.h"
#include "test_access.h"

namespace hyl::v2::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using SensorControlTest = LibraryTest;

/// A start request is held in the framework. Flicker messages wait likewise.
TEST_F(SensorControlTest, ControlOperationsTakeTurnsAndOthersDoNotWait) {
  EnableFlicker();
  framework.AnswerWith(ScriptedFramework::Echo);
  HoldPoint request;
  framework.SetHook([&](const FrameworkCall& call) {
    if (call.handle == kRearContinuous && call.As<StartContinuousSamplingReq>() != nullptr) {
      request.Arrive();
    }
  });
  std::thread enabling([&] { Enable("Rear"); });
  EXPECT_TRUE(request.AwaitArrival());
  std::vector<std::future<HylErr>> waiting;
  for (const Operation& operation : kOperations) {
    const auto call = [&] { return operation.Call(*instance.get(), 0); };
    if (operation.IsControl()) {
      waiting.push_back(std::async(std::launch::async, call));
    } else {
      ReturnsInTime(operation.name, call);
    }
  }
  ReturnsInTime("what has an invalid mode", [&] {
    uint32_t id = 0;
    const SensorReportingMode mode{3};
    EXPECT_EQ(HylErr::kInvalidArgument, instance->EnableAmbientLightSensor(nullptr, id, mode));
    EXPECT_EQ(HylErr::kInvalidArgument, instance->ChangeAmbientLightSensorReporting(1, mode));
  });
  waiting.push_back(std::async(std::launch::async, [&] {
    framework.Deliver(kFlicker, FlickerFormatMessage(FlickerFormatSampleWidth::kCompressed1));
    return HylErr::kOk;
  }));
  for (auto& result : waiting) {
    EXPECT_EQ(std::future_status::timeout, result.wait_for(std::chrono::milliseconds(10)));
  }
  request.Release();
  enabling.join();
  waiting.clear();
  framework.AwaitAnswers();
  framework.SetHook({});
}

// --- more sensors than sessions ---

class FullTableTest : public LibraryTest {
 protected:
  /// Lists a sensor more than there are sessions, and enables all others.
  void Fill(uint32_t first_handle) {
    std::vector<SensorListEntry> list;
    for (uint32_t i = 0; i <= kMaxSessions; ++i) {
      list.push_back(MakeEntry(first_handle + i, Text("S%u sensor", i)));
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
  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(id_));
  EXPECT_EQ(id_ + 1, Enable(last_.c_str())) << "the failed enable has used no id";
}

TEST_F(FullTableTest, TheResultIsTheRefusalOfTheStop) {
  Fill(kFlicker);
  framework.RefuseInvoke(2, HylErr{77});
  EXPECT_EQ(HylErr{77}, EnableLastFlicker());
  EXPECT_THAT(
      log.Take(),
      ElementsAre(Error("Cannot add session for S8 sensor 10a08000d, table full!"),
                  Error("Cannot enable flicker sensor 'S8 sensor', no session available!")));
}

// --- the session table ---

TEST(SessionMgr, AnUnknownIdIsAnError) {
  LogCapture log;
  spectral::SessionMgr table;
  table.DeleteSession(0);
  table.DeleteSession(12);
  EXPECT_THAT(log.Take(), ElementsAre(Error("Cannot delete session 0, not active or found!"),
                                      Error("Cannot delete session 12, not active or found!")));
}

TEST(SessionMgr, ReadersSeeIdsAndCookiesThatBelongTogether) {
  constexpr uint32_t kRounds = 300'000;
  constexpr uint64_t kOffset = 0x1'00000000;
  spectral::SessionMgr table;
  const uint32_t first = TestAccess::NextId();
  std::atomic<uint32_t> current{first};
  std::thread writer([&] {  // alone adds sessions, so that their ids are known before
    for (uint32_t id = first; id < first + kRounds; ++id) {
      table.AddSession(kFlickerType, "name", kOffset + id, ReportingMode::kContinuous);
      current = id;
      table.DeleteSession(id);
    }
    current = 0;
  });
  int mismatches = 0;
  for (uint32_t id = current; id != 0; id = current) {
    for (const uint32_t wanted : {id, id + 1}) {
      uint64_t cookie = kOffset + wanted;
      mismatches += table.FindCookie(wanted, cookie) && cookie != kOffset + wanted ? 1 : 0;
      const uint32_t found = table.FindId(kOffset + wanted);
      mismatches += found != 0 && found != wanted ? 1 : 0;
    }
  }
  writer.join();
  EXPECT_EQ(0, mismatches);
}

}  // namespace
}  // namespace hyl::v2::test
