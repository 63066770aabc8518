// Starting and stopping the flicker sensor, and its messages, against the scripted framework.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hyl/hyl_spectral_api.h>

#include "instance.h"
#include "log_capture.h"
#include "messages.h"
#include "recording_client.h"
#include "scripted_api.h"

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

class FlickerControlTest : public testing::Test {
 protected:
  FlickerControlTest() { (void)framework_.Take(); }

  HylErr Enable(const char* name = nullptr, uint8_t bits = 16) {
    return api_->EnableFlickerSensor(name, buffer_.data(), buffer_.size(), bits, session_);
  }
  /// Enables the sensor and announces a format.
  void Start(FlickerFormatSampleWidth width, uint8_t bits = 16) {
    ASSERT_EQ(HylErr::kOk, Enable(nullptr, bits));
    framework_.Deliver(kFlicker, FlickerFormat(width));
    (void)log_.Take();
  }
  void ListSensors(std::vector<SensorListEntry> sensors) {
    sensors.insert(sensors.begin(), MakeEntry(kListMarker, "marker"));
    framework_.SetSensorList(std::move(sensors));
  }
  /// The samples of the blocks that have come since the last call, in a row.
  std::vector<int32_t> TakeSamples() {
    std::vector<int32_t> all;
    for (const FlickerCall& call : client_.TakeFlicker()) {
      EXPECT_EQ(session_, call.session_id);
      all.insert(all.end(), call.samples.begin(), call.samples.end());
    }
    return all;
  }

  LogCapture log_;
  ScriptedApi framework_;
  RecordingClient client_;
  Instance api_{&client_};
  std::vector<int32_t> buffer_ = std::vector<int32_t>(16, -1);
  uint32_t session_ = 0;
};

Bytes StopBytes(uint32_t request_id) {
  Bytes bytes = {1, 0, 0, 0};
  for (int shift = 0; shift < 32; shift += 8) {
    bytes.push_back(static_cast<uint8_t>(request_id >> shift));
  }
  return bytes;
}

/// Period 10000000000 and otherwise the id alone.
Bytes StartBytes(uint32_t request_id) {
  Bytes bytes = StopBytes(request_id);
  bytes.resize(48);
  const Bytes period = {0x00, 0xE4, 0x0B, 0x54, 0x02};
  std::copy(period.begin(), period.end(), bytes.begin() + 32);
  return bytes;
}

TEST_F(FlickerControlTest, StartsAndStopsTheNamedSensor) {
  ListSensors({MakeEntry(kFlicker, "Flicker A"), MakeEntry(kFlicker + 3, "Flicker B")});
  ASSERT_EQ(HylErr::kOk, Enable("Flicker B"));
  EXPECT_NE(0U, session_);
  EXPECT_STREQ("Flicker B", api_->GetSensorName(session_).c_str());

  std::vector<FrameworkCall> calls = framework_.TakeInvokes();
  ASSERT_EQ(1U, calls.size());
  EXPECT_EQ(0x010D0003U, calls[0].handle);
  EXPECT_EQ(3U, calls[0].type);
  EXPECT_EQ(StartBytes(0x0A03000D), calls[0].bytes);
  const void* const callbacks = calls[0].callbacks;

  // The session is gone before the stop is sent.
  std::string name_at_stop = "not asked";
  framework_.SetHook(
      [&](const FrameworkCall&) { name_at_stop = api_->GetSensorName(session_).c_str(); });
  EXPECT_EQ(HylErr::kOk, api_->DisableFlickerSensor(session_));
  framework_.SetHook({});
  EXPECT_EQ("", name_at_stop);
  calls = framework_.TakeInvokes();
  ASSERT_EQ(1U, calls.size());
  EXPECT_EQ(0x010D0003U, calls[0].handle);
  EXPECT_EQ(4U, calls[0].type);
  EXPECT_EQ(StopBytes(0x0A03000D), calls[0].bytes);
  EXPECT_EQ(callbacks, calls[0].callbacks);
}

