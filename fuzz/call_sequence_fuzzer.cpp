// A client that calls what it likes, in any order and on two threads, on a framework that refuses,
// answers late, twice or never, and delivers whatever it likes.
//
// An input is steps: one byte that names the step, then its arguments. One of the steps runs two
// parts of the input side by side.

#include <algorithm>
#include <atomic>
#include <deque>
#include <functional>
#include <iterator>
#include <latch>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "any_message.h"
#include "framework.h"
#include "log_capture.h"
#include "operations.h"

namespace hyl::v2::test {
namespace {

constexpr size_t kMaxInput = 128;  // bytes; a longer sequence takes long and shows little more
constexpr size_t kCapacity = 16;
constexpr auto kRefusal = static_cast<HylErr>(0x40);
constexpr const char* kNames[] = {nullptr, "Rear", "Front", "none"};
constexpr uint32_t kHandles[] = {kRearContinuous, kRearOnChange, kFrontContinuous, kFrontOnChange,
                                 kFlicker};

/// What the client does inside its next callback on this thread.
thread_local std::function<void()> t_in_callback;

/// Of one instance.
class Client final : public HylSpectralApiCallbackInterface {
 public:
  void OnSpectralData(uint32_t kind, uint32_t session_id, const Vector<float>&, int64_t) override {
    EXPECT_EQ(0U, kind);
    Note(session_id);
  }
  void OnFlickerData(uint32_t session_id, const FlickerSampleBlock* block) override {
    EXPECT_LE(block->num_samples, block->samples != nullptr ? kCapacity : 0);
    Note(session_id);
  }

  /// Destroy has returned, and these sessions had been handed out.
  void EndWith(const std::set<uint32_t>& handed_out) {
    ended_ = true;
    EXPECT_TRUE(
        std::includes(handed_out.begin(), handed_out.end(), called_.begin(), called_.end()));
  }

 private:
  void Note(uint32_t session_id) {
    EXPECT_FALSE(ended_);
    {
      const std::lock_guard lock(mutex_);
      called_.insert(session_id);
    }
    if (const auto in_callback = std::exchange(t_in_callback, {})) {
      in_callback();
    } else {
      std::this_thread::yield();  // gives a Destroy the chance not to wait
      EXPECT_FALSE(ended_);
    }
  }

  std::atomic<bool> ended_{false};
  std::mutex mutex_;
  std::set<uint32_t> called_;  // sessions; guarded by mutex_ until the end
};

class Sequence {
 public:
  /// What a part of the input may do: everything; what may overlap with operations on another
  /// thread; only what the framework does.
  enum class Role { kAlone, kOneOfTwo, kFramework };

  Sequence() {
    framework_.AnswerWith([this](const FrameworkCall& call) { return Answer(call); });
  }
  ~Sequence() {
    Destroy();
    framework_.ReleaseAnswers();
    framework_.AwaitAnswers();
    EXPECT_EQ(0, framework_.LiveApis());
    framework_.DropCallbacks();
    EXPECT_TRUE(std::all_of(objects_.begin(), objects_.end(),
                            [](const auto& object) { return object.expired(); }));
  }

  void Run(Input input, Role role) {
    using Step = void (Sequence::*)(Input&);
    constexpr Step kSteps[] = {
        &Sequence::ChooseReplies, &Sequence::HoldOrReleaseAnswers, &Sequence::RefuseRequest,
        &Sequence::DeliverSound, &Sequence::DeliverAny, &Sequence::DeliverAny,
        // The client's, after the framework's; last, those that must not overlap with any.
        &Sequence::EnableLight, &Sequence::EnableFlicker, &Sequence::Change, &Sequence::CallAny,
        &Sequence::CallAny, &Sequence::DestroyAndSetFaults, &Sequence::CallInside,
        &Sequence::SideBySide};
    constexpr size_t kOfFramework = 6;
    constexpr size_t kOverlapping = 11;
    while (!input.Empty()) {
      if (role == Role::kAlone && api_ == nullptr) {
        Create(input);
      }
      const size_t step = input.Below(std::size(kSteps));
      if (role == Role::kFramework) {
        (this->*kSteps[step % kOfFramework])(input);
      } else if (role == Role::kAlone || step < kOverlapping) {
        (this->*kSteps[step])(input);
      }
    }
  }

