// Threads enable, change, disable, query and destroy while messages pour in.

#include <array>
#include <atomic>
#include <functional>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "library_test.h"

namespace hyl::v2::test {
namespace {

constexpr int kInstances = 8;
constexpr int kCycles = 60;

/// Notices calls that come after Destroy has returned, and ids that were never handed out.
class StressClient final : public HylSpectralApiCallbackInterface {
 public:
  void OnSpectralData(uint32_t kind, uint32_t session_id, const Vector<float>& values,
                      int64_t) override {
    Count(kind == 0 && session_id != 0 && values.size() == 2 && values[1] == 2);
  }
  void OnFlickerData(uint32_t session_id, const FlickerSampleBlock* block) override {
    Count(session_id != 0 && block->num_samples <= 4);
  }

  std::atomic<bool> destroyed{false};
  std::atomic<int> calls{0};
  std::atomic<int> faults{0};

 private:
  void Count(bool sound) {
    ++calls;
    faults += sound && !destroyed ? 0 : 1;
  }
};

/// Delivers messages of all kinds to the objects that were passed last, until told to end.
void Pour(ScriptedApi& framework, const std::atomic<bool>& end, uint32_t handle) {
  const SampleMsg sample({1, 2});
  const Events events(Chain({{1, {1, 2}}, {3}, {1, {1, 2}}}), 3);
  const FlickerFormat format(FlickerFormatSampleWidth::kUncompressed2);
  const FlickerData data({1, 0, 2, 0, 3, 0, 4, 0});
  const std::array<const Message*, 2> messages =
      handle == kFlicker ? std::array<const Message*, 2>{&format, &data}
                         : std::array<const Message*, 2>{&sample, &events};
  while (!end) {
    const ScriptedApi::Callbacks callbacks = framework.CallbacksOf(handle);
    for (const Message* message : messages) {
      if (callbacks != nullptr) {
        callbacks->OnResponse(message);
      }
    }
    std::this_thread::yield();
  }
}

void RunAmbientLight(HylSpectralApi& api, const char* name) {
  uint32_t id = 0;
  for (int i = 0; i < kCycles; ++i) {
    EXPECT_EQ(HylErr::kOk, api.EnableAmbientLightSensor(name, id, kContinuous));
    EXPECT_EQ(HylErr::kOk, api.ChangeAmbientLightSensorReporting(id, kOnChange));
    EXPECT_STREQ(name, api.GetSensorName(id).c_str());
    EXPECT_EQ(HylErr::kOk, api.DisableAmbientLightSensor(id));
  }
  EXPECT_EQ(HylErr::kOk, api.EnableAmbientLightSensor(name, id, kContinuous));  // runs at Destroy
}

void RunFlicker(HylSpectralApi& api) {
  for (int i = 0; i < kCycles; ++i) {
    uint32_t id = 0;
    std::array<int, 4> buffer{};
    EXPECT_EQ(HylErr::kOk, api.EnableFlickerSensor("", buffer.data(), buffer.size(), 16, id));
    EXPECT_EQ(HylErr::kOk, api.DisableFlickerSensor(id));
    buffer.fill(0);  // not written any more
  }
}

void RunQueries(HylSpectralApi& api) {
  for (uint32_t i = 0; i < kCycles; ++i) {
    uint64_t uid = 1;
    EXPECT_EQ(2U, api.GetAmbientLightSensorNames().size());
    EXPECT_TRUE(api.IsSensorSupported(OpticalSensorType::kFlicker, nullptr));
    EXPECT_EQ(HylErr::kOk, api.GetDeviceUid(nullptr, &uid));
    (void)api.GetSensorName(i);
  }
}

TEST(StressTest, NothingIsLostOrTouchedTooLate) {
  LogCapture log;
  ScriptedApi framework;
  framework.AnswerWith(ScriptedApi::Echo);
  std::atomic<bool> end{false};
  std::vector<std::thread> pourers;
  for (const uint32_t handle : {kRearContinuous, kFrontOnChange, kFlicker}) {
    pourers.emplace_back([&, handle] { Pour(framework, end, handle); });
  }
  int calls = 0;
  for (int i = 0; i < kInstances; ++i) {
    StressClient client;
    Instance instance(&client);
    std::vector<std::thread> users;
    users.emplace_back([&] { RunAmbientLight(*instance.get(), "Rear ALS"); });
    users.emplace_back([&] { RunAmbientLight(*instance.get(), "Front ALS"); });
    users.emplace_back([&] { RunFlicker(*instance.get()); });
    users.emplace_back([&] { RunQueries(*instance.get()); });
    for (std::thread& user : users) {
      user.join();
    }
    instance.Destroy();
    client.destroyed = true;
    EXPECT_EQ(0, client.faults);
    calls += client.calls;
  }
  end = true;
  for (std::thread& pourer : pourers) {
    pourer.join();
  }
  EXPECT_GT(calls, 0);
}

}  // namespace
}  // namespace hyl::v2::test
