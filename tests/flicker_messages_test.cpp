// Flicker messages on their path to the client, malformed ones included.

#include <algorithm>
#include <cstdint>
#include <vector>

#include "library_test.h"

namespace hyl::v2::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr auto k16BitsIn2 = FlickerFormatSampleWidth::k16BitsIn2;

/// 4660, -2, -32768, 1 in 16-bits-in-2, each pair the other way round.
std::vector<uint8_t> FourSamples() {
  return {0x34, 0x12, 0xFE, 0xFF, 0x00, 0x80, 0x01, 0x00};
}

class FlickerMessagesTest : public LibraryTest {
 protected:
  FlickerMessagesTest() {
    std::ranges::fill(buffer, -1);
    id_ = EnableFlicker();
    log.Take();
  }
  /// The call that a data message makes of four samples.
  FlickerCall DeliverFourSamples(uint32_t offset = 0, uint8_t restart = 0) {
    framework.Deliver(kFlicker, FlickerDataMessage(FourSamples(), offset, restart));
    const std::vector<FlickerCall> calls = client.TakeFlicker();
    EXPECT_EQ(1U, calls.size());
    return calls.empty() ? FlickerCall{} : calls[0];
  }

  uint32_t id_ = 0;
};

TEST_F(FlickerMessagesTest, SamplesAndTheirBlockReachTheClient) {
  FlickerFormatMessage format(k16BitsIn2);
  format.format_param = 0xF1F2F3F4;
  framework.Deliver(kFlicker, format);
  const FlickerCall call = DeliverFourSamples(40, 0xA1);
  EXPECT_EQ(id_, call.session_id);
  EXPECT_THAT(call.samples, ElementsAre(-2, 4660, 1, -32768));
  EXPECT_EQ(buffer, call.block.samples);
  EXPECT_EQ(-1, buffer[4]) << "nothing beyond the samples is written";
  EXPECT_EQ(20U, call.block.seq_num);
  EXPECT_EQ(0xF1F2F3F4U, call.block.format_param);
  EXPECT_EQ(0xA1, call.block.restart);

  // The next session finds the format, but not its parameter.
  EXPECT_EQ(HylErr::kOk, instance->DisableFlickerSensor(id_));
  id_ = EnableFlicker();
  const FlickerCall next = DeliverFourSamples();
  EXPECT_EQ(id_, next.session_id);
  EXPECT_THAT(next.samples, ElementsAre(-2, 4660, 1, -32768));
  EXPECT_EQ(24000U, next.block.format_param);
}

TEST_F(FlickerMessagesTest, ARefusedFormatLeavesThePreviousOne) {
  framework.Deliver(kFlicker, FlickerFormatMessage(k16BitsIn2));
  FlickerFormatMessage refused(FlickerFormatSampleWidth{5});
  refused.format_param = 1000;
  refused.msb = 2;
  refused.lsb = 3;
  framework.Deliver(kFlicker, refused);
  EXPECT_THAT(log.Take(), ElementsAre(Warning("Invalid converter config (sbytes:0 msb:2 lsb:3)")));
  const FlickerCall call = DeliverFourSamples();
  EXPECT_THAT(call.samples, ElementsAre(-2, 4660, 1, -32768));
  EXPECT_EQ(1000U, call.block.format_param);
}

TEST_F(FlickerMessagesTest, MessagesThatBringNothing) {
  FlickerDataMessage data(FourSamples());
  framework.Deliver(kFlicker, data);
  EXPECT_THAT(log.Take(), ElementsAre(Warning("No sample format received yet")));
  framework.Deliver(kFlicker, FlickerFormatMessage(k16BitsIn2));
  data.data = nullptr;
  framework.Deliver(kFlicker, data);
  EXPECT_THAT(log.Take(), ElementsAre(Error("Flicker data msg without data (size:8)")));
  framework.Deliver(kFlicker, FlickerDataMessage({}));
  for (const uint32_t type : {0U, 2U, 3U, 4U, 7U, 8U, 64U, 67U, 255U}) {
    framework.Deliver(kFlicker, StatusReply(type));
  }
  const ScriptedFramework::Callbacks object = framework.CallbacksOf(kFlicker);
  object->OnResponse(nullptr);
  object->OnError(HylErr::kFailed);
  object->OnAuxiliaryEvent();
  EXPECT_THAT(log.Take(), IsEmpty());
  EXPECT_THAT(client.TakeFlicker(), IsEmpty());
  EXPECT_THAT(buffer, Each(-1));
}

TEST_F(FlickerMessagesTest, WithoutASessionAllIsDropped) {
  ASSERT_EQ(HylErr::kOk, instance->DisableFlickerSensor(id_));
  framework.Deliver(kFlicker, FlickerFormatMessage(k16BitsIn2));
  framework.Deliver(kFlicker, FlickerDataMessage(FourSamples()));
  framework.Deliver(kFlicker, FlickerDataMessage({}));
  EXPECT_THAT(
      log.Take(),
      ElementsAre(Warning("Can't find session for cookie:10a00000d to handle flicker format msg!"),
                  Warning("Can't find session for cookie:10a00000d to handle flicker data msg!")));
  EXPECT_THAT(client.TakeFlicker(), IsEmpty());
}

TEST_F(FlickerMessagesTest, SmallBuffersAreNeverOverrun) {
  const struct {
    int* buffer;
    const char* room;
    std::vector<int32_t> samples;
  } kCases[] = {{buffer, "3", {-2, 4660}},  // the packing in pairs keeps the count even
                {nullptr, "0", {}}};
  for (const auto& c : kCases) {
    ASSERT_EQ(HylErr::kOk, instance->DisableFlickerSensor(id_));
    ASSERT_EQ(HylErr::kOk, instance->EnableFlickerSensor(nullptr, c.buffer, 3, 16, id_));
    framework.Deliver(kFlicker, FlickerFormatMessage(k16BitsIn2));
    EXPECT_EQ(c.samples, DeliverFourSamples().samples);
    EXPECT_THAT(log.Take(),
                ElementsAre(Warning(Text("Not enough space in sample converter buffer (want:4 "
                                         "have:%s). Samples will be dropped.",
                                         c.room))));
  }
  EXPECT_EQ(-1, buffer[2]);
}

TEST(FlickerWithoutClientTest, DataAreDroppedInSilence) {
  ScriptedFramework framework;
  const Instance api(nullptr);
  int buffer[8] = {};
  uint32_t id = 0;
  ASSERT_EQ(HylErr::kOk, api->EnableFlickerSensor(nullptr, buffer, std::size(buffer), 16, id));
  LogCapture log;
  kFlickerData.deliver(*framework.CallbacksOf(kFlicker));
  EXPECT_THAT(buffer, Each(0));
  EXPECT_THAT(log.Take(), IsEmpty());
}

}  // namespace
}  // namespace hyl::v2::test
