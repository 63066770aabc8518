#include "flicker_analysis.h"

#include <cmath>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace hyl::v2::tool {
namespace {

constexpr double kRateHz = 24000;

struct Wave {
  double mean = 0;
  double amplitude = 0;
  double hz = 0;
  double noise = 0;  // standard deviation
  double drift_per_s = 0;
  size_t count = 24000;
  double phase = 1;
};

std::vector<int32_t> Samples(const Wave& wave) {
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
  return samples;
}

std::optional<SpectrumPeak> PeakOf(const Wave& wave) {
  return DominantPeak(SpectrumOf(Samples(wave), kRateHz));
}

struct PeakCase {
  const char* name;
  Wave wave;
  double tolerance_hz;
};

class PeakTest : public testing::TestWithParam<PeakCase> {};

TEST_P(PeakTest, HasTheFrequency) {
  const Wave& wave = GetParam().wave;
  const auto peak = PeakOf(wave);
  ASSERT_TRUE(peak);
  EXPECT_NEAR(peak->hz, wave.hz, GetParam().tolerance_hz);
  // The parabola is an approximation to the top of the main lobe.
  EXPECT_NEAR(peak->amplitude, wave.amplitude, 0.04 * wave.amplitude);
}

INSTANTIATE_TEST_SUITE_P(
    Waves, PeakTest,
    testing::Values(
        PeakCase{"OnAnEntry", {.mean = 8000, .amplitude = 2000, .hz = 100}, 0.01},
        PeakCase{"BetweenEntries", {.mean = 8000, .amplitude = 2000, .hz = 120.5}, 0.05},
        PeakCase{"AQuarterBetween", {.mean = 8000, .amplitude = 2000, .hz = 99.75}, 0.05},
        PeakCase{"High", {.mean = 8000, .amplitude = 500, .hz = 11000.3}, 0.05},
        PeakCase{"Low", {.mean = 8000, .amplitude = 500, .hz = 5}, 0.05},
        PeakCase{"InNoise", {.mean = 8000, .amplitude = 100, .hz = 100.25, .noise = 100}, 0.1},
        PeakCase{
            "OnADrift", {.mean = 8000, .amplitude = 100, .hz = 100.5, .drift_per_s = 4000}, 0.05},
        PeakCase{
            "OfTwentiethOfASecond", {.mean = 8000, .amplitude = 2000, .hz = 100, .count = 1200}, 1},
        PeakCase{
            "OfAnOddCount", {.mean = 8000, .amplitude = 2000, .hz = 100, .count = 23999}, 0.05}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(DominantPeakTest, IsNotFoundWhereNothingStandsOut) {
  EXPECT_FALSE(PeakOf({.mean = 8000, .noise = 50}));
  EXPECT_FALSE(PeakOf({.mean = 8000}));
  EXPECT_FALSE(PeakOf({.mean = 8000, .noise = 1, .drift_per_s = 3000}));
}

TEST(DominantPeakTest, IsNotFoundInTooSlowWaves) {
  for (const double hz : {0.5, 2.0, 4.4, 5.8, 8.0, 10.0, 12.0, 14.0, 15.0, 16.0, 20.0}) {
    for (const double phase : {0.0, 0.7, 1.6, 2.5}) {
      const auto peak =
          PeakOf({.mean = 8000, .amplitude = 2000, .hz = hz, .count = 2400, .phase = phase});
      EXPECT_FALSE(peak) << hz << " Hz, as " << peak->hz << " Hz";
    }
  }
}

TEST(DominantPeakTest, IsNotFoundInTooShortStretches) {
  for (const size_t count : {0U, 1U, 2U, 3U, 7U}) {
    EXPECT_FALSE(PeakOf({.mean = 8000, .amplitude = 2000, .hz = 6000, .count = count})) << count;
  }
}

struct LevelCase {
  const char* name;
  std::vector<int32_t> samples;
  double mean;
  std::optional<double> modulation_percent;
  std::optional<double> flicker_index;
};

class LevelTest : public testing::TestWithParam<LevelCase> {};

TEST_P(LevelTest, IsAsDefined) {
  const LevelCase& expected = GetParam();
  const FlickerLevels levels = LevelsOf(expected.samples);
  EXPECT_DOUBLE_EQ(levels.mean, expected.mean);
  ASSERT_EQ(levels.modulation_percent.has_value(), expected.modulation_percent.has_value());
  ASSERT_EQ(levels.flicker_index.has_value(), expected.flicker_index.has_value());
  EXPECT_DOUBLE_EQ(levels.modulation_percent.value_or(0), expected.modulation_percent.value_or(0));
  EXPECT_DOUBLE_EQ(levels.flicker_index.value_or(0), expected.flicker_index.value_or(0));
}

INSTANTIATE_TEST_SUITE_P(
    Levels, LevelTest,
    testing::Values(LevelCase{"Steady", {500, 500, 500}, 500, 0, 0},
                    LevelCase{"Square", {100, 300, 100, 300}, 200, 50, 0.25},
                    LevelCase{"SwitchedOff", {0, 400, 0, 400}, 200, 100, 0.5},
                    LevelCase{"ShortPulse", {0, 0, 0, 400}, 100, 100, 0.75},
                    // Noise below 0 is darkness.
                    LevelCase{"NoiseInTheDarkPart", {-4, 404, -4, 404}, 200, 100, 408.0 / 808},
                    LevelCase{"MostlyNoise", {-100, 120, -90, 110}, 10, {}, {}},
                    LevelCase{"Dark", {0, 0}, 0, {}, {}},
                    LevelCase{"BelowDarkness", {-10, -20}, -15, {}, {}},
                    LevelCase{"Extremes", {INT32_MAX, INT32_MIN}, -0.5, {}, {}}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace hyl::v2::tool
