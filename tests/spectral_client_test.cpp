// SPDX-License-Identifier: Apache-2.0
// The client layer: who ends what, and what lives until when.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hyl/spectral_client.h>

#include "client.h"
#include "framework.h"
#include "gate.h"
#include "log_capture.h"

namespace hyl::v2::test {
namespace {

using std::chrono::nanoseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Light = std::unique_ptr<AmbientLightSession>;
using Flicker = std::unique_ptr<FlickerSession>;

class SpectralClientTest : public ::testing::Test {
 protected:
  /// The handles of the sensors that run.
  std::vector<uint32_t> Running() {
    std::vector<uint32_t> handles;
    for (const auto& [handle, client_id] : framework.Running()) {
      handles.push_back(handle);
    }
    return handles;
  }
  Light EnableLight() {
    Light session;
    EXPECT_EQ(HylErr::kOk, client->EnableAmbientLight("Rear", kContinuous, session));
    return session;
  }
  Flicker EnableFlicker() {
    Flicker session;
    EXPECT_EQ(HylErr::kOk, client->EnableFlicker(nullptr, 8, 16, session));
    return session;
  }
  void Deliver(const DataWay& way) { way.deliver(*framework.CallbacksOf(way.handle)); }
  void RunHook() {
    if (const auto once = std::exchange(hook, nullptr)) {
      once();
    }
    EXPECT_FALSE(held.expired()) << "a handler has ended while it ran";
  }

