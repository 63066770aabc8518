// Messages pour in at full rate from three sensors while clients enable, change, query, disable and
// destroy. Each message is numbered, so that one that is lost, doubled, late or misdirected shows.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
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

struct Received {
  uint32_t session;
  uint64_t number;
};

/// What came from one sensor. Safe on any thread.
class Inbox {
 public:
  void Put(Received received) {
    const std::lock_guard lock(mutex_);
    all_.push_back(received);
  }
  std::vector<Received> Take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(all_, {});
  }

 private:
  std::mutex mutex_;
  std::vector<Received> all_;  // guarded by mutex_
};

struct Inboxes {
  Inbox rear;
  Inbox front;
  Inbox flicker;
};

/// Tells the spectral sensors apart by the first of their values.
class FloodClient final : public HylSpectralApiCallbackInterface {
 public:
  explicit FloodClient(Inboxes& inboxes) : inboxes_(inboxes) {}

  void OnSpectralData(uint32_t, uint32_t session_id, const Vector<float>& values,
                      int64_t timestamp) override {
    Inbox& inbox = values[0] == 1 ? inboxes_.rear : inboxes_.front;
    inbox.Put({session_id, static_cast<uint64_t>(timestamp)});
  }
  void OnFlickerData(uint32_t session_id, const FlickerSampleBlock* block) override {
    EXPECT_EQ(1U, block->num_samples);
    EXPECT_EQ(block->aux32_0, static_cast<uint32_t>(block->samples[0]));
    inboxes_.flicker.Put({session_id, block->aux32_0});
  }

 private:
  Inboxes& inboxes_;
};

void DeliverRear(Service::AsyncCallbacks& object, uint64_t number) {
  const SampleMsg message({1, 2}, static_cast<int64_t>(number));
  object.OnResponse(&message);
}
void DeliverFront(Service::AsyncCallbacks& object, uint64_t number) {
  const Events message(Chain({{3}, {1, {3}, static_cast<int64_t>(number)}}), 2);
  object.OnResponse(&message);
}
void DeliverFlicker(Service::AsyncCallbacks& object, uint64_t number) {
  const FlickerFormat format(FlickerFormatSampleWidth::kUncompressed4);
  object.OnResponse(&format);  // before every chunk, since any may be a session's first
  std::vector<uint8_t> bytes(sizeof(uint32_t));
  for (size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<uint8_t>(number >> 8 * i);
  }
  FlickerData data(std::move(bytes));
  data.aux32_0 = static_cast<uint32_t>(number);
  object.OnResponse(&data);
}

/// A sensor that delivers message after message to the object that was passed last, whether it runs
/// or not, on a thread of its own.
class Source {
 public:
  using Deliver = void (*)(Service::AsyncCallbacks&, uint64_t number);

  Source(ScriptedApi& framework, uint32_t handle, Deliver deliver)
      : thread_([this, &framework, handle, deliver] {
          while (!end_) {
            const uint64_t number = ++begun_;
            if (const auto callbacks = framework.CallbacksOf(handle); callbacks != nullptr) {
              deliver(*callbacks, number);
            }
            ended_ = number;
          }
        }) {}
  ~Source() {
    end_ = true;
    thread_.join();
  }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  /// Number of the latest message whose delivery has begun, and has ended.
  uint64_t begun() const { return begun_; }
  uint64_t ended() const { return ended_; }

  void AwaitEnd(uint64_t number) const {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (ended_ < number && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::yield();
    }
    EXPECT_LE(number, ended_);
  }

 private:
  std::atomic<bool> end_{false};
  std::atomic<uint64_t> begun_{0};
  std::atomic<uint64_t> ended_{0};
  std::thread thread_;
};

/// What a session must, and may, receive.
class Life {
 public:
  /// Before the enable.
  explicit Life(const Source& source) : source_(source), not_before_(source.ended() + 1) {}

  /// Lets a session run, from the return of one call to the next.
  void Run() {
    const uint64_t first = source_.begun() + 1;
    source_.AwaitEnd(first + kMessagesAState);
    complete_.emplace_back(first, source_.ended());
  }

