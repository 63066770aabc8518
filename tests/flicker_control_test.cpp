// Starting and stopping the flicker sensor, and its messages, against the scripted framework.

#include <algorithm>
#include <bit>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "library_test.h"

namespace hyl::v2::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t kRequestId = 0x0A00000D;
constexpr auto k16BitsIn2 = FlickerFormatSampleWidth::k16BitsIn2;
constexpr auto kUncompressed2 = FlickerFormatSampleWidth::kUncompressed2;
/// 4660, -2, -32768, 1 in 16-bits-in-2, each pair the other way round.
Bytes FourSamples() {
  return {0x34, 0x12, 0xFE, 0xFF, 0x00, 0x80, 0x01, 0x00};
}

class FlickerControlTest : public LibraryTest {
 protected:
  FlickerControlTest() {
    std::ranges::fill(buffer, -1);
    framework.Take();
  }

  HylErr Enable(const char* name = nullptr, uint8_t bits = 16) {
    return instance->EnableFlickerSensor(name, buffer, std::size(buffer), bits, session_);
  }
  /// Enables the sensor and announces a format.
  void Start(FlickerFormatSampleWidth width, uint8_t bits = 16) {
    ASSERT_EQ(HylErr::kOk, Enable(nullptr, bits));
    framework.Deliver(kFlicker, FlickerFormatMessage(width));
    log.Take();
  }
  void ListSensors(std::vector<SensorListEntry> sensors) {
    sensors.insert(sensors.begin(), MakeEntry(kListMarker, "marker"));
    framework.SetSensorList(std::move(sensors));
  }
  /// The samples of the blocks that have come since the last call, in a row.
  std::vector<int32_t> TakeSamples() {
    std::vector<int32_t> all;
    for (const FlickerCall& call : client.TakeFlicker()) {
      EXPECT_EQ(session_, call.session_id);
      all.insert(all.end(), call.samples.begin(), call.samples.end());
    }
    return all;
  }

  uint32_t session_ = 0;
};

Bytes StopBytes(uint32_t request_id) {
  return RequestBytes(16, {{8, 1, 1}, {12, 4, request_id}});
}

