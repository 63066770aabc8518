// SPDX-License-Identifier: Apache-2.0
#include <hyl/host/light_measures.h>

#include <cmath>
#include <numbers>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace hyl::v2::host {
namespace {

TEST(LevelsTest, AreAsDefined) {
  const std::pair<std::vector<int32_t>, FlickerLevels> cases[] = {
      {{500, 500, 500}, {500, 500, 500, 0, 0}},
      {{100, 300, 100, 300}, {200, 100, 300, 50, 0.25}},
      {{0, 400, 0, 400}, {200, 0, 400, 100, 0.5}},
      {{0, 0, 0, 400}, {100, 0, 400, 100, 0.75}},
      {{-4, 404, -4, 404}, {200, -4, 404, 100, 408.0 / 808}},  // noise in the dark
      {{-100, 120, -90, 110}, {10, -100, 120, {}, {}}},        // mostly noise
      {{0, 0}, {0, 0, 0, {}, {}}},
      {{INT32_MAX, INT32_MIN}, {-0.5, INT32_MIN, INT32_MAX, {}, {}}}};
  for (const auto& [samples, expected] : cases) {
    EXPECT_EQ(LevelsOf(samples), expected) << testing::PrintToString(samples);
  }
}

struct LightCase {
  std::vector<std::pair<double, double>> waves;  // hertz, percent of the mean
  double visibility;                             // -1 for none
  std::optional<std::string_view> risk;
  std::optional<std::string_view> absent = {};
  uint32_t rate_hz = 24000;
  double mean = 1e6;
  std::optional<double> dominant_hz = 100;
};

std::vector<int32_t> SecondOf(const LightCase& light) {
  std::vector<int32_t> samples;
  for (size_t i = 0; i < light.rate_hz; ++i) {
    double value = 1;
    for (const auto& [hz, percent] : light.waves) {
      const double turns = hz * static_cast<double>(i) / light.rate_hz;
      value += percent / 100 * std::sin(2 * std::numbers::pi * turns + 0.3);
    }
    samples.push_back(static_cast<int32_t>(std::lround(light.mean * value)));
  }
  return samples;
}

TEST(LightMeasuresTest, AreAsDefinedOrAbsent) {
  const LightCase cases[] = {
      {{{100, 25.6}}, 1, "high"},  // waves that are just visible
      {{{2000, 100}}, 1, "high"},
      {{{100, 25.6}}, 1, "high", {}, 4001},  // a prime number, as the next one
      {{{1000, 97.3}}, 1, "high", {}, 23993},
      {{{100, 12.8}, {1000, 48.65}}, 0.603, "high"},    // half of each, in the norm of 3.7
      {{{80, 24.3}, {79, 30}, {2001, 30}}, 1, "high"},  // slower and faster waves add nothing
      {{{100.5, 25.6}}, 0.77, "high"},                  // between two steps
      {{}, 0, "no effect"},
      {{}, 0, {}, "no frequency stands out", 24000, 1e6, {}},
      {{}, -1, {}, "too few samples a second", 4000},
      {{}, -1, {}, "no light", 24000, 0},
      {{}, -1, {}, "no light", 24000, -1e6}};
  for (const LightCase& light : cases) {
    const auto measures = MeasuresOf(SecondOf(light), light.rate_hz, light.dominant_hz);
    SCOPED_TRACE(testing::PrintToString(light.waves) + light.absent.value_or("").data());
    EXPECT_NEAR(measures.visibility.value_or(-1), light.visibility, 0.005);
    EXPECT_EQ(measures.risk, light.risk);
    EXPECT_EQ(measures.absent, light.absent);
  }
  const std::vector<int32_t> almost(23999, 1000);
  EXPECT_EQ(MeasuresOf(almost, 24000, 100).absent, "less than a second in a row");
}

TEST(LightMeasuresTest, HaveTheirLimits) {
  constexpr std::tuple<double, double, const char*> kRisks[] = {
      {0.899, 89.9, "no effect"}, {0.9, 89.9, "low"},      {2.247, 89.9, "low"},
      {2.248, 89.9, "high"},      {2.99, 90, "no effect"}, {7.19, 90, "low"},
      {7.21, 90, "high"},         {100, 1249, "high"},     {100, 1251, "low"},
      {99.8, 3000, "no effect"},  {100, 3000, "low"},      {100, 3001, "no effect"}};
  for (const auto& [modulation_percent, hz, risk] : kRisks) {
    EXPECT_EQ(RiskOf(modulation_percent, hz), risk) << modulation_percent << " at " << hz;
  }
  constexpr std::pair<double, double> kSteps[] = {
      {100, 10}, {99.1, 10}, {120.9, 1000.0 / 120}, {98.9, 1000 / 98.9}, {50, 20}, {1000, 1}};
  for (const auto& [hz, step_ms] : kSteps) {
    EXPECT_EQ(BandFreeStepMs(hz), step_ms) << hz;
  }
}

}  // namespace
}  // namespace hyl::v2::host
