// Destroy against messages in flight.

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "data_way.h"
#include "library_test.h"

namespace hyl::v2::test {
namespace {

using ::testing::IsEmpty;

/// What the client does when it is called on this thread.
thread_local std::function<void()> t_in_callback;

/// The client and its buffer are on the heap, so that AddressSanitizer sees whether they are
/// touched after they are gone.
class TeardownTest : public ::testing::Test {
 protected:
  TeardownTest() {
    client->SetHook([] {
      if (const auto in_callback = t_in_callback) {
        in_callback();
      }
    });
    EXPECT_EQ(HylErr::kOk, HylSpectralApi::Create(&api, client.get(), HylLogLevel::kInfo));
    EXPECT_EQ(HylErr::kOk, api->EnableAmbientLightSensor("Rear", session, kContinuous));
    EXPECT_EQ(HylErr::kOk, api->EnableAmbientLightSensor("Front", session, kContinuous));
    EXPECT_EQ(HylErr::kOk, api->EnableFlickerSensor("", buffer.data(), buffer.size(), 16, session));
    framework.Deliver(kFlicker, FlickerFormatMessage(FlickerFormatSampleWidth::kUncompressed2));
    framework.Take();
    log.Take();
  }
  ~TeardownTest() override { HylSpectralApi::Destroy(&api); }

  Service::AsyncCallbacks* ObjectOf(DataWay way) {
    return framework.CallbacksOf(HandleOf(way)).get();
  }
  /// As a framework does it that holds no reference of its own during the call.
  void Deliver(DataWay way) { DeliverData(*ObjectOf(way), way); }

  /// Delivers on a thread of its own, where the client does `in_callback`; fails when that blocks.
  void DeliverWith(DataWay way, const std::function<void()>& in_callback) {
    ReturnsInTime("the delivery", [&] {
      t_in_callback = in_callback;
      Deliver(way);
      t_in_callback = {};
    });
  }

  size_t TakeCalls() { return client->TakeSpectral().size() + client->TakeFlicker().size(); }

  void DestroyEverything() {
    HylSpectralApi::Destroy(&api);
    client.reset();
    buffer = {};
  }

  /// Returns once a Destroy on another thread has begun: then messages are dropped.
  void AwaitDestroyBegun(DataWay probe) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    TakeCalls();
    do {
      Deliver(probe);
    } while (TakeCalls() != 0 && std::chrono::steady_clock::now() < deadline);
    Deliver(probe);
    EXPECT_EQ(0U, TakeCalls()) << "Destroy did not begin";
  }

