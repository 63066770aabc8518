// SPDX-License-Identifier: Apache-2.0
#include "flicker_analysis.h"

#include <cmath>
#include <numbers>
#include <numeric>
#include <random>
#include <set>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace hyl::v2::tool {
namespace {

using testing::ElementsAreArray;
using testing::SizeIs;

constexpr double kRateHz = 24000;

struct Wave {
  double mean = 8000;
  double amplitude = 0;
  double hz = 0;
  double noise = 0;  // standard deviation
  double drift_per_s = 0;
  size_t count = 24000;
  double phase = 1;
};

std::optional<SpectrumPeak> PeakOf(const Wave& wave) {
  // The same noise in every run.
  std::mt19937 generator(7);  // NOLINT(cert-msc32-c,cert-msc51-cpp)
  std::normal_distribution<double> noise(0, 1);
  std::vector<int32_t> samples;
  for (size_t i = 0; i < wave.count; ++i) {
    const double time = static_cast<double>(i) / kRateHz;
    const double value =
        wave.mean + wave.drift_per_s * time + wave.noise * noise(generator) +
        wave.amplitude * std::sin(2 * std::numbers::pi * wave.hz * time + wave.phase);
    samples.push_back(static_cast<int32_t>(std::lround(value)));
  }
  return DominantPeak(SpectrumOf(samples, kRateHz));
}

TEST(DominantPeakTest, HasFrequencyAndAmplitudeOfTheWave) {
  const std::pair<Wave, double> cases[] = {
      {{.amplitude = 2000, .hz = 100}, 0.01},
      {{.amplitude = 2000, .hz = 120.5}, 0.05},  // between two entries of the spectrum
      {{.amplitude = 500, .hz = 11000.3}, 0.05},
      {{.amplitude = 500, .hz = 5}, 0.05},
      {{.amplitude = 100, .hz = 100.25, .noise = 100}, 0.1},
      {{.amplitude = 100, .hz = 100.5, .drift_per_s = 4000}, 0.05},
      {{.amplitude = 2000, .hz = 100, .count = 1200}, 1},
      {{.amplitude = 2000, .hz = 100, .count = 23999}, 0.05},  // of any number of samples
  };
  for (const auto& [wave, tolerance_hz] : cases) {
    SCOPED_TRACE(wave.hz);
    const auto peak = PeakOf(wave);
    ASSERT_TRUE(peak);
    EXPECT_NEAR(peak->hz, wave.hz, tolerance_hz);
    // The parabola is an approximation to the top of the main lobe.
    EXPECT_NEAR(peak->amplitude, wave.amplitude, 0.04 * wave.amplitude);
  }
}

TEST(DominantPeakTest, IsNotFoundWhereNothingStandsOut) {
  EXPECT_FALSE(PeakOf({.noise = 50}));
  EXPECT_FALSE(PeakOf({}));
  EXPECT_FALSE(PeakOf({.noise = 1, .drift_per_s = 3000}));
  for (const size_t count : {0U, 1U, 2U, 3U, 7U}) {
    EXPECT_FALSE(PeakOf({.amplitude = 2000, .hz = 6000, .count = count})) << count;
  }
  // A tenth of a second is too short for these.
  for (const double hz : {0.5, 2.0, 4.4, 5.8, 8.0, 10.0, 12.0, 14.0, 15.0, 16.0, 20.0}) {
    for (const double phase : {0.0, 0.7, 1.6, 2.5}) {
      EXPECT_FALSE(PeakOf({.amplitude = 2000, .hz = hz, .count = 2400, .phase = phase})) << hz;
    }
  }
}

constexpr uint32_t kBlock = 240;

/// `count` samples, each of which is its own sequence number.
std::vector<int32_t> Numbered(uint32_t seq_num, size_t count) {
  std::vector<int32_t> samples(count);
  std::iota(samples.begin(), samples.end(), static_cast<int32_t>(seq_num));
  return samples;
}

/// Takes blocks with these numbers; those that are in `restarts`, too, carry the flag.
FlickerRecorder Recorded(const std::vector<uint32_t>& seq_nums,
                         const std::set<uint32_t>& restarts) {
  FlickerRecorder recorder(1000);
  for (const uint32_t seq_num : seq_nums) {
    recorder.Add(seq_num, restarts.contains(seq_num), Numbered(seq_num, kBlock));
  }
  return recorder;
}

struct RecorderCase {
  const char* what;
  std::vector<uint32_t> seq_nums;
  std::set<uint32_t> restarts;
  size_t stretch;
  FlickerCounts counts = {};  // but for the samples
};

TEST(FlickerRecorderTest, CountsGapsBetweenStretches) {
  RecorderCase cases[] = {
      {"blocks that follow each other", {0, 240}, {0}, 480},
      {"a gap", {0, 720}, {0}, 240, {0, 1, 480}},
      {"numbers that wrap", {0xFFFFFFFF - 239, 0}, {}, 480},
      {"small steps, of estimated numbers", {0, 270, 480}, {0}, 720},
      {"a repeated block", {0, 240, 240}, {0}, 480, {0, 0, 0, 1}},
      {"blocks without a number", {0, 240, 0, 0, 0, 0}, {}, 960, {0, 0, 0, 1}},
      {"a restart", {0, 240, 480}, {0, 480}, 720},
      {"shifted levels until a restart", {0, 480, 720, 960}, {0, 720}, 480, {0, 1, 240}},
      {"shifted levels from the start", {0, 240, 480, 720, 960}, {240}, 960},
  };
  for (auto& [what, seq_nums, restarts, stretch, counts] : cases) {
    counts.samples = seq_nums.size() * kBlock;
    const FlickerRecorder recorder = Recorded(seq_nums, restarts);
    EXPECT_THAT(recorder.Stretch(), SizeIs(stretch)) << what;
    EXPECT_EQ(recorder.counts(), counts) << what;
  }
}

TEST(FlickerRecorderTest, KeepsTheNewestOfTheLongest) {
  FlickerRecorder recorder = Recorded({0, 240, 480, 960}, {});
  EXPECT_THAT(recorder.Stretch(), ElementsAreArray(Numbered(0, 720)));
  recorder.BeginPeriod();
  EXPECT_THAT(recorder.Stretch(), ElementsAreArray(Numbered(960, 240)));
  for (uint32_t block = 5; block < 50; ++block) {
    recorder.Add(block * kBlock, false, Numbered(block * kBlock, kBlock));
  }
  EXPECT_THAT(recorder.Stretch(), ElementsAreArray(Numbered(11000, 1000)));
  recorder.ForgetSamples();
  EXPECT_THAT(recorder.Stretch(), SizeIs(0));
  recorder.Add(12240, false, Numbered(12240, 2));
  EXPECT_EQ(recorder.counts(), (FlickerCounts{2, 2, 480})) << "gaps stay";
  EXPECT_THAT(recorder.Stretch(), ElementsAreArray(Numbered(12240, 2)));
}

}  // namespace
}  // namespace hyl::v2::tool
