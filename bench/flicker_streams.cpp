// SPDX-License-Identifier: Apache-2.0
#include "flicker_streams.h"

#include <cmath>
#include <numbers>
#include <random>
#include <utility>

namespace hyl::v2::bench {
namespace {

constexpr uint8_t kStop = 0x80;

void Append(std::vector<uint8_t>& bytes, int difference) {
  int groups = 1;
  while (difference < -(1 << (7 * groups - 1)) || difference >= 1 << (7 * groups - 1)) {
    ++groups;
  }
  for (int group = 0; group < groups; ++group) {
    const int stop = group == groups - 1 ? kStop : 0;
    bytes.push_back(static_cast<uint8_t>(((difference >> (7 * group)) & 0x7F) | stop));
  }
}

std::vector<uint8_t> CutToLength(std::vector<uint8_t> bytes) {
  while (bytes.size() > kStreamBytes || (bytes.back() & kStop) == 0) {
    bytes.pop_back();
  }
  return bytes;
}

/// Light at twice the mains frequency, sampled `per_period` times in each period, in 12 bits.
std::vector<uint8_t> Ripple(double amplitude, double per_period, uint32_t seed) {
  constexpr double kMiddle = 2048;
  constexpr double kNoise = 2;
  std::mt19937 engine(seed);
  std::normal_distribution<double> noise(0, kNoise);
  std::vector<uint8_t> bytes;
  int previous = 0;
  for (int i = 0; bytes.size() < kStreamBytes; ++i) {
    const double phase = 2 * std::numbers::pi * i / per_period;
    const int sample =
        static_cast<int>(std::lround(kMiddle + amplitude * std::sin(phase) + noise(engine)));
    Append(bytes, sample - previous);
    previous = sample;
  }
  return CutToLength(std::move(bytes));
}

/// Differences of 1 to `max_groups` groups, equally often, in no order.
std::vector<uint8_t> Mixture(size_t max_groups, uint32_t seed) {
  std::mt19937 engine(seed);
  std::vector<uint8_t> bytes;
  while (bytes.size() < kStreamBytes) {
    for (size_t left = 1 + engine() % max_groups; left > 0; --left) {
      bytes.push_back(static_cast<uint8_t>((engine() & 0x7F) | (left == 1 ? kStop : 0)));
    }
  }
  return CutToLength(std::move(bytes));
}

}  // namespace

const std::vector<uint8_t>& MainsRipple() {
  static const std::vector<uint8_t> stream = Ripple(600, 100, 1);
  return stream;
}
const std::vector<uint8_t>& SteepRipple() {
  static const std::vector<uint8_t> stream = Ripple(1000, 95.5, 2);
  return stream;
}
const std::vector<uint8_t>& HalfAndHalf() {
  static const std::vector<uint8_t> stream = Mixture(2, 3);
  return stream;
}
const std::vector<uint8_t>& UniformGroups() {
  static const std::vector<uint8_t> stream = Mixture(4, 4);
  return stream;
}

}  // namespace hyl::v2::bench
