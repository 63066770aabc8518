#include "settings.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "errors.h"
#include "operations.h"

namespace hyl::v2::tool {
namespace {

TEST(SettingsTest, AreReadExactlyOrRefused) {
  const std::pair<const char*, Values> cases[] = {{"torch=on", {true}},
                                                  {"torch=off", {false}},
                                                  {"flicker-pedestal=0", {0U}},
                                                  {"flicker-pedestal=255", {255U}},
                                                  {"flicker-pedestal=0xfF", {255U}},
                                                  {"flicker-pedestal=010", {10U}},
                                                  {"exposure-time=4294967295", {4294967295U}},
                                                  {"gain=0,2.5", {0U, 2.5F}}};
  for (const auto& [text, values] : cases) {
    EXPECT_EQ(ParseAssignments({text})[0].values, values) << text;
  }
  for (const char* const wrong :
       {"torch=ON", "torch=", "flicker-pedestal=256", "flicker-pedestal=-1", "flicker-pedestal=+1",
        "flicker-pedestal= 1", "flicker-pedestal=1.0", "flicker-pedestal=0x",
        "exposure-time=4294967296", "exposure-time=99999999999999999999999", "gain=0,nan",
        "gain=0,inf", "gain=0", "gain=0,1,2", "gain=0,1,", "gain", "=1", "", "device-uid=1"}) {
    EXPECT_THROW(ParseAssignments({wrong}), Failure) << wrong;
  }
}

TEST(SettingsTest, CoverAllOperations) {
  const auto operations = static_cast<size_t>(std::ranges::count_if(
      test::kOperations, [](const test::Operation& operation) { return operation.IsSetting(); }));
  EXPECT_EQ(SettingsTo(&Setting::read).size() + SettingsTo(&Setting::write).size(), operations);
}

}  // namespace
}  // namespace hyl::v2::tool