TEST_F(FlickerControlTest, EnableFailures) {
  session_ = 1234;
  (void)api_->IsSensorSupported(OpticalSensorType::kFlicker, nullptr);
  (void)log_.Take();

  EXPECT_EQ(HylErr::kNotFound, Enable("No such"));
  EXPECT_EQ(HylErr::kNotFound, Enable("Flicker and more"));
  EXPECT_THAT(log_.Take(), ElementsAre(Error("Sensor 'No such' not found"),
                                       Error("Sensor 'Flicker and more' not found")));
  EXPECT_THAT(framework_.TakeInvokes(), IsEmpty());

  framework_.RefuseInvoke(1, static_cast<HylErr>(3));
  EXPECT_EQ(static_cast<HylErr>(3), Enable());
  EXPECT_THAT(log_.Take(), IsEmpty());
  EXPECT_EQ(1234U, session_);
}

/// With no session left the start is undone, yet the sensor stays marked as running.
TEST_F(FlickerControlTest, EnableWithAFullTable) {
  std::vector<SensorListEntry> sensors;
  for (uint32_t i = 0; i < 10; ++i) {
    sensors.push_back(MakeEntry(kFlicker + i, "F" + std::to_string(i)));
  }
  ListSensors(sensors);
  for (const char* name : {"F0", "F1", "F2", "F3", "F4", "F5", "F6", "F7"}) {
    ASSERT_EQ(HylErr::kOk, Enable(name));
  }
  session_ = 1234;
  struct Case {
    const char* name;
    uint32_t index;
    int stop_result;
    HylErr expected;
  };
  for (const auto& [name, index, stop_result, expected] :
       {Case{"F8", 8, 0, HylErr::kNoSession}, Case{"F9", 9, 5, static_cast<HylErr>(5)}}) {
    (void)log_.Take();
    (void)framework_.Take();
    framework_.RefuseInvoke(2, static_cast<HylErr>(stop_result));
    EXPECT_EQ(expected, Enable(name));
    EXPECT_THAT(
        log_.Take(),
        ElementsAre(Error(Text("Cannot add session for %s 10a%02x000d, table full!", name, index)),
                    Error(Text("Cannot enable flicker sensor '%s', no session available!", name))));
    const std::vector<FrameworkCall> calls = framework_.TakeInvokes();
    ASSERT_EQ(2U, calls.size());
    EXPECT_EQ(StartBytes(0x0A00000D | index << 16), calls[0].bytes);
    EXPECT_EQ(4U, calls[1].type);
    EXPECT_EQ(kFlicker + index, calls[1].handle);
    EXPECT_EQ(StopBytes(0x0A00000D | index << 16), calls[1].bytes);
    EXPECT_EQ(calls[0].callbacks, calls[1].callbacks);

    EXPECT_EQ(HylErr::kAlreadyRunning, Enable(name));
    EXPECT_THAT(framework_.TakeInvokes(), IsEmpty());
  }
  EXPECT_EQ(1234U, session_);
}

TEST_F(FlickerControlTest, RefusedDisable) {
  ASSERT_EQ(HylErr::kOk, Enable());
  (void)log_.Take();
  framework_.RefuseInvoke(1, static_cast<HylErr>(200));
  EXPECT_EQ(static_cast<HylErr>(200), api_->DisableFlickerSensor(session_));
  EXPECT_THAT(log_.Take(),
              ElementsAre(Error("Failed to stop sensor 'Flicker'-13:0(167772173@v1) (err:200)")));
}

/// Disable looks at the session's id, not at its kind.
TEST_F(FlickerControlTest, DisableOfTheOtherKind) {
  ASSERT_EQ(HylErr::kOk,
            api_->EnableAmbientLightSensor("Front", session_, SensorReportingMode::kContinuous));
  ASSERT_EQ(HylErr::kOk, Enable());
  const uint32_t flicker = session_;
  const uint32_t light = session_ - 1;
  const std::vector<FrameworkCall> starts = framework_.TakeInvokes();
  ASSERT_EQ(2U, starts.size());
  const void* const rear = [&] {
    EXPECT_EQ(HylErr::kOk, api_->SetTorchLightState(nullptr, true));
    return framework_.TakeInvokes().at(0).callbacks;
  }();

  EXPECT_EQ(HylErr::kOk, api_->DisableFlickerSensor(light));
  EXPECT_EQ(HylErr::kOk, api_->DisableAmbientLightSensor(flicker));
  const std::vector<FrameworkCall> stops = framework_.TakeInvokes();
  ASSERT_EQ(2U, stops.size());
  EXPECT_EQ(0x010D0001U, stops[0].handle) << "always the flicker type's handle";
  EXPECT_EQ(StopBytes(0x0A0103F4), stops[0].bytes);
  EXPECT_EQ(starts[1].callbacks, stops[0].callbacks) << "the flicker object";
  EXPECT_EQ(kFlicker, stops[1].handle);
  EXPECT_EQ(StopBytes(kRequestId), stops[1].bytes);
  EXPECT_EQ(rear, stops[1].callbacks) << "the object of index 0";
}

