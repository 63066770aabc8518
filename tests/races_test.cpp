// Operations at chosen points of a delivery.

#include <algorithm>
#include <cstring>
#include <functional>
#include <future>
#include <iterator>
#include <thread>
#include <utility>
#include <vector>

#include "data_way.h"
#include "library_test.h"

namespace hyl::v2::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;

class DeliveryRaceTest : public LibraryTest, public ::testing::WithParamInterface<DataWay> {
 protected:
  DeliveryRaceTest() {
    EnableIt();
    framework.Deliver(HandleOf(GetParam()),  // tells spectral sensors nothing
                      FlickerFormatMessage(FlickerFormatSampleWidth::kUncompressed2));
  }

  void EnableIt() {
    id = GetParam() == DataWay::kFlickerData
             ? EnableFlicker()
             : Enable(GetParam() == DataWay::kRearSample ? "Rear" : "Front");
  }
  void DisableIt() {
    EXPECT_EQ(HylErr::kOk, GetParam() == DataWay::kFlickerData
                               ? instance->DisableFlickerSensor(id)
                               : instance->DisableAmbientLightSensor(id));
  }
  void Deliver() { DeliverData(*framework.CallbacksOf(HandleOf(GetParam())), GetParam()); }

  /// Delivers, and does `work` on another thread while the first callback runs.
  void DeliverAndMeanwhile(const std::function<void()>& work) {
    client.SetHook([&] {
      client.SetHook({});
      ReturnsInTime("what is done during a callback", work);
    });
    Deliver();
  }

  /// The session ids of the calls since the last time.
  std::vector<uint32_t> TakeIds() {
    std::vector<uint32_t> ids;
    for (const SpectralCall& call : client.TakeSpectral()) {
      ids.push_back(call.session_id);
    }
    for (const FlickerCall& call : client.TakeFlicker()) {
      ids.push_back(call.session_id);
    }
    return ids;
  }

  uint32_t id = 0;
};
INSTANTIATE_TEST_SUITE_P(, DeliveryRaceTest, ::testing::ValuesIn(kAllDataWays), NameOf);

TEST_P(DeliveryRaceTest, DisableEndsWhatComesAfterIt) {
  DeliverAndMeanwhile([&] {
    DisableIt();
    std::fill(std::begin(buffer), std::end(buffer), -1);
  });
  Deliver();
  EXPECT_THAT(TakeIds(), ElementsAre(id)) << "neither the chain's rest nor another message";
  EXPECT_THAT(buffer, Each(-1));
}

/// The cookie is the same, so what is left of a chain goes to the second session.
TEST_P(DeliveryRaceTest, TheFormerSessionGetsNothingMore) {
  const uint32_t former = id;
  DeliverAndMeanwhile([&] {
    DisableIt();
    EnableIt();
  });
  const bool chain = GetParam() == DataWay::kFrontEvents;
  EXPECT_EQ((chain ? std::vector{former, id} : std::vector{former}), TakeIds());
  Deliver();
  EXPECT_EQ(std::vector<uint32_t>(chain ? 2 : 1, id), TakeIds());
}

using ConversionRaceTest = LibraryTest;

/// The conversion is held where it logs what it could not read, after it has written samples.
TEST_F(ConversionRaceTest, DisableWaitsAndNamesDoNot) {
  const uint32_t session = EnableFlicker();
  framework.Deliver(kFlicker, FlickerFormatMessage(FlickerFormatSampleWidth::kCompressed1));
  HoldPoint conversion;
  auto logger = android::base::SetLogger([&](auto, auto, auto, auto, auto, const char* message) {
    if (std::strstr(message, "Did not process all data") != nullptr) {
      conversion.Arrive();
    }
  });
  std::thread delivery([&] {
    framework.Deliver(kFlicker, FlickerDataMessage({0x85, 0x01, 0x02}));
  });
  EXPECT_TRUE(conversion.AwaitArrival());
  auto disabling =
      std::async(std::launch::async, [&] { return instance->DisableFlickerSensor(session); });
  ReturnsInTime("GetSensorName", [&] { instance->GetSensorName(session); });
  EXPECT_EQ(std::future_status::timeout, disabling.wait_for(std::chrono::milliseconds(30)));
  conversion.Release();
  EXPECT_EQ(HylErr::kOk, disabling.get());
  delivery.join();
  android::base::SetLogger(std::move(logger));
}

}  // namespace
}  // namespace hyl::v2::test
