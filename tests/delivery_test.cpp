// SPDX-License-Identifier: Apache-2.0
// Operations while messages are delivered: no lock is held around a callback, Disable ends what
// comes after it, and Destroy waits for what has begun.

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "library_test.h"
#include "operations.h"

namespace hyl::v2::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// What the client does when it is called on this thread.
thread_local std::function<void()> t_in_callback;

/// Three sensors run. The client and its buffer are on the heap, so that AddressSanitizer sees
/// whether they are touched after they are gone.
class TeardownTest : public ::testing::Test {
 protected:
  TeardownTest() {
    client->SetHook([] {
      if (const auto in_callback = t_in_callback) {
        in_callback();
      }
    });
    EXPECT_EQ(HylErr::kOk, HylSpectralApi::Create(&api, client.get(), HylLogLevel::kInfo));
    for (const DataWay& way : kDataWays) {
      Enable(way);
    }
    framework.Take();
    log.Take();
  }
  ~TeardownTest() override { HylSpectralApi::Destroy(&api); }

  void Enable(const DataWay& way) {
    uint32_t& id = ids[way.handle];
    EXPECT_EQ(HylErr::kOk, way == kFlickerData
                               ? api->EnableFlickerSensor("", buffer.data(), buffer.size(), 16, id)
                               : api->EnableAmbientLightSensor(way.name, id, kContinuous));
  }
  void Disable(const DataWay& way) {
    EXPECT_EQ(HylErr::kOk, way == kFlickerData ? api->DisableFlickerSensor(ids[way.handle])
                                               : api->DisableAmbientLightSensor(ids[way.handle]));
  }
  void DestroyEverything() {
    HylSpectralApi::Destroy(&api);
    client.reset();
    buffer = {};
  }

  Service::AsyncCallbacks* ObjectOf(const DataWay& way) {
    return framework.CallbacksOf(way.handle).get();
  }
  /// As a framework does it that holds no reference during the call.
  void Deliver(const DataWay& way) { way.deliver(*ObjectOf(way)); }
  /// Delivers on another thread, where the client does `in_callback` when it is first called; fails
  /// when that blocks.
  void DeliverWith(const DataWay& way, const std::function<void()>& in_callback) {
    ReturnsInTime("the delivery", [&] {
      t_in_callback = [&] {
        t_in_callback = {};
        in_callback();
      };
      Deliver(way);
    });
  }

  /// The session ids of the calls since the last time.
  std::vector<uint32_t> TakeIds() {
    std::vector<uint32_t> taken;
    for (const SpectralCall& call : client->TakeSpectral()) {
      taken.push_back(call.session_id);
    }
    for (const FlickerCall& call : client->TakeFlicker()) {
      taken.push_back(call.session_id);
    }
    return taken;
  }

  LogCapture log;
  ScriptedFramework framework;
  std::unique_ptr<RecordingClient> client = std::make_unique<RecordingClient>();
  std::vector<int> buffer = std::vector<int>(8);
  HylSpectralApi* api = nullptr;
  std::map<uint32_t, uint32_t> ids;  // of sessions, by the sensor's handle
};

constexpr auto kWayName = [](const auto& way) { return std::string(way.param.name); };

class DeliveryTest : public TeardownTest, public ::testing::WithParamInterface<DataWay> {
 protected:
  const DataWay way = GetParam();
};
INSTANTIATE_TEST_SUITE_P(, DeliveryTest, ::testing::ValuesIn(kDataWays), kWayName);

// --- in a callback ---

/// Every operation returns on another thread, whatever its result.
TEST_P(DeliveryTest, NoLockIsHeldInACallback) {
  framework.AnswerWith(ScriptedFramework::Echo);
  DeliverWith(way, [&] {
    for (const Operation& operation : kOperations) {
      ReturnsInTime(operation.name, [&] { operation.Call(*api, ids[way.handle]); });
    }
  });
}

// --- Disable ---

TEST_P(DeliveryTest, DisableEndsWhatComesAfterIt) {
  DeliverWith(way, [&] {
    ReturnsInTime("Disable on another thread", [&] { Disable(way); });
    std::fill(buffer.begin(), buffer.end(), -1);
  });
  Deliver(way);
  EXPECT_THAT(TakeIds(), ElementsAre(ids[way.handle]))
      << "neither the chain's rest nor another message";
  EXPECT_THAT(buffer, Each(-1));
}

/// The cookie is the same, so what is left of a chain goes to the second session.
TEST_P(DeliveryTest, TheFormerSessionGetsNothingMore) {
  const uint32_t former = ids[way.handle];
  DeliverWith(way, [&] {
    Disable(way);
    Enable(way);
  });
  const uint32_t id = ids[way.handle];
  const bool chain = way == kFrontEvents;
  EXPECT_EQ((chain ? std::vector{former, id} : std::vector{former}), TakeIds());
  Deliver(way);
  EXPECT_EQ(std::vector<uint32_t>(chain ? 2 : 1, id), TakeIds());
}

/// The conversion is held where it logs what it could not read, after it has written samples.
TEST_F(TeardownTest, DisableWaitsAndNamesDoNot) {
  framework.Deliver(kFlicker, FlickerFormatMessage(FlickerFormatSampleWidth::kCompressed1));
  HoldAtLog conversion("Did not process all data");
  std::thread delivery([&] {
    framework.Deliver(kFlicker, FlickerDataMessage({0x85, 0x01, 0x02}));
  });
  EXPECT_TRUE(conversion.AwaitArrival());
  auto disabling = std::async(std::launch::async, [&] { Disable(kFlickerData); });
  ReturnsInTime("GetSensorName", [&] { api->GetSensorName(ids[kFlicker]); });
  EXPECT_EQ(std::future_status::timeout, disabling.wait_for(std::chrono::milliseconds(30)));
  conversion.Release();
  disabling.get();
  delivery.join();
}