 private:
  enum class Replies : uint8_t { kOnce, kTwice, kNever, kOther };

  ScriptedFramework::Messages Answer(const FrameworkCall& call) {
    auto messages = ScriptedFramework::Echo(call);
    const Replies replies = replies_;
    if (replies == Replies::kNever) {
      messages.clear();
    } else if (replies == Replies::kTwice) {
      messages.push_back(std::move(ScriptedFramework::Echo(call).front()));
    } else if (replies == Replies::kOther) {
      messages.front() = std::make_unique<SettingReply>(RlsAccess::kWrite, RlsCommand::kGain);
    }
    return messages;
  }

  void ChooseReplies(Input& input) { replies_ = static_cast<Replies>(input.Below(4)); }

  void HoldOrReleaseAnswers(Input& input) {
    if (input.Below(2) != 0) {
      framework_.HoldAnswers();
    } else {
      framework_.ReleaseAnswers();
    }
  }

  void RefuseRequest(Input& input) {
    refused_ = true;
    framework_.RefuseInvoke(input.Byte(), kRefusal);
  }

  void DeliverSound(Input& input) {
    const DataWay& way = kDataWays[input.Below(std::size(kDataWays))];
    if (const auto object = framework_.CallbacksOf(way.handle)) {
      way.deliver(*object);
    }
  }

  void DeliverAny(Input& input) {
    if (const auto object = framework_.CallbacksOf(kHandles[input.Below(std::size(kHandles))])) {
      const auto message = AnyMessage(input);
      object->OnResponse(message.get());
    }
  }

  void Create(Input& input) {
    Client* const client = &clients_.emplace_back();
    EXPECT_EQ(HylErr::kOk, HylSpectralApi::Create(&api_, input.Below(8) != 1 ? client : nullptr,
                                                  HylLogLevel::kInfo));
  }

  void Destroy() {
    for (const uint32_t handle : kHandles) {
      if (const auto object = framework_.CallbacksOf(handle)) {
        objects_.push_back(object);
      }
    }
    HylSpectralApi::Destroy(&api_);
    EXPECT_EQ(nullptr, api_);
    open_.clear();  // and frees the buffers
    if (!clients_.empty()) {
      clients_.back().EndWith(handed_out_);
    }
  }

  /// The next instance, and its attempts at discovery, may fail; sensors may be missing.
  void DestroyAndSetFaults(Input& input) {
    Destroy();
    const size_t failing = input.Below(2) * input.Below(52);
    for (size_t n = 1; n <= failing; ++n) {
      framework_.FailCreate(static_cast<int>(n));
    }
    std::vector<SensorListEntry> list = DefaultSensors();
    list.resize(1 + input.Below(list.size()));
    if (input.Below(8) == 1) {
      list[input.Below(list.size())] = input.Value<SensorListEntry>();
    }
    framework_.SetSensorList(std::move(list));
  }

  void CallInside(Input& input) {
    const Operation& operation = kOperations[input.Below(std::size(kOperations))];
    const bool destroy = input.Below(2) != 0;
    const uint32_t session = AnySession(input);
    t_in_callback = [&] {
      if (destroy) {
        Destroy();
      } else {
        Call(operation, session);
      }
    };
    DeliverSound(input);
    t_in_callback = {};
  }

  /// The other thread calls operations as well, or delivers what then runs into Destroy.
  void SideBySide(Input& input) {
    const bool with_destroy = input.Below(2) != 0;
    const Input here(input.Bytes(input.Below(64)));
    const Input there(input.Bytes(input.Below(64)));
    std::latch start(2);
    std::thread other([&] {
      start.arrive_and_wait();
      Run(there, with_destroy ? Role::kFramework : Role::kOneOfTwo);
    });
    start.arrive_and_wait();
    Run(here, Role::kOneOfTwo);
    if (with_destroy) {
      Destroy();
    }
    other.join();
  }

