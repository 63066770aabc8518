// SPDX-License-Identifier: Apache-2.0
// Messages on their path to the client: references to events, values without memory, and chunks of
// any size.

#include <string>
#include <utility>
#include <vector>

#include <hyl/host/scripted_framework.h>

#include "library_test.h"

namespace hyl::v2::test {
namespace {

using ::testing::ElementsAre;

/// The rear sensor runs.
class MessagesTest : public LibraryTest {
 protected:
  /// The values that the client gets for a message, one vector a call.
  std::vector<std::vector<float>> Values(const Message& message) {
    framework.Deliver(kRearContinuous, message);
    std::vector<std::vector<float>> values;
    for (const SpectralCall& call : client.TakeSpectral()) {
      values.push_back(call.values);
    }
    return values;
  }

  const uint32_t id = Enable("Rear");
  const SensorEventPtr chain = MakeEventChain({{kSpectral, {1}}, {kSpectral, {2}}});
};

/// The test and the message hold the first event, which holds the second.
TEST_F(MessagesTest, AnEventIsHeldWhileItIsHandled) {
  const EventChainMessage message(chain, 2);
  std::vector<std::pair<int, int>> counts;
  client.SetHook([&] { counts.emplace_back(chain->ref_count, chain->next->ref_count); });
  framework.Deliver(kRearContinuous, message);
  EXPECT_THAT(counts, ElementsAre(std::pair(3, 1), std::pair(2, 2)));
}

TEST_F(MessagesTest, AnEventHas255HoldersAtMost) {
  chain->next->ref_count = 254;
  EXPECT_THAT(Values(EventChainMessage(chain, 2)),
              ElementsAre(std::vector<float>{1}, std::vector<float>{2}));
  chain->next->ref_count = 255;
  EXPECT_DEATH(chain->next->Ref(), "previous_count < 255");
  EXPECT_THAT(Values(EventChainMessage(chain, 1)), ElementsAre(std::vector<float>{1}))
      << "an event beyond the count is left alone";
  chain->next->ref_count = 1;
}

TEST_F(MessagesTest, ValuesWithoutMemoryAreLeftOut) {
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

TEST_F(MessagesTest, NoMessageAndErrorsDoNothing) {
  EnableFlicker();
  log.Take();
  for (const DataWay& way : {kRearSample, kFlickerData}) {
    const auto object = framework.CallbacksOf(way.handle);
    object->OnResponse(nullptr);
    object->OnError(HylErr{3});
    way.deliver(*object);
  }
  EXPECT_EQ(1U, client.TakeSpectral().size());
  EXPECT_EQ(1U, client.TakeFlicker().size());
  EXPECT_THAT(log.Take(), ::testing::IsEmpty());
}

/// Only what there is room for is read.
TEST_F(MessagesTest, AChunkMayHaveMoreThan32BitsOfBytes) {
  uint32_t flicker = 0;
  EXPECT_EQ(HylErr::kOk, instance->EnableFlickerSensor(nullptr, buffer, 2, 16, flicker));
  framework.Deliver(kFlicker, FlickerFormatMessage(FlickerFormatSampleWidth::kUncompressed2));
  FlickerDataMessage message({1, 0, 2, 0});
  message.size = uint64_t{1} << 32;
  framework.Deliver(kFlicker, message);
  const std::vector<FlickerCall> calls = client.TakeFlicker();
  ASSERT_EQ(1U, calls.size());
  EXPECT_THAT(calls[0].samples, ElementsAre(1, 2));
}

}  // namespace
}  // namespace hyl::v2::test
