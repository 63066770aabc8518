// SPDX-License-Identifier: Apache-2.0
// The list of optical sensors: discovery, lookups, names.

#include <algorithm>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <hyl/host/scripted_framework.h>
#include <hyl/internal/sensor_info_mgr.h>

#include "library_test.h"

namespace hyl::v2::test {
namespace {

using spectral::SensorInfoMgr;
using spectral::VersionedSensorInfo;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Kind = FrameworkCall::Kind;

std::vector<std::string> Strings(const Vector<HylString>& names) {
  std::vector<std::string> strings;
  for (const HylString& name : names) {
    strings.emplace_back(name.c_str());
  }
  return strings;
}

std::vector<std::pair<Kind, int>> Steps(const std::vector<FrameworkCall>& calls) {
  std::vector<std::pair<Kind, int>> steps;
  steps.reserve(calls.size());
  for (const FrameworkCall& call : calls) {
    steps.emplace_back(call.kind, call.api);
  }
  return steps;
}

using PublicListTest = LibraryTest;

TEST_F(PublicListTest, DiscoveryThatFailsIsOneError) {
  constexpr int kAttempts = 50;
  framework.SetSensorList({MakeEntry(kFlicker, "never complete")});
  framework.Take();
  for (int n = 2; n <= kAttempts; n += 2) {
    framework.FailCreate(n);
  }
  uint32_t id = 0;
  EXPECT_EQ(HylErr::kNotFound, instance->EnableFlickerSensor("", buffer, 1, 16, id));
  EXPECT_THAT(log.Take(), ElementsAre(Error("Failed to create HYL API instance"),
                                      Error("Sensor '' not found")));
  const std::vector<FrameworkCall> calls = framework.Take();
  EXPECT_EQ(kAttempts, std::ranges::count(calls, Kind::kCreate, &FrameworkCall::kind));
  EXPECT_EQ(1, framework.LiveApis());

  framework.SetSensorList(DefaultSensors());
  EXPECT_NE(0U, EnableFlicker()) << "a later lookup tries again";
}

/// A list without an instance.
class SensorListTest : public ::testing::Test {
 protected:
  /// "name-t:type p:priority r:request id", or nothing.
  static std::string Find(const SensorInfoMgr& list, SensorType type, const char* name,
                          uint32_t index) {
    VersionedSensorInfo found;
    return list.GetSensorInfo(found, type, name, index) ? found.info.ToStr().c_str() : "";
  }

