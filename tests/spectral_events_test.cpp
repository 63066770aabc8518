// The way of ambient-light messages to the client, malformed ones included.

#include <limits>
#include <string>
#include <vector>

#include <hyl/host/hooks.h>
#include <hyl/time.h>

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
    std::vector<float> delivered;
    std::vector<LogEntry> messages;
  } kCases[] = {
      {{}, 3, {}, {}},
      {{1, 1}, 0, {}, {}},
      {{1, 1}, 3, {0, 1}, {}},
      {{1, 1}, std::numeric_limits<uint64_t>::max(), {0, 1}, {}},
      {{1, 1, 1, 1, 1}, 3, {0, 1, 2}, {}},
      {{3, 1, 5, 1}, 4, {1, 3}, {Warning("Unknown Sensor Event type:5\n")}},
      {{0, 255, 3},
       2,
       {},
       {Warning("Unknown Sensor Event type:0\n"), Warning("Unknown Sensor Event type:255\n")}},
  };
  for (const auto& c : kCases) {
    std::vector<SensorEvent> events;
    std::vector<std::vector<float>> delivered;
    for (size_t i = 0; i < c.types.size(); ++i) {
      events.push_back({SensorEventType{c.types[i]}, {static_cast<float>(i)}});
    }
    for (const float value : c.delivered) {
      delivered.push_back({value});
    }
    const SensorEventPtr chain = MakeEventChain(events);
    EXPECT_EQ(delivered, Values(EventChainMessage(chain, c.count)));
    EXPECT_EQ(c.messages, log.Take());
    if (chain) {
      EXPECT_EQ(1, chain->ref_count) << "references are given back";
    }
  }
}

TEST_P(SpectralEventsTest, EventsBeyondTheCountAreLeft) {
  const SensorEventPtr chain = MakeEventChain({{kSpectral, {1}}, {kSpectral, {2}}});
  chain->next->ref_count = 255;  // one reference more would end the process
  EXPECT_THAT(Values(EventChainMessage(chain, 1)), ElementsAre(std::vector<float>{1}));
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
  for (const int type : {0, 1, 5, 6, 9, 65, 66, 255}) {
    Deliver(BareMessage(type));
    EXPECT_THAT(log.Take(), ElementsAre(Error(Text("Unsupported request type:%d\n", type))));
  }
  Deliver(SettingReply(RlsAccess::kRead, RlsCommand::kGain));
  EXPECT_EQ(GetParam() == kRearContinuous
                ? std::vector<LogEntry>{}
                : std::vector<LogEntry>{Error("Unsupported request type:64\n")},
            log.Take());
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

/// Not related to Message: it has the layout alone.
class ForeignSampleMessage {
 public:
  virtual ~ForeignSampleMessage() = default;
  virtual uint8_t Type() const { return 7; }
  virtual SpectralSample Sample() const {
    SpectralSample sample{};
    sample.values[0] = 42;
    sample.value_count = 1;
    return sample;
  }
};

class ForeignEventMessage {
 public:
  virtual ~ForeignEventMessage() = default;
  virtual uint8_t Type() const { return 8; }

  uint64_t unused = 0;
  SensorEventPtr first = MakeEventChain({{kSpectral, {43}}, {kSpectral, {44}}});
  uint64_t count = 2;
};

TEST_P(SpectralEventsTest, MessagesAreKnownByTheirLayout) {
  const ForeignSampleMessage sample;
  const ForeignEventMessage events;
  const ScriptedFramework::Callbacks callbacks = framework.CallbacksOf(GetParam());
  callbacks->OnResponse(reinterpret_cast<const Message*>(&sample));
  callbacks->OnResponse(reinterpret_cast<const Message*>(&events));
  const std::vector<SpectralCall> calls = client.TakeSpectral();
  ASSERT_EQ(3U, calls.size());
  EXPECT_THAT(calls[0].values, ElementsAre(42));
  EXPECT_THAT(calls[1].values, ElementsAre(43));
  EXPECT_THAT(calls[2].values, ElementsAre(44));
}

using SpectralRoutingTest = LibraryTest;

TEST_F(SpectralRoutingTest, SamplesGoToTheSessionStartedLast) {
  const uint32_t front = Enable("Front");
  const uint32_t first = Enable("Rear", kOnChange);
  const uint32_t second = Enable("Rear", kContinuous);
  framework.Deliver(kRearOnChange, SpectralMessage({1}));
  framework.Deliver(kFrontContinuous, SpectralMessage({2}));
  EXPECT_EQ(HylErr::kOk, instance->ChangeAmbientLightSensorReporting(front, kOnChange));
  framework.Deliver(kFrontOnChange, SpectralMessage({3}));
  EXPECT_THAT(client.TakeSpectral(),
              ElementsAre(SpectralCall{0, second, {1}, 0}, SpectralCall{0, front, {2}, 0},
                          SpectralCall{0, front, {3}, 0}));
  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(second));
  log.Take();
  framework.Deliver(kRearOnChange, SpectralMessage({4}));
  EXPECT_THAT(client.TakeSpectral(), IsEmpty()) << first << " gets none of its own";
  EXPECT_THAT(
      log.Take(),
      ElementsAre(Error("Can't find session for cookie:10a0003f4 to handle spectral msg!")));

  // The same request again has the same cookie, but another session.
  const uint32_t third = Enable("Rear", kContinuous);
  framework.Deliver(kRearContinuous, SpectralMessage({5}));
  EXPECT_THAT(client.TakeSpectral(), ElementsAre(SpectralCall{0, third, {5}, 0}));
}

TEST_F(SpectralRoutingTest, ASampleBeforeItsCookieIsDropped) {
  framework.SetHook([&](const FrameworkCall& call) {
    if (call.handle == kRearContinuous) {  // the rear object is known; its new request is not yet
      framework.Deliver(kRearOnChange, SpectralMessage({1}));
    }
  });
  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(Enable("Rear", kOnChange)));
  log.Take();
  const uint32_t id = Enable("Rear");
  EXPECT_THAT(client.TakeSpectral(), IsEmpty());
  EXPECT_THAT(
      log.Take(),
      ElementsAre(Error("Can't find session for cookie:10a00000c to handle spectral msg!")));
  framework.Deliver(kRearContinuous, SpectralMessage({2}));
  EXPECT_THAT(client.TakeSpectral(), ElementsAre(SpectralCall{0, id, {2}, 0}));
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
