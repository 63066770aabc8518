#include "flicker_analysis.h"

#include <numeric>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace hyl::v2::tool {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

constexpr size_t kBlock = 240;

/// `count` samples, each of which is its own sequence number.
std::vector<int32_t> Numbered(uint32_t seq_num, size_t count) {
  std::vector<int32_t> samples(count);
  std::iota(samples.begin(), samples.end(), static_cast<int32_t>(seq_num));
  return samples;
}

class FlickerRecorderTest : public testing::Test {
 protected:
  void Add(uint32_t seq_num, size_t count = kBlock, bool restart = false) {
    recorder_.Add(seq_num, restart, Numbered(seq_num, count));
  }

  FlickerRecorder recorder_{1000};
};

TEST_F(FlickerRecorderTest, JoinsBlocksThatFollowEachOther) {
  Add(0, kBlock, true);
  Add(240);
  EXPECT_THAT(recorder_.Stretch(), testing::ElementsAreArray(Numbered(0, 480)));
  EXPECT_EQ(recorder_.counts().samples, 480U);
  EXPECT_EQ(recorder_.counts().gaps, 0U);
}

TEST_F(FlickerRecorderTest, KeepsTheNewestOfALongStretch) {
  for (uint32_t block = 0; block < 50; ++block) {
    Add(block * 240);
  }
  EXPECT_THAT(recorder_.Stretch(), testing::ElementsAreArray(Numbered(11000, 1000)));
}

TEST_F(FlickerRecorderTest, CountsAGapAndItsSamples) {
  Add(0);
  Add(720);
  EXPECT_EQ(recorder_.counts().gaps, 1U);
  EXPECT_EQ(recorder_.counts().lost, 480U);
  EXPECT_EQ(recorder_.counts().samples, 480U);
}

TEST_F(FlickerRecorderTest, GivesTheLongestStretch) {
  Add(0);
  Add(240);
  Add(720);  // after a gap
  EXPECT_THAT(recorder_.Stretch(), testing::ElementsAreArray(Numbered(0, 480)));
  recorder_.BeginPeriod();
  EXPECT_THAT(recorder_.Stretch(), testing::ElementsAreArray(Numbered(720, 240)));
}

TEST_F(FlickerRecorderTest, FollowsNumbersThatWrap) {
  Add(0xFFFFFFFF - 239);
  Add(0);
  EXPECT_EQ(recorder_.counts().gaps, 0U);
  EXPECT_EQ(recorder_.counts().steps_back, 0U);
  EXPECT_THAT(recorder_.Stretch(), SizeIs(480));
}

TEST_F(FlickerRecorderTest, TakesSmallStepsForEstimates) {
  Add(0);
  Add(240 + 30);
  Add(510 - 30);
  EXPECT_EQ(recorder_.counts().gaps, 0U);
  EXPECT_EQ(recorder_.counts().steps_back, 0U);
  EXPECT_THAT(recorder_.Stretch(), SizeIs(720));
}

TEST_F(FlickerRecorderTest, CountsARepeatedBlockAsAStepBack) {
  Add(0);
  Add(240);
  Add(240);
  EXPECT_EQ(recorder_.counts().steps_back, 1U);
  EXPECT_EQ(recorder_.counts().gaps, 0U);
  EXPECT_THAT(recorder_.Stretch(), SizeIs(480));
}

TEST_F(FlickerRecorderTest, JoinsBlocksWithoutNumbers) {
  Add(0);
  Add(240);
  for (int block = 0; block < 4; ++block) {
    Add(0);
  }
  EXPECT_EQ(recorder_.counts().steps_back, 1U);
  EXPECT_THAT(recorder_.Stretch(), SizeIs(960));
}

TEST_F(FlickerRecorderTest, GoesOnAcrossARestart) {
  Add(0, kBlock, true);
  Add(240);
  Add(480, kBlock, true);
  EXPECT_THAT(recorder_.Stretch(), testing::ElementsAreArray(Numbered(0, 720)));
}

TEST_F(FlickerRecorderTest, LeavesOutLevelsThatALossShifted) {
  Add(0, kBlock, true);
  Add(480);                // after a gap
  Add(720, kBlock, true);  // whose levels do not follow on
  Add(960);
  Add(1200);
  EXPECT_EQ(recorder_.counts().gaps, 1U);
  EXPECT_THAT(recorder_.Stretch(), testing::ElementsAreArray(Numbered(720, 720)));
}

TEST_F(FlickerRecorderTest, ForgetsSamplesAndKeepsCounts) {
  Add(0);
  Add(480);
  recorder_.ForgetSamples();
  EXPECT_THAT(recorder_.Stretch(), SizeIs(0));
  EXPECT_EQ(recorder_.counts().samples, 0U);
  EXPECT_EQ(recorder_.counts().gaps, 1U);
  Add(720, 2);
  EXPECT_EQ(recorder_.counts().gaps, 1U);
  EXPECT_THAT(recorder_.Stretch(), ElementsAre(720, 721));
}

}  // namespace
}  // namespace hyl::v2::tool
