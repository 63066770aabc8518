// The recipes of docs/simulated-hub.md, which shows parts of this file.
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <android-base/logging.h>
#include <gtest/gtest.h>
#include <hyl/api.h>
#include <hyl/host/api_factory.h>
#include <hyl/host/sensor_event.h>
#include <hyl/host/simulated_hub.h>
#include <hyl/host/vector_faults.h>
#include <hyl/hyl_spectral_api.h>
#include <hyl/sampling_messages.h>

namespace hyl::v2 {
namespace {

struct SampleKeeper : HylSpectralApiCallbackInterface {
  void OnSpectralData(uint32_t, uint32_t, const Vector<float>& values, int64_t) override {
    samples.emplace_back(values.begin(), values.end());
  }
  void OnFlickerData(uint32_t, const FlickerSampleBlock*) override {}

  std::vector<std::vector<float>> samples;
};

// One sensor, which refuses to start unless `start_result` is kOk.
struct OneSensor : Api {
  explicit OneSensor(HylErr result) : start_result(result) {}

  std::vector<SensorListEntry> GetSensorList() override {
    SensorListEntry sensor{0x04F40000, "my sensor"};  // type 1268, index 0
    SensorListEntry list_end{21U << 16U, "end"};      // the list is complete
    return {sensor, list_end};
  }

  HylErr InvokeAsyncServiceCall(uint32_t, uint32_t, const Request&,
                                std::shared_ptr<Service::AsyncCallbacks> callbacks) override {
    receiver = std::move(callbacks);
    return start_result;
  }

  const HylErr start_result;
  std::shared_ptr<Service::AsyncCallbacks> receiver;
};

struct EventChain : EventMessage {
  explicit EventChain(host::SensorEventPtr first, uint64_t count) {
    events = std::move(first);
    event_count = count;
  }
  uint8_t Type() const override { return static_cast<uint8_t>(MessageType::kEvents); }
};

class HubRecipes : public testing::Test {
 protected:
  void TearDown() override {
    HylSpectralApi::Destroy(&api);
    host::SetApiFactory({});
    host::SimulatedHub::Instance().Reset();
  }

  void Create() { HylSpectralApi::Create(&api, &client, HylLogLevel::kWarning); }

  HylErr Start(const char* name) {
    uint32_t session = 0;
    return api->EnableAmbientLightSensor(name, session, SensorReportingMode::kContinuous);
  }

  SampleKeeper client;
  HylSpectralApi* api = nullptr;
};

TEST_F(HubRecipes, AFrameworkThatCannotBeReached) {
  host::SetApiFactory([](ClientType) { return nullptr; });
  Create();
  uint64_t uid = 0;
  EXPECT_EQ(api->GetDeviceUid(nullptr, &uid), HylErr::kFailed);
}

TEST_F(HubRecipes, AFrameworkThatRefuses) {
  host::SetApiFactory([](ClientType) { return std::make_unique<OneSensor>(HylErr{42}); });
  Create();
  EXPECT_EQ(Start("my sensor"), HylErr{42});
}

TEST_F(HubRecipes, AMessageOfYourOwn) {
  OneSensor* last = nullptr;
  host::SetApiFactory([&](ClientType) {
    auto framework = std::make_unique<OneSensor>(HylErr::kOk);
    last = last == nullptr ? framework.get() : last;  // the first is the instance's own
    return framework;
  });
  Create();
  ASSERT_EQ(Start("my sensor"), HylErr::kOk);

  // Messages come on a thread of the framework, never on one that is inside a call.
  std::thread([&] {
    const float values[] = {1, 2, 3};
    auto second = host::MakeSensorEvent(SensorEventType::kSpectralSample, 2000, values);
    auto first = host::MakeSensorEvent(SensorEventType::kIgnored, 1000, {}, second);
    const EventChain message(first, 2);
    last->receiver->OnResponse(&message);
  }).join();
  EXPECT_EQ(client.samples, (std::vector<std::vector<float>>{{1, 2, 3}}));
}

TEST_F(HubRecipes, MemoryThatRunsOut) {
  host::SimulatedHub& hub = host::SimulatedHub::Instance();
  hub.UseVirtualClock();
  Create();
  ASSERT_EQ(Start("rear"), HylErr::kOk);

  host::FailVectorGrowth([] { return true; });
  hub.Advance(std::chrono::milliseconds(100));
  host::FailVectorGrowth({});
  EXPECT_EQ(client.samples, std::vector<std::vector<float>>{{}});  // a sample, without values
}

TEST_F(HubRecipes, WhatIsLogged) {
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