TEST_F(FlickerControlTest, HandsOnEveryFieldOfADataMessage) {
  Start(k16BitsIn2, 24);
  FlickerFormat format(k16BitsIn2);
  format.format_param = 0xF1F2F3F4;
  framework_.Deliver(kFlicker, format);
  FlickerData message(FourSamples(), 0, 0xA1);
  message.aux8_0 = 0xB1;
  message.aux8_1 = 0xB2;
  message.aux16_0 = 0xC1C2;
  message.aux16_1 = 0xC3C4;
  message.aux16_2 = 0xC5C6;
  message.aux32_0 = 0xD1D2D3D4;
  message.aux32_1 = 0xD5D6D7D8;
  message.auxf_0 = std::bit_cast<float>(0x7FC12345U);  // not a number
  message.auxf_1 = std::bit_cast<float>(0x80000001U);  // the smallest below zero
  framework_.Deliver(kFlicker, message);

  const std::vector<FlickerCall> calls = client_.TakeFlicker();
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
  EXPECT_EQ(0U, block.seq_num);
  EXPECT_EQ(0xF1F2F3F4U, block.format_param);
  EXPECT_EQ(0xD1D2D3D4U, block.aux32_0);
  EXPECT_EQ(0xD5D6D7D8U, block.aux32_1);
  EXPECT_EQ(0x7FC12345U, std::bit_cast<uint32_t>(block.auxf_0));
  EXPECT_EQ(0x80000001U, std::bit_cast<uint32_t>(block.auxf_1));
  EXPECT_EQ(buffer_.data(), block.samples);
  EXPECT_THAT(calls[0].samples, ElementsAre(-512, 1192960, 256, -8388608));
  EXPECT_EQ(-1, buffer_[4]) << "nothing beyond the samples is written";
}

TEST_F(FlickerControlTest, EachMessageOverwritesTheBuffer) {
  Start(k16BitsIn2);
  framework_.Deliver(kFlicker, FlickerData(FourSamples(), 0, 1));
  framework_.Deliver(kFlicker, FlickerData({1, 0, 2, 0}, 8));
  const std::vector<FlickerCall> calls = client_.TakeFlicker();
  ASSERT_EQ(2U, calls.size());
  EXPECT_EQ(1, calls[0].block.restart);
  EXPECT_EQ(4U, calls[1].block.seq_num);
  EXPECT_EQ(0, calls[1].block.restart);
  EXPECT_EQ(buffer_.data(), calls[1].block.samples);
  EXPECT_THAT(calls[1].samples, ElementsAre(2, 1));
  EXPECT_THAT(log_.Take(), IsEmpty());
}

TEST_F(FlickerControlTest, MessagesWithoutASessionAreDropped) {
  const auto expect_dropped = [&](Service::AsyncCallbacks& object, const char* cookie) {
    (void)log_.Take();
    const FlickerFormat format(k16BitsIn2);
    const FlickerData data(FourSamples());
    const FlickerData empty({});
    for (const Message* message :
         {static_cast<const Message*>(&format), static_cast<const Message*>(&data),
          static_cast<const Message*>(&empty)}) {
      object.OnResponse(message);  // silent for the empty one
    }
    const char* const text = "Can't find session for cookie:%s to handle flicker %s msg!";
    EXPECT_THAT(log_.Take(), ElementsAre(Warning(Text(text, cookie, "format")),
                                         Warning(Text(text, cookie, "data"))));
    EXPECT_THAT(client_.TakeFlicker(), IsEmpty());
  };

  framework_.RefuseInvoke(1, HylErr::kFailed);
  ASSERT_EQ(HylErr::kFailed, Enable());
  // The framework got the object, although no session came of it.
  auto* const object = static_cast<Service::AsyncCallbacks*>(
      const_cast<void*>(framework_.TakeInvokes().at(0).callbacks));
  expect_dropped(*object, "0");
  ASSERT_EQ(HylErr::kOk, Enable());
  ASSERT_EQ(HylErr::kOk, api_->DisableFlickerSensor(session_));
  expect_dropped(*object, "10a00000d");
}

