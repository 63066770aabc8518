// SPDX-License-Identifier: Apache-2.0
// The library loaded at run time, used, and closed. The program is not linked with it.

#include <dlfcn.h>
#include <malloc.h>
#include <unistd.h>
#include <cstddef>
#include <memory>
#include <type_traits>

#include <android-base/logging.h>
#include <gtest/gtest.h>
#include <hyl/hyl_spectral_api.h>

#include "framework.h"

namespace hyl::v2::test {
namespace {

struct Close {
  void operator()(void* library) const { EXPECT_EQ(0, dlclose(library)); }
};
using Library = std::unique_ptr<void, Close>;

Library Load(int more_flags = 0) {
  return Library(dlopen(HYL_LIBRARY, RTLD_NOW | more_flags));
}

/// A function of the library, by its name in the list of exports.
template <typename Function>
std::add_pointer_t<Function> Find(const Library& library, const char* name) {
  return reinterpret_cast<std::add_pointer_t<Function>>(dlsym(library.get(), name));
}

void UseAndClose() {
  const Library library = Load();
  ASSERT_TRUE(library) << HYL_LIBRARY;
  const auto create = Find<decltype(HylSpectralApi::Create)>(
      library,
      "_ZN3hyl2v214HylSpectralApi6CreateEPPS1_PNS0_31HylSpectralApiCallbackInterfaceENS0_"
      "11HylLogLevelE");
  const auto destroy =
      Find<decltype(HylSpectralApi::Destroy)>(library, "_ZN3hyl2v214HylSpectralApi7DestroyEPPS1_");
  ASSERT_TRUE(create != nullptr && destroy != nullptr);
  HylSpectralApi* api = nullptr;
  ASSERT_EQ(HylErr::kOk, create(&api, nullptr, HylLogLevel::kError));
  uint32_t session = 0;
  EXPECT_EQ(HylErr::kOk,
            api->EnableAmbientLightSensor(nullptr, session, SensorReportingMode::kContinuous));
  destroy(&api);
  EXPECT_EQ(nullptr, api);
}

/// Of the heap; sanitizers answer 0 and look for leaks themselves.
size_t BytesInUse() {
  const struct mallinfo2 heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}

TEST(UnloadTest, LeavesNothingBehind) {
  constexpr int kRounds = 100;  // the loader's own tables have grown to their size by then
  android::base::SetMinimumLogSeverity(android::base::FATAL);
  size_t before = 0;
  for (int round = 0; round < 2 * kRounds && !HasFailure(); ++round) {
    if (round == kRounds) {
      before = BytesInUse();
    }
    const ScriptedFramework framework;
    UseAndClose();
  }
  EXPECT_EQ(before, BytesInUse());
}

/// The framework alone decides when it lets go of a callback object.
TEST(UnloadTest, TheFrameworkMayDeliverAndReleaseLater) {
  ScriptedFramework framework;
  UseAndClose();
  EXPECT_TRUE(Load(RTLD_NOLOAD)) << "the library stays loaded";
  framework.Deliver(kRearContinuous, SpectralMessage({1}));
  framework.DropCallbacks();
}

}  // namespace
}  // namespace hyl::v2::test
