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

}  // namespace
}  // namespace hyl::v2::test
