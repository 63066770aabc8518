// Ambient-light messages on their path to the client, malformed ones included.

#include <limits>
#include <string>
#include <vector>

#include <hyl/host/scripted_framework.h>
#include <hyl/sampling_messages.h>

#include "library_test.h"

namespace hyl::v2::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int64_t kTicks = std::numeric_limits<int64_t>::min();  // bit 63 alone

/// At the rear and at the front, which differ in settings replies only.
class SpectralEventsTest : public LibraryTest, public ::testing::WithParamInterface<uint32_t> {
 protected:
  SpectralEventsTest() {
    id = Enable(GetParam() == kRearContinuous ? "Rear" : "Front");
    log.Take();
  }
  void Deliver(const Message& message) { framework.Deliver(GetParam(), message); }
  /// The values that the client gets for a message, one vector a call.
  std::vector<std::vector<float>> Values(const Message& message) {
    Deliver(message);
    std::vector<std::vector<float>> values;
    for (const SpectralCall& call : client.TakeSpectral()) {
      EXPECT_EQ(0U, call.kind);
      EXPECT_EQ(id, call.session_id);
      values.push_back(call.values);
    }
    return values;
  }

  uint32_t id;
};

INSTANTIATE_TEST_SUITE_P(, SpectralEventsTest, ::testing::Values(kRearContinuous, kFrontContinuous),
                         [](const auto& place) {
                           return place.param == kRearContinuous ? "Rear" : "Front";
                         });

TEST_P(SpectralEventsTest, SampleReachesTheClient) {
  Deliver(SpectralMessage({1.5F, -2, 3}, 100));
  Deliver(SpectralMessage({}, kTicks + 100));
  Deliver(EventChainMessage({{kSpectral, {4}, kTicks + 5},
                             {kSpectral, {}, 5},
                             {kSpectral, {6}, std::numeric_limits<int64_t>::max()}}));
  const auto ns = [](uint64_t ticks) {
    return static_cast<int64_t>(Time::PlatformTicksToNs(ticks));
  };
  EXPECT_THAT(client.TakeSpectral(),
              ElementsAre(SpectralCall{0, id, {1.5F, -2, 3}, 100}, SpectralCall{0, id, {}, ns(100)},
                          SpectralCall{0, id, {4}, ns(5)}, SpectralCall{0, id, {}, 5},
                          SpectralCall{0, id, {6}, std::numeric_limits<int64_t>::max()}));
}

TEST_P(SpectralEventsTest, CountsAboveTheRecordAreClamped) {
  SpectralMessage message(std::vector<float>(16, 7));
  for (const uint32_t count : {16U, 17U, 0xFFFFFFFFU}) {
    message.sample.value_count = count;
    EXPECT_THAT(Values(message), ElementsAre(std::vector<float>(16, 7))) << count;
  }
  const std::vector<float> most(255, 8);
  EXPECT_THAT(Values(EventChainMessage({{kSpectral, most}})), ElementsAre(most));
}

TEST_P(SpectralEventsTest, ChainsAreWalkedToCountOrEnd) {
  const struct {
    std::vector<uint8_t> types;
    uint64_t count;
    std::vector<std::vector<float>> delivered;  // an event's value is its place in the chain
    std::vector<LogEntry> messages;
  } kCases[] = {
      {{}, 3, {}, {}},
      {{1, 1}, 0, {}, {}},
      {{1, 1}, std::numeric_limits<uint64_t>::max(), {{0}, {1}}, {}},
      {{1, 1, 1, 1, 1}, 3, {{0}, {1}, {2}}, {}},
      {{3, 1, 5, 1}, 4, {{1}, {3}}, {Warning("Unknown Sensor Event type:5\n")}},
      {{0, 3}, 2, {}, {Warning("Unknown Sensor Event type:0\n")}},
  };
  for (const auto& c : kCases) {
    std::vector<SensorEvent> events;
    for (const uint8_t type : c.types) {
      events.push_back({SensorEventType{type}, {static_cast<float>(events.size())}});
    }
    const SensorEventPtr chain = MakeEventChain(events);
    EXPECT_EQ(c.delivered, Values(EventChainMessage(chain, c.count)));
    EXPECT_EQ(c.messages, log.Take());
    if (chain) {
      EXPECT_EQ(1, chain->ref_count) << "references are given back";
    }
  }
}