  void EnableLight(Input& input) {
    uint32_t id = 0;
    const SensorReportingMode mode = AnyMode(input);
    const HylErr err = api_->EnableAmbientLightSensor(AnyName(input), id, mode);
    Expect(err, true, mode);
    NoteEnabled(err, id, nullptr);
  }

  void EnableFlicker(Input& input) {
    uint32_t id = 0;
    const char* const name = AnyName(input);
    auto buffer = input.Below(8) != 1 ? std::make_unique<int[]>(kCapacity) : nullptr;
    const HylErr err = api_->EnableFlickerSensor(name, buffer.get(), kCapacity, input.Byte(), id);
    Expect(err, true);
    NoteEnabled(err, id, std::move(buffer));
  }

  void Change(Input& input) {
    const uint32_t session = AnySession(input);
    const SensorReportingMode mode = AnyMode(input);
    Expect(api_->ChangeAmbientLightSensorReporting(session, mode), false, mode);
  }

  void CallAny(Input& input) {
    const uint32_t session = AnySession(input);
    Call(kOperations[input.Below(std::size(kOperations))], session);
  }

  void NoteEnabled(HylErr err, uint32_t id, std::unique_ptr<int[]> buffer) {
    EXPECT_EQ(err == HylErr::kOk, id != 0);
    if (id != 0) {
      const std::lock_guard lock(mutex_);
      EXPECT_TRUE(handed_out_.insert(id).second);
      open_[id] = std::move(buffer);
    }
  }

  void Call(const Operation& operation, uint32_t session) {
    if (operation.kind == kEnableLight || operation.kind == kEnableFlicker) {
      return;  // would not tell the session's id
    }
    Expect(operation.Call(*api_, session), false);
    if (operation.kind == kDisable) {
      const std::lock_guard lock(mutex_);
      open_.erase(session);  // whatever the result: its buffer is not written any more
    }
  }

  static SensorReportingMode AnyMode(Input& input) { return SensorReportingMode(input.Below(4)); }
  static const char* AnyName(Input& input) { return kNames[input.Below(std::size(kNames))]; }
  /// One of the latest sessions, open or not, or any number.
  uint32_t AnySession(Input& input) {
    const size_t back = input.Below(12);
    const std::lock_guard lock(mutex_);
    return back < handed_out_.size() ? *std::next(handed_out_.rbegin(), static_cast<int>(back))
                                     : input.Byte();
  }

  /// `mode` is the operation's argument, if it takes one.
  void Expect(HylErr err, bool enables, SensorReportingMode mode = SensorReportingMode::kOnChange) {
    const bool invalid =
        mode != SensorReportingMode::kContinuous && mode != SensorReportingMode::kOnChange;
    const bool sound = err == HylErr::kOk || err == HylErr::kFailed || err == HylErr::kNotFound ||
                       (err == kRefusal && refused_) ||
                       (enables && (err == HylErr::kAlreadyRunning || err == HylErr::kNoSession));
    EXPECT_TRUE(invalid ? err == HylErr::kInvalidArgument : sound)
        << "result " << int{static_cast<uint8_t>(err)};
  }

  LogCapture log_;
  std::deque<Client> clients_;  // of all instances; must outlive the framework's thread
  ScriptedFramework framework_;
  std::atomic<Replies> replies_{Replies::kOnce};
  std::atomic<bool> refused_{false};  // a request has been refused, or will be
  HylSpectralApi* api_ = nullptr;     // changed only while no other thread calls operations
  std::vector<std::weak_ptr<Service::AsyncCallbacks>> objects_;  // of instances that are gone
  std::mutex mutex_;                                             // guards all below
  std::set<uint32_t> handed_out_;                                // sessions
  std::map<uint32_t, std::unique_ptr<int[]>> open_;              // sessions and their buffers
};

}  // namespace
}  // namespace hyl::v2::test

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using hyl::v2::test::Sequence;
  const hyl::v2::test::Input input({data, std::min(size, hyl::v2::test::kMaxInput)});
  Sequence().Run(input, Sequence::Role::kAlone);
  return 0;
}
