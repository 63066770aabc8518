// What the library does not do around a callback: hold a lock.

#include <functional>

#include "data_way.h"
#include "library_test.h"
#include "operations.h"

namespace hyl::v2::test {
namespace {

class CallbackRulesTest : public LibraryTest, public ::testing::WithParamInterface<DataWay> {
 protected:
  CallbackRulesTest() {
    framework.AnswerWith(ScriptedFramework::Echo);
    rear = Enable("Rear");
    Enable("Front");
    EnableFlicker();
    framework.Deliver(kFlicker, FlickerFormatMessage(FlickerFormatSampleWidth::kUncompressed2));
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

  uint32_t rear;
};

INSTANTIATE_TEST_SUITE_P(, CallbackRulesTest, ::testing::ValuesIn(kAllDataWays), NameOf);

/// Every operation returns on another thread meanwhile, whatever its result.
TEST_P(CallbackRulesTest, NoLockIsHeldInACallback) {
  RunInCallback([&] {
    for (const Operation& operation : kOperations) {
      ReturnsInTime(operation.name, [&] { operation.call(*instance.get(), rear); });
    }
  });
}

}  // namespace
}  // namespace hyl::v2::test
