// Operations at chosen points of a delivery.

#include <algorithm>
#include <cstring>
#include <functional>
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
  DeliveryRaceTest() { EnableIt(); }

  void EnableIt() {
    id = GetParam() == DataWay::kFlickerData
             ? EnableFlicker()
             : Enable(GetParam() == DataWay::kRearSample ? "Rear" : "Front");
    if (GetParam() == DataWay::kFlickerData) {
      framework.Deliver(kFlicker, FlickerFormat(FlickerFormatSampleWidth::kUncompressed2));
    }
  }
  void DisableIt() {
    EXPECT_EQ(HylErr::kOk, GetParam() == DataWay::kFlickerData
                               ? instance->DisableFlickerSensor(id)
                               : instance->DisableAmbientLightSensor(id));
  }
  void Deliver() { DeliverData(*framework.CallbacksOf(HandleOf(GetParam())), GetParam()); }

  /// Does `work`, which must not wait for it, while the first callback of a delivery is held.
  void WhileTheCallbackIsHeld(const std::function<void()>& work) {
    HoldPoint callback;
    client.SetHook([&] { callback.Arrive(); });
    std::thread delivery([&] { Deliver(); });
    EXPECT_TRUE(callback.AwaitArrival());
    ReturnsInTime("what is done during a callback", work);
    client.SetHook({});
    callback.Release();
    delivery.join();
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
INSTANTIATE_TEST_SUITE_P(Ways, DeliveryRaceTest, ::testing::ValuesIn(kAllDataWays), NameOf);

TEST_P(DeliveryRaceTest, DisableDuringACallbackEndsWhatComesAfterIt) {
  const uint32_t session = id;
  WhileTheCallbackIsHeld([&] {
    DisableIt();
    std::fill(std::begin(buffer), std::end(buffer), -1);
  });
  Deliver();
  EXPECT_THAT(TakeIds(), ElementsAre(session)) << "neither the chain's rest nor another message";
  EXPECT_THAT(buffer, Each(-1));
}

/// The cookie is the same, so messages of the first run may only go to the second session.
TEST_P(DeliveryRaceTest, EnableAgainDuringACallbackLeavesNothingToTheFormerSession) {
  const uint32_t former = id;
  WhileTheCallbackIsHeld([&] {
    DisableIt();
    EnableIt();
  });
  std::vector<uint32_t> ids = TakeIds();
  ASSERT_LT(former, id);
  EXPECT_EQ(former, ids.at(0));
  ids.erase(ids.begin());
  Deliver();
  const std::vector<uint32_t> later = TakeIds();
  EXPECT_THAT(ids, Each(id));
  EXPECT_FALSE(later.empty());
  EXPECT_THAT(later, Each(id));
}

/// Holds the conversion where it logs what it could not read, after it has written samples.
class ConversionRaceTest : public LibraryTest {
 protected:
  ConversionRaceTest() : session(EnableFlicker()) {
    framework.Deliver(kFlicker, FlickerFormat(FlickerFormatSampleWidth::kCompressed1));
    logger =
        android::base::SetLogger([this](android::base::LogId, android::base::LogSeverity,
                                        const char*, const char*, unsigned, const char* message) {
          if (std::strstr(message, "Did not process all data") != nullptr) {
            conversion.Arrive();
          }
        });
  }
  ~ConversionRaceTest() override { android::base::SetLogger(std::move(logger)); }

  uint32_t session;
  HoldPoint conversion;
  android::base::LogFunction logger;
};

TEST_F(ConversionRaceTest, DisableWaitsForTheConversionAndNamesDoNot) {
  std::thread delivery([&] { framework.Deliver(kFlicker, FlickerData({0x85, 0x01, 0x02})); });
  EXPECT_TRUE(conversion.AwaitArrival());
  Gate disabled;
  std::thread disabler([&] {
    EXPECT_EQ(HylErr::kOk, instance->DisableFlickerSensor(session));
    disabled.Open();
  });
  ReturnsInTime("GetSensorName", [&] { instance->GetSensorName(session); });
  EXPECT_FALSE(disabled.OpensWithin(std::chrono::milliseconds(30)));
  conversion.Release();
  EXPECT_TRUE(disabled.Pass());
  delivery.join();
  disabler.join();
}

}  // namespace
}  // namespace hyl::v2::test