  LogCapture log;
  ScriptedFramework framework;
  std::shared_ptr<int> token = std::make_shared<int>();  ///< goes to the handlers
  const std::weak_ptr<int> held = token;
  std::function<void()> hook;  ///< what the next handler does first
  std::vector<float> light;    ///< of all samples, each with its time
  std::vector<int32_t> flicker;
  std::unique_ptr<SpectralClient> client = std::make_unique<SpectralClient>(SpectralHandlers{
      .ambient_light =
          [this, token = std::move(token)](std::span<const float> values, nanoseconds time) {
            RunHook();
            light.insert(light.end(), values.begin(), values.end());
            light.push_back(static_cast<float>(time.count()));
          },
      .flicker =
          [this](std::span<const int32_t> samples, const FlickerSampleBlock& block) {
            RunHook();
            EXPECT_EQ(samples.size(), block.num_samples);
            flicker.insert(flicker.end(), samples.begin(), samples.end());
          }});
};

TEST_F(SpectralClientTest, HandlersTakeSpansAndTimes) {
  const Light rear = EnableLight();
  const Flicker session = EnableFlicker();
  EXPECT_EQ("Rear ALS", rear->name());
  EXPECT_EQ("Flicker", session->name());
  EXPECT_EQ(client->api().GetSensorName(session->id()), session->name());
  framework.Deliver(kRearContinuous, SpectralMessage({1, 2}, 5));
  framework.Deliver(kRearContinuous, SpectralMessage({}, 6));
  EXPECT_THAT(light, ElementsAre(1, 2, 5, 6));
  Deliver(kFlickerData);
  EXPECT_THAT(flicker, ElementsAre(1, 2));
}

TEST_F(SpectralClientTest, DataWithoutHandlersAreDropped) {
  client = std::make_unique<SpectralClient>(SpectralHandlers{});
  const Light rear = EnableLight();
  const Flicker session = EnableFlicker();
  EXPECT_NO_THROW(Deliver(kRearSample));
  EXPECT_NO_THROW(Deliver(kFlickerData));
}

TEST_F(SpectralClientTest, ASensorRunsAsLongAsItsSession) {
  Light rear = EnableLight();
  Light moved = std::move(rear);
  EXPECT_THAT(Running(), ElementsAre(kRearContinuous));
  EXPECT_EQ(HylErr::kOk, moved->ChangeReporting(kOnChange));
  EXPECT_THAT(Running(), ElementsAre(kRearOnChange));
  moved.reset();
  EXPECT_THAT(Running(), IsEmpty());

  Flicker session = EnableFlicker();
  EXPECT_EQ(HylErr::kOk, session->Disable());
  EXPECT_THAT(Running(), IsEmpty());
  framework.Take();
  EXPECT_EQ(HylErr::kNotFound, session->Disable());
  session.reset();
  EXPECT_THAT(framework.Take(), IsEmpty()) << "disabled already";
}

TEST_F(SpectralClientTest, ABufferThatCannotBeMadeIsAFailure) {
  Flicker session;
  for (const size_t capacity : {SIZE_MAX, SIZE_MAX / sizeof(int) + 2}) {
    EXPECT_EQ(HylErr::kFailed, client->EnableFlicker(nullptr, capacity, 16, session));
  }
  EXPECT_THAT(framework.TakeInvokes(), IsEmpty());
}

TEST_F(SpectralClientTest, AnEnableEndsTheSessionThatItReplaces) {
  Light session = EnableLight();
  EXPECT_EQ(HylErr::kOk, client->EnableAmbientLight("Front", kOnChange, session));
  EXPECT_THAT(Running(), ElementsAre(kFrontOnChange));
  framework.RefuseInvoke(2, HylErr{42});  // the start that follows the stop
  EXPECT_EQ(HylErr{42}, client->EnableAmbientLight("Rear", kOnChange, session));
  EXPECT_EQ(nullptr, session) << "an enable that fails leaves nothing";
  EXPECT_THAT(Running(), IsEmpty());
}

/// The samples of a position go to the session that was opened last there. So a client opens one of
/// a kind, and the sessions of two clients do not meet.
TEST_F(SpectralClientTest, NoSessionTakesTheSamplesOfAnother) {
  const Light rear = EnableLight();
  const Flicker flicker_session = EnableFlicker();
  Light second;
  Flicker second_flicker;
  EXPECT_EQ(HylErr::kAlreadyRunning, client->EnableAmbientLight("Rear", kOnChange, second));
  EXPECT_EQ(HylErr::kAlreadyRunning, client->EnableFlicker(nullptr, 8, 16, second_flicker));
  int on_change = 0;
  SpectralClient another({.ambient_light = [&](auto, auto) { ++on_change; }});
  EXPECT_EQ(HylErr::kOk, another.EnableAmbientLight("Rear", kOnChange, second));
  framework.Deliver(kRearContinuous, SpectralMessage({1}, 5));
  framework.Deliver(kRearOnChange, SpectralMessage({4}));
  EXPECT_THAT(light, ElementsAre(1, 5));
  EXPECT_EQ(1, on_change);
}

TEST_F(SpectralClientTest, SessionsOutliveTheClient) {
  Light rear = EnableLight();
  Flicker session = EnableFlicker();
  client.reset();
  EXPECT_THAT(Running(), IsEmpty()) << "the client has disabled its sensors";
  EXPECT_EQ(0, framework.LiveApis());
  framework.Take();
  EXPECT_EQ("Rear ALS", rear->name());
  EXPECT_EQ(HylErr::kNotFound, rear->ChangeReporting(kOnChange));
  EXPECT_EQ(HylErr::kNotFound, session->Disable());
  rear.reset();
  session.reset();
  EXPECT_THAT(framework.Take(), IsEmpty());
}

class InAHandlerTest : public SpectralClientTest, public ::testing::WithParamInterface<DataWay> {
 protected:
  size_t calls() const { return (light.size() / 4) + (flicker.size() / 2); }

