// SPDX-License-Identifier: Apache-2.0
// What the library requires of the framework's small types.

#include <array>
#include <cstdint>
#include <limits>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hyl/host/messages.h>
#include <hyl/host/scripted_framework.h>
#include <hyl/hyl_string.h>
#include <hyl/reffed_ptr.h>
#include <hyl/sampling_messages.h>
#include <hyl/vector.h>

namespace hyl::v2::test {
namespace {

using testing::ElementsAre;

TEST(HylString, AssignsAppendsCopiesAndMoves) {
  alignas(HylString) std::array<unsigned char, sizeof(HylString)> zeros{};
  auto& text = *std::launder(reinterpret_cast<HylString*>(zeros.data()));  // an empty string
  EXPECT_STREQ("", text.c_str());
  text.assign("a long beginning");
  text.appendf(" %s-%d %s", "x", 5, text.c_str());  // of itself
  EXPECT_STREQ("a long beginning x-5 a long beginning", text.c_str());
  text.assign(text.c_str() + 7);  // a part of itself
  EXPECT_STREQ("beginning x-5 a long beginning", text.c_str());

  HylString copy = text;
  HylString moved = std::move(text);
  copy.appendf("!");
  EXPECT_STREQ("beginning x-5 a long beginning", moved.c_str());
  EXPECT_STREQ("beginning x-5 a long beginning!", copy.c_str());
  text = moved;
  EXPECT_EQ(text, moved);
  text = HylString();
  EXPECT_TRUE(text.empty());
  moved = std::move(copy);
  EXPECT_EQ("beginning x-5 a long beginning!", moved);
  EXPECT_NE("beginning", moved);
  EXPECT_EQ(31U, moved.size());
  for (HylString* const emptied : {&moved, &text}) {
    emptied->assign(emptied == &text ? nullptr : "");
    EXPECT_EQ(nullptr, emptied->data());
    EXPECT_TRUE(emptied->empty());
  }
}

Vector<HylString> Numbers(size_t count) {
  Vector<HylString> numbers;
  EXPECT_EQ(HylErr::kOk, numbers.Resize(count));
  for (size_t i = 0; i < count; ++i) {
    numbers[i].appendf("%zu", i);
  }
  return numbers;
}

std::vector<std::string> Texts(const Vector<HylString>& strings) {
  std::vector<std::string> texts;
  for (const HylString& string : strings) {
    texts.emplace_back(string.c_str());
  }
  return texts;
}

TEST(Vector, KeepsElementsWhenItGrowsOrCannot) {
  Vector<HylString> vector = Numbers(3);
  host::FailVectorGrowth([] { return true; });
  EXPECT_NE(HylErr::kOk, vector.Resize(4));
  EXPECT_EQ(HylErr::kOk, vector.Resize(2)) << "getting shorter needs no memory";
  host::FailVectorGrowth({});
  EXPECT_NE(HylErr::kOk, vector.Resize(std::numeric_limits<size_t>::max() / 8));
  EXPECT_THAT(Texts(vector), ElementsAre("0", "1"));
  ASSERT_EQ(HylErr::kOk, vector.Resize(1000));
  EXPECT_STREQ("1", vector[1].c_str());
  EXPECT_TRUE(vector[2].empty() && vector[999].empty());

  const Vector<HylString> moved = std::move(vector);
  EXPECT_EQ(1000U, moved.size());
  vector = Numbers(2);
  vector = Numbers(3);
  EXPECT_THAT(Texts(vector), ElementsAre("0", "1", "2"));
}

struct Counted {
  void Ref() { ++count; }
  void Unref() { --count; }
  int count = 0;
};

TEST(ReffedPtr, HoldsOneReference) {
  Counted a;
  Counted b;
  {
    refcount::reffed_ptr<Counted> first(&a);
    auto second = first;
    auto& same = second;
    second = same;
    EXPECT_EQ(2, a.count);
    second = refcount::reffed_ptr(&b);
    EXPECT_EQ(1, a.count);
    EXPECT_EQ(1, b.count);
    first = std::move(second);
    EXPECT_FALSE(second);  // NOLINT(bugprone-use-after-move): it is empty
    EXPECT_EQ(0, a.count);
    EXPECT_EQ(1, b.count);
  }
  EXPECT_EQ(0, b.count);
}

TEST(SensorEvent, ALongChainIsFreedWithItsFirstEvent) {
  std::vector<host::SensorEvent> events(200'000, {SensorEventType::kIgnored, {1, 2}});
  events[1].timestamp = 5;
  const auto chain = host::MakeEventChain(events);
  EXPECT_EQ(1, chain->ref_count);
  EXPECT_EQ(1, chain->next->ref_count);
  EXPECT_EQ(5, chain->next->timestamp);
  EXPECT_EQ(2.0F, chain->values()[1]);
  EXPECT_EQ(255, host::MakeEventChain({{.values = std::vector<float>(300)}})->value_count);
}

TEST(FrameworkDeathTest, AnEmptyPointerEndsTheProcess) {
  EXPECT_DEATH((void)host::SensorEventPtr()->timestamp, "ptr_ != nullptr");
}

TEST(Time, TicksAreThoseOfA19200KilohertzCounter) {
  const uint64_t years = 100ULL * 365 * 86400;
  EXPECT_EQ(years * 1'000'000'000, Time::PlatformTicksToNs(years * 19'200'000)) << "no overflow";
}

}  // namespace
}  // namespace hyl::v2::test
