// SPDX-License-Identifier: Apache-2.0
// Result codes in words: the one table of them, and the page that shows it.

#include <fstream>
#include <iterator>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hyl/hyl_err.h>

namespace hyl::v2::test {
namespace {

using ::testing::HasSubstr;
using ::testing::PrintToString;

TEST(HylErrTest, ThePageShowsTheTable) {
  std::ifstream file(HYL_ERRORS_PAGE);
  const std::string page{std::istreambuf_iterator<char>(file), {}};
  std::string rows = "| value | name | advice |\n|---|---|---|\n";
  const auto row = [&](const std::string& value, const std::string& name, const char* advice) {
    rows += "| " + value + " | " + name + " | " + advice + " |\n";
  };
  for (int code = 0; code < 256; ++code) {
    const auto err = static_cast<HylErr>(code);
    const std::string number = std::to_string(code);
    const std::string name = PrintToString(err);
    if (name != number) {
      row(number, "`" + name + "`", AdviceOf(err));
    }
  }
  row("any other", "its number", AdviceOf(HylErr{255}));
  EXPECT_THAT(page, HasSubstr(rows + "\n"));
}

}  // namespace
}  // namespace hyl::v2::test