  Light rear = EnableLight();
  Flicker session = EnableFlicker();
};
INSTANTIATE_TEST_SUITE_P(, InAHandlerTest, ::testing::Values(kRearSample, kFlickerData),
                         [](const auto& way) { return std::string(way.param.name); });

TEST_P(InAHandlerTest, AllCanBeDestroyed) {
  hook = [&] {
    rear.reset();
    client.reset();
    session.reset();
  };
  ReturnsInTime("the delivery", [&] { Deliver(GetParam()); });
  EXPECT_EQ(1U, calls()) << "the handler has read its samples";
  EXPECT_THAT(Running(), IsEmpty());
}

TEST_P(InAHandlerTest, TheClientsEndWaitsElsewhere) {
  HoldPoint handler;
  Gate destroyed;
  hook = [&] { handler.Arrive(); };
  std::thread delivery([&] { Deliver(GetParam()); });
  EXPECT_TRUE(handler.AwaitArrival());
  std::thread destroyer([&] {
    client.reset();
    EXPECT_EQ(1U, calls()) << "the handler has ended before";
    destroyed.Open();
  });
  EXPECT_FALSE(destroyed.OpensWithin(std::chrono::milliseconds(30)));
  ReturnsInTime("the end of a session", [&] { session.reset(); });
  handler.Release();
  EXPECT_TRUE(destroyed.Pass());
  delivery.join();
  destroyer.join();
}

/// A handler reads its samples while its session ends and the next one gets samples.
TEST_F(SpectralClientTest, TheBufferLivesUntilTheHandlerReturns) {
  HoldPoint handler;
  Flicker session = EnableFlicker();
  hook = [&] { handler.Arrive(); };
  std::thread delivery([&] { Deliver(kFlickerData); });
  EXPECT_TRUE(handler.AwaitArrival());
  EXPECT_EQ(HylErr::kOk, client->EnableFlicker(nullptr, 8, 16, session));
  framework.Deliver(kFlicker, FlickerDataMessage({3, 0, 4, 0}));
  handler.Release();
  delivery.join();
  EXPECT_THAT(flicker, ElementsAre(3, 4, 1, 2));
}

/// It is held before it writes more samples than there is room for.
TEST_F(SpectralClientTest, TheBufferLivesUntilTheConversionEnds) {
  Flicker session = EnableFlicker();
  framework.Deliver(kFlicker, FlickerFormatMessage(FlickerFormatSampleWidth::kUncompressed2));
  HoldAtLog conversion("Not enough space");
  std::thread delivery(
      [&] { framework.Deliver(kFlicker, FlickerDataMessage(std::vector<uint8_t>(32))); });
  EXPECT_TRUE(conversion.AwaitArrival());
  auto end = std::async(std::launch::async, [&] { session.reset(); });
  EXPECT_EQ(std::future_status::timeout, end.wait_for(std::chrono::milliseconds(30)));
  conversion.Release();
  delivery.join();
  end.get();
  EXPECT_THAT(flicker, IsEmpty());
}

/// As when a session ends after the library has filled its buffer and before it calls the client.
TEST_F(SpectralClientTest, ABlockOfAnEndedSessionIsDropped) {
  int calls = 0;
  const auto core = std::make_shared<spectral::ClientCore>(
      SpectralHandlers{.flicker = [&](auto, const auto&) { ++calls; }});
  core->flicker_id = 2;
  core->buffer.reset(new int[1]);
  const FlickerSampleBlock block{};
  core->OnFlickerData(1, &block);
  EXPECT_EQ(0, calls);
  core->OnFlickerData(2, &block);
  EXPECT_EQ(1, calls);
}

TEST_F(SpectralClientTest, SessionsComeAndGoDuringDeliveries) {
  Light rear = EnableLight();
  Flicker session = EnableFlicker();
  std::atomic<bool> ended{false};
  std::thread delivery([&] {
    while (!ended) {
      Deliver(kRearSample);
      Deliver(kFlickerData);
    }
  });
  for (int i = 0; i < 100; ++i) {
    session.reset();
    session = EnableFlicker();
    EXPECT_EQ(HylErr::kOk, client->EnableAmbientLight("Rear", kContinuous, rear));
  }
  client.reset();
  ended = true;
  delivery.join();
}

}  // namespace
}  // namespace hyl::v2::test
