// SPDX-License-Identifier: Apache-2.0
// The recipes of docs/testing-kit.md, which shows parts of this file.
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <android-base/logging.h>
#include <gtest/gtest.h>
#include <hyl/host/messages.h>
#include <hyl/host/scripted_framework.h>
#include <hyl/spectral_instance.h>

namespace hyl::v2 {
namespace {

class Recipes : public testing::Test {
 protected:
  HylErr Start(const char* name) {
    return api->EnableAmbientLightSensor(name, session, SensorReportingMode::kContinuous);
  }

  host::ScriptedFramework framework;
  SpectralInstance api = MakeInstance(nullptr);  // which the framework must outlive
  uint32_t session = 0;
};

TEST_F(Recipes, AReplyThatIsLate) {
  framework.AnswerWith(host::ScriptedFramework::Echo);
  framework.HoldAnswers();
  uint32_t applied = 0;
  std::thread writer([&] { api->SetExposureTime(nullptr, 1000, &applied); });
  // ... what the client does while it waits ...
  framework.ReleaseAnswers();
  writer.join();
  EXPECT_EQ(applied, 1000U);
}

TEST_F(Recipes, AnAnswerOfYourOwn) {
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

TEST_F(Recipes, TheSimulatedHubWithAFault) {
  framework.UseSimulatedHub();
  ASSERT_EQ(Start("rear"), HylErr::kOk);
  framework.RefuseInvoke(1, HylErr::kFailed);  // the stop
  EXPECT_EQ(api->DisableAmbientLightSensor(session), HylErr::kFailed);
  EXPECT_EQ(framework.Running().size(), 1U);
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
  EXPECT_EQ(Start("no such sensor"), HylErr::kNotFound);
  android::base::SetLogger(std::move(before));
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].ends_with("Sensor 'no such sensor' not found")) << errors[0];
}

}  // namespace
}  // namespace hyl::v2
