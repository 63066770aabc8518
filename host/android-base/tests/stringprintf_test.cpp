#include <android-base/stringprintf.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

namespace android::base {
namespace {

TEST(StringPrintfTest, FormatsTextOfAnyLength) {
  EXPECT_EQ(StringPrintf("%s", ""), "");
  EXPECT_EQ(StringPrintf("%s%d:%u", "rear", -12, 34U), "rear-12:34");
  const std::string long_text(100'000, 'x');
  EXPECT_EQ(StringPrintf("<%s>", long_text.c_str()), "<" + long_text + ">");
}

TEST(StringPrintfTest, AppendsBehindWhatIsThere) {
  std::string text = "sensors:";
  for (std::size_t i = 0; i < 3; ++i) {
    StringAppendF(&text, " %zu", i);
  }
  EXPECT_EQ(text, "sensors: 0 1 2");
}

}  // namespace
}  // namespace android::base