Bytes StartBytes(uint32_t request_id) {
  return RequestBytes(56, {{8, 1, 1}, {12, 4, request_id}, {40, 8, 10'000'000'000}});
}

TEST_F(FlickerControlTest, StartsAndStopsTheNamedSensor) {
  ListSensors({MakeEntry(kFlicker, "Flicker A"), MakeEntry(kFlicker + 3, "Flicker B")});
  ASSERT_EQ(HylErr::kOk, Enable("Flicker B"));
  EXPECT_NE(0U, session_);
  EXPECT_STREQ("Flicker B", instance->GetSensorName(session_).c_str());

  std::vector<FrameworkCall> calls = framework.TakeInvokes();
  ASSERT_EQ(1U, calls.size());
  EXPECT_EQ(0x010D0003U, calls[0].handle);
  EXPECT_EQ(3U, calls[0].type);
  EXPECT_EQ(StartBytes(0x0A03000D), BytesOf(calls[0]));
  const void* const callbacks = calls[0].callbacks;

  // The session is gone before the stop is sent.
  std::string name_at_stop = "not asked";
  framework.SetHook(
      [&](const FrameworkCall&) { name_at_stop = instance->GetSensorName(session_).c_str(); });
  EXPECT_EQ(HylErr::kOk, instance->DisableFlickerSensor(session_));
  framework.SetHook({});
  EXPECT_EQ("", name_at_stop);
  calls = framework.TakeInvokes();
  ASSERT_EQ(1U, calls.size());
  EXPECT_EQ(0x010D0003U, calls[0].handle);
  EXPECT_EQ(4U, calls[0].type);
  EXPECT_EQ(StopBytes(0x0A03000D), BytesOf(calls[0]));
  EXPECT_EQ(callbacks, calls[0].callbacks);
}

/// With no session left the start is undone, yet the sensor stays marked as running.
TEST_F(FlickerControlTest, EnableWithAFullTable) {
  std::vector<SensorListEntry> sensors;
  for (uint32_t i = 0; i <= kMaxSessions; ++i) {
    sensors.push_back(MakeEntry(kFlicker + i, "F" + std::to_string(i)));
  }
  ListSensors(sensors);
  for (uint32_t i = 0; i < kMaxSessions; ++i) {
    ASSERT_EQ(HylErr::kOk, Enable(sensors[i].name));
  }
  session_ = 1234;
  log.Take();
  framework.Take();
  EXPECT_EQ(HylErr::kNoSession, Enable("F8"));
  EXPECT_THAT(log.Take(),
              ElementsAre(Error("Cannot add session for F8 10a08000d, table full!"),
                          Error("Cannot enable flicker sensor 'F8', no session available!")));
  const std::vector<FrameworkCall> calls = framework.TakeInvokes();
  ASSERT_EQ(2U, calls.size());
  EXPECT_EQ(StartBytes(0x0A08000D), BytesOf(calls[0]));
  EXPECT_EQ(4U, calls[1].type);
  EXPECT_EQ(kFlicker + 8, calls[1].handle);
  EXPECT_EQ(StopBytes(0x0A08000D), BytesOf(calls[1]));
  EXPECT_EQ(calls[0].callbacks, calls[1].callbacks);

  EXPECT_EQ(HylErr::kAlreadyRunning, Enable("F8"));
  EXPECT_THAT(framework.TakeInvokes(), IsEmpty());
  EXPECT_EQ(1234U, session_);
}

/// Disable looks at the session's id, not at its kind.
TEST_F(FlickerControlTest, DisableOfTheOtherKind) {
  ASSERT_EQ(HylErr::kOk, instance->EnableAmbientLightSensor("Front", session_,
                                                            SensorReportingMode::kContinuous));
  ASSERT_EQ(HylErr::kOk, Enable());
  const uint32_t flicker = session_;
  const uint32_t light = session_ - 1;
  const std::vector<FrameworkCall> starts = framework.TakeInvokes();
  ASSERT_EQ(2U, starts.size());
  const void* const rear = [&] {
    EXPECT_EQ(HylErr::kOk, instance->SetTorchLightState(nullptr, true));
    return framework.TakeInvokes().at(0).callbacks;
  }();

  EXPECT_EQ(HylErr::kOk, instance->DisableFlickerSensor(light));
  EXPECT_EQ(HylErr::kOk, instance->DisableAmbientLightSensor(flicker));
  const std::vector<FrameworkCall> stops = framework.TakeInvokes();
  ASSERT_EQ(2U, stops.size());
  EXPECT_EQ(0x010D0001U, stops[0].handle) << "always the flicker type's handle";
  EXPECT_EQ(StopBytes(0x0A0103F4), BytesOf(stops[0]));
  EXPECT_EQ(starts[1].callbacks, stops[0].callbacks) << "the flicker object";
  EXPECT_EQ(kFlicker, stops[1].handle);
  EXPECT_EQ(StopBytes(kRequestId), BytesOf(stops[1]));
  EXPECT_EQ(rear, stops[1].callbacks) << "the object of index 0";
}

TEST_F(FlickerControlTest, HandsOnEveryFieldOfADataMessage) {
  Start(k16BitsIn2, 24);
  FlickerFormatMessage format(k16BitsIn2);
  format.format_param = 0xF1F2F3F4;
  framework.Deliver(kFlicker, format);
  FlickerDataMessage message(FourSamples(), 40, 0xA1);
  message.aux8_0 = 0xB1;
  message.aux8_1 = 0xB2;
  message.aux16_0 = 0xC1C2;
  message.aux16_1 = 0xC3C4;
  message.aux16_2 = 0xC5C6;
  message.aux32_0 = 0xD1D2D3D4;
  message.aux32_1 = 0xD5D6D7D8;
  message.auxf_0 = std::bit_cast<float>(0x7FC12345U);  // not a number
  message.auxf_1 = std::bit_cast<float>(0x80000001U);  // the smallest below zero
  framework.Deliver(kFlicker, message);

  const std::vector<FlickerCall> calls = client.TakeFlicker();
  ASSERT_EQ(1U, calls.size());
  EXPECT_EQ(session_, calls[0].session_id);
  const FlickerSampleBlock& block = calls[0].block;
  EXPECT_EQ(0xA1, block.restart);
  EXPECT_EQ(0xB1, block.aux8_0);
  EXPECT_EQ(0xB2, block.aux8_1);
  EXPECT_EQ(0xC1C2, block.aux16_0);
  EXPECT_EQ(0xC3C4, block.aux16_1);
  EXPECT_EQ(0xC5C6, block.aux16_2);
  EXPECT_EQ(4U, block.num_samples);
  EXPECT_EQ(20U, block.seq_num);
  EXPECT_EQ(0xF1F2F3F4U, block.format_param);
  EXPECT_EQ(0xD1D2D3D4U, block.aux32_0);
  EXPECT_EQ(0xD5D6D7D8U, block.aux32_1);
  EXPECT_EQ(0x7FC12345U, std::bit_cast<uint32_t>(block.auxf_0));
  EXPECT_EQ(0x80000001U, std::bit_cast<uint32_t>(block.auxf_1));
  EXPECT_EQ(buffer, block.samples);
  EXPECT_THAT(calls[0].samples, ElementsAre(-512, 1192960, 256, -8388608));
  EXPECT_EQ(-1, buffer[4]) << "nothing beyond the samples is written";
}

TEST_F(FlickerControlTest, MessagesWithoutASessionAreDropped) {
  const auto expect_dropped = [&](Service::AsyncCallbacks& object, const char* cookie) {
    log.Take();
    const FlickerFormatMessage format(k16BitsIn2);
    const FlickerDataMessage data(FourSamples());
    const FlickerDataMessage empty({});
    for (const Message* message :
         {static_cast<const Message*>(&format), static_cast<const Message*>(&data),
          static_cast<const Message*>(&empty)}) {
      object.OnResponse(message);  // silent for the empty one
    }
    const char* const text = "Can't find session for cookie:%s to handle flicker %s msg!";
    EXPECT_THAT(log.Take(), ElementsAre(Warning(Text(text, cookie, "format")),
                                        Warning(Text(text, cookie, "data"))));
    EXPECT_THAT(client.TakeFlicker(), IsEmpty());
  };

  framework.RefuseInvoke(1, HylErr::kFailed);
  ASSERT_EQ(HylErr::kFailed, Enable());
  // The framework got the object, although no session came of it.
  auto* const object = static_cast<Service::AsyncCallbacks*>(
      const_cast<void*>(framework.TakeInvokes().at(0).callbacks));
  expect_dropped(*object, "0");
  ASSERT_EQ(HylErr::kOk, Enable());
  ASSERT_EQ(HylErr::kOk, instance->DisableFlickerSensor(session_));
  expect_dropped(*object, "10a00000d");
}

TEST_F(FlickerControlTest, OtherMessagesAreIgnored) {
  Start(k16BitsIn2);
  const ScriptedFramework::Callbacks object = framework.CallbacksOf(kFlicker);
  for (const int type : {0, 2, 3, 4, 7, 8, 64, 67, 255}) {
    framework.Deliver(kFlicker, BareMessage(type));
  }
  object->OnResponse(nullptr);
  object->OnError(HylErr::kFailed);
  object->OnAuxiliaryEvent();
  EXPECT_THAT(client.TakeFlicker(), IsEmpty());
  EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(FlickerControlTest, DataThatBringNothing) {
  Start(k16BitsIn2);
  FlickerDataMessage without_data(FourSamples());
  without_data.data = nullptr;
  framework.Deliver(kFlicker, FlickerDataMessage({}));
  EXPECT_THAT(log.Take(), IsEmpty());
  framework.Deliver(kFlicker, without_data);
  EXPECT_THAT(log.Take(), ElementsAre(Error("Flicker data msg without data (size:8)")));
  EXPECT_THAT(client.TakeFlicker(), IsEmpty());
}

TEST_F(FlickerControlTest, SmallBuffersAreNeverOverrun) {
  struct Case {
    size_t capacity;
    bool null;
    std::vector<int32_t> samples;
  };
  // The packing of two samples in four bytes keeps the count even.
  for (const auto& [capacity, null, samples] :
       {Case{3, false, {-2, 4660}}, Case{1, false, {}}, Case{0, false, {}}, Case{9, true, {}}}) {
    std::vector<int32_t> guarded(capacity + 1, -7);
    int32_t* const passed = null ? nullptr : guarded.data();
    ASSERT_EQ(HylErr::kOk, instance->EnableFlickerSensor(nullptr, passed, capacity, 16, session_));
    framework.Deliver(kFlicker, FlickerFormatMessage(k16BitsIn2));
    log.Take();
    framework.Deliver(kFlicker, FlickerDataMessage(FourSamples()));
    EXPECT_THAT(log.Take(),
                ElementsAre(Warning(Text("Not enough space in sample converter buffer (want:4 "
                                         "have:%zu). Samples will be dropped.",
                                         null ? 0 : capacity))));
    const std::vector<FlickerCall> calls = client.TakeFlicker();
    ASSERT_EQ(1U, calls.size());
    EXPECT_EQ(samples, calls[0].samples);
    EXPECT_EQ(passed, calls[0].block.samples);
    for (size_t i = samples.size(); i < guarded.size(); ++i) {
      EXPECT_EQ(-7, guarded[i]) << "capacity " << capacity << " index " << i;
    }
    ASSERT_EQ(HylErr::kOk, instance->DisableFlickerSensor(session_));
  }
}

TEST_F(FlickerControlTest, ARefusedFormatLeavesThePreviousOne) {
  Start(k16BitsIn2);
  for (const int width : {5, 1, 0, -1, 8, 258, 262, INT_MIN}) {
    FlickerFormatMessage refused(static_cast<FlickerFormatSampleWidth>(width));
    refused.format_param = static_cast<uint32_t>(1000 + width);
    refused.msb = 2;
    refused.lsb = 3;
    framework.Deliver(kFlicker, refused);
    EXPECT_THAT(log.Take(),
                ElementsAre(Warning(
                    Text("Invalid converter config (sbytes:%d msb:2 lsb:3)", width == 1 ? 1 : 0))));
    framework.Deliver(kFlicker, FlickerDataMessage(FourSamples()));
    const std::vector<FlickerCall> calls = client.TakeFlicker();
    ASSERT_EQ(1U, calls.size());
    EXPECT_THAT(calls[0].samples, ElementsAre(-2, 4660, 1, -32768));
    EXPECT_EQ(static_cast<uint32_t>(1000 + width), calls[0].block.format_param);
  }
}

TEST_F(FlickerControlTest, BeforeTheFirstFormat) {
  ASSERT_EQ(HylErr::kOk, Enable());
  log.Take();
  framework.Deliver(kFlicker, FlickerDataMessage(FourSamples()));
  EXPECT_THAT(log.Take(), ElementsAre(Warning("No sample format received yet")));
  EXPECT_THAT(client.TakeFlicker(), IsEmpty());
  EXPECT_EQ(-1, buffer[0]);
}

/// A session that takes over a free entry finds the format of the session before, nothing else.
TEST_F(FlickerControlTest, AReusedEntryKeepsItsFormatAlone) {
  Start(kUncompressed2);
  FlickerFormatMessage format(FlickerFormatSampleWidth::kCompressed1);
  format.format_param = 5;
  framework.Deliver(kFlicker, format);
  framework.Deliver(kFlicker, FlickerDataMessage({0x85, 0xFD}, 0, 1));
  EXPECT_THAT(TakeSamples(), ElementsAre(5 * 16, 2 * 16));
  ASSERT_EQ(HylErr::kOk, instance->DisableFlickerSensor(session_));
  ASSERT_EQ(HylErr::kOk, Enable());
  framework.Deliver(kFlicker, FlickerDataMessage({0x81}, 0, 1));
  const std::vector<FlickerCall> calls = client.TakeFlicker();
  ASSERT_EQ(1U, calls.size());
  EXPECT_THAT(calls[0].samples, ElementsAre(16));
  EXPECT_EQ(0U, calls[0].block.seq_num);
  EXPECT_EQ(24000U, calls[0].block.format_param);
}

/// All flicker sensors share one object, which knows the cookie of the latest start only.
TEST_F(FlickerControlTest, OnlyTheLatestStartReceives) {
  ListSensors({MakeEntry(kFlicker, "A"), MakeEntry(kFlicker + 1, "B")});
  ASSERT_EQ(HylErr::kOk, Enable("A"));
  ASSERT_EQ(HylErr::kOk, Enable("B"));
  framework.Deliver(kFlicker, FlickerFormatMessage(k16BitsIn2));
  framework.Deliver(kFlicker, FlickerDataMessage(FourSamples()));
  EXPECT_EQ(4U, TakeSamples().size()) << "goes to the session of B";
}

TEST(FlickerWithoutClientTest, DataAreDroppedSilently) {
  ScriptedFramework framework;
  const Instance api(nullptr);
  std::vector<int32_t> buffer(8, -1);
  uint32_t session = 0;
  ASSERT_EQ(HylErr::kOk,
            api->EnableFlickerSensor(nullptr, buffer.data(), buffer.size(), 16, session));
  LogCapture log;
  framework.Deliver(kFlicker, FlickerFormatMessage(k16BitsIn2));
  framework.Deliver(kFlicker, FlickerDataMessage(FourSamples()));
  EXPECT_EQ(-1, buffer[0]);
  EXPECT_THAT(log.Take(), IsEmpty());
  EXPECT_EQ(HylErr::kOk, api->DisableFlickerSensor(session));
}

}  // namespace
}  // namespace hyl::v2::test
