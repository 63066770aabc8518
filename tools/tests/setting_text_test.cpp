#include "setting_text.h"

#include <set>
#include <string>

#include <gtest/gtest.h>

#include "failure.h"

namespace hyl::v2::tool {
namespace {

struct NumberCase {
  const char* setting;
  const char* word;
  std::optional<double> number;  ///< none for a word that is refused
};

class NumberTest : public testing::TestWithParam<NumberCase> {};

TEST_P(NumberTest, IsReadExactlyOrRefused) {
  const Setting& setting = FindSetting(GetParam().setting);
  if (GetParam().number) {
    EXPECT_EQ(ParseArguments(setting, setting.write, {GetParam().word}),
              SettingNumbers{*GetParam().number});
  } else {
    EXPECT_THROW(ParseArguments(setting, setting.write, {GetParam().word}), Failure);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Words, NumberTest,
    testing::Values(
        NumberCase{"torch", "on", 1}, NumberCase{"torch", "off", 0}, NumberCase{"torch", "ON", {}},
        NumberCase{"torch", "", {}}, NumberCase{"flicker-pedestal", "0", 0},
        NumberCase{"flicker-pedestal", "255", 255}, NumberCase{"flicker-pedestal", "0xfF", 255},
        NumberCase{"flicker-pedestal", "010", 10}, NumberCase{"flicker-pedestal", "256", {}},
        NumberCase{"flicker-pedestal", "-1", {}}, NumberCase{"flicker-pedestal", "+1", {}},
        NumberCase{"flicker-pedestal", " 1", {}}, NumberCase{"flicker-pedestal", "1.0", {}},
        NumberCase{"flicker-pedestal", "0x", {}},
        NumberCase{"exposure-time", "4294967295", 4294967295.0},
        NumberCase{"exposure-time", "4294967296", {}},
        NumberCase{"exposure-time", "99999999999999999999999", {}}));

TEST(SettingTextTest, ReadsAssignments) {
  const auto writes = ParseAssignments({"gain=0,2.5", "torch=on"});
  ASSERT_EQ(writes.size(), 2U);
  EXPECT_STREQ(writes[0].setting->name, "gain");
  EXPECT_EQ(writes[0].numbers, (SettingNumbers{0, 2.5}));
  EXPECT_EQ(writes[1].numbers, SettingNumbers{1});
  for (const char* const wrong :
       {"gain=0,nan", "gain=0,inf", "gain=0", "gain=0,1,2", "gain", "=1", "", "device-uid=1"}) {
    EXPECT_THROW(ParseAssignments({wrong}), Failure) << wrong;
  }
}

TEST(SettingTextTest, CoversAllOperations) {
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
