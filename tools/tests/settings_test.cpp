#include "settings.h"

#include <set>

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
    const Setting& setting = FindSetting(name, &Setting::write);
    if (value.is_null()) {
      EXPECT_THROW(ParseArguments(setting, setting.write, {word}), Failure);
    } else {
      EXPECT_EQ(ParseArguments(setting, setting.write, {word}), Values{value});
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
  size_t reads = 0;
  size_t writes = 0;
  std::set<std::string> names;
  for (const Setting& setting : AllSettings()) {
    reads += setting.read.run != nullptr ? 1U : 0U;
    writes += setting.write.run != nullptr ? 1U : 0U;
    names.insert(setting.name);
  }
  EXPECT_EQ(reads, 9U);
  EXPECT_EQ(writes, 11U);
  EXPECT_EQ(names.size(), AllSettings().size());
}

}  // namespace
}  // namespace hyl::v2::tool
