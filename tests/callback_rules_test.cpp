// What a client may do inside its callbacks: everything.

#include <functional>
#include <string>

#include "data_way.h"
#include "library_test.h"
#include "operations.h"

namespace hyl::v2::test {
namespace {

class CallbackRulesTest : public LibraryTest, public ::testing::WithParamInterface<DataWay> {
 protected:
  CallbackRulesTest() {
    framework.AnswerWith(ScriptedApi::Echo);
    rear = Enable("Rear");
    Enable("Front");
    EnableFlicker();
    framework.Deliver(kFlicker, FlickerFormat(FlickerFormatSampleWidth::kUncompressed2));
  }

  /// Runs `in_callback` inside a callback of the client.
  void RunInCallback(const std::function<void()>& in_callback) {
    int calls = 0;
    client.SetHook([&] {
      if (++calls == 1) {
        in_callback();
      }
    });
    DeliverData(*framework.CallbacksOf(HandleOf(GetParam())), GetParam());
    EXPECT_NE(0, calls);
    client.SetHook({});
  }

  void CallAll(bool on_other_threads);

  uint32_t rear;
};

INSTANTIATE_TEST_SUITE_P(Ways, CallbackRulesTest, ::testing::ValuesIn(kAllDataWays), NameOf);

/// Calls every operation, in the order of the slots, with the running rear session.
void CallbackRulesTest::CallAll(bool on_other_threads) {
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.name);
    const std::string name = operation.name;
    HylErr expected = HylErr::kOk;
    if (name == "EnableFlickerSensor") {
      expected = HylErr::kAlreadyRunning;
    } else if (name == "DisableFlickerSensor") {
      expected = HylErr::kNotFound;  // the session has been ended as an ambient-light one
    }
    const auto call = [&] { EXPECT_EQ(expected, operation.call(*instance.get(), rear)); };
    on_other_threads ? ReturnsInTime(operation.name, call) : call();
  }
}

TEST_P(CallbackRulesTest, NoLockIsHeldInACallback) {
  RunInCallback([&] { CallAll(true); });
}

TEST_P(CallbackRulesTest, EveryOperationMayBeCalledInACallback) {
  ReturnsInTime("the callback", [&] { RunInCallback([&] { CallAll(false); }); });
}

}  // namespace
}  // namespace hyl::v2::test
