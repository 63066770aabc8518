// All settings operations in turn, once for every fault and every request that it can strike. A
// fault costs a result code and nothing else: all operations then work on the same instance, as if
// nothing had happened.

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

struct Result {
  const Operation* operation;
  HylErr code;
  Outs out;

  bool operator==(const Result&) const = default;
  friend std::ostream& operator<<(std::ostream& stream, const Result& result) {
    return stream << result.operation->name << " gives " << NameOf(result.code);
  }
};

/// An instance on a framework that has a fault with the given request; 1 is the first.
class Script {
 public:
  Script(Fault fault, size_t request) : fault_(fault), request_(request) {
    framework_.AnswerWith([this](const FrameworkCall& call) { return Answer(call); });
    framework_.SetHook([this](const FrameworkCall&) {
      if (fault_ == Fault::kReplyInWay) {
        std::thread([this] { DeliverLateReply(); }).join();
      }
    });
    framework_.RefuseIf([this](const FrameworkCall&) {
      return fault_ == Fault::kRefused && Strikes() ? kRefusal : HylErr::kOk;
    });
  }

  /// The results of all settings operations, or of those until the fault has struck.
  std::vector<Result> Play() {
    std::vector<Result> results;
    for (const Operation& operation : kOperations) {
      if (operation.IsSetting() && !struck_) {
        Result& result = results.emplace_back(Result{&operation, {}, {}});
        result.code = operation.call_with(*instance_.get(), 0, result.out);
        framework_.AwaitAnswers();
      }
    }
    return results;
  }

  /// Ends the fault. A reply that was held back has come, except a lost one.
  void Recover(bool struck_exposure_time) {
    EXPECT_TRUE(struck_);
    if (fault_ == Fault::kReplyLate) {
      DeliverLateReply();
    }
    uint32_t applied = 0;
    const auto time = static_cast<uint32_t>(1000 + request_);
    EXPECT_EQ(HylErr::kOk, instance_->SetExposureTime(nullptr, time, &applied));
    if (!struck_exposure_time) {  // a reply to that cannot be told apart
      EXPECT_EQ(time, applied) << "the value of another reply";
    }
    fault_ = Fault::kNone;
    struck_ = false;
  }

  void Destroy() {
    instance_.Destroy();
    DeliverLateReply();
    EXPECT_EQ(0, framework_.LiveApis());
  }

 private:
  bool Strikes() {
    if (struck_ || ++requests_ != request_) {
      return false;
    }
    struck_ = true;
    return true;
  }

  ScriptedFramework::Messages Answer(const FrameworkCall& call) {
    auto replies = ScriptedFramework::Echo(call);
    if (fault_ == Fault::kNone || fault_ == Fault::kRefused || !Strikes()) {
      return replies;
    }
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
  const size_t request_;
  size_t requests_ = 0;
  bool struck_ = false;
  std::pair<uint32_t, std::unique_ptr<Message>> late_;  // reply, and its request's handle

  ScriptedFramework framework_;
  Instance instance_{nullptr};
};

void PlayWithFault(Fault fault, size_t request, const std::vector<Result>& sound) {
  SCOPED_TRACE(request);
  std::vector<Result> expected(sound.begin(), sound.begin() + static_cast<int>(request));
  Result& struck = expected.back();
  if (fault == Fault::kRefused) {
    struck.code = kRefusal;
  } else if (fault != Fault::kReplyDoubled && struck.operation->kind == kAsk) {
    struck.code = HylErr::kFailed;
  }
  if (struck.code != HylErr::kOk) {
    struck.out = Outs();
  }
  Script script(fault, request);
  EXPECT_EQ(expected, script.Play());
  script.Recover(struck.operation->name == std::string("SetExposureTime"));
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

/// As some plays wait for seconds, they run side by side.
TEST_P(FailureSweepTest, CostsACodeAndNothingElse) {
  const std::vector<Result> sound = Script(Fault::kNone, 0).Play();
  EXPECT_EQ(20U, sound.size());
  std::vector<std::thread> plays;
  for (size_t request = 1; request <= sound.size(); ++request) {
    plays.emplace_back([&, request] { PlayWithFault(GetParam().fault, request, sound); });
  }
  for (std::thread& play : plays) {
    play.join();
  }
}

}  // namespace
}  // namespace hyl::v2::test
