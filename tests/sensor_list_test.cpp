// The list of optical sensors: discovery, lookups, names.

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include <hyl/host/hooks.h>
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
  std::vector<std::string> strings(names.size());
  std::transform(names.begin(), names.end(), strings.begin(),
                 [](const HylString& name) { return name.c_str(); });
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

/// "name-t:type p:priority r:request id", or nothing.
std::string Find(const SensorInfoMgr& manager, SensorType type, const char* name, uint32_t index) {
  VersionedSensorInfo found;
  return manager.GetSensorInfo(found, type, name, index) ? found.info.ToStr().c_str() : "";
}

class SensorListTest : public ::testing::Test {
 protected:
  VersionedSensorInfo MustFind(SensorType type) {
    VersionedSensorInfo found;
    EXPECT_TRUE(manager.GetSensorInfo(found, type, nullptr, 0));
    return found;
  }

  LogCapture log;
  ScriptedFramework framework;
  SensorInfoMgr manager;
};

using PublicListTest = LibraryTest;

TEST_F(PublicListTest, IsFetchedOnceAndDumped) {
  framework.SetSensorList({MakeEntry(kListMarker, "marker"), MakeEntry(kRearOnChange, "Rear")});
  EXPECT_THAT(framework.Take(), ::testing::SizeIs(1)) << "construction asks for nothing";
  EXPECT_TRUE(instance->IsSensorSupported(OpticalSensorType::kAnyOptical, "R"));
  EXPECT_FALSE(instance->IsSensorSupported(OpticalSensorType::kAmbientLight, "R"));
  EXPECT_THAT(instance->GetAmbientLightSensorNames(), IsEmpty());
  EXPECT_THAT(Steps(framework.Take()),
              ElementsAre(std::pair(Kind::kCreate, 2), std::pair(Kind::kGetSensorList, 2),
                          std::pair(Kind::kDestroy, 2)));
  EXPECT_THAT(log.Take(),
              ElementsAre(Info("Setting SensorInfo list."), Info("Sensor-List[1]@V1:"),
                          Info("  Rear-t:12 p:0 r:0"), Info("SensorInfo list has been set.")));
}

TEST_F(PublicListTest, AnswersNamesAndSupport) {
  const struct {
    uint32_t kind;
    bool supported;
    const char* name;
  } kCases[] = {{0, true, nullptr},       {0, true, ""},        {0, true, "Front"},
                {0, false, "Flicker"},    {1, true, nullptr},   {1, false, "Rear"},
                {1, true, "Fl"},          {2, false, nullptr},  {2, false, "Rear"},
                {3, false, nullptr},      {3, false, ""},       {3, true, "Front ALS"},
                {3, true, "Fro"},         {3, false, "Fronts"}, {4, false, "Rear"},
                {0xFFFFFFFF, false, "R"}, {3, false, "accel"}};
  for (const auto& c : kCases) {
    EXPECT_EQ(c.supported,
              instance->IsSensorSupported(static_cast<OpticalSensorType>(c.kind), c.name))
        << c.kind << " " << (c.name != nullptr ? c.name : "null");
  }
  EXPECT_THAT(Strings(instance->GetAmbientLightSensorNames()),
              ElementsAre("Rear ALS", "Front ALS"));
  EXPECT_THAT(Strings(instance->GetFlickerSensorNames()), ElementsAre("Flicker"));
}

TEST_F(PublicListTest, UnknownKindsAreRefusedWithoutALookup) {
  framework.Take();
  for (const uint32_t kind : {2U, 4U}) {
    EXPECT_FALSE(instance->IsSensorSupported(static_cast<OpticalSensorType>(kind), "Rear"));
  }
  EXPECT_THAT(framework.Take(), IsEmpty());
}

