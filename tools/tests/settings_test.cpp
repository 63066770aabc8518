#include "settings.h"

#include <gtest/gtest.h>

#include "errors.h"

namespace hyl::v2::tool {
namespace {

struct WordCase {
  const char* setting;
  const char* word;
  Json value;  ///< null for a word that is refused
};

TEST(SettingsTest, WordsAreReadExactlyOrRefused) {
  const WordCase cases[] = {{"torch", "on", true},
                            {"torch", "off", false},
                            {"torch", "ON", {}},
                            {"torch", "", {}},
                            {"flicker-pedestal", "0", 0U},
                            {"flicker-pedestal", "255", 255U},
                            {"flicker-pedestal", "0xfF", 255U},
                            {"flicker-pedestal", "010", 10U},
                            {"flicker-pedestal", "256", {}},
                            {"flicker-pedestal", "-1", {}},
                            {"flicker-pedestal", "+1", {}},
                            {"flicker-pedestal", " 1", {}},
                            {"flicker-pedestal", "1.0", {}},
                            {"flicker-pedestal", "0x", {}},
                            {"exposure-time", "4294967295", 4294967295U},
                            {"exposure-time", "4294967296", {}},
                            {"exposure-time", "99999999999999999999999", {}}};
  for (const auto& [name, word, value] : cases) {
    SCOPED_TRACE(name + std::string("=") + word);
    if (value.is_null()) {
      EXPECT_THROW(ParseCall(&Setting::write, name, {word}), Failure);
    } else {
      EXPECT_EQ(ParseCall(&Setting::write, name, {word}).values, Values{value});
    }
  }
}

TEST(SettingsTest, AssignmentsAreReadExactlyOrRefused) {
  const auto writes = ParseAssignments({"gain=0,2.5", "torch=on"});
  ASSERT_EQ(writes.size(), 2U);
  EXPECT_STREQ(writes[0].setting->name, "gain");
  EXPECT_EQ(writes[0].values, (Values{0U, 2.5F}));
  EXPECT_EQ(writes[1].values, Values{true});
  for (const char* const wrong : {"gain=0,nan", "gain=0,inf", "gain=0", "gain=0,1,2", "gain=0,1,",
                                  "gain", "=1", "", "device-uid=1"}) {
    EXPECT_THROW(ParseAssignments({wrong}), Failure) << wrong;
  }
}

TEST(SettingsTest, CoverAllOperations) {
  EXPECT_EQ(SettingsTo(&Setting::read).size(), 9U);
  EXPECT_EQ(SettingsTo(&Setting::write).size(), 11U);
}

}  // namespace
}  // namespace hyl::v2::tool
