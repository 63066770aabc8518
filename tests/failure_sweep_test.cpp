// A script that uses every operation that sends, played again for every request with which one
// thing can go wrong. That costs a result code and nothing else: the script then plays again, on
// the same instance, as if nothing had happened.

#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "library_test.h"
#include "operations.h"

namespace hyl::v2::test {
namespace {

enum class Fault {
  kNone,
  kRefused,       // the request
  kReplyDoubled,  // its reply; likewise below
  kReplyLate,     // comes when the operation has returned
  kReplyInWay,    // comes when the next request has been sent, ahead of that one's own
  kReplyLost,     // comes when the instance is gone
  kReplyUnknown,
};

constexpr HylErr kRefusal{77};

/// What a step of the script has come to.
struct Result {
  std::string step;
  bool waits = false;  ///< for a reply
  HylErr code{};
  Outs out = {};

  bool operator==(const Result&) const = default;
  friend std::ostream& operator<<(std::ostream& stream, const Result& result) {
    return stream << result.step << " gives " << static_cast<int>(result.code);
  }
};

/// An instance on a framework that has a fault with one of the requests.
class Script {
 public:
  Script(Fault fault, int request) : fault_(fault), request_(request) {
    framework_.AnswerWith([this](const FrameworkCall& call) { return Answer(call); });
    framework_.SetHook([this](const FrameworkCall&) {
      if (fault_ == Fault::kReplyInWay) {
        std::thread([this] { DeliverLateReply(); }).join();
      }
    });
    if (fault == Fault::kRefused) {
      framework_.RefuseInvoke(request, kRefusal);
    }
  }

  /// Plays the script to its end, or until the fault has struck.
  std::vector<Result> Play() {
    results_.clear();
    framework_.Take();
    for (const DataWay& way : kDataWays) {
      Step("Enable", false, [&](Outs&) { return Enable(way); });
    }
    for (const Operation& operation : kOperations) {
      if (operation.IsSetting()) {
        Step(operation.name, operation.kind == kAsk,
             [&](Outs& out) { return operation.call_with(*instance_.get(), 0, out); });
      }
    }
    for (const auto mode : {kOnChange, kContinuous, kContinuous}) {
      Step("Change", false, [&](Outs&) {
        return instance_->ChangeAmbientLightSensorReporting(ids_[kRearSample.handle], mode);
      });
    }
    for (const DataWay& way : kDataWays) {
      Step("Deliver", false, [&](Outs& out) { return Deliver(way, out); });
    }
    for (const DataWay& way : kDataWays) {
      Step("Disable", false, [&](Outs&) { return Disable(way); });
    }
    return results_;
  }

  bool struck() const { return struck_; }
  /// Of the latest play.
  int requests() { return static_cast<int>(framework_.TakeInvokes().size()); }

  /// Ends the fault. A reply that was held back has come, except a lost one.
  void Recover() {
    if (fault_ == Fault::kReplyLate) {
      DeliverLateReply();
    }
    uint32_t applied = 0;
    const uint32_t time = 1000 + static_cast<uint32_t>(request_);
    EXPECT_EQ(HylErr::kOk, instance_->SetExposureTime(nullptr, time, &applied));
    if (results_.back().step != "SetExposureTime") {  // a reply to that cannot be told apart
      EXPECT_EQ(time, applied) << "the value of another reply";
    }
    fault_ = Fault::kNone;
    struck_ = false;
    for (const DataWay& way : kDataWays) {
      Disable(way);
    }
  }

  void Destroy() {
    EXPECT_THAT(framework_.Running(), ::testing::IsEmpty());
    instance_.Destroy();
    DeliverLateReply();
    EXPECT_EQ(0, framework_.LiveApis());
  }

 private:
  template <typename Call>
  void Step(const char* name, bool waits, Call call) {
    if (!struck_) {
      Result result{name, waits};
      result.code = call(result.out);
      framework_.AwaitAnswers();
      struck_ = struck_ || result.code == kRefusal;
      results_.push_back(result);
    }
  }

