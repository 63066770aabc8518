// Result codes in words: the one table of them, and the page that shows it.

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hyl/hyl_err.h>

namespace hyl::v2::test {
namespace {

using ::testing::HasSubstr;
using ::testing::PrintToString;

static_assert(std::string_view(NameOf(HylErr::kNotFound)) == "kNotFound");

TEST(HylErrTest, CodesWithoutANameGoByTheirNumber) {
  for (int code = 0; code < 256; ++code) {
    const auto err = static_cast<HylErr>(code);
    const bool named = NameOf(err)[0] == 'k';
    EXPECT_EQ(named ? NameOf(err) : std::to_string(code), PrintToString(err));
    EXPECT_EQ(named, Describe(err).advice != std::string(AdviceOf(HylErr{255}))) << code;
  }
}

TEST(HylErrTest, ThePageShowsTheTable) {
  std::ifstream file(HYL_ERRORS_PAGE);
  const std::string page{std::istreambuf_iterator<char>(file), {}};
  std::string rows = "| value | name | advice |\n|---|---|---|\n";
  for (const HylErrText& text : kHylErrTexts) {
    rows += "| " + std::to_string(static_cast<int>(text.err)) + " | `" + text.name + "` | " +
            text.advice + " |\n";
  }
  rows += std::string("| any other | its number | ") + AdviceOf(HylErr{255}) + " |\n\n";
  EXPECT_THAT(page, HasSubstr(rows));
}

}  // namespace
}  // namespace hyl::v2::test