TEST_P(SpectralEventsTest, AnEventHas255HoldersAtMost) {
  const SensorEventPtr chain = MakeEventChain({{kSpectral, {1}}, {kSpectral, {2}}});
  chain->next->ref_count = 254;
  EXPECT_THAT(Values(EventChainMessage(chain, 2)),
              ElementsAre(std::vector<float>{1}, std::vector<float>{2}));
  chain->next->ref_count = 255;
  EXPECT_DEATH(chain->next->Ref(), "previous_count < 255");
  EXPECT_THAT(Values(EventChainMessage(chain, 1)), ElementsAre(std::vector<float>{1}))
      << "an event beyond the count is left alone";
  chain->next->ref_count = 1;
}

TEST_P(SpectralEventsTest, WithoutASessionAllIsDropped) {
  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(id));
  const LogEntry expected = Error(std::string("Can't find session for cookie:") +
                                  (GetParam() == kRearContinuous ? "10a0003f4" : "10a0103f4") +
                                  " to handle spectral msg!");
  Deliver(SpectralMessage({1}));
  EXPECT_THAT(log.Take(), ElementsAre(expected));
  Deliver(EventChainMessage({{kIgnored}, {kSpectral}, {kSpectral}, {kUnknown}}));
  EXPECT_THAT(log.Take(), ElementsAre(expected)) << "the rest of the chain is dropped";
  EXPECT_THAT(client.TakeSpectral(), IsEmpty());
}

TEST_P(SpectralEventsTest, OtherMessagesChangeNothing) {
  for (const uint32_t type : {2U, 3U, 4U}) {
    Deliver(StatusReply(type, 5));
  }
  framework.CallbacksOf(GetParam())->OnResponse(nullptr);
  framework.CallbacksOf(GetParam())->OnError(HylErr{9});
  framework.CallbacksOf(GetParam())->OnAuxiliaryEvent();
  EXPECT_THAT(log.Take(), IsEmpty());
  std::vector<uint32_t> unsupported = {0, 1, 5, 6, 9, 65, 66, 255};
  if (GetParam() != kRearContinuous) {
    unsupported.push_back(64);  // a setting's reply
  }
  for (const uint32_t type : unsupported) {
    Deliver(StatusReply(type));
    EXPECT_THAT(log.Take(), ElementsAre(Error(Text("Unsupported request type:%d\n", type))));
  }
  EXPECT_THAT(Values(SpectralMessage({1})), ElementsAre(std::vector<float>{1}));
}

TEST_P(SpectralEventsTest, ValuesWithoutMemoryAreLeftOut) {
  // The first growth is that for all values at once, the others are for one value each.
  for (int k = 1; k <= 4; ++k) {
    int growth = 0;
    host::FailVectorGrowth([&] { return ++growth == 1 || growth == 1 + k; });
    std::vector<float> expected = {1, 2, 3, 4};
    expected.erase(expected.begin() + k - 1);
    EXPECT_THAT(Values(SpectralMessage({1, 2, 3, 4})), ElementsAre(expected));
  }
  host::FailVectorGrowth({});
}

TEST(NullClientTest, SensorsRunAndDataIsDroppedInSilence) {
  LogCapture log;
  ScriptedFramework framework;
  Instance instance(nullptr);
  uint32_t id = 0;
  EXPECT_EQ(HylErr::kOk, instance->EnableAmbientLightSensor("Rear", id, kContinuous));
  framework.Deliver(kRearContinuous, SpectralMessage({1}));
  framework.Deliver(kRearContinuous, EventChainMessage({{kSpectral}, {kUnknown}, {kSpectral}}));
  EXPECT_THAT(log.TakeProblems(), ElementsAre(Warning("Unknown Sensor Event type:5\n")));
  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(id));
  framework.Deliver(kRearContinuous, SpectralMessage({1}));
  EXPECT_THAT(log.Take(), IsEmpty());
}

}  // namespace
}  // namespace hyl::v2::test