  HylErr Enable(const DataWay& way) {
    uint32_t& id = ids_[way.handle];
    return way == kFlickerData
               ? instance_->EnableFlickerSensor("", buffer_, std::size(buffer_), 16, id)
               : instance_->EnableAmbientLightSensor(way.name, id, kContinuous);
  }
  HylErr Disable(const DataWay& way) {
    const uint32_t id = ids_[way.handle];
    return way == kFlickerData ? instance_->DisableFlickerSensor(id)
                               : instance_->DisableAmbientLightSensor(id);
  }
  /// Gives out the number of calls.
  HylErr Deliver(const DataWay& way, Outs& out) {
    way.deliver(*framework_.CallbacksOf(way.handle));
    out.uid = client_.TakeSpectral().size() + client_.TakeFlicker().size();
    return HylErr::kOk;
  }

  // The framework's side.

  ScriptedFramework::Messages Answer(const FrameworkCall& call) {
    auto replies = ScriptedFramework::Echo(call);
    if (fault_ == Fault::kNone || fault_ == Fault::kRefused || ++answered_ != request_) {
      return replies;
    }
    struck_ = true;
    if (fault_ == Fault::kReplyDoubled) {
      replies.push_back(std::move(ScriptedFramework::Echo(call)[0]));
    } else if (fault_ == Fault::kReplyUnknown) {
      replies[0] = std::make_unique<StatusReply>(99);
    } else {
      late_ = {call.handle, std::move(replies[0])};
      replies.clear();
    }
    return replies;
  }

  void DeliverLateReply() {
    if (late_.second != nullptr) {
      framework_.Deliver(late_.first, *std::exchange(late_.second, nullptr));
    }
  }

  Fault fault_;
  const int request_;
  int answered_ = 0;
  bool struck_ = false;
  std::pair<uint32_t, std::unique_ptr<Message>> late_;  // reply, and its request's handle
  std::vector<Result> results_;
  std::map<uint32_t, uint32_t> ids_;  // of sessions, by the sensor's handle

  ScriptedFramework framework_;
  RecordingClient client_;
  int buffer_[8] = {};
  Instance instance_{&client_};
};

HylErr CodeUnder(Fault fault, const Result& sound) {
  if (fault == Fault::kRefused) {
    return kRefusal;
  }
  return fault != Fault::kReplyDoubled && sound.waits ? HylErr::kFailed : sound.code;
}

void PlayWithFault(Fault fault, int request, const std::vector<Result>& sound) {
  SCOPED_TRACE(request);
  Script script(fault, request);
  const std::vector<Result> results = script.Play();
  ASSERT_TRUE(script.struck());
  for (size_t i = 0; i < results.size() - 1; ++i) {
    EXPECT_EQ(sound[i], results[i]);
  }
  Result expected = sound[results.size() - 1];
  expected.code = CodeUnder(fault, expected);
  expected.out = expected.code == HylErr::kOk ? expected.out : Outs();
  EXPECT_EQ(expected, results.back());
  script.Recover();
  EXPECT_EQ(sound, script.Play());
  script.Destroy();
}

struct Sweep {
  const char* name;
  Fault fault;
};

constexpr Sweep kSweeps[] = {
    {"Refused", Fault::kRefused},     {"ReplyDoubled", Fault::kReplyDoubled},
    {"ReplyLate", Fault::kReplyLate}, {"ReplyInWay", Fault::kReplyInWay},
    {"ReplyLost", Fault::kReplyLost}, {"ReplyUnknown", Fault::kReplyUnknown}};

class FailureSweepTest : public ::testing::TestWithParam<Sweep> {
 protected:
  LogCapture log_;  // keeps the output short
};

INSTANTIATE_TEST_SUITE_P(, FailureSweepTest, ::testing::ValuesIn(kSweeps),
                         [](const auto& test) { return std::string(test.param.name); });

/// As some plays wait for seconds, several run at the same time; not all of them, since the library
/// gives replies that have been overtaken a tenth of a second.
constexpr int kPlaysAtOnce = 24;

TEST_P(FailureSweepTest, CostsACodeAndNothingElse) {
  Script script(Fault::kNone, 0);
  const std::vector<Result> sound = script.Play();
  const int requests = script.requests();
  ASSERT_LT(0, requests);
  for (int next = 1; next <= requests;) {
    std::vector<std::thread> plays;
    for (int i = 0; i < kPlaysAtOnce && next <= requests; ++i, ++next) {
      plays.emplace_back([&, next] { PlayWithFault(GetParam().fault, next, sound); });
    }
    for (std::thread& play : plays) {
      play.join();
    }
  }
}

}  // namespace
}  // namespace hyl::v2::test