  LogCapture log;
  ScriptedFramework framework;
  std::unique_ptr<RecordingClient> client = std::make_unique<RecordingClient>();
  std::vector<int> buffer = std::vector<int>(8);
  HylSpectralApi* api = nullptr;
  uint32_t session = 0;
};

class DestroyTest : public TeardownTest, public ::testing::WithParamInterface<DataWay> {
 protected:
  void ExpectToWait(const std::function<void()>& destroy, DataWay probe);
};
INSTANTIATE_TEST_SUITE_P(, DestroyTest, ::testing::ValuesIn(kAllDataWays), NameOf);

TEST_P(DestroyTest, LateMessagesAreDroppedInSilence) {
  HylSpectralApi::Destroy(&api);
  for (int i = 0; i < 2; ++i) {
    Deliver(GetParam());
  }
  ObjectOf(GetParam())->OnResponse(nullptr);
  ObjectOf(GetParam())->OnError(HylErr{3});
  for (const int type : {2, 9, 64, 66}) {
    const BareMessage message(type);
    ObjectOf(GetParam())->OnResponse(&message);
  }
  EXPECT_EQ(0U, TakeCalls());
  EXPECT_EQ(std::vector<int>(8), buffer);
  EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_P(DestroyTest, InsideACallbackEndsTheDelivery) {
  int calls = 0;
  DeliverWith(GetParam(), [&] {
    ++calls;
    DestroyEverything();
  });
  EXPECT_EQ(nullptr, api);
  Deliver(GetParam());
  EXPECT_EQ(1, calls);
  EXPECT_THAT(log.Take(), IsEmpty()) << "the rest of a chain is not looked at";
}

TEST_P(DestroyTest, InsideACallbackKeepsTheObjectAlive) {
  const std::weak_ptr<Service::AsyncCallbacks> object = framework.CallbacksOf(HandleOf(GetParam()));
  DeliverWith(GetParam(), [&] {
    framework.DropCallbacks();
    DestroyEverything();
    EXPECT_FALSE(object.expired());
  });
  EXPECT_EQ(nullptr, api);
  EXPECT_TRUE(object.expired());
}

TEST_P(DestroyTest, InsideANestedDeliveryEndsBoth) {
  int calls = 0;
  DeliverWith(GetParam(), [&] {
    if (++calls == 1) {
      Deliver(DataWay::kRearSample);
    } else {
      framework.DropCallbacks();
      DestroyEverything();
    }
  });
  EXPECT_EQ(2, calls);
  EXPECT_THAT(log.Take(), IsEmpty());
}

/// Destroys on one thread, through `destroy`, while the callback of a delivery is held on another.
/// That one then destroys too, through the same pointer.
void DestroyTest::ExpectToWait(const std::function<void()>& destroy, DataWay probe) {
  HoldPoint callback;
  std::atomic<bool> ended{false};
  Gate destroyed;
  HylSpectralApi* const running = api;
  std::thread delivery([&] {
    t_in_callback = [&] {
      t_in_callback = {};  // once for a chain
      callback.Arrive();
      HylSpectralApi::Destroy(&api);  // left to the one that waits
      EXPECT_STRNE("", running->GetSensorName(session).c_str()) << "the instance still works";
      ended = true;
    };
    Deliver(GetParam());
  });
  EXPECT_TRUE(callback.AwaitArrival());
  framework.SetHook(
      [&](const FrameworkCall&) { EXPECT_TRUE(ended) << "framework client released"; });
  std::thread destroyer([&] {
    destroy();
    EXPECT_TRUE(ended);
    destroyed.Open();
  });
  AwaitDestroyBegun(probe);
  EXPECT_FALSE(destroyed.OpensWithin(std::chrono::milliseconds(30)));
  callback.Release();
  EXPECT_TRUE(destroyed.Pass());
  destroyer.join();
  delivery.join();
  EXPECT_EQ(nullptr, api);
  EXPECT_EQ(0U, TakeCalls());
}

TEST_P(DestroyTest, WaitsForADeliveryThatHasBegun) {
  ExpectToWait([&] { HylSpectralApi::Destroy(&api); }, DataWay::kRearSample);
}

TEST_P(DestroyTest, InsideACallbackWaitsForOthers) {
  const auto destroy_in_callback = [&] {
    t_in_callback = [&] { HylSpectralApi::Destroy(&api); };
    Deliver(DataWay::kRearSample);
  };
  ExpectToWait(destroy_in_callback, DataWay::kFlickerData);
}

TEST_F(TeardownTest, SendsNothingAndReleasesTheApiLast) {
  std::vector<std::weak_ptr<Service::AsyncCallbacks>> objects;
  for (const uint32_t handle : {kRearContinuous, kFrontContinuous, kFlicker}) {
    objects.push_back(framework.CallbacksOf(handle));
  }
  framework.DropCallbacks();
  framework.SetHook([&](const FrameworkCall& call) {
    EXPECT_EQ(FrameworkCall::Kind::kDestroy, call.kind);
    for (const auto& object : objects) {
      EXPECT_TRUE(object.expired());
    }
  });
  HylSpectralApi::Destroy(&api);
  EXPECT_EQ(1U, framework.Take().size());
  EXPECT_EQ(3U, framework.Running().size()) << "the sensors go on";
  EXPECT_EQ(0, framework.live_apis());
  EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(TeardownTest, DestroyEndsTheWaitOfACallbackForAReply) {
  Gate sent;
  framework.SetHook([&](const FrameworkCall&) { sent.Open(); });
  std::thread delivery([&] {
    t_in_callback = [this, running = api] {
      uint8_t value = 0;
      EXPECT_EQ(HylErr::kFailed, running->GetRegister(nullptr, 1, &value));
    };
    Deliver(DataWay::kFrontEvents);
  });
  sent.Pass();
  // The wait for a reply would take longer.
  ReturnsInTime(
      "Destroy", [&] { HylSpectralApi::Destroy(&api); }, kReplyTimeLimit / 2);
  delivery.join();
}

TEST_F(TeardownTest, NullPointersDoNothing) {
  EXPECT_EQ(HylErr::kNullPointer,
            HylSpectralApi::Create(nullptr, client.get(), HylLogLevel::kInfo));
  EXPECT_THAT(framework.Take(), IsEmpty());
  HylSpectralApi::Destroy(nullptr);
  HylSpectralApi::Destroy(&api);
  EXPECT_EQ(nullptr, api);
  HylSpectralApi::Destroy(&api);
  EXPECT_EQ(1U, framework.Take().size());
}

}  // namespace
}  // namespace hyl::v2::test
