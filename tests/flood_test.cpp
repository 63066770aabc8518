// SPDX-License-Identifier: Apache-2.0
// Messages pour in at full rate from three sensors while clients enable, change, query, disable and
// destroy. Each message is numbered, so that one that is lost, doubled, late or misdirected shows.

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <future>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "library_test.h"

namespace hyl::v2::test {
namespace {

constexpr int kInstances = 4;
constexpr int kSessions = 25;
constexpr uint64_t kMessagesAState = 50;  // that a session sees at least between two calls

/// A sensor that delivers message after message to the object that was passed last, whether it runs
/// or not, on its thread. Has one session at a time, and knows what that one must receive.
class Sensor {
 public:
  using Deliver = void (*)(Service::AsyncCallbacks&, uint64_t number);

  Sensor(ScriptedFramework& framework, uint32_t handle, Deliver deliver)
      : thread_([this, &framework, handle, deliver] {
          while (!end_) {
            const uint64_t number = ++begun_;
            if (const auto callbacks = framework.CallbacksOf(handle); callbacks != nullptr) {
              deliver(*callbacks, number);
            }
            ended_ = number;
          }
        }) {}
  ~Sensor() {
    end_ = true;
    thread_.join();
  }

  /// The client has received a message.
  void Put(uint32_t session, uint64_t number) {
    const std::lock_guard lock(mutex_);
    received_.emplace_back(session, number);
  }

  /// Before the enable.
  void BeginSession() {
    not_before_ = ended_ + 1;
    complete_.clear();
  }
  /// From the return of one call to the next: what begins and ends in between is received.
  void Run() {
    const uint64_t first = begun_ + 1;
    AwaitEnd(first + kMessagesAState);
    complete_.emplace_back(first, ended_);
  }
  /// After the return of the call that ended the session: what begins now is not received.
  void Check(uint32_t session) {
    const uint64_t not_after = begun_;
    AwaitEnd(not_after + 2);
    const std::lock_guard lock(mutex_);
    uint64_t previous = not_before_ - 1;
    for (const auto& [id, number] : received_) {
      EXPECT_EQ(session, id);
      EXPECT_LT(previous, number) << "doubled, out of order or early";
      previous = number;
    }
    EXPECT_GE(not_after, previous) << "late";
    for (const auto& [first, last] : complete_) {
      const auto within = [first = first, last = last](const auto& message) {
        return first <= message.second && message.second <= last;
      };
      EXPECT_EQ(last - first + 1, std::ranges::count_if(received_, within));
    }
    received_.clear();
  }

 private:
  void AwaitEnd(uint64_t number) const {
    while (ended_ < number) {
      std::this_thread::yield();
    }
  }

  // Of the thread that runs the sessions: numbers of messages.
  uint64_t not_before_ = 0;
  std::vector<std::pair<uint64_t, uint64_t>> complete_;

  std::mutex mutex_;
  std::vector<std::pair<uint32_t, uint64_t>> received_;  // guarded by mutex_
  std::atomic<bool> end_{false};
  std::atomic<uint64_t> begun_{0};  // number of the latest message whose delivery has begun
  std::atomic<uint64_t> ended_{0};
  std::thread thread_;  // last: it uses the others
};

constexpr float kRearValue = 1;

void DeliverRear(Service::AsyncCallbacks& object, uint64_t number) {
  const SpectralMessage message({kRearValue, 2}, static_cast<int64_t>(number));
  object.OnResponse(&message);
}
void DeliverFront(Service::AsyncCallbacks& object, uint64_t number) {
  const EventChainMessage message({{kIgnored}, {kSpectral, {3}, static_cast<int64_t>(number)}});
  object.OnResponse(&message);
}
void DeliverFlicker(Service::AsyncCallbacks& object, uint64_t number) {
  const FlickerFormatMessage format(FlickerFormatSampleWidth::kUncompressed2);
  object.OnResponse(&format);  // before every chunk, since any may be a session's first
  const FlickerDataMessage data({1, 0}, static_cast<uint32_t>(2 * number));
  object.OnResponse(&data);
}

class FloodTest : public ::testing::Test, private HylSpectralApiCallbackInterface {
 protected:
  FloodTest() {
    android::base::SetMinimumLogSeverity(android::base::FATAL);  // drops would flood the log
    framework.AnswerWith(ScriptedFramework::Echo);
  }