TEST_F(SensorListTest, LookupsGoByPrefixOrByIndex) {
  const std::string longest(40, 'x');
  framework.SetSensorList({MakeEntry(kFrontOnChange, "als front"),
                           MakeEntry(kRearContinuous, "als"),
                           MakeEntry(kFrontContinuous, "als front"), MakeEntry(kRearOnChange, ""),
                           MakeEntry(kFlicker + 7, std::string("cut\0off", 7)),
                           MakeEntry(kFlicker + 8, longest), MakeEntry(kListMarker, "marker")});
  const std::string front12 = "als front-t:12 p:1 r:0";
  const std::string front1012 = "als front-t:1012 p:1 r:0";
  const std::string rear1012 = "als-t:1012 p:0 r:0";
  const struct {
    SensorType type;
    uint32_t index;
    const char* name;
    std::string found;
  } kCases[] = {
      {0, 0, "als", front12},
      {0, 9, "als", front12},
      {1012, 1, "als", rear1012},
      {1012, 0, "als f", front1012},
      {12, 0, "als", front12},
      {13, 0, "als", ""},
      {1012, 0, "als frontal", ""},
      {1012, 1, nullptr, front1012},
      {1012, 0, nullptr, rear1012},
      {1012, 2, "", ""},
      {12, 0, "", "-t:12 p:0 r:0"},
      {0, 0, nullptr, ""},
      {0, 1, "", ""},
      {0, 0, "marker", ""},
      {13, 0, "cut", "cut-t:13 p:7 r:0"},
      {13, 0, "cutoff", ""},
      {13, 0, "x", longest + "-t:13 p:8 r:0"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(c.found, Find(manager, c.type, c.name, c.index))
        << c.type << " " << (c.name != nullptr ? c.name : "null") << " " << c.index;
  }
  EXPECT_THAT(log.TakeProblems(), IsEmpty());
}

TEST_F(SensorListTest, AttemptsGoOnUntilTheListIsComplete) {
  framework.FailCreate(2);
  framework.SetSensorList([](int query) {
    return query < 2 ? std::vector{MakeEntry(kFlicker, "too early")} : DefaultSensors();
  });
  EXPECT_EQ("Rear ALS-t:12 p:0 r:0", Find(manager, 12, nullptr, 0));
  EXPECT_EQ(0, framework.live_apis());
  EXPECT_THAT(Steps(framework.Take()),
              ElementsAre(std::pair(Kind::kCreate, 1), std::pair(Kind::kGetSensorList, 1),
                          std::pair(Kind::kCreate, 0), std::pair(Kind::kDestroy, 1),
                          std::pair(Kind::kCreate, 2), std::pair(Kind::kGetSensorList, 2),
                          std::pair(Kind::kDestroy, 2)));
}

TEST_F(SensorListTest, FiftiethAttemptCounts) {
  framework.SetSensorList([](int query) {
    return query < 50 ? std::vector{MakeEntry(kFlicker, "too early")} : DefaultSensors();
  });
  EXPECT_NE("", Find(manager, 13, nullptr, 0));
  EXPECT_THAT(log.TakeProblems(), IsEmpty());
}

TEST_F(SensorListTest, FiftyFailedAttemptsAreOneError) {
  for (int n = 2; n <= 50; n += 2) {
    framework.FailCreate(n);
  }
  framework.SetSensorList({MakeEntry(kFlicker, "never complete")});
  EXPECT_EQ("", Find(manager, 13, nullptr, 0));
  EXPECT_THAT(log.Take(), ElementsAre(Error("Failed to create HYL API instance")));
  int creates = 0;
  for (const FrameworkCall& call : framework.Take()) {
    creates += call.kind == Kind::kCreate ? 1 : 0;
  }
  EXPECT_EQ(50, creates);
  EXPECT_EQ(0, framework.live_apis());

  framework.SetSensorList(DefaultSensors());
  EXPECT_NE("", Find(manager, 13, nullptr, 0)) << "a later lookup tries again";
}

TEST_F(SensorListTest, IsRebuiltWhenItsSizeChangesUntilFound) {
  std::vector<SensorListEntry> list = {MakeEntry(kListMarker, "marker")};
  const auto versions_after = [&](const SensorListEntry& added) {
    list.push_back(added);
    framework.SetSensorList(list);
    (void)Find(manager, 0, "none", 0);
    (void)Find(manager, 0, "none", 0);
    std::vector<std::string> versions;
    for (const LogEntry& entry : log.Take()) {
      const size_t at = entry.message.find("Sensor-List");
      if (at != std::string::npos) {
        versions.push_back(entry.message.substr(at));
      }
    }
    return versions;
  };
  EXPECT_THAT(versions_after(MakeEntry(1U << 16, "accelerometer")),
              ElementsAre("Sensor-List[0]@V1:"));
  EXPECT_THAT(framework.Take(), ::testing::SizeIs(6)) << "the second lookup asks again";
  EXPECT_THAT(versions_after(MakeEntry(2U << 16, "compass")), ElementsAre("Sensor-List[0]@V2:"));
  EXPECT_THAT(versions_after(MakeEntry(kFlicker, "flicker")), ElementsAre("Sensor-List[1]@V3:"));
  EXPECT_THAT(versions_after(MakeEntry(kRearOnChange, "too late")), IsEmpty());
  EXPECT_EQ(3U, MustFind(13).version);
}

TEST_F(SensorListTest, StaleCookiesAndCopiesAreRefused) {
  VersionedSensorInfo info = MustFind(1012);
  info.info.request_id = 0x0A0003F4;
  EXPECT_TRUE(manager.SetRequestId(info));
  log.Take();

  VersionedSensorInfo found;
  EXPECT_TRUE(manager.GetSensorInfo(found, 0x1'0A0003F4));
  EXPECT_STREQ("Rear ALS-t:1012 p:0 r:167773172", found.info.ToStr().c_str());
  EXPECT_EQ(1U, found.version);
  EXPECT_FALSE(manager.GetSensorInfo(found, 0x1'0A00000C));
  EXPECT_THAT(log.Take(), IsEmpty()) << "a request that does not run is no error";

  EXPECT_FALSE(manager.GetSensorInfo(found, 0x2'0A0003F4));
  EXPECT_FALSE(manager.GetSensorInfo(found, 0x1'00000000));
  EXPECT_FALSE(manager.GetSensorInfo(found, 0));
  info.version = 7;
  EXPECT_FALSE(manager.SetRequestId(info));
  EXPECT_THAT(log.Take(),
              ElementsAre(Error("Can't get sensor info, version mismatch: 2 != 1"),
                          Error("Can't get sensor info, invalid request_id from 100000000."),
                          Error("Can't get sensor info, version mismatch: 0 != 1"),
                          Error("Can't set request_id, version mismatch: 7 != 1")));
}

TEST_F(SensorListTest, RequestIdsGoByTypePriorityAndPrefix) {
  VersionedSensorInfo info = MustFind(13);
  info.info.request_id = 5;
  info.info.name.assign("Fl");
  EXPECT_TRUE(manager.SetRequestId(info));
  EXPECT_EQ("Flicker-t:13 p:0 r:5", Find(manager, 13, nullptr, 0));
  log.Take();
  for (const char* name : {"Flickers", "licker"}) {
    info.info.name.assign(name);
    EXPECT_FALSE(manager.SetRequestId(info));
    const std::vector<LogEntry> entries = log.Take();
    ASSERT_EQ(7U, entries.size());
    EXPECT_EQ(Error(Text("Can't set request_id, sensor_info {%s-t:13 p:0 r:5} not found!", name)),
              entries[0]);
    EXPECT_EQ(Info("Sensor-List[5]@V1:"), entries[1]);
    EXPECT_EQ(Info("  Flicker-t:13 p:0 r:5"), entries[6]);
  }
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