  LogCapture log;
  ScriptedFramework framework;
  SensorInfoMgr manager;
};

TEST_F(SensorListTest, AttemptsGoOnUntilTheListIsComplete) {
  framework.FailCreate(2);
  framework.SetSensorList([](int query) {
    return query < 2 ? std::vector{MakeEntry(kFlicker, "too early")} : DefaultSensors();
  });
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ("Rear ALS-t:12 p:0 r:0", Find(manager, 12, nullptr, 0));
  constexpr std::chrono::milliseconds kPauses{2 * 100};
  EXPECT_LE(kPauses, std::chrono::steady_clock::now() - begin);
  EXPECT_EQ(0, framework.LiveApis());
  EXPECT_THAT(Steps(framework.Take()),
              ElementsAre(std::pair(Kind::kCreate, 1), std::pair(Kind::kGetSensorList, 1),
                          std::pair(Kind::kCreate, 0), std::pair(Kind::kDestroy, 1),
                          std::pair(Kind::kCreate, 2), std::pair(Kind::kGetSensorList, 2),
                          std::pair(Kind::kDestroy, 2)));
  EXPECT_THAT(Strings(manager.GetSensorNames(13)), ElementsAre("Flicker"));
}

TEST_F(SensorListTest, WhatIsNotListedIsAnError) {
  framework.SetSensorList({MakeEntry(kListMarker, "marker"), MakeEntry(kFlicker, "50%s")});
  VersionedSensorInfo info;
  EXPECT_TRUE(manager.GetSensorInfo(info, 13, nullptr, 0));
  log.Take();
  info.info.request_id = 0xABCDEF;
  EXPECT_TRUE(manager.SetRequestId(info));
  info.info.priority = 7;
  EXPECT_FALSE(manager.SetRequestId(info));
  EXPECT_FALSE(manager.GetSensorInfo(info, uint64_t{info.version} << 32));
  EXPECT_FALSE(manager.GetSensorInfo(info, uint64_t{info.version} << 32 | 1));
  EXPECT_FALSE(manager.GetSensorInfo(info, uint64_t{info.version + 1} << 32));
  EXPECT_THAT(
      log.Take(),
      ElementsAre(Error("Can't set request_id, sensor_info {50%s-t:13 p:7 r:11259375} not found!"),
                  Info("Sensor-List[1]@V1:"), Info("  50%s-t:13 p:0 r:11259375"),
                  Error("Can't get sensor info, invalid request_id from 100000000."),
                  Error("Can't get sensor info, version mismatch: 2 != 1")));
}

/// The list is held while it is dumped. The lookup finds that it has not grown since.
TEST_F(SensorListTest, LookupsWaitForAListThatIsBeingSet) {
  framework.SetSensorList({MakeEntry(1U << 16, "accelerometer"), MakeEntry(kListMarker, "marker")});
  HoldAtLog dump("Sensor-List[");
  const auto find = [&] { return Find(manager, 0, "none", 0); };
  auto discovery = std::async(std::launch::async, find);
  EXPECT_TRUE(dump.AwaitArrival());
  auto lookup = std::async(std::launch::async, find);
  EXPECT_EQ(std::future_status::timeout, lookup.wait_for(std::chrono::milliseconds(30)));
  dump.Release();
  EXPECT_EQ("", discovery.get() + lookup.get());
}

TEST_F(SensorListTest, SensorsAndNamesWithoutMemoryAreLeftOut) {
  int growth = 0;
  host::FailVectorGrowth([&] { return ++growth == 1 || growth == 6; });
  EXPECT_EQ("", Find(manager, 12, "Rear", 0)) << "the first of the list";
  EXPECT_EQ("Front ALS-t:12 p:1 r:0", Find(manager, 12, nullptr, 1));
  EXPECT_THAT(Strings(manager.GetSensorNames(1012)), ElementsAre("Front ALS"));
  EXPECT_THAT(Strings(manager.GetSensorNames(1012)), ElementsAre("Rear ALS", "Front ALS"));
  host::FailVectorGrowth([] { return true; });
  const SensorInfoMgr empty;
  EXPECT_EQ("", Find(empty, 12, "Rear", 0));
  framework.Take();
  host::FailVectorGrowth({});
  EXPECT_EQ("", Find(empty, 12, "Rear", 0)) << "the list is final";
  EXPECT_THAT(framework.Take(), IsEmpty());
}

/// The slow one is held while it builds its list, until the fast one has set its own. If that has a
/// sensor it is final: the slow one changes nothing and logs nothing.
TEST_F(SensorListTest, OfTwoDiscoveriesTheFirstWithASensorCounts) {
  const SensorListEntry marker = MakeEntry(kListMarker, "marker");
  const SensorListEntry flicker = MakeEntry(kFlicker, "Flicker");
  const SensorListEntry other = MakeEntry(1U << 16, "accelerometer");
  const struct {
    std::vector<SensorListEntry> slow;
    std::vector<SensorListEntry> fast;
    std::vector<LogEntry> entries;
  } kCases[] = {
      {{marker, flicker, other},
       {marker, flicker},
       {Info("Setting SensorInfo list."), Info("Sensor-List[1]@V1:"),
        Info("  Flicker-t:13 p:0 r:0"), Info("SensorInfo list has been set.")}},
      {{marker, flicker},
       {marker, other},
       {Info("Setting SensorInfo list."), Info("Sensor-List[0]@V1:"),
        Info("SensorInfo list has been set."), Info("Setting SensorInfo list."),
        Info("Sensor-List[1]@V2:"), Info("  Flicker-t:13 p:0 r:0"),
        Info("SensorInfo list has been set.")}},
  };
  const std::thread::id fast = std::this_thread::get_id();
  for (const auto& c : kCases) {
    SensorInfoMgr list;
    framework.SetSensorList(
        [&](int) { return std::this_thread::get_id() == fast ? c.fast : c.slow; });
    HoldPoint building;
    host::FailVectorGrowth([&] {
      if (std::this_thread::get_id() != fast) {
        building.Arrive();
      }
      return false;
    });
    std::string found_by_slow;
    std::thread slow([&] { found_by_slow = Find(list, 13, nullptr, 0); });
    EXPECT_TRUE(building.AwaitArrival());
    VersionedSensorInfo info;
    const bool found = list.GetSensorInfo(info, 13, nullptr, 0);
    info.info.request_id = 9;
    EXPECT_EQ(found, found && list.SetRequestId(info));
    building.Release();
    slow.join();
    EXPECT_EQ(found ? "Flicker-t:13 p:0 r:9" : "Flicker-t:13 p:0 r:0", found_by_slow);
    EXPECT_EQ(c.entries, log.Take());
  }
  host::FailVectorGrowth({});
}

}  // namespace
}  // namespace hyl::v2::test