TEST_F(FlickerControlTest, OtherMessagesAreIgnored) {
  Start(k16BitsIn2);
  const ScriptedApi::Callbacks object = framework_.CallbacksOf(kFlicker);
  for (const int type : {0, 2, 3, 4, 7, 8, 64, 67, 255}) {
    framework_.Deliver(kFlicker, BareMessage(type));
  }
  object->OnResponse(nullptr);
  object->OnError(HylErr::kFailed);
  object->OnAuxiliaryEvent();
  EXPECT_THAT(client_.TakeFlicker(), IsEmpty());
  EXPECT_THAT(log_.Take(), IsEmpty());
}

TEST_F(FlickerControlTest, DataThatBringNothing) {
  Start(k16BitsIn2);
  FlickerData without_data(FourSamples());
  without_data.data = nullptr;
  framework_.Deliver(kFlicker, FlickerData({}));
  EXPECT_THAT(log_.Take(), IsEmpty());
  framework_.Deliver(kFlicker, without_data);
  EXPECT_THAT(log_.Take(), ElementsAre(Error("Flicker data msg without data (size:8)")));
  framework_.Deliver(kFlicker, FlickerData({1, 2, 3}));
  EXPECT_THAT(log_.Take(),
              ElementsAre(Error("Received data size (3) doesn't fit must be 32-bit wide")));
  EXPECT_THAT(client_.TakeFlicker(), IsEmpty());
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
    std::vector<int32_t> buffer(capacity + 1, -7);
    int32_t* const passed = null ? nullptr : buffer.data();
    ASSERT_EQ(HylErr::kOk, api_->EnableFlickerSensor(nullptr, passed, capacity, 16, session_));
    framework_.Deliver(kFlicker, FlickerFormat(k16BitsIn2));
    (void)log_.Take();
    framework_.Deliver(kFlicker, FlickerData(FourSamples()));
    EXPECT_THAT(log_.Take(),
                ElementsAre(Warning(Text("Not enough space in sample converter buffer (want:4 "
                                         "have:%zu). Samples will be dropped.",
                                         null ? 0 : capacity))));
    const std::vector<FlickerCall> calls = client_.TakeFlicker();
    ASSERT_EQ(1U, calls.size());
    EXPECT_EQ(samples, calls[0].samples);
    EXPECT_EQ(passed, calls[0].block.samples);
    for (size_t i = samples.size(); i < buffer.size(); ++i) {
      EXPECT_EQ(-7, buffer[i]) << "capacity " << capacity << " index " << i;
    }
    ASSERT_EQ(HylErr::kOk, api_->DisableFlickerSensor(session_));
  }
}

TEST_F(FlickerControlTest, ARefusedFormatLeavesThePreviousOne) {
  Start(k16BitsIn2);
  for (const int width : {5, 1, 0, -1, 8}) {
    FlickerFormat refused(static_cast<FlickerFormatSampleWidth>(width));
    refused.format_param = static_cast<uint32_t>(1000 + width);
    refused.msb = 2;
    refused.lsb = 3;
    framework_.Deliver(kFlicker, refused);
    EXPECT_THAT(log_.Take(),
                ElementsAre(Warning(
                    Text("Invalid converter config (sbytes:%d msb:2 lsb:3)", width == 1 ? 1 : 0))));
    framework_.Deliver(kFlicker, FlickerData(FourSamples()));
    const std::vector<FlickerCall> calls = client_.TakeFlicker();
    ASSERT_EQ(1U, calls.size());
    EXPECT_THAT(calls[0].samples, ElementsAre(-2, 4660, 1, -32768));
    EXPECT_EQ(static_cast<uint32_t>(1000 + width), calls[0].block.format_param);
  }
}

