// SPDX-License-Identifier: Apache-2.0
// The converter on random streams, against the model.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <span>
#include <vector>

#include <gtest/gtest.h>

#include "sample_converter_twin.h"

namespace hyl::v2::test {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr int32_t kCompressed1 = SampleConverterModel::kCompressed1;

/// Appends a compressed-1 value: `groups` groups of 7 bits, the lowest first, with the stop flag on
/// the last.
void PutValue(uint64_t value, uint64_t groups, Bytes& bytes) {
  for (uint64_t i = 0; i < groups; ++i) {
    const uint64_t stop = i + 1 < groups ? 0 : 0x80;
    bytes.push_back(static_cast<uint8_t>((value >> (7 * i) & 0x7F) | stop));
  }
}

/// Sends a converter and its model what a sensor, or a faulty framework, may send.
class RandomScript {
 public:
  explicit RandomScript(uint64_t seed) : engine_(seed) {}

  /// Returns the number of samples converted.
  size_t Run(int steps) {
    for (int i = 0; i < steps && !testing::Test::HasFailure(); ++i) {
      Step();
    }
    return samples_;
  }

 private:
  void Step() {
    switch (Below(7)) {
      case 0:
        return SetOutput();
      case 1:
        return twin_.ResetCounters();
      case 2:
        return Configure();
      default:
        return SendStream();
    }
  }

  void SetOutput() {
    const std::optional<size_t> capacity = Below(OneOf({8, 300, 3000}));
    const uint64_t bits = OneIn(2) ? Below(256) : OneOf({8, 12, 16, 24, 32});
    twin_.SetOutput(OneIn(10) ? std::nullopt : capacity, static_cast<uint8_t>(bits));
  }

  void Configure() {
    kind_ = static_cast<int32_t>(
        OneIn(20) ? engine_() : OneOf({1, 2, 3, 4, 7, kCompressed1, kCompressed1, kCompressed1}));
    const bool little_endian = OneIn(2);
    const auto msb = static_cast<uint8_t>(Below(OneIn(10) ? 256 : 10));
    const auto lsb = static_cast<uint8_t>(Below(OneIn(10) ? 256 : 10));
    twin_.Configure(kind_, little_endian, msb, lsb);
  }

  /// Cuts a stream anywhere and sends the pieces. Some are lost, some come twice.
  void SendStream() {
    const Bytes stream = kind_ == kCompressed1 ? Values() : AnyBytes();
    for (std::span<const uint8_t> left = stream; !left.empty();) {
      const auto piece = left.first(PieceSize(left.size()));
      for (uint64_t times = OneIn(8) ? Below(3) : 1; times > 0; --times) {
        Convert(piece);
      }
      left = left.subspan(piece.size());
    }
    if (OneIn(10)) {
      Convert({});
    }
  }

  void Convert(std::span<const uint8_t> chunk) {
    twin_.AskSeqNum(twin_.TotalBytes() + static_cast<uint32_t>(OneIn(4) ? engine_() : 0));
    const uint64_t restart = Below(128) * 2 + (OneIn(10) ? 1 : 0);
    if (twin_.Convert(chunk, static_cast<uint8_t>(restart))) {
      samples_ += twin_.Samples().size();
    }
  }

  size_t PieceSize(size_t left) {
    const size_t size = OneIn(4) ? left : 1 + Below(OneOf({24, 300}));
    // Whole samples for the formats of fixed width, most of the time.
    const size_t unit = kind_ == kCompressed1 || OneIn(10) ? 1 : 12;
    return std::min(left, (size + unit - 1) / unit * unit);
  }

  /// Mostly values of one length: a sensor's streams have long runs of them.
  Bytes Values() {
    const uint64_t rarity = OneOf({1, 5, 50, 1000});
    const uint64_t usual_groups = OneIn(2) ? 1 : 1 + Below(4);
    Bytes bytes;
    for (uint64_t count = Below(OneOf({20, 200, 1500})); count > 0; --count) {
      PutValue(engine_(), OneIn(rarity) ? 1 + Below(4) : usual_groups, bytes);
      if (OneIn(1000)) {
        PutValue(0, 5, bytes);  // cannot be read
      }
    }
    return bytes;
  }

  Bytes AnyBytes() {
    Bytes bytes(12 * Below(OneOf({30, 30, 30, 300})));
    std::ranges::generate(bytes, [this] { return static_cast<uint8_t>(engine_()); });
    return bytes;
  }

  uint64_t Below(uint64_t limit) { return engine_() % limit; }
  bool OneIn(uint64_t n) { return Below(n) == 0; }
  uint64_t OneOf(std::initializer_list<uint64_t> choices) {
    return choices.begin()[Below(choices.size())];
  }

  std::mt19937_64 engine_;
  ConverterTwin twin_;
  int32_t kind_ = 0;
  size_t samples_ = 0;
};

TEST(SampleConverterPropertyTest, DoesAsTheModel) {
  size_t samples = 0;
  for (uint64_t seed = 0; seed < 1000 && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    samples += RandomScript(seed).Run(60);
  }
  EXPECT_GT(samples, 100000U) << "the streams are too poor to show anything";
}

}  // namespace
}  // namespace hyl::v2::test