  void OnSpectralData(uint32_t, uint32_t session_id, const Vector<float>& values,
                      int64_t timestamp) override {
    (values[0] == kRearValue ? rear : front).Put(session_id, static_cast<uint64_t>(timestamp));
  }
  void OnFlickerData(uint32_t session_id, const FlickerSampleBlock* block) override {
    flicker.Put(session_id, block->seq_num);
  }

  uint32_t RunSession(HylSpectralApi& api, Sensor& sensor, const char* name);
  uint32_t RunSessions(HylSpectralApi& api, Sensor& sensor, const char* name);
  void RunInstance();

  LogCapture log;  // brings the severity back
  ScriptedFramework framework;
  std::array<int, 4> buffer{};
  Sensor rear{framework, kRearContinuous, DeliverRear};
  Sensor front{framework, kFrontContinuous, DeliverFront};
  Sensor flicker{framework, kFlicker, DeliverFlicker};
};

uint32_t FloodTest::RunSession(HylSpectralApi& api, Sensor& sensor, const char* name) {
  uint32_t id = 0;
  sensor.BeginSession();
  if (&sensor == &flicker) {
    EXPECT_EQ(HylErr::kOk, api.EnableFlickerSensor(name, buffer.data(), buffer.size(), 32, id));
  } else {
    EXPECT_EQ(HylErr::kOk, api.EnableAmbientLightSensor(name, id, kContinuous));
    sensor.Run();
    EXPECT_EQ(HylErr::kOk, api.ChangeAmbientLightSensorReporting(id, kOnChange));
  }
  EXPECT_STREQ(name, api.GetSensorName(id).c_str());
  sensor.Run();
  return id;
}

/// The last one is left running.
uint32_t FloodTest::RunSessions(HylSpectralApi& api, Sensor& sensor, const char* name) {
  for (int i = 0; i < kSessions; ++i) {
    const uint32_t id = RunSession(api, sensor, name);
    EXPECT_EQ(HylErr::kOk, &sensor == &flicker ? api.DisableFlickerSensor(id)
                                               : api.DisableAmbientLightSensor(id));
    sensor.Check(id);
  }
  return RunSession(api, sensor, name);
}

void RunQueries(HylSpectralApi& api, const std::atomic<bool>& end) {
  for (uint32_t i = 0; !end; ++i) {
    uint64_t uid = 1;
    EXPECT_EQ(2U, api.GetAmbientLightSensorNames().size());
    EXPECT_EQ(HylErr::kOk, api.GetDeviceUid(nullptr, &uid));
    (void)api.GetSensorName(i);
  }
}

void FloodTest::RunInstance() {
  SpectralInstance instance = MakeInstance(this);
  std::atomic<bool> end{false};
  std::thread queries([&] { RunQueries(*instance.get(), end); });
  const std::pair<Sensor&, const char*> all[] = {
      {rear, "Rear ALS"}, {front, "Front ALS"}, {flicker, "Flicker"}};
  std::vector<std::future<uint32_t>> last;
  for (const auto& [sensor, name] : all) {
    last.push_back(std::async(std::launch::async, &FloodTest::RunSessions, this,
                              std::ref(*instance.get()), std::ref(sensor), name));
  }
  const uint32_t ids[] = {last[0].get(), last[1].get(), last[2].get()};
  end = true;
  queries.join();
  instance.reset();
  for (size_t i = 0; i < std::size(ids); ++i) {
    all[i].first.Check(ids[i]);
  }
}

TEST_F(FloodTest, EveryMessageReachesItsSessionOnceAndInOrder) {
  for (int i = 0; i < kInstances && !HasFailure(); ++i) {
    RunInstance();
  }
}

}  // namespace
}  // namespace hyl::v2::test
