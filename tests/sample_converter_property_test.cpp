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

constexpr int32_t kCompressed1 = 6;
constexpr int32_t k16BitsIn2 = 7;

class Random {
 public:
  explicit Random(uint64_t seed) : engine_(seed) {}

  uint64_t Below(uint64_t limit) { return engine_() % limit; }
  bool OneIn(uint64_t n) { return Below(n) == 0; }
  uint8_t Byte() { return static_cast<uint8_t>(engine_()); }

 private:
  std::mt19937_64 engine_;
};

/// Appends a compressed-1 value: `groups` groups of 7 bits, the lowest first, with the stop flag on
/// the last.
void PutValue(int32_t value, int groups, Bytes& bytes) {
  for (int i = 0; i < groups; ++i) {
    const uint32_t group = static_cast<uint32_t>(value >> (7 * i)) & 0x7FU;
    bytes.push_back(static_cast<uint8_t>(i + 1 < groups ? group : group | 0x80U));
  }
}

/// Drives a converter and its model with what a sensor, and a framework gone mad, may send.
class RandomScript {
 public:
  explicit RandomScript(uint64_t seed) : random_(seed) {}

  void Run(int steps) {
    for (int i = 0; i < steps && twin_.Difference().empty(); ++i) Step();
  }
  const ConverterTwin& Twin() const { return twin_; }

 private:
  void Step() {
    switch (random_.Below(8)) {
      case 0:
        return twin_.SetOutput(Capacity(), Bits());
      case 1:
        return twin_.ResetCounters();
      case 2:
        return Configure();
      case 3:
        return twin_.AskSeqNum(Offset());
      default:
        return SendStream();
    }
  }

  std::optional<size_t> Capacity() {
    if (random_.OneIn(10)) return std::nullopt;
    constexpr uint64_t kLimits[] = {8, 300, 3000};
    return random_.Below(kLimits[random_.Below(3)]);
  }

  uint8_t Bits() {
    constexpr uint8_t kUsual[] = {8, 12, 16, 24, 32};
    return random_.OneIn(2) ? random_.Byte() : kUsual[random_.Below(5)];
  }

  void Configure() {
    constexpr int32_t kKinds[] = {1, 2, 3, 4, k16BitsIn2, kCompressed1, kCompressed1, kCompressed1};
    kind_ = random_.OneIn(20) ? static_cast<int32_t>(random_.Below(UINT32_MAX))
                              : kKinds[random_.Below(8)];
    const auto msb = static_cast<uint8_t>(random_.Below(random_.OneIn(10) ? 256 : 10));
    const auto lsb = static_cast<uint8_t>(random_.Below(random_.OneIn(10) ? 256 : 10));
    twin_.Configure(kind_, random_.OneIn(2), msb, lsb);
  }

  uint32_t Offset() {
    const uint32_t total = twin_.Converter().total_bytes_;
    const auto distance = static_cast<uint32_t>(random_.Below(1000));
    switch (random_.Below(4)) {
      case 0:
        return total - distance;
      case 1:
        return static_cast<uint32_t>(random_.Below(uint64_t{UINT32_MAX} + 1));
      default:
        return total + distance;
    }
  }

  /// Cuts a stream anywhere, and sends the pieces; some get lost, some come twice.
  void SendStream() {
    const Bytes stream = kind_ == kCompressed1 ? Values() : Any();
    uint32_t offset = twin_.Converter().total_bytes_;
    bool restart = random_.OneIn(2);
    for (size_t at = 0; at < stream.size();) {
      const size_t size = PieceSize(stream.size() - at);
      const auto piece = std::span(stream).subspan(at, size);
      for (uint64_t times = random_.OneIn(8) ? random_.Below(3) : 1; times > 0; --times) {
        twin_.AskSeqNum(offset);
        const auto flags = static_cast<uint8_t>(random_.Byte() & 0xFEU);
        twin_.Convert(piece, static_cast<uint8_t>(flags | (restart ? 1U : 0U)));
        restart = random_.OneIn(10);
      }
      offset += static_cast<uint32_t>(size);
      at += size;
    }
    if (random_.OneIn(10)) twin_.Convert({}, random_.Byte());
  }

  size_t PieceSize(size_t left) {
    const size_t size = random_.OneIn(4) ? left : 1 + random_.Below(random_.OneIn(2) ? 24 : 300);
    // Whole samples for the formats of fixed width, most of the time.
    const size_t unit = kind_ == kCompressed1 || random_.OneIn(10) ? 1 : 12;
    return std::min(left, (size + unit - 1) / unit * unit);
  }

  /// Mostly values of one length, as there are long runs of them in the streams of a sensor.
  Bytes Values() {
    constexpr uint64_t kLimits[] = {20, 200, 1500};
    constexpr uint64_t kRarities[] = {1, 5, 50, 1000};
    const uint64_t rarity = kRarities[random_.Below(4)];
    const int usual_groups = random_.OneIn(2) ? 1 : AnyGroups();
    Bytes bytes;
    for (uint64_t count = random_.Below(kLimits[random_.Below(3)]); count > 0; --count) {
      const auto value = static_cast<int32_t>(static_cast<uint32_t>(random_.Below(UINT32_MAX)));
      PutValue(value, random_.OneIn(rarity) ? AnyGroups() : usual_groups, bytes);
      if (random_.OneIn(1000)) PutValue(0, 5, bytes);  // cannot be read
    }
    return bytes;
  }

  int AnyGroups() { return 1 + static_cast<int>(random_.Below(4)); }

  Bytes Any() {
    Bytes bytes(random_.Below(random_.OneIn(4) ? 300 : 30) * 12);
    for (uint8_t& byte : bytes) byte = random_.Byte();
    return bytes;
  }

  Random random_;
  ConverterTwin twin_;
  int32_t kind_ = 0;
};

TEST(SampleConverterPropertyTest, DoesAsTheModel) {
  size_t samples = 0;
  for (uint64_t seed = 0; seed < 1000; ++seed) {
    RandomScript script(seed);
    script.Run(60);
    ASSERT_EQ(script.Twin().Difference(), "") << "seed " << seed;
    samples += script.Twin().SampleCount();
  }
  EXPECT_GT(samples, 100000U) << "the streams are too poor to show anything";
}

}  // namespace
}  // namespace hyl::v2::test
