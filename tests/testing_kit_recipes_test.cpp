// SPDX-License-Identifier: Apache-2.0
// The recipes of docs/testing-kit.md, which shows parts of this file.
#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <android-base/logging.h>
#include <gtest/gtest.h>
#include <hyl/host/messages.h>
#include <hyl/host/scripted_framework.h>
#include <hyl/host/sensors.h>
#include <hyl/host/simulated_hub.h>
#include <hyl/spectral_instance.h>

namespace hyl::v2 {
namespace {

struct SampleKeeper : HylSpectralApiCallbackInterface {
  void OnSpectralData(uint32_t, uint32_t, const Vector<float>& values, int64_t) override {
    samples.emplace_back(values.begin(), values.end());
  }
  void OnFlickerData(uint32_t, const FlickerSampleBlock*) override {}

  std::vector<std::vector<float>> samples;
};

class Recipes : public testing::Test {
 protected:
  void TearDown() override {
    api.reset();
    host::SimulatedHub::Instance().Reset();
  }

  void Create() { api = MakeInstance(&client); }

  HylErr Start(const char* name) {
    return api->EnableAmbientLightSensor(name, session, SensorReportingMode::kContinuous);
  }

  SampleKeeper client;
  SpectralInstance api;
  uint32_t session = 0;
};

/// A test on a scripted framework, which must outlive the instance.
class ScriptedRecipes : public Recipes {
 protected:
  host::ScriptedFramework framework;
};

TEST_F(ScriptedRecipes, AMessageOfYourOwn) {
  Create();
  ASSERT_EQ(Start("Rear ALS"), HylErr::kOk);
  // Messages come on a thread of the framework, never on one that is inside a call.
  std::thread([&] {
    framework.Deliver(host::kRearContinuous,
                      host::EventChainMessage({{.type = SensorEventType::kIgnored},
                                               {.values = {1, 2, 3}, .timestamp = 2000}}));
  }).join();
  EXPECT_EQ(client.samples, (std::vector<std::vector<float>>{{1, 2, 3}}));
}

TEST_F(ScriptedRecipes, AReplyThatIsLate) {
  Create();
  framework.AnswerWith(host::ScriptedFramework::Echo);
  framework.HoldAnswers();
  uint32_t applied = 0;
  std::thread writer([&] { api->SetExposureTime(nullptr, 1000, &applied); });
  // ... what the client does while it waits ...
  framework.ReleaseAnswers();
  writer.join();
  EXPECT_EQ(applied, 1000U);
}

TEST_F(ScriptedRecipes, AnAnswerOfYourOwn) {
  Create();
  framework.AnswerWith([](const host::FrameworkCall& call) {
    auto replies = host::ScriptedFramework::Echo(call);
    auto reply = std::make_unique<host::SettingReply>(RlsAccess::kRead, RlsCommand::kRegister);
    reply->value8 = 7;
    replies.front() = std::move(reply);
    return replies;  // none, one or several
  });
  uint8_t value = 0;
  EXPECT_EQ(api->GetRegister(nullptr, 0x10, &value), HylErr::kOk);
  EXPECT_EQ(value, 7);
}

TEST_F(ScriptedRecipes, ALookAtTheRequests) {
  Create();
  api->SetFlickerPedestal(nullptr, 9);
  const auto calls = framework.TakeInvokes();
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(calls[0].handle, host::kSettingsHandle);
  EXPECT_EQ(calls[0].As<RlsMsgAccessReq>()->value8, 9);
}

TEST_F(ScriptedRecipes, TheSimulatedHubWithAFault) {
  framework.UseSimulatedHub();
  Create();
  ASSERT_EQ(Start("rear"), HylErr::kOk);
  framework.RefuseInvoke(1, HylErr::kFailed);  // the stop
  EXPECT_EQ(api->DisableAmbientLightSensor(session), HylErr::kFailed);
  EXPECT_EQ(framework.Running().size(), 1U);
}

TEST_F(Recipes, MemoryThatRunsOut) {
  host::SimulatedHub& hub = host::SimulatedHub::Instance();
  hub.UseVirtualClock();
  Create();
  ASSERT_EQ(Start("rear"), HylErr::kOk);

  host::FailVectorGrowth([] { return true; });
  hub.Advance(std::chrono::milliseconds(100));
  host::FailVectorGrowth({});
  EXPECT_EQ(client.samples, std::vector<std::vector<float>>{{}});  // a sample, without values
}

TEST_F(Recipes, WhatIsLogged) {
  std::vector<std::string> errors;
  android::base::LogFunction before =
      android::base::SetLogger([&](android::base::LogId, android::base::LogSeverity severity,
                                   const char*, const char*, unsigned, const char* message) {
        if (severity >= android::base::ERROR) {
          errors.emplace_back(message);
        }
      });
  Create();
  EXPECT_EQ(Start("no such sensor"), HylErr::kNotFound);
  android::base::SetLogger(std::move(before));
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].ends_with("Sensor 'no such sensor' not found")) << errors[0];
}

}  // namespace
}  // namespace hyl::v2