// --- Destroy ---

class DestroyTest : public DeliveryTest {
 protected:
  void ExpectToWait(const DataWay& probe, const std::function<void()>& destroy);

  /// Returns once a Destroy on another thread has begun: then messages are dropped.
  void AwaitDestroyBegun(const DataWay& probe) {
    ReturnsInTime("the probe for Destroy", [&] {
      do {
        TakeIds();
        Deliver(probe);
      } while (!TakeIds().empty());
    });
  }
};
INSTANTIATE_TEST_SUITE_P(, DestroyTest, ::testing::ValuesIn(kDataWays), kWayName);

TEST_P(DestroyTest, LateMessagesAreDroppedInSilence) {
  HylSpectralApi::Destroy(&api);
  Deliver(way);
  Service::AsyncCallbacks* const object = ObjectOf(way);
  object->OnResponse(nullptr);
  object->OnError(HylErr{3});
  for (const uint32_t type : {2U, 9U, 64U, 66U}) {
    const StatusReply message(type);
    object->OnResponse(&message);
  }
  EXPECT_THAT(TakeIds(), IsEmpty());
  EXPECT_THAT(buffer, Each(0));
  EXPECT_THAT(log.Take(), IsEmpty());
}

/// The delivery alone keeps the object alive then.
TEST_P(DestroyTest, InsideACallbackEndsTheDelivery) {
  const std::weak_ptr<Service::AsyncCallbacks> object = framework.CallbacksOf(way.handle);
  bool called = false;
  DeliverWith(way, [&] {
    called = true;
    framework.DropCallbacks();
    DestroyEverything();
    EXPECT_FALSE(object.expired());
  });
  EXPECT_TRUE(called);
  EXPECT_EQ(nullptr, api);
  EXPECT_TRUE(object.expired());
  EXPECT_THAT(log.Take(), IsEmpty()) << "the rest of a chain is not looked at";
}

/// Where both are the rear object's, it lives until the outer one has ended.
TEST_P(DestroyTest, InsideANestedDeliveryEndsBoth) {
  const std::weak_ptr<Service::AsyncCallbacks> rear = framework.CallbacksOf(kRearSample.handle);
  DeliverWith(way, [&] {
    t_in_callback = [&] {
      framework.DropCallbacks();
      DestroyEverything();
    };
    Deliver(kRearSample);
    EXPECT_EQ(nullptr, api);
    EXPECT_EQ(way != kRearSample, rear.expired());
  });
  EXPECT_TRUE(rear.expired());
  EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_P(DestroyTest, AfterANestedDeliveryEndsTheOuterOne) {
  DeliverWith(way, [&] {
    Deliver(kRearSample);
    framework.DropCallbacks();
    DestroyEverything();
  });
  EXPECT_EQ(nullptr, api);
  EXPECT_THAT(log.Take(), IsEmpty());
}

/// Destroys on one thread, through `destroy`, while the callback of a delivery is held on another.
/// That one then destroys too, through the same pointer.
void DestroyTest::ExpectToWait(const DataWay& probe, const std::function<void()>& destroy) {
  HoldPoint callback;
  std::atomic<bool> ended{false};
  Gate destroyed;
  HylSpectralApi* const running = api;
  std::thread delivery([&] {
    DeliverWith(way, [&] {
      callback.Arrive();
      HylSpectralApi::Destroy(&api);  // left to the one that waits
      EXPECT_EQ(running, api);
      EXPECT_STRNE("", running->GetSensorName(ids[way.handle]).c_str()) << "it still works";
      ended = true;
    });
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
  destroyer.join();
  delivery.join();
  EXPECT_EQ(nullptr, api);
  EXPECT_THAT(TakeIds(), IsEmpty());
}

TEST_P(DestroyTest, WaitsForADeliveryThatHasBegun) {
  ExpectToWait(kRearSample, [&] { HylSpectralApi::Destroy(&api); });
}

TEST_P(DestroyTest, InsideACallbackWaitsForOthers) {
  ExpectToWait(kFlickerData,
               [&] { DeliverWith(kRearSample, [&] { HylSpectralApi::Destroy(&api); }); });
}

TEST_F(TeardownTest, SendsNothingAndReleasesTheApiLast) {
  std::vector<std::weak_ptr<Service::AsyncCallbacks>> objects;
  for (const DataWay& way : kDataWays) {
    objects.push_back(framework.CallbacksOf(way.handle));
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
  EXPECT_EQ(std::size(kDataWays), framework.Running().size()) << "the sensors still run";
  EXPECT_EQ(0, framework.LiveApis());
  EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(TeardownTest, DestroyEndsTheWaitOfACallbackForAReply) {
  Gate sent;
  framework.SetHook([&](const FrameworkCall&) { sent.Open(); });
  std::thread delivery([&] {
    DeliverWith(kFrontEvents, [running = api] {
      uint8_t value = 0;
      EXPECT_EQ(HylErr::kFailed, running->GetRegister(nullptr, 1, &value));
    });
  });
  sent.Pass();
  EXPECT_FALSE(Gate().OpensWithin(std::chrono::milliseconds(30))) << "the wait begins";
  // The wait for a reply would take longer.
  ReturnsInTime(
      "Destroy", [&] { HylSpectralApi::Destroy(&api); }, kReplyTimeLimit - kReplyTimeLimit / 5);
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
