// SPDX-License-Identifier: Apache-2.0
// The library loaded at run time, used, and closed. The program is not linked with it.

#include <dlfcn.h>
#include <memory>
#include <type_traits>

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