TEST_F(FlickerControlTest, BeforeTheFirstFormat) {
  ASSERT_EQ(HylErr::kOk, Enable());
  (void)log_.Take();
  framework_.Deliver(kFlicker, FlickerData(FourSamples()));
  EXPECT_THAT(log_.Take(), ElementsAre(Warning("No sample format received yet")));
  EXPECT_THAT(client_.TakeFlicker(), IsEmpty());
  EXPECT_EQ(-1, buffer_[0]);
}

/// A session that takes over a free entry finds the format of the session before, nothing else.
TEST_F(FlickerControlTest, AReusedEntryKeepsItsFormatAlone) {
  Start(kUncompressed2);
  FlickerFormat format(FlickerFormatSampleWidth::kCompressed1);
  format.format_param = 5;
  framework_.Deliver(kFlicker, format);
  framework_.Deliver(kFlicker, FlickerData({0x85, 0xFD}, 0, 1));
  EXPECT_THAT(TakeSamples(), ElementsAre(5 * 16, 2 * 16));
  ASSERT_EQ(HylErr::kOk, api_->DisableFlickerSensor(session_));
  ASSERT_EQ(HylErr::kOk, Enable());
  framework_.Deliver(kFlicker, FlickerData({0x81}, 0, 1));
  const std::vector<FlickerCall> calls = client_.TakeFlicker();
  ASSERT_EQ(1U, calls.size());
  EXPECT_THAT(calls[0].samples, ElementsAre(16));
  EXPECT_EQ(0U, calls[0].block.seq_num);
  EXPECT_EQ(24000U, calls[0].block.format_param);
}

/// A gap in a stream of differences shows in the sequence number; later chunks stay numbered alike.
TEST_F(FlickerControlTest, ARejectedChunkCountsAsAGap) {
  Start(FlickerFormatSampleWidth::kCompressed1);
  framework_.Deliver(kFlicker, FlickerData({0x81, 0x81}, 0, 1));
  framework_.Deliver(kFlicker, FlickerData({0x85, 0x01, 0x02}, 2));
  EXPECT_THAT(log_.Take(), ElementsAre(Error("Did not process all data (left:16 bits)!")));
  framework_.Deliver(kFlicker, FlickerData({0x81}, 5));
  const std::vector<FlickerCall> calls = client_.TakeFlicker();
  ASSERT_EQ(2U, calls.size());
  EXPECT_EQ(2U + 3U, calls[1].block.seq_num);
  EXPECT_THAT(calls[1].samples, ElementsAre((1 + 1 + 5 + 1) * 16));
}

/// All flicker sensors share one object, which knows the cookie of the latest start only.
TEST_F(FlickerControlTest, OnlyTheLatestStartReceives) {
  ListSensors({MakeEntry(kFlicker, "A"), MakeEntry(kFlicker + 1, "B")});
  ASSERT_EQ(HylErr::kOk, Enable("A"));
  ASSERT_EQ(HylErr::kOk, Enable("B"));
  (void)log_.Take();
  framework_.Deliver(kFlicker, FlickerFormat(k16BitsIn2));
  framework_.Deliver(kFlicker, FlickerData(FourSamples()));
  EXPECT_EQ(4U, TakeSamples().size()) << "goes to the session of B";

  ASSERT_EQ(HylErr::kOk, api_->DisableFlickerSensor(session_));
  framework_.Deliver(kFlicker, FlickerData(FourSamples()));
  EXPECT_THAT(client_.TakeFlicker(), IsEmpty());
  EXPECT_THAT(log_.Take(), ElementsAre(Warning("Can't find session for cookie:10a01000d to handle "
                                               "flicker data msg!")));
}

TEST(FlickerWithoutClientTest, DataAreDroppedSilently) {
  ScriptedApi framework;
  const Instance api(nullptr);
  std::vector<int32_t> buffer(8, -1);
  uint32_t session = 0;
  ASSERT_EQ(HylErr::kOk,
            api->EnableFlickerSensor(nullptr, buffer.data(), buffer.size(), 16, session));
  LogCapture log;
  framework.Deliver(kFlicker, FlickerFormat(k16BitsIn2));
  framework.Deliver(kFlicker, FlickerData(FourSamples()));
  EXPECT_EQ(-1, buffer[0]);
  EXPECT_THAT(log.Take(), IsEmpty());
  EXPECT_EQ(HylErr::kOk, api->DisableFlickerSensor(session));
}

}  // namespace
}  // namespace hyl::v2::test