  /// After the return of the call that ended it, from when on nothing new may come.
  void Check(Inbox& inbox, uint32_t session) const {
    const uint64_t not_after = source_.begun();
    source_.AwaitEnd(not_after + 2);
    const std::vector<Received> all = inbox.Take();
    uint64_t previous = not_before_ - 1;
    for (const Received& received : all) {
      EXPECT_EQ(session, received.session);
      EXPECT_LT(previous, received.number) << "doubled, out of order or early";
      previous = received.number;
    }
    EXPECT_GE(not_after, previous);
    for (const auto& [first, last] : complete_) {
      const auto within = [first = first, last = last](const Received& received) {
        return first <= received.number && received.number <= last;
      };
      EXPECT_EQ(last - first + 1, std::count_if(all.begin(), all.end(), within)) << "lost";
    }
  }

 private:
  const Source& source_;
  const uint64_t not_before_;
  std::vector<std::pair<uint64_t, uint64_t>> complete_;  // first and last message
};

/// A running session, left to Destroy.
struct Last {
  uint32_t session = 0;
  Life life;
};

Last RunAmbientLight(HylSpectralApi& api, const char* name, const Source& source, Inbox& inbox) {
  for (int i = 0;; ++i) {
    Last now{0, Life(source)};
    EXPECT_EQ(HylErr::kOk, api.EnableAmbientLightSensor(name, now.session, kContinuous));
    now.life.Run();
    EXPECT_EQ(HylErr::kOk, api.ChangeAmbientLightSensorReporting(now.session, kOnChange));
    EXPECT_STREQ(name, api.GetSensorName(now.session).c_str());
    now.life.Run();
    if (i == kSessions) {
      return now;
    }
    EXPECT_EQ(HylErr::kOk, api.DisableAmbientLightSensor(now.session));
    now.life.Check(inbox, now.session);
  }
}

Last RunFlicker(HylSpectralApi& api, std::array<int, 4>& buffer, const Source& source,
                Inbox& inbox) {
  for (int i = 0;; ++i) {
    Last now{0, Life(source)};
    EXPECT_EQ(HylErr::kOk,
              api.EnableFlickerSensor("", buffer.data(), buffer.size(), 32, now.session));
    now.life.Run();
    if (i == kSessions) {
      return now;
    }
    EXPECT_EQ(HylErr::kOk, api.DisableFlickerSensor(now.session));
    now.life.Check(inbox, now.session);
  }
}

void RunQueries(HylSpectralApi& api, const std::atomic<bool>& end) {
  for (uint32_t i = 0; !end; ++i) {
    uint64_t uid = 1;
    EXPECT_EQ(2U, api.GetAmbientLightSensorNames().size());
    EXPECT_TRUE(api.IsSensorSupported(OpticalSensorType::kFlicker, nullptr));
    EXPECT_EQ(HylErr::kOk, api.GetDeviceUid(nullptr, &uid));
    (void)api.GetSensorName(i);
  }
}

class FloodTest : public ::testing::Test {
 protected:
  FloodTest() {
    android::base::SetMinimumLogSeverity(android::base::FATAL);  // drops would flood the log
    framework.AnswerWith(ScriptedApi::Echo);
  }

  /// One instance from Create to Destroy; the client is gone at once then.
  void RunInstance() {
    auto client = std::make_unique<FloodClient>(inboxes);
    Instance instance(client.get());
    std::atomic<bool> end{false};
    std::thread queries([&] { RunQueries(*instance.get(), end); });
    const auto run = [](auto work) { return std::async(std::launch::async, work); };
    auto rear_run =
        run([&] { return RunAmbientLight(*instance.get(), "Rear ALS", rear, inboxes.rear); });
    auto front_run =
        run([&] { return RunAmbientLight(*instance.get(), "Front ALS", front, inboxes.front); });
    auto flicker_run =
        run([&] { return RunFlicker(*instance.get(), buffer, flicker, inboxes.flicker); });
    const std::array<Last, 3> last = {rear_run.get(), front_run.get(), flicker_run.get()};
    end = true;
    queries.join();
    instance.Destroy();
    client.reset();
    last[0].life.Check(inboxes.rear, last[0].session);
    last[1].life.Check(inboxes.front, last[1].session);
    last[2].life.Check(inboxes.flicker, last[2].session);
  }

  LogCapture log;  // brings the severity back
  ScriptedApi framework;
  std::array<int, 4> buffer{};
  Inboxes inboxes;
  Source rear{framework, kRearContinuous, DeliverRear};
  Source front{framework, kFrontContinuous, DeliverFront};
  Source flicker{framework, kFlicker, DeliverFlicker};
};

TEST_F(FloodTest, EveryMessageReachesItsSessionOnceAndInOrder) {
  for (int i = 0; i < kInstances && !HasFailure(); ++i) {
    RunInstance();
  }
}

}  // namespace
}  // namespace hyl::v2::test
