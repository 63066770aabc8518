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

}  // namespace
}  // namespace hyl::v2::test
